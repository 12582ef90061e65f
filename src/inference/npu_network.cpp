#include "inference/npu_network.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "inference/detector_layout.h"
#include "inference/quantize.h"
#include "platform/log.h"

const char* const kInputTensorName = detector_layout::kInputName;
const char* const kOutputTensorNames[kMaxOutputs] = {
    detector_layout::kHeads[0].name, detector_layout::kHeads[1].name,
    detector_layout::kHeads[2].name, detector_layout::kHeads[3].name,
    detector_layout::kHeads[4].name};

namespace {

// The adapter's run timeout argument; fixed.
constexpr int32_t kRunTimeout = 1000;
// Name the queued-task operations run their model under.
constexpr const char* kQueuedModelName = "DocDetect";

}  // namespace

NNTensorConfig MakeTensorConfig(const int* nchw, const char* name, int index) {
    NNTensorConfig config = {};
    config.dims[0] = nchw[0];
    config.dims[1] = nchw[2];
    config.dims[2] = nchw[3];
    config.dims[3] = nchw[1];
    config.fixed0 = 0;
    config.dimCount = 4;
    config.fixed1 = 1;
    config.name = name;
    config.index = index;
    return config;
}

bool NpuNetwork::Init(zt::LibWrapper* lib, std::string name, ModelType type,
                      NNModelManager* manager) {
    // Raised before anything can fail, and deliberately left up afterwards.
    loadFlag.store(true);
    modelName = std::move(name);
    modelType = type;
    libWrapper = lib;
    mAiModelManager = manager;
    const bool ok = GetInputAndOutputFromModel();
    if (!ok) {
        LOGE("get input and out tensor info failed");
    }
    return ok;
}

bool NpuNetwork::GetInputAndOutputFromModel() {
    if (!SetModelInputOutput(modelType, inputShape, &outputShapes[0][0], inputNum, outputNum)) {
        return false;
    }
    if (inputNum > 1) {
        return false;
    }
    return outputNum < 6;
}

float* NpuNetwork::GetInputBuffer(int i) {
    return i >= 0 && i < inputNum ? inputBuffer[i] : nullptr;
}

float* NpuNetwork::GetOutputBuffer(int i, int* shape) {
    if (i < 0 || i >= outputNum) {
        return nullptr;
    }
    if (shape != nullptr) {
        memcpy(shape, outputShapes[i], sizeof outputShapes[i]);
    }
    return outputBuffer[i];
}

unsigned char* NpuNetwork::GetOutputUint8Buffer(int i, int* shape) {
    if (i < 0 || i >= outputNum) {
        return nullptr;
    }
    if (shape != nullptr) {
        memcpy(shape, outputShapes[i], sizeof outputShapes[i]);
    }
    return outputUint8Buffer[i];
}

void NpuNetwork::GetInputOutputShape(int* inShapes, int* outShapes, int inNum, int outNum) {
    // The counts are the caller's; only what is stored can be handed out.
    if (inShapes != nullptr && inNum > 0) {
        memcpy(inShapes, inputShape, sizeof(int) * 4 * std::min(inNum, kMaxInputs));
    }
    if (outShapes != nullptr && outNum > 0) {
        memcpy(outShapes, outputShapes, sizeof(int) * 4 * std::min(outNum, kMaxOutputs));
    }
}

bool NpuNetwork::SetupModel() {
    if (!loadFlag.load()) {
        return false;
    }
    LOGD("before netLock_lock()");
    netLock.lock();
    LOGD("end netLock_lock()");
    for (int i = 0; i < inputNum; ++i) {
        LOGD("enter SetupModel");
        const int count = ShapeElements(inputShape);
        inputBuffer[i] = new (std::nothrow) float[count];
        LOGD("inputBuffer size is %d", count);
        LOGD("inputBuffer ptr is %p", static_cast<void*>(inputBuffer[i]));
        if (inputBuffer[i] == nullptr) {
            LOGE("allocate input buffer failed");
            netLock.unlock();
            return false;
        }
    }
    if (outputNum >= 1 && modelType != CODE_DETECT) {
        for (int i = 0; i < outputNum; ++i) {
            outputBuffer[i] = new (std::nothrow) float[ShapeElements(outputShapes[i])];
            if (outputBuffer[i] == nullptr) {
                LOGE("allocate output buffer failed");
                netLock.unlock();
                return false;
            }
        }
    }
    // netLock stays held while the model is set up; TeardownModel releases it.
    return true;
}

