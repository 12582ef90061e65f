// Helpers shared by the warp tests: exact picture comparison, the crop
// rectangle around a box, and readable names for scene parameters.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <string>

#include <opencv2/core.hpp>

namespace scancode_test {

inline bool SameMat(const cv::Mat& a, const cv::Mat& b) {
    return a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0;
}

// The crop the warp step cuts around a box: half a box side larger,
// shifted rather than shrunk at the top and left frame edges and cut at the
// right and bottom ones.
inline cv::Rect CropAround(const cv::Rect& b, const cv::Size& frame) {
    const int left = static_cast<int>(std::max(0.0f, b.x - 0.25f * b.width));
    const int top = static_cast<int>(std::max(0.0f, b.y - 0.25f * b.height));
    return {left, top, std::min(static_cast<int>(1.5f * b.width), frame.width - left),
            std::min(static_cast<int>(1.5f * b.height), frame.height - top)};
}

// Test names from scene names: anything but letters and digits becomes '_'.
template <typename Scene>
std::string SceneName(const ::testing::TestParamInfo<Scene>& info) {
    std::string name = info.param.name;
    for (char& c : name)
        if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
    return name;
}

}  // namespace scancode_test
