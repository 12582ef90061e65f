#include "entry/qr_code_manager.h"

#include "detect/code_detect_graph.h"
#include "inference/code_detect.h"
#include "platform/log.h"

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
    paddingImg = cv::Mat::zeros(640, 640, CV_8UC3);
    inputImg = cv::Mat::zeros(640, 640, CV_32FC3);
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
