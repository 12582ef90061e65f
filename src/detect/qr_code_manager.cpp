#include "detect/qr_code_manager.h"

#include "detect/code_detect_graph.h"
#include "inference/code_detect.h"
#include "inference/detector_layout.h"
#include "platform/log.h"

// The library's one manager and the flag it records; built at load before
// the entry's globals, torn down after them.
QRCodeManager g_codeManager;
bool g_StopEngineFlag = false;

QRCodeManager::QRCodeManager() : initDone(false), codeDetectbase(nullptr) {
    codeDetectbase = GetCodeDetect();
}

QRCodeManager::~QRCodeManager() {
    if (codeDetectbase != nullptr) {
        delete codeDetectbase;
        codeDetectbase = nullptr;
    }
}

int QRCodeManager::Init() {
    LOGI("OcrManager::Init()");
    if (codeDetectbase == nullptr) {
        LOGE("codeDetectbase is null");
        return -1;
    }
    const int ret = codeDetectbase->LoadModel();
    // Fresh zeroed images for every user, whether or not the model loaded.
    constexpr int side = detector_layout::kInputSide;
    paddingImg = cv::Mat::zeros(side, side, CV_8UC3);
    inputImg = cv::Mat::zeros(side, side, CV_32FC3);
    return ret;
}

int QRCodeManager::InitCodeDetectbase() {
    codeDetectbase = GetCodeDetect();
    return codeDetectbase != nullptr ? 0 : -1;
}

int QRCodeManager::RunQRCode(cv::Mat& image, std::vector<cv::Rect>& boxes,
                             const QRRatioInfo& ratioInfo, ZoomInfoResult& zoomResult,
                             WarpInfo& warpInfo, std::vector<QRInformation>& qrInfos) {
    CodeDetectGraph graph;
    return graph.QRCodeDetect(image, boxes, ratioInfo, zoomResult, warpInfo, qrInfos);
}

int QRCodeManager::UnloadModels() {
    const int ret = codeDetectbase->UnloadModel();
    resizeImg.release();
    paddingImg.release();
    inputImg.release();
    return ret;
}

void QRCodeManager::SetStopEngineFlag(bool stop) {
    g_StopEngineFlag = stop;
}

CodeDetectbase* QRCodeManager::getCodeDetectbase() {
    return codeDetectbase;
}
