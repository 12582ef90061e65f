// The network lock, and the set-up and teardown of NpuNetwork that need no
// adapter.
#include "inference/network.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "inference/npu_network.h"
#include "log_capture.h"

using scancode_test::LogCapture;

namespace {

TEST(NetLock, ReleaseIsHarmlessAndAllowedFromAnyThread) {
    NetLock lock;
    lock.unlock();  // never taken: stays free
    ASSERT_TRUE(lock.try_lock());
    EXPECT_FALSE(lock.try_lock()) << "not recursive";

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

}  // namespace
