#pragma once

#include <cstdint>

#include <opencv2/core.hpp>

// Per-frame warp request and outcome.
struct WarpInfo {
    bool needWarp;  // in: straighten a lone elongated code
    bool hasWarp;   // out: a straightened picture was pasted into the frame
};

// One straightened crop.
struct WarpResult {
    cv::Mat warpImg;  // square picture; empty when rectification gave nothing
    bool isValid;     // !warpImg.empty()
};

// Geometry of one straightened code: crop coordinates while rectifying,
// frame coordinates once the warp step returns.
struct QRInformation {
    bool isValid;
    int32_t qrSize;
    cv::Point2f topLeft;
    cv::Point2f topRight;
    cv::Point2f bottomRight;
    cv::Point2f bottomLeft;
};