int NpuNetwork::AllocateTensor() {
    if (mAiModelManager == nullptr || !loadFlag.load()) {
        LOGE("NpuNetwork AllocateTensor fail: not loaded.");
        return -1;
    }
    if (tensorsAllocated) {
        return 0;
    }
    const timeval start = TimeMark();
    for (int i = 0; i < inputNum; ++i) {
        const NNTensorConfig config = MakeTensorConfig(inputShape, kInputTensorName, 0);
        auto create = ResolveAdapterFunction<NNTensorBufferCreateWithConfigFn>(
            libWrapper, "NNTensorBufferCreateWithConfig");
        NNTensorBuffer* tensor = create != nullptr ? create(mAiModelManager, &config) : nullptr;
        if (tensor == nullptr) {
            LOGE("NpuNetwork allocateBuffer input failed.\n");
            return -1;
        }
        LOGD("mInputTensor Created");
        mInputTensor = tensor;
    }
    for (int i = 0; i < outputNum; ++i) {
        const NNTensorConfig config = MakeTensorConfig(outputShapes[i], kOutputTensorNames[i], i);
        auto create = ResolveAdapterFunction<NNTensorBufferCreateWithConfigFn>(
            libWrapper, "NNTensorBufferCreateWithConfig");
        NNTensorBuffer* tensor = create != nullptr ? create(mAiModelManager, &config) : nullptr;
        if (tensor == nullptr) {
            LOGE("NpuNetwork allocateBuffer output failed.\n");
            return -1;
        }
        LOGD("outputTensors Created");
        outputTensors[i] = tensor;
    }
    LogSyncTime("NpuNetwork::AllocateTensor", start);
    tensorsAllocated = true;
    return 0;
}

void* NpuNetwork::TensorData(NNTensorBuffer* tensor) {
    auto getData =
        ResolveAdapterFunction<NNTensorBufferGetDataFn>(libWrapper, "NNTensorBufferGetData");
    return getData != nullptr ? getData(tensor) : nullptr;
}

int NpuNetwork::RunModel() {
    LOGD("NpuNetwork::RunModel(): %d", tensorsAllocated ? 1 : 0);
    if (!tensorsAllocated) {
        const int ret = AllocateTensor();
        if (ret != 0) {
            return ret;
        }
    }
    timeval start = TimeMark();
    const int n = ShapeElements(inputShape);
    LOGD("inputSize is %d", n);

    auto* inputData = static_cast<uint8_t*>(TensorData(mInputTensor));
    void* outputData[kMaxOutputs] = {};
    for (int i = 0; i < outputNum && i < kMaxOutputs; ++i) {
        outputData[i] = TensorData(outputTensors[i]);
        LOGD("outputData[cnt] addr_ %d is %p ", i, outputData[i]);
    }

    if (modelType == CODE_DETECT) {
        float* input = inputBuffer[0];
        if (input != nullptr && inputData != nullptr && n > 0) {
            // The input is on the 0..255 scale and the model's input scale is
            // 1/255, so the blocks write round-half-up of each pixel value.
            QuantizePixels(input, inputData, static_cast<size_t>(n));
        }
        LOGD("n is %d, c is %d, h is %d,w is %d", inputShape[0], inputShape[1], inputShape[2],
             inputShape[3]);
    } else {
        LOGE("model type error");
    }
    LogSyncTime("qnn quantized Fp32ToUint8:", start);
    start = TimeMark();

    auto run = ResolveAdapterFunction<NNModelRunFn>(libWrapper, "NNModelRun");
    const int32_t status = run != nullptr ? run(mAiModelManager, modelName.c_str(), &mInputTensor,
                                                1, outputTensors, outputNum, kRunTimeout)
                                          : -1;
    if (status != 0) {
        LOGE("NpuNetwork::NNModelRun run failed, ret is %d \n", status);
        return -1;
    }
    LOGD("time model name is %s", modelName.c_str());
    LogSyncTime("time qnn run:", start);
    start = TimeMark();

    for (int i = 0; i < outputNum && i < kMaxOutputs; ++i) {
        if (modelType != CODE_DETECT) {
            LOGE("modelType %d not support NPU", static_cast<int>(modelType));
            continue;
        }
        outputUint8Buffer[i] = static_cast<unsigned char*>(outputData[i]);
        LOGD("outputCnt is %d", outputNum);
        LOGD("outputUint8Buffer[i] addr_ %d is %p ", i, outputData[i]);
    }
    LogSyncTime("qnn dequantized:", start);
    return 0;
}

