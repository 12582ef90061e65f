// One frame's detection pipeline: letterbox, inference, boxes, zoom, and
// straightening of a lone code.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "detect/qr_ratio_info.h"
#include "warp/warp_types.h"

class CodeDetectGraph {
  public:
    // 0: zoom written, or not exactly one code; -1: nothing usable found;
    // -2: exactly one code but no zoom fits (the warp still ran if asked).
    int QRCodeDetect(cv::Mat& frame, std::vector<cv::Rect>& boxes, const QRRatioInfo& ratioInfo,
                     ZoomInfoResult& zoomResult, WarpInfo& warpInfo,
                     std::vector<QRInformation>& qrInfos);
};

class CodeDetectInferenceCalculator {
  public:
    CodeDetectInferenceCalculator() = default;
    ~CodeDetectInferenceCalculator();
    CodeDetectInferenceCalculator(const CodeDetectInferenceCalculator&) = delete;
    CodeDetectInferenceCalculator& operator=(const CodeDetectInferenceCalculator&) = delete;

    // Prepares the network input from the frame and runs the detector; on
    // success hands the output buffer (detector_layout::kOutputValues floats)
    // to `output` (the caller then owns it).
    int InferenceProcess(cv::Mat& frame, float*& output);

  private:
    float* outputBuffer = nullptr;
};

// Letterboxes `src` into a width x height CV_32FC3 image `dst`: scaled to
// fit, anchored at the top-left, black padding at the bottom and right. The
// intermediate images are the manager's, reused from frame to frame.
void ResizePaddingRegular(cv::Mat& src, cv::Mat& dst, int width, int height, int unused);
