// Everything that happens to one frame after inference: box decoding and
// suppression, the zoom suggestion, and straightening a lone code.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "detect/qr_ratio_info.h"
#include "warp/warp_types.h"

class CodeDetectPostprocesCalculator {
  public:
    // Box decoding (postprocess.cpp, score_sort.cpp, suppression.cpp). Takes
    // ownership of `output` (new[] of detector_layout::kOutputValues floats)
    // and releases it.
    int PostProcess(int cols, int rows, float* output, std::vector<cv::Rect>& boxes, int& count);
    int process(float* head, int gridRows, int gridCols, int stride, std::vector<float>& boxes,
                std::vector<float>& scores, std::vector<int>& classIds);
    int quickSortIndiceInverse(std::vector<float>& scores, int left, int right,
                               std::vector<int>& order);
    int nms(int count, std::vector<float>& boxes, std::vector<int> classIds,
            std::vector<int>& order, int classId, float threshold);
    float CalculateOverlap(float xmin0, float ymin0, float xmax0, float ymax0, float xmin1,
                           float ymin1, float xmax1, float ymax1);

    // Zoom suggestion (zoom.cpp).
    int zoomCalculate(int cols, int rows, std::vector<cv::Rect>& boxes, const QRRatioInfo& limits,
                      ZoomInfoResult& result, bool& noZoomNeeded);

    // Straightening (warp_steps.cpp, handing over to warp/warp_process.h).
    int warpQRProcess(cv::Mat& frame, const std::vector<cv::Rect>& boxes, WarpInfo& warpInfo,
                      std::vector<QRInformation>& qrInfos);
    int warpAlgo(std::vector<cv::Mat>& crops, std::vector<WarpResult>& results,
                 std::vector<QRInformation>& qrInfos);
};

// cv::boundingRect of the four corners of every box: one past the boxes'
// right and bottom edges, as the zoom suggestion measures distances.
cv::Rect CommonBox(const std::vector<cv::Rect>& boxes);

// qsort comparator over floats: the difference truncated to int, so values
// less than one apart compare equal.
int compare(const void* a, const void* b);
