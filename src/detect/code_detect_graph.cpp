#include "detect/code_detect_graph.h"

#include "detect/postprocess_calculator.h"
#include "platform/log.h"

int CodeDetectGraph::QRCodeDetect(cv::Mat& frame, std::vector<cv::Rect>& boxes,
                                  const QRRatioInfo& ratioInfo, ZoomInfoResult& zoomResult,
                                  WarpInfo& warpInfo, std::vector<QRInformation>& qrInfos) {
    const timeval start = TimeMark();
    const int rows = frame.rows;
    const int cols = frame.cols;

    CodeDetectInferenceCalculator inference;
    float* output = nullptr;
    if (inference.InferenceProcess(frame, output) != 0) {
        return -1;
    }

    CodeDetectPostprocesCalculator post;
    int count = 0;  // boxes that survived suppression, before the edge filter
    if (post.PostProcess(cols, rows, output, boxes, count) != 0) {
        return -1;
    }

    bool noZoomNeeded = false;
    const int zoomRet = post.zoomCalculate(cols, rows, boxes, ratioInfo, zoomResult, noZoomNeeded);
    LogSyncTime("Time of inferenceZoom is ", start);

    // Straightening is for a lone code only.
    if (count != 1) {
        return 0;
    }
    const timeval warpStart = TimeMark();
    if (zoomRet != 0) {
        LOGD("the first warpQRProcess");
        if (warpInfo.needWarp) {
            post.warpQRProcess(frame, boxes, warpInfo, qrInfos);
        }
        return -2;
    }
    LOGD("the second warpQRProcess");
    if (warpInfo.needWarp) {
        post.warpQRProcess(frame, boxes, warpInfo, qrInfos);
    }
    LogSyncTime("Time of warpQRProcess is ", warpStart);
    return 0;
}
