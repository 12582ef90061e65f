#include "inference/code_detect.h"

#include <memory>

#include "inference/memcpy_s.h"
#include "inference/npu_model_loader.h"
#include "inference/tensor_convert.h"
#include "platform/log.h"

namespace {

constexpr int kInputBytes = detector_layout::kInputFloats * static_cast<int>(sizeof(float));

}  // namespace

int CodeDetectbase::Init() {
    return 0;
}

int CodeDetectbase::CodeDetect(float*, float*, int) {
    LOGE("Encode error: base class virtual function");
    return -1;
}

int CodeDetectbase::CodeDetect(float*, unsigned char*, int) {
    LOGE("Encode error: base class virtual function");
    return -1;
}

bool CodeDetectbase::GetLoadFlag() {
    return true;
}

int CodeDetectbase::DoCodeDetect(Network& net, float* in, float* out, int /*n*/) {
    const int inputs = net.GetInputLayers();
    const int outputs = net.GetOutputLayers();
    std::unique_ptr<int[]> inShapes(new int[4 * static_cast<size_t>(inputs > 0 ? inputs : 0)]);
    std::unique_ptr<int[]> outShapes(new int[4 * static_cast<size_t>(outputs > 0 ? outputs : 0)]);
    net.GetInputOutputShape(inShapes.get(), outShapes.get(), inputs, outputs);

    float* inputBuffer = net.GetInputBuffer(0);
    if (memcpy_s(inputBuffer, kInputBytes, in, kInputBytes) != 0) {
        LOGE("memcpy_s FAIL");
        return -1;
    }
    if (inputBuffer == nullptr) {
        LOGE("fail to get inputbuffer");
        return -1;
    }

    const timeval start = TimeMark();
    const int ret = net.RunModel();
    LogSyncTime("run code detect model time", start);
    LOGD("run model ret: %d", ret);
    if (ret != 0) {
        LOGE("run code detect model fail");
        return ret;
    }

    size_t offset = 0;
    for (int i = 0; i < outputs && i < detector_layout::kHeadCount; ++i) {
        const unsigned char* quantized = net.GetOutputUint8Buffer(i, nullptr);
        if (quantized == nullptr) {
            LOGI("confOutputBuffer get nullptr");
            return -1;  // outputs already written stay written
        }
        const int* shape = &outShapes[4 * static_cast<size_t>(i)];
        const int count = shape[0] * shape[1] * shape[2] * shape[3];
        // Straight into the caller's array: going through a temporary array
        // would only move the same bytes once more.
        if (out != nullptr) {
            const detector_layout::Head& head = detector_layout::kHeads[i];
            Uint8ToFP32(count, quantized, out + offset, head.zeroPoint, head.scale);
        }
        offset += static_cast<size_t>(count > 0 ? count : 0);
    }
    return 0;
}

CodeDetectNpu::CodeDetectNpu() {
    NpuNetwork typed;
    typed.SetModelType(CODE_DETECT);
    network = typed;  // carries the type only
}

int CodeDetectNpu::Init() {
    return 0;
}

bool CodeDetectNpu::GetLoadFlag() {
    const bool flag = network.GetLoadFlag();
    LOGD("code detect base GetLoadFlag, flag = %d", flag ? 1 : 0);
    return flag;
}

int CodeDetectNpu::LoadModel() {
    if (GetLoadFlag()) {
        LOGI("EdgeDetectNpu model already loadedret: %d", 0);
        return 0;
    }
    LOGD("Load edge detect models");
    timeval start = TimeMark();
    const int ret = LoadNpuModel(network);
    LogSyncTime("Load edge detect model", start);
    if (ret != 0) {
        LOGE("load edge detect model failed, ret: %d", ret);
        return ret;
    }
    start = TimeMark();
    if (!network.SetupModel()) {
        LOGD("edge detection SetupModel fail");
        return -1;
    }
    LogSyncTime("edge detection SetupModel cost time", start);
    return 0;
}

int CodeDetectNpu::CodeDetect(float* in, float* out, int n) {
    if (!GetLoadFlag()) {
        LOGD("Load CodeDetectNelk models");
        const timeval start = TimeMark();
        const int ret = LoadNpuModel(network);
        LogSyncTime("Load CodeDetectNelk model", start);
        // Set-up is checked before the load result.
        if (!network.SetupModel()) {
            LOGE("code detection SetupModel fail");
            return -1;
        }
        if (ret != 0) {
            LOGE("load code detect model failed, ret: %d", ret);
            return ret;
        }
    }
    const int ret = DoCodeDetect(network, in, out, n);
    if (ret != 0) {
        LOGE("do code detect failed");
    }
    return ret;
}

int CodeDetectNpu::UnloadModel() {
    const int ret = network.UnloadModel();
    network.TeardownModel();  // releases the lock that SetupModel took
    return ret;
}

CodeDetectbase* GetCodeDetect() {
    return new CodeDetectNpu();
}
