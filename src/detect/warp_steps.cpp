// The calculator's straightening steps belong to the warp module; the
// calculator only hands the frame over.
#include "detect/postprocess_calculator.h"
#include "warp/warp_process.h"

int CodeDetectPostprocesCalculator::warpQRProcess(cv::Mat& frame,
                                                  const std::vector<cv::Rect>& boxes,
                                                  WarpInfo& warpInfo,
                                                  std::vector<QRInformation>& qrInfos) {
    return scancode::warpQRProcess(frame, boxes, warpInfo, qrInfos);
}

int CodeDetectPostprocesCalculator::warpAlgo(std::vector<cv::Mat>& crops,
                                             std::vector<WarpResult>& results,
                                             std::vector<QRInformation>& qrInfos) {
    return scancode::warpAlgo(crops, results, qrInfos);
}
