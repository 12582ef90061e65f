#include "detect/code_detect_graph.h"
#include "detect/qr_code_manager.h"
#include "inference/code_detect.h"
#include "inference/detector_layout.h"
#include "platform/log.h"
#include "scancode.h"

CodeDetectInferenceCalculator::~CodeDetectInferenceCalculator() {
    // Only a buffer that was never handed out is still ours (failed or
    // cancelled frames); releasing it keeps those frames from leaking.
    delete[] outputBuffer;
}

int CodeDetectInferenceCalculator::InferenceProcess(cv::Mat& frame, float*& output) {
    const timeval start = TimeMark();
    CodeDetectbase* detector = g_codeManager.getCodeDetectbase();
    if (detector == nullptr) {
        LOGE("CodeDetectionNelk is null");
        return -1;
    }
    delete[] outputBuffer;
    outputBuffer = new float[detector_layout::kOutputValues];

    ResizePaddingRegular(frame, g_codeManager.inputImg, detector_layout::kInputSide,
                         detector_layout::kInputSide, 0);
    float* inputData = reinterpret_cast<float*>(g_codeManager.inputImg.data);
    if (inputData == nullptr) {
        LOGE("code detect inputData is null");  // the detector's own result decides
    }
    LOGD("inputImg col is %d, row is %d, channel is %d, types is %d", g_codeManager.inputImg.cols,
         g_codeManager.inputImg.rows, g_codeManager.inputImg.channels(),
         g_codeManager.inputImg.type());

    const int ret = detector->CodeDetect(inputData, outputBuffer, detector_layout::kOutputValues);
    LOGD("addr of outputBuffer is %p", static_cast<void*>(outputBuffer));
    // The host may raise the flag from any thread; it is read once per frame.
    if (__atomic_load_n(&g_cancelRun, __ATOMIC_RELAXED)) {
        return -1;
    }
    if (ret != 0) {
        LOGE("code detect error");
        return -1;
    }
    output = outputBuffer;
    outputBuffer = nullptr;
    LOGD("addr of codeDetectOutBuff is %p", static_cast<void*>(output));
    LOGD("code detect inference successful");
    LogSyncTime("Time of InferenceProcess is ", start);
    return 0;
}
