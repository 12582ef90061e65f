#include "inference/npu_model_loader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <vector>

#include "platform/fixed_paths.h"
#include "platform/log.h"

namespace {

constexpr const char* kDspPathVariable = "ADSP_LIBRARY_PATH";
constexpr const char* kDspPath = "/vendor/lib64/rfsa";
constexpr size_t kDspPathCompareLimit = 128;
constexpr const char* kCodeDetectModelName = "codeDetect";

// Points the DSP loader at the platform's skeleton libraries; false when the
// variable cannot be set.
bool SetDspSearchPath() {
    const char* current = getenv(kDspPathVariable);
    if (current != nullptr && strncmp(current, kDspPath, kDspPathCompareLimit) == 0) {
        LOGI("%s: %s is already set to %s\n", "SetEnv", kDspPathVariable, kDspPath);
        return true;
    }
    if (setenv(kDspPathVariable, kDspPath, 1) != 0) {
        LOGE("%s: %s is set to %s failed\n", "SetEnv", kDspPathVariable, kDspPath);
        return false;
    }
    LOGI("%s: %s is set to %s\n", "SetEnv", kDspPathVariable, kDspPath);
    return true;
}

// A wrapper whose model manager could not be created is never handed to a
// network and is not deleted either, so the adapter library it may have
// opened stays loaded, as the platform has always behaved. Keeping it here
// makes that deliberate rather than a lost pointer.
void KeepStrandedWrapper(zt::LibWrapper* wrapper) {
    static std::mutex guard;
    static std::vector<zt::LibWrapper*>* stranded = new std::vector<zt::LibWrapper*>();
    std::lock_guard<std::mutex> lock(guard);
    stranded->push_back(wrapper);
}

}  // namespace

const char* ModelTypeName(ModelType type) {
    const size_t index = static_cast<size_t>(type);
    return index < gModelTypeNames.size() ? gModelTypeNames[index].c_str() : "";
}

uint64_t GetFileLength(char const* path) {
    if (path == nullptr) {
        return 0;
    }
    // Opened without blocking and measured through the descriptor: a FIFO
    // would otherwise wait for a writer, and a directory or device has no
    // length worth handing to the adapter. Only a regular file counts.
    const int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    struct stat info = {};
    if (fd < 0 || fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        if (fd >= 0) close(fd);
        printf("open file %s failed\n", path);
        return 0;
    }
    close(fd);
    return info.st_size > 0 ? static_cast<uint64_t>(info.st_size) : 0;
}

int ReadFile(char const* path, void* buffer, int size) {
    if (path == nullptr || buffer == nullptr || size < 1) {
        printf("invalid file name: %p buf: %p size: %d\n", static_cast<const void*>(path), buffer,
               size);
        return -1;
    }
    FILE* file = fopen(path, "rb");
    if (file == nullptr) {
        printf("open file %s failed\n", path);
        return -1;
    }
    auto* bytes = static_cast<unsigned char*>(buffer);
    size_t total = 0;
    const size_t want = static_cast<size_t>(size);
    // A short read means the file ended early (replaced or truncated since it
    // was measured) or could not be read; a further read would add nothing,
    // so report once and give up rather than wait for bytes that never come.
    for (;;) {
        total += fread(bytes + total, 1, want - total, file);
        if (total == want) {
            break;
        }
        printf("Error: read %lu, but want to read: %d\n", static_cast<unsigned long>(total), size);
        if (feof(file) || ferror(file)) {
            fclose(file);
            return -1;
        }
        const long position = ftell(file);
        if (position != static_cast<long>(total)) {
            printf("Error: read: %zu pos: %zu", total, static_cast<size_t>(position));
        }
    }
    printf("read %s success!\n", path);
    fclose(file);
    return 0;
}

