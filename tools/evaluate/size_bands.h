// The code-size bands every figure of the evaluation is reported in, written
// once here. A code's size is the larger side of its truth box in pixels of
// the network's input: frame pixels times the letterbox scale
// min(640 / width, 640 / height). The edges follow the detector's heads
// (stride 8 answers below 56 px, 16 up to 120, 32 up to 240, 64 above), with
// the stride-8 range split where small codes start to fail.
#pragma once

#include <algorithm>
#include <array>

#include "inference/detector_layout.h"

struct SizeBand {
    const char* name;
    double lo, hi;  // [lo, hi) in input pixels
};

inline constexpr std::array<SizeBand, 6> kSizeBands = {{{"<24", 0, 24},
                                                        {"24-40", 24, 40},
                                                        {"40-56", 40, 56},
                                                        {"56-120", 56, 120},
                                                        {"120-240", 120, 240},
                                                        {">=240", 240, 1e9}}};

inline int SizeBandOf(double inputPx) {
    for (size_t i = 0; i < kSizeBands.size(); ++i)
        if (inputPx < kSizeBands[i].hi) return static_cast<int>(i);
    return static_cast<int>(kSizeBands.size()) - 1;
}

// Frame pixels to input pixels, as the library letterboxes to 640 x 640.
inline double InputScale(int width, int height) {
    constexpr double side = detector_layout::kInputSide;
    return std::min(side / width, side / height);
}
