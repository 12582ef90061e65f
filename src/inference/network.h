// The abstract inference network, the buffer record of the queued-task
// operations and the table of model tasks.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "inference/model_type.h"
#include "inference/net_lock.h"

#if defined(__ANDROID__)
#include <android/asset_manager.h>
#else
struct AAssetManager;
#endif

// Request of the request-style run; nothing in this library builds one.
struct _VornRequest;

// One tensor handed to or returned by the queued-task operations: float
// elements for an input, unsigned bytes for an output.
struct NetWorkBuffer {
    void* data;
    uint64_t reserved;  // carried along, never read
};

struct ModelTask {
    std::string modelPath;
    AAssetManager* assetManager;  // not owned
};

extern std::map<ModelType, ModelTask> gModelTasks;

// Records path and asset manager of each type in gModelTasks (replacing an
// earlier entry). `managers` and `paths` must be at least as long as `types`.
void StoreModelsPath(std::vector<AAssetManager*> managers, char const** paths,
                     std::vector<ModelType> types);

// Reading models through the asset manager is not supported: always -1.
int DataRead(AAssetManager* manager, std::string const& path, char*& data, int& size);

// Every operation has a default body; NpuNetwork is the one real network.
// The virtual functions are declared in a fixed order that is kept stable.
class Network {
  public:
    Network() = default;
    virtual ~Network() = default;

    // Copies the model type only (read through GetModelType()), so a fresh
    // network of some type can be assigned onto a member network without
    // touching its lock, flag or name.
    virtual void operator=(Network const& other);

    virtual bool GetInputAndOutputFromModel() { return true; }
    virtual bool SetupModel() { return true; }
    virtual int RunModel() { return 1; }
    virtual int RunModel(_VornRequest&) { return -1; }
    virtual void Await() {}
    virtual int EnqueueTask(NetWorkBuffer const&, NetWorkBuffer&) { return -1; }
    virtual int EnqueueTaskSnpe(NetWorkBuffer const&, std::vector<NetWorkBuffer>&) { return -1; }
    virtual void TeardownModel() {}
    virtual int UnloadModel() { return 0; }
    virtual void SetLoadedFlag(bool flag) { loadFlag.store(flag); }
    virtual float* GetInputBuffer(int) { return nullptr; }
    virtual float* GetOutputBuffer(int, int*) { return nullptr; }
    virtual unsigned char* GetOutputUint8Buffer(int, int*) { return nullptr; }
    virtual void GetInputOutputShape(int*, int*, int, int) {}
    virtual ModelType GetModelType() const { return modelType; }
    virtual void SetModelType(ModelType type) { modelType = type; }
    virtual bool GetLoadFlag() { return loadFlag.load(); }
    virtual int GetInputLayers() { return 1; }
    virtual int GetOutputLayers() { return 5; }

    std::string modelName;
    std::atomic<bool> loadFlag{false};
    ModelType modelType = MODEL_TYPE_MAX;
    NetLock netLock;
    std::atomic<int32_t> loadCount{0};
    int32_t auxSetting = 2;  // fixed; nothing reads it
};

// Forward to the virtual operation of the same role.
bool SetupModel(Network& net);
int RunModel(Network& net);
void TearDownModel(Network& net);
int UnloadModel(Network& net);
