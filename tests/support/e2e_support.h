// Frames in, crafted network outputs out: what the end-to-end tests need to
// drive the library through its public header and the scripted adapter.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "inference/detector_layout.h"
#include "scripted_adapter.h"

namespace scancode_test {

// Tightly packed NV21 of a BGR picture (even sizes): BT.601 through OpenCV's
// I420, chroma interleaved V, U.
inline std::vector<uint8_t> ToNV21(const cv::Mat& bgr) {
    cv::Mat i420;
    cv::cvtColor(bgr, i420, cv::COLOR_BGR2YUV_I420);
    const size_t luma = static_cast<size_t>(bgr.cols) * bgr.rows;
    std::vector<uint8_t> nv21(luma * 3 / 2);
    const uint8_t* p = i420.ptr<uint8_t>();
    std::copy(p, p + luma, nv21.begin());
    const uint8_t* u = p + luma;
    const uint8_t* v = u + luma / 4;
    for (size_t i = 0; i < luma / 4; ++i) {
        nv21[luma + 2 * i] = v[i];
        nv21[luma + 2 * i + 1] = u[i];
    }
    return nv21;
}

inline std::vector<uint8_t> GreyNV21(int width, int height, uint8_t luma) {
    std::vector<uint8_t> nv21(static_cast<size_t>(width) * height * 3 / 2, 128);
    std::fill(nv21.begin(), nv21.begin() + static_cast<size_t>(width) * height, luma);
    return nv21;
}

using detector_layout::Head;
using detector_layout::kHeadCount;
using detector_layout::kHeads;
using detector_layout::kInputSide;

// Quantized output maps served by the scripted adapter. All zero decodes to
// logits far below the score threshold: nothing is detected.
class OutputMaps {
  public:
    OutputMaps() {
        for (int i = 0; i < kHeadCount; ++i) maps_[i].assign(kHeads[i].Values(), 0);
    }

    // Makes the cell of `head` under the centre of `box` (input pixels) fire
    // for a box as close to it as the quantization allows, and returns the box
    // the library will decode from it.
    cv::Rect2f Place(int head, const cv::Rect2f& box) {
        const Head& h = kHeads[head];
        const int col =
            std::clamp(static_cast<int>((box.x + box.width / 2) / h.stride), 0, h.Grid() - 1);
        const int row =
            std::clamp(static_cast<int>((box.y + box.height / 2) / h.stride), 0, h.Grid() - 1);
        const float cx = static_cast<float>(h.stride / 2 + col * h.stride);
        const float cy = static_cast<float>(h.stride / 2 + row * h.stride);
        const float distances[4] = {cx - box.x, cy - box.y, box.x + box.width - cx,
                                    box.y + box.height - cy};
        uint8_t* cell = &maps_[head][(row * h.Grid() + col) * detector_layout::kValuesPerCell];
        float e[4];
        for (int k = 0; k < 4; ++k) {
            const double q =
                std::lround(std::log(std::max(distances[k], 1.0f)) / h.scale) - h.zeroPoint;
            cell[k] = static_cast<uint8_t>(std::clamp(q, 0.0, 255.0));
            e[k] = std::exp(Dequantize(head, cell[k]));
        }
        cell[4] = static_cast<uint8_t>(-h.zeroPoint);  // a logit of 0: well above threshold
        return {cx - e[0], cy - e[1], e[2] + e[0], e[3] + e[1]};
    }

    void Serve() const {
        for (int i = 0; i < kHeadCount; ++i)
            ScriptedAdapterSetOutput(i, maps_[i].data(), maps_[i].size());
    }

    const std::vector<uint8_t>& map(int head) const { return maps_[head]; }

    static float Dequantize(int head, uint8_t q) {
        return static_cast<float>((static_cast<double>(q) + kHeads[head].zeroPoint) *
                                  static_cast<double>(kHeads[head].scale));
    }

  private:
    std::vector<uint8_t> maps_[kHeadCount];
};

// A frame box in the letterboxed input (kInputSide square).
inline cv::Rect2f ToInput(const cv::Rect& frameBox, int cols, int rows) {
    const float side = static_cast<float>(kInputSide);
    const float s = std::min(side / static_cast<float>(cols), side / static_cast<float>(rows));
    return {frameBox.x * s, frameBox.y * s, frameBox.width * s, frameBox.height * s};
}

// True when `lines` holds lines starting with each of `prefixes`, in order.
inline bool HasInOrder(const std::vector<std::string>& lines,
                       const std::vector<std::string>& prefixes, std::string* missing = nullptr) {
    size_t at = 0;
    for (const std::string& prefix : prefixes) {
        while (at < lines.size() && lines[at].compare(0, prefix.size(), prefix) != 0) ++at;
        if (at == lines.size()) {
            if (missing) *missing = prefix;
            return false;
        }
        ++at;
    }
    return true;
}

}  // namespace scancode_test
