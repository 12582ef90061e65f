// Builds detector output buffers cell by cell, the way the detector lays
// them out: five square heads one after another, six floats per cell (log
// distances to the left, top, right and bottom edges, score logit, unused).
#pragma once

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "inference/detector_layout.h"

namespace scancode_test {

constexpr int kOutputFloats = detector_layout::kOutputValues;
constexpr float kRejectedLogit = -5.0f;

class OutputBuffer {
  public:
    OutputBuffer() : values_(kOutputFloats, 0.0f) {
        for (int i = detector_layout::kScoreValue; i < kOutputFloats;
             i += detector_layout::kValuesPerCell) {
            values_[i] = kRejectedLogit;
        }
    }

    // Raw log distances and logit for cell (r, c) of a head.
    void SetCell(int head, int r, int c, float logLeft, float logTop, float logRight,
                 float logBottom, float logit) {
        float* v = Cell(head, r, c);
        const float cell[] = {logLeft, logTop, logRight, logBottom, logit};
        std::copy(cell, cell + 5, v);
    }
    float* Cell(int head, int r, int c) {
        const int grid = detector_layout::kHeads[head].Grid();
        return &values_[detector_layout::OutputOffset(head) +
                        (r * grid + c) * detector_layout::kValuesPerCell];
    }

    const float* data() const { return values_.data(); }
    // A copy allocated the way the detector allocates it; PostProcess frees it.
    float* NewCopy() const {
        float* out = new float[kOutputFloats];
        std::memcpy(out, values_.data(), sizeof(float) * kOutputFloats);
        return out;
    }

  private:
    std::vector<float> values_;
};

// Cell centre along one axis, in input pixels.
inline float CellCentre(int head, int index) {
    const int s = detector_layout::kHeads[head].stride;
    return static_cast<float>(s / 2 + index * s);
}

// A log value whose single-precision exponential is exactly d when some float
// gives that, else the nearest one from the requested side (below: exp <= d).
inline float LogFor(float d, bool below = true) {
    float f = std::log(d);
    for (int k = 0; k < 64 && std::exp(f) > d; ++k) f = std::nextafter(f, -INFINITY);
    for (int k = 0; k < 64 && std::exp(f) < d; ++k) f = std::nextafter(f, INFINITY);
    if (std::exp(f) == d) return f;
    // Now exp(f) > d.
    return below ? std::nextafter(f, -INFINITY) : f;
}

}  // namespace scancode_test
