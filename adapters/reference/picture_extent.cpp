#include "picture_extent.h"

#include <algorithm>

namespace scanref {
namespace {

int RoundUp(int value, int step, int limit) {
    return std::min((value + step - 1) / step * step, limit);
}

}  // namespace

cv::Size PictureExtent(const uint8_t* planes, int count, int height, int width, int step) {
    const size_t planeBytes = static_cast<size_t>(height) * width;
    auto rowHolds = [&](int r) {
        for (int k = 0; k < count; ++k) {
            const cv::Mat row(
                1, width, CV_8U,
                const_cast<uint8_t*>(planes + k * planeBytes + static_cast<size_t>(r) * width));
            if (cv::countNonZero(row) > 0) return true;
        }
        return false;
    };
    int rows = height;
    while (rows > 0 && !rowHolds(rows - 1)) --rows;

    // Columns: per row, only the bytes right of the widest extent found so far
    // are looked at, so a landscape picture costs one byte a row.
    int cols = 0;
    for (int k = 0; k < count && cols < width; ++k) {
        for (int r = 0; r < rows && cols < width; ++r) {
            const uint8_t* p = planes + k * planeBytes + static_cast<size_t>(r) * width;
            for (int c = width - 1; c >= cols; --c) {
                if (p[c] != 0) {
                    cols = c + 1;
                    break;
                }
            }
        }
    }
    return {RoundUp(cols + step, step, width), RoundUp(rows + step, step, height)};
}

}  // namespace scanref
