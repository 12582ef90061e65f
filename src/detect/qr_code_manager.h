// The library's one manager: owns the code detector and the network's input
// images, loads and unloads the model, and runs one detection pass per frame.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "detect/qr_ratio_info.h"
#include "platform/export.h"
#include "warp/warp_types.h"

class CodeDetectbase;

class QRCodeManager {
  public:
    QRCodeManager();
    virtual ~QRCodeManager();
    QRCodeManager(const QRCodeManager&) = delete;
    QRCodeManager& operator=(const QRCodeManager&) = delete;

    // Loads the model and (re)allocates the two input images, each
    // detector_layout::kInputSide square.
    int Init();
    // Replaces the detector without deleting the previous one; unused by the library.
    int InitCodeDetectbase();
    int RunQRCode(cv::Mat& image, std::vector<cv::Rect>& boxes, const QRRatioInfo& ratioInfo,
                  ZoomInfoResult& zoomResult, WarpInfo& warpInfo,
                  std::vector<QRInformation>& qrInfos);
    int UnloadModels();
    void SetStopEngineFlag(bool stop);
    CodeDetectbase* getCodeDetectbase();

    bool initDone;
    cv::Mat resizeImg;   // the frame scaled to fit the input square
    cv::Mat paddingImg;  // input square, CV_8UC3: resizeImg padded at the bottom and right
    cv::Mat inputImg;    // input square, CV_32FC3: paddingImg as floats, the network input
    CodeDetectbase* codeDetectbase;
};

// The handle Init gives out is this object's address.
extern SCANCODE_EXPORT QRCodeManager g_codeManager;
extern SCANCODE_EXPORT bool g_StopEngineFlag;