namespace {

// The adapter's model manager and the wrapper it was looked up through.
struct AdapterManager {
    zt::LibWrapper* wrapper = nullptr;
    NNModelManager* manager = nullptr;
};

// Creates the wrapper (the library itself is opened by the first function
// lookup) and the model manager; false, logged, when either fails.
bool CreateModelManager(AdapterManager& adapter) {
    auto* wrapper = new (std::nothrow) zt::LibWrapper();
    if (wrapper == nullptr) {
        LOGE("%s() Load libZtNNAdapter failed", "LoadNpuModel");
        return false;
    }
    LOGD("%s() libZtNNAdapter successful loaded: %p", "LoadNpuModel", static_cast<void*>(wrapper));

    NNModelManagerConfig managerConfig = {};
    managerConfig.fixed32 = 1;
    managerConfig.fixed40 = 1;
    auto createManager = ResolveAdapterFunction<NNModelManagerCreateWithConfigFn>(
        wrapper, "NNModelManagerCreateWithConfig");
    NNModelManager* manager = createManager != nullptr ? createManager(&managerConfig) : nullptr;
    LOGD("%s() create ModelManager, mAiModelManager=%p", "LoadNpuModel",
         static_cast<void*>(manager));
    if (manager == nullptr) {
        LOGE("mAiModelManager == nullptr\n");
        KeepStrandedWrapper(wrapper);
        return false;
    }
    adapter = {wrapper, manager};
    return true;
}

// Hands the manager to the network; on failure destroys both again.
bool InitNetwork(NpuNetwork& net, const AdapterManager& adapter, const char* modelName,
                 ModelType type) {
    if (net.Init(adapter.wrapper, modelName, type, adapter.manager)) {
        return true;
    }
    LOGE("init detect_quantized model fail!");
    auto destroy =
        ResolveAdapterFunction<NNModelManagerDestroyFn>(adapter.wrapper, "NNModelManagerDestroy");
    if (destroy != nullptr) {
        destroy(adapter.manager);
    }
    delete adapter.wrapper;
    // The network keeps its raised flag and the stale pointers.
    return false;
}

// The tensor descriptors handed over with the model: one record each for
// inputs and outputs, shared by every entry of its array, so the adapter only
// ever sees the last tensor's values. Filled in place, as the arrays point
// into it.
struct TensorDescriptors {
    NNTensorConfig* inputs[kMaxInputs] = {};
    NNTensorConfig* outputs[kMaxOutputs] = {};
    NNTensorConfig input = {};
    NNTensorConfig output = {};
    int outputCount = 0;
};

// Fills `d` from the network's shapes; returns the model file to load ("" for
// a model type without one).
const char* DescribeTensors(NpuNetwork& net, ModelType type, TensorDescriptors& d) {
    const int inputNum = net.GetInputLayers();
    LOGI("inputNum is %d", inputNum);
    const int outputNum = net.GetOutputLayers();
    LOGI("outputNum is %d", outputNum);
    d.outputCount = outputNum;
    std::vector<int> inputShapes(4 * static_cast<size_t>(inputNum));
    std::vector<int> outputShapes(4 * static_cast<size_t>(outputNum));
    net.GetInputOutputShape(inputShapes.data(), outputShapes.data(), inputNum, outputNum);
    if (type != CODE_DETECT) {
        return "";
    }
    for (int i = 0; i < inputNum; ++i) {
        d.input = MakeTensorConfig(&inputShapes[4 * i], kInputTensorName, i);
        d.inputs[i] = &d.input;
    }
    for (int i = 0; i < outputNum; ++i) {
        d.output = MakeTensorConfig(&outputShapes[4 * i], kOutputTensorNames[i], i);
        d.outputs[i] = &d.output;
    }
    const char* modelPath = kModelFilePath;
    LOGI("modelPath is %s", modelPath);
    return modelPath;
}

// Reads the model file and loads it into the manager; the adapter's status.
// A missing or unreadable file gives an empty buffer, which the status
// reports.
int32_t LoadModelFile(const AdapterManager& adapter, const char* modelName,
                      TensorDescriptors& tensors, const char* modelPath) {
    const int32_t modelSize = static_cast<int32_t>(GetFileLength(modelPath));
    auto* modelData = new char[modelSize > 0 ? modelSize : 0];
    ReadFile(modelPath, modelData, modelSize);

    NNModelDescriptor descriptor = {};
    descriptor.name = modelName;
    descriptor.data = modelData;
    descriptor.size = modelSize;
    descriptor.magic = kModelDescriptorMagic;
    descriptor.fixed28 = 1;
    descriptor.fixed32 = 2;
    descriptor.fixed36 = 0;
    descriptor.inputCount = 1;
    descriptor.outputCount = tensors.outputCount;
    descriptor.inputs = tensors.inputs;
    descriptor.outputs = tensors.outputs;

    const timeval start = TimeMark();
    auto loadModel =
        ResolveAdapterFunction<NNModelLoadFromBufferFn>(adapter.wrapper, "NNModelLoadFromBuffer");
    const int32_t status = loadModel != nullptr ? loadModel(adapter.manager, &descriptor, 1) : -1;
    LogSyncTime("NNModelLoadFromFiles cost time: ", start);
    delete[] modelData;
    return status;
}

}  // namespace

int LoadNpuModel(NpuNetwork& net) {
    std::lock_guard<NetLock> lock(net.netLock);
    LOGI("load npu model in");
    const ModelType type = net.GetModelType();
    LOGI("modelType:%d", static_cast<int>(type));
    if (net.GetLoadFlag()) {
        LOGD("Already loaded: %s", ModelTypeName(type));
        net.loadCount.fetch_add(1);
        return 0;
    }
    LOGD("ready to load %s model", ModelTypeName(type));

    if (!SetDspSearchPath()) {
        LOGE("%s: failed to ADSP_LIBRARY_PATH\n", "LoadNpuModel");
        return -1;
    }
    AdapterManager adapter;
    const char* modelName = type == CODE_DETECT ? kCodeDetectModelName : "";
    if (!CreateModelManager(adapter) || !InitNetwork(net, adapter, modelName, type)) {
        return -1;
    }
    TensorDescriptors tensors;
    const char* modelPath = DescribeTensors(net, type, tensors);
    const int32_t status = LoadModelFile(adapter, modelName, tensors, modelPath);
    if (status != 0) {
        // The manager and wrapper stay with the network for its unload.
        LOGE("load from Files, ret=%d", status);
        return -1;
    }
    LOGI("load from Files success, ret=%d", status);
    net.loadCount.fetch_add(1);
    net.SetLoadedFlag(true);
    LOGD("Load Npu model success");
    return 0;
}
