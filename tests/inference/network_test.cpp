// The network interface's defaults, the model-task table, the network lock,
// and the parts of NpuNetwork and the code detector that need no adapter.
#include "inference/network.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "inference/code_detect.h"
#include "inference/npu_network.h"
#include "log_capture.h"

using scancode_test::LogCapture;

namespace {

TEST(Network, DefaultResults) {
    Network net;
    EXPECT_TRUE(net.modelName.empty());
    EXPECT_FALSE(net.GetLoadFlag());
    EXPECT_EQ(net.GetModelType(), MODEL_TYPE_MAX);
    EXPECT_EQ(net.loadCount.load(), 0);
    EXPECT_EQ(net.auxSetting, 2);

    EXPECT_TRUE(net.GetInputAndOutputFromModel());
    EXPECT_TRUE(net.SetupModel());
    // The plain run reports 1 while the request and queue forms report -1.
    EXPECT_EQ(net.RunModel(), 1);
    EXPECT_EQ(net.RunModel(*reinterpret_cast<_VornRequest*>(&net)), -1);
    NetWorkBuffer in{nullptr, 0};
    NetWorkBuffer out{nullptr, 0};
    std::vector<NetWorkBuffer> outs(4);
    EXPECT_EQ(net.EnqueueTask(in, out), -1);
    EXPECT_EQ(net.EnqueueTaskSnpe(in, outs), -1);
    EXPECT_EQ(net.UnloadModel(), 0);
    EXPECT_EQ(net.GetInputBuffer(0), nullptr);
    int shape[4] = {5, 5, 5, 5};
    EXPECT_EQ(net.GetOutputBuffer(0, shape), nullptr);
    EXPECT_EQ(net.GetOutputUint8Buffer(0, shape), nullptr);
    net.GetInputOutputShape(shape, shape, 1, 1);
    EXPECT_EQ(shape[0], 5);
    EXPECT_EQ(net.GetInputLayers(), 1);
    EXPECT_EQ(net.GetOutputLayers(), 5);

    net.SetLoadedFlag(true);
    EXPECT_TRUE(net.GetLoadFlag());
    net.SetModelType(RESOLUTION);
    EXPECT_EQ(net.GetModelType(), RESOLUTION);
}

TEST(Network, ForwardersReachTheVirtualOperations) {
    Network base;
    EXPECT_TRUE(SetupModel(base));
    EXPECT_EQ(RunModel(base), 1);
    EXPECT_EQ(UnloadModel(base), 0);
    TearDownModel(base);

    NpuNetwork npu;  // not loaded: its own operations answer
    EXPECT_FALSE(SetupModel(npu));
    LogCapture logs;
    EXPECT_EQ(RunModel(npu), -1);
    EXPECT_TRUE(logs.Contains(6, "NpuNetwork AllocateTensor fail: not loaded."));
}

TEST(Network, AssignmentCarriesOnlyTheType) {
    NpuNetwork target;
    target.modelName = "kept";
    target.SetLoadedFlag(true);
    target.netLock.lock();
    target.inputNum = 1;

    NpuNetwork source;
    source.SetModelType(CODE_DETECT);
    source.modelName = "other";
    source.outputNum = 5;
    target = source;

    EXPECT_EQ(target.GetModelType(), CODE_DETECT);
    EXPECT_EQ(target.modelName, "kept");
    EXPECT_TRUE(target.GetLoadFlag());
    EXPECT_EQ(target.inputNum, 1);
    EXPECT_EQ(target.outputNum, 0);
    EXPECT_FALSE(target.netLock.try_lock()) << "the target's lock is still held";
    target.netLock.unlock();

    // Through the base interface as well.
    Network& asBase = target;
    Network other;
    other.SetModelType(PATCH_SCORE);
    asBase = other;
    EXPECT_EQ(target.GetModelType(), PATCH_SCORE);
}

TEST(ModelTasks, StoreReplacesAndLogs) {
    gModelTasks.clear();
    auto* first = reinterpret_cast<AAssetManager*>(0x10);
    auto* second = reinterpret_cast<AAssetManager*>(0x20);
    const char* paths1[] = {"/a/first.bin", "/a/res.bin"};
    const char* paths2[] = {"/b/second.bin"};
    LogCapture logs;
    StoreModelsPath({first, first}, paths1, {CODE_DETECT, RESOLUTION});
    StoreModelsPath({second}, paths2, {CODE_DETECT});
    StoreModelsPath({}, nullptr, {});

    ASSERT_EQ(gModelTasks.size(), 2u);
    EXPECT_EQ(gModelTasks[CODE_DETECT].modelPath, "/b/second.bin");
    EXPECT_EQ(gModelTasks[CODE_DETECT].assetManager, second);
    EXPECT_EQ(gModelTasks[RESOLUTION].modelPath, "/a/res.bin");
    EXPECT_EQ(logs.texts(),
              (std::vector<std::string>{"model 0 : /a/first.bin", "model 1 : /a/res.bin",
                                        "model 0 : /b/second.bin"}));
    gModelTasks.clear();
}

TEST(ModelTasks, DataReadIsUnsupported) {
    char* data = reinterpret_cast<char*>(0x1);
    int size = 77;
    EXPECT_EQ(DataRead(nullptr, "model.bin", data, size), -1);
    EXPECT_EQ(data, reinterpret_cast<char*>(0x1));
    EXPECT_EQ(size, 77);
}

TEST(NetLock, ReleaseIsHarmlessAndAllowedFromAnyThread) {
    NetLock lock;
    lock.unlock();  // never taken: stays free
    lock.unlock();
    ASSERT_TRUE(lock.try_lock());
    EXPECT_FALSE(lock.try_lock()) << "not recursive";

    std::thread other([&] { lock.unlock(); });
    other.join();
    EXPECT_TRUE(lock.try_lock());

    // A waiter is woken by a release from a third thread.
    std::atomic<bool> acquired{false};
    std::thread waiter([&] {
        lock.lock();
        acquired = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(acquired.load());
    std::thread([&] { lock.unlock(); }).join();
    waiter.join();
    EXPECT_TRUE(acquired.load());
    lock.unlock();
}

TEST(NpuNetwork, SetupHoldsTheLockUntilTeardown) {
    NpuNetwork net;
    EXPECT_FALSE(net.SetupModel()) << "flag down";
    EXPECT_TRUE(net.netLock.try_lock()) << "a refused set-up leaves the lock free";
    net.netLock.unlock();

    ASSERT_TRUE(net.Init(nullptr, "codeDetect", CODE_DETECT, nullptr));
    ASSERT_TRUE(net.SetupModel());
    ASSERT_NE(net.GetInputBuffer(0), nullptr);
    EXPECT_EQ(net.outputBuffer[0], nullptr) << "the detector reads the adapter's bytes";
    EXPECT_FALSE(net.netLock.try_lock());

    LogCapture logs;
    std::thread([&] { net.TeardownModel(); }).join();
    EXPECT_TRUE(logs.Contains(4, "TeardownModel"));
    EXPECT_EQ(net.GetInputBuffer(0), nullptr);
    EXPECT_TRUE(net.netLock.try_lock());
    net.netLock.unlock();
    net.TeardownModel();  // again, never set up: harmless
}

TEST(NpuNetwork, OtherTypesGetFloatOutputBuffers) {
    NpuNetwork net;
    ASSERT_TRUE(net.Init(nullptr, "", CLARITY_EVALUATION, nullptr));
    ASSERT_TRUE(net.SetupModel());
    ASSERT_NE(net.outputBuffer[0], nullptr);
    int shape[4] = {};
    EXPECT_EQ(net.GetOutputBuffer(0, shape), net.outputBuffer[0]);
    EXPECT_EQ(std::vector<int>(shape, shape + 4), (std::vector<int>{1, 1, 384, 384}));
    EXPECT_EQ(net.GetOutputBuffer(1, shape), nullptr);
    net.TeardownModel();
    EXPECT_EQ(net.outputBuffer[0], nullptr);
}

TEST(NpuNetwork, InitRaisesTheFlagEvenWhenTheTypeIsUnknown) {
    NpuNetwork net;
    LogCapture logs;
    EXPECT_FALSE(net.Init(nullptr, "x", MODEL_TYPE_MAX, nullptr));
    EXPECT_TRUE(net.GetLoadFlag());
    EXPECT_TRUE(logs.Contains(6, "get input and out tensor info failed"));
}

TEST(NpuNetwork, ShapeGettersHonourTheStoredCounts) {
    NpuNetwork net;
    ASSERT_TRUE(net.Init(nullptr, "codeDetect", CODE_DETECT, nullptr));
    EXPECT_EQ(net.GetInputLayers(), 1);
    EXPECT_EQ(net.GetOutputLayers(), 5);
    int in[4] = {};
    int out[20] = {};
    net.GetInputOutputShape(in, out, 1, 5);
    EXPECT_EQ(std::vector<int>(in, in + 4), (std::vector<int>{1, 3, 640, 640}));
    EXPECT_EQ(out[16], 1);
    EXPECT_EQ(out[19], 5);
    int shape[4] = {};
    net.outputUint8Buffer[4] = reinterpret_cast<unsigned char*>(&shape);
    EXPECT_EQ(net.GetOutputUint8Buffer(4, shape), reinterpret_cast<unsigned char*>(&shape));
    EXPECT_EQ(std::vector<int>(shape, shape + 4), (std::vector<int>{1, 6, 5, 5}));
    EXPECT_EQ(net.GetOutputUint8Buffer(5, nullptr), nullptr);
    EXPECT_EQ(net.GetInputBuffer(1), nullptr);
}

// The interface's own answers: LoadModel and UnloadModel are all a detector
// has to provide.
class BareDetector : public CodeDetectbase {
  public:
    int LoadModel() override { return 0; }
    int UnloadModel() override { return 0; }
};

TEST(CodeDetectbase, BaseDetectorFailsEveryDetection) {
    BareDetector detector;
    float in[4] = {};
    float out[4] = {};
    unsigned char bytes[4] = {};
    LogCapture logs;
    EXPECT_EQ(detector.CodeDetect(in, out, 51150), -1);
    EXPECT_EQ(detector.CodeDetect(in, bytes, 0), -1);
    EXPECT_EQ(logs.Count("Encode error: base class virtual function"), 2u);
    EXPECT_TRUE(detector.GetLoadFlag());
    EXPECT_EQ(detector.Init(), 0);
}

TEST(CodeDetectNpu, StartsUnloadedWithTheCodeDetectType) {
    std::unique_ptr<CodeDetectbase> detector(GetCodeDetect());
    auto* npu = dynamic_cast<CodeDetectNpu*>(detector.get());
    ASSERT_NE(npu, nullptr);
    EXPECT_EQ(npu->network.GetModelType(), CODE_DETECT);
    EXPECT_TRUE(npu->network.modelName.empty());
    EXPECT_FALSE(detector->GetLoadFlag());
    EXPECT_EQ(detector->Init(), 0);
    unsigned char bytes[4] = {};
    float in[4] = {};
    EXPECT_EQ(detector->CodeDetect(in, bytes, 0), -1) << "the 8-bit overload stays unsupported";
}

TEST(CodeDetectNpu, DequantizationParameters) {
    const uint32_t bits[5] = {0x3D8770D6, 0x3E20543D, 0x3D8FFE36, 0x3D920F70, 0x3DA9CDF9};
    for (int i = 0; i < 5; ++i) {
        uint32_t actual;
        memcpy(&actual, &kCodeDetectScales[i], 4);
        EXPECT_EQ(actual, bits[i]) << i;
    }
    EXPECT_EQ(std::vector<int>(kCodeDetectZeroPoints, kCodeDetectZeroPoints + 5),
              (std::vector<int>{-189, -221, -178, -168, -255}));
}

}  // namespace
