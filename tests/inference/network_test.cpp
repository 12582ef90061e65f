// The model-task table, the network lock, and the parts of NpuNetwork and the
// code detector that need no adapter.
#include "inference/network.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "inference/code_detect.h"
#include "inference/npu_network.h"
#include "log_capture.h"

using scancode_test::LogCapture;

namespace {

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

TEST(NetLock, ReleaseIsHarmlessAndAllowedFromAnyThread) {
    NetLock lock;
    lock.unlock();  // never taken: stays free
    ASSERT_TRUE(lock.try_lock());
    EXPECT_FALSE(lock.try_lock()) << "not recursive";
    std::thread([&] { lock.unlock(); }).join();
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
    LogCapture logs;
    std::thread([&] { net.TeardownModel(); }).join();
    EXPECT_TRUE(logs.Contains(4, "TeardownModel"));
    EXPECT_EQ(net.GetInputBuffer(0), nullptr);
    EXPECT_TRUE(net.netLock.try_lock());
    net.netLock.unlock();
    net.TeardownModel();  // again, never set up: harmless
}

TEST(NpuNetwork, InitRaisesTheFlagEvenWhenTheTypeIsUnknown) {
    NpuNetwork net;
    LogCapture logs;
    EXPECT_FALSE(net.Init(nullptr, "x", MODEL_TYPE_MAX, nullptr));
    EXPECT_TRUE(net.GetLoadFlag());
    EXPECT_TRUE(logs.Contains(6, "get input and out tensor info failed"));
    logs.Clear();
    EXPECT_EQ(RunModel(net), -1) << "no set-up: nothing to run";
    EXPECT_TRUE(logs.Contains(6, "NpuNetwork AllocateTensor fail: not loaded."));
}

}  // namespace
