// The network that runs a quantized model on the NPU through the platform's
// adapter library.
#pragma once

#include <string>
#include <vector>

#include "inference/adapter_records.h"
#include "inference/lib_wrapper.h"
#include "inference/network.h"

class NpuNetwork : public Network {
  public:
    NpuNetwork() = default;
    // Releases nothing: UnloadModel and TeardownModel must run before a
    // loaded network goes away.
    ~NpuNetwork() override = default;
    // Assignment carries the model type only, as for every network.
    using Network::operator=;
    void operator=(NpuNetwork const& other) { Network::operator=(other); }

    // Raises the loaded flag first of all (it stays up even when a later step
    // of the load fails), then takes over `lib` and `manager` and learns the
    // tensor shapes of `type`.
    bool Init(zt::LibWrapper* lib, std::string name, ModelType type, NNModelManager* manager);

    bool GetInputAndOutputFromModel() override;
    // Allocates the float input; holds netLock on success until TeardownModel.
    bool SetupModel() override;
    int RunModel() override;
    using Network::RunModel;
    int EnqueueTask(NetWorkBuffer const& in, NetWorkBuffer& out) override;
    int EnqueueTaskSnpe(NetWorkBuffer const& in, std::vector<NetWorkBuffer>& out) override;
    void TeardownModel() override;
    int UnloadModel() override;
    float* GetInputBuffer(int i) override;
    float* GetOutputBuffer(int i, int* shape) override;
    unsigned char* GetOutputUint8Buffer(int i, int* shape) override;
    void GetInputOutputShape(int* inShapes, int* outShapes, int inNum, int outNum) override;
    int GetInputLayers() override { return inputNum; }
    int GetOutputLayers() override { return outputNum; }

    // Creates the adapter tensors once; 0 or -1.
    int AllocateTensor();
    // Destroys the adapter tensors; the next run creates them again.
    int ReleaseTensor();

    NNTensorBuffer* mInputTensor = nullptr;
    NNTensorBuffer* outputTensors[kMaxOutputs] = {};
    bool tensorsAllocated = false;
    zt::LibWrapper* libWrapper = nullptr;
    NNModelManager* mAiModelManager = nullptr;
    int inputNum = 0;
    int outputNum = 0;
    int inputShape[4] = {};
    int outputShapes[kMaxOutputs][4] = {};
    float* inputBuffer[kMaxInputs] = {};
    float* outputBuffer[kMaxOutputs] = {};
    unsigned char* outputUint8Buffer[kMaxOutputs] = {};

  private:
    // Shared by the two queued-task operations: quantizes `in` into the input
    // tensor and runs; the memory of `fetchOutputs` outputs lands in `outData`.
    int EnqueueCommon(NetWorkBuffer const& in, int fetchOutputs, void** outData);
    // The element memory of `tensor`, looked up at the moment of use.
    void* TensorData(NNTensorBuffer* tensor);
};

// Tensor names as the model knows them; the input has index 0, output i has
// index i.
extern const char* const kInputTensorName;
extern const char* const kOutputTensorNames[kMaxOutputs];

// Fills a tensor record from an N, C, H, W shape (the record wants N, H, W, C).
NNTensorConfig MakeTensorConfig(const int* nchw, const char* name, int index);

// Elements of an N, C, H, W shape.
inline int ShapeElements(const int* shape) {
    return shape[0] * shape[1] * shape[2] * shape[3];
}