int NpuNetwork::EnqueueCommon(NetWorkBuffer const& in, int fetchOutputs, void** outData) {
    if (!tensorsAllocated) {
        const int ret = AllocateTensor();
        if (ret != 0) {
            return ret;
        }
    }
    timeval start = TimeMark();
    auto* inputData = static_cast<uint8_t*>(TensorData(mInputTensor));
    const bool snpe = fetchOutputs > 1;
    if (!snpe) {
        outData[0] = TensorData(outputTensors[0]);
    }
    const auto* input = static_cast<const float*>(in.data);
    if (inputData == nullptr || input == nullptr) {
        LOGE("Received a nullptr");
    } else {
        // Inputs on the 0..1 scale.
        QuantizeUnits(input, inputData,
                      static_cast<size_t>(std::max(ShapeElements(inputShape), 0)));
    }
    if (snpe) {
        outputNum = fetchOutputs;
        for (int i = 0; i < fetchOutputs; ++i) {
            outData[i] = TensorData(outputTensors[i]);
        }
    }
    LogSyncTime("crnn qnn quantized:", start);
    start = TimeMark();

    auto run = ResolveAdapterFunction<NNModelRunFn>(libWrapper, "NNModelRun");
    const int32_t status = run != nullptr ? run(mAiModelManager, kQueuedModelName, &mInputTensor, 1,
                                                outputTensors, 1, kRunTimeout)
                                          : -1;
    if (status != 0) {
        LOGE("NpuNetwork::NNModelRun run failed.\n");
        return -1;
    }
    LogSyncTime("crnn qnn run:", start);
    return 0;
}

int NpuNetwork::EnqueueTask(NetWorkBuffer const& in, NetWorkBuffer& out) {
    void* outData[1] = {};
    const int ret = EnqueueCommon(in, 1, outData);
    if (ret == 0) {
        out.data = outData[0];
    }
    return ret;
}

int NpuNetwork::EnqueueTaskSnpe(NetWorkBuffer const& in, std::vector<NetWorkBuffer>& out) {
    constexpr int kSnpeOutputs = 4;
    void* outData[kSnpeOutputs] = {};
    const int ret = EnqueueCommon(in, kSnpeOutputs, outData);
    if (ret == 0) {
        // The caller sizes the vector; it is not resized here.
        for (size_t i = 0; i < kSnpeOutputs && i < out.size(); ++i) {
            out[i].data = outData[i];
        }
    }
    return ret;
}

int NpuNetwork::ReleaseTensor() {
    const timeval start = TimeMark();
    NNTensorBuffer** handles[1 + kMaxOutputs] = {&mInputTensor};
    for (int i = 0; i < kMaxOutputs; ++i) {
        handles[1 + i] = &outputTensors[i];
    }
    for (NNTensorBuffer** handle : handles) {
        if (*handle == nullptr) {
            continue;
        }
        auto destroy =
            ResolveAdapterFunction<NNTensorBufferDestroyFn>(libWrapper, "NNTensorBufferDestroy");
        if (destroy != nullptr) {
            destroy(*handle);
        }
        *handle = nullptr;
    }
    tensorsAllocated = false;
    LogSyncTime("NpuNetwork::ReleaseTensor", start);
    return 0;
}

void NpuNetwork::TeardownModel() {
    LOGI("TeardownModel");
    delete[] inputBuffer[0];
    inputBuffer[0] = nullptr;
    if (modelType != CODE_DETECT) {
        for (float*& buffer : outputBuffer) {
            delete[] buffer;
            buffer = nullptr;
        }
    }
    // Also when SetupModel never took it: releasing a free NetLock is harmless.
    netLock.unlock();
}

int NpuNetwork::UnloadModel() {
    if (mAiModelManager == nullptr || !loadFlag.load()) {
        return 0;
    }
    ReleaseTensor();
    auto unload = ResolveAdapterFunction<NNModelUnloadFn>(libWrapper, "NNModelUnload");
    const int32_t status = unload != nullptr ? unload(mAiModelManager) : -1;
    LOGI("errorCode of NNModelUnload is %d.", status);
    auto destroy =
        ResolveAdapterFunction<NNModelManagerDestroyFn>(libWrapper, "NNModelManagerDestroy");
    if (destroy != nullptr) {
        destroy(mAiModelManager);
    }
    mAiModelManager = nullptr;
    if (libWrapper != nullptr) {
        delete libWrapper;  // closes the adapter library
        libWrapper = nullptr;
    }
    loadFlag.store(false);
    return 0;
}
