// Opening and closing the library: the user count, model loading and
// unloading as the adapter sees them, and frames that poison the session.
// Each test runs in a process of its own, so each starts from a fresh load.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "e2e_support.h"
#include "log_capture.h"
#include "scancode.h"

namespace scancode_test {
namespace {

std::vector<std::string> AdapterCalls() {
    std::vector<std::string> calls;
    for (int i = 0; i < ScriptedAdapterCallCount(); ++i)
        calls.push_back(ScriptedAdapterCallName(i));
    return calls;
}

size_t CountOf(const std::vector<std::string>& calls, const std::string& name) {
    return std::count(calls.begin(), calls.end(), name);
}

int RunGreyFrame(void* handle, int width = 320, int height = 240) {
    const std::vector<uint8_t> frame = GreyNV21(width, height, 90);
    std::vector<uint8_t> out(frame.size());
    ZoomInfoResult zoom{};
    WarpPicInfo pic{out.data(), false};
    return Process(handle, frame.data(), width, height, width, height, &zoom, &pic);
}

TEST(Lifecycle, LastUserUnloadsTheModel) {
    ScriptedAdapterReset();
    void* first = nullptr;
    void* second = nullptr;
    ASSERT_EQ(Init(&first), 0);
    ASSERT_EQ(Init(&second), 0);
    EXPECT_EQ(first, second);  // one manager, whatever the number of users
    EXPECT_EQ(CountOf(AdapterCalls(), "NNModelLoadFromBuffer"), 1u);
    EXPECT_EQ(RunGreyFrame(first), -1);

    LogCapture logs;
    EXPECT_EQ(DeInit(first), 0);
    EXPECT_EQ(CountOf(AdapterCalls(), "NNModelUnload"), 0u);
    EXPECT_FALSE(logs.Contains("DeInit() leave"));
    EXPECT_EQ(RunGreyFrame(second), -1);  // the model is still there

    EXPECT_EQ(DeInit(second), 0);
    const std::vector<std::string> calls = AdapterCalls();
    // Tensors go first, then the model, then its manager.
    const auto at = [&](const char* name) {
        return std::find(calls.begin(), calls.end(), name) - calls.begin();
    };
    EXPECT_LT(at("NNTensorBufferDestroy"), at("NNModelUnload"));
    EXPECT_LT(at("NNModelUnload"), at("NNModelManagerDestroy"));
    EXPECT_EQ(CountOf(calls, "NNTensorBufferDestroy"), 6u);
    EXPECT_EQ(ScriptedAdapterLiveTensors(), 0);
    EXPECT_EQ(ScriptedAdapterLiveManagers(), 0);
    EXPECT_TRUE(logs.Contains(4, "unloadModel ret: 0"));
    EXPECT_TRUE(logs.Contains(4, "DeInit() leave"));
}

// Without a user holding on, the count keeps crossing zero while other
// threads arrive: every load must be matched by an unload, nothing of the
// adapter may stay alive, and a later session must still work.
TEST(Lifecycle, SessionsStartingAndEndingOnManyThreadsLeaveNothingBehind) {
    ScriptedAdapterReset();
    std::atomic<int> ready{0};
    std::vector<std::thread> users;
    for (int t = 0; t < 4; ++t) {
        users.emplace_back([&ready] {
            ++ready;
            while (ready.load() < 4) std::this_thread::yield();
            for (int i = 0; i < 25; ++i) {
                void* handle = nullptr;
                EXPECT_EQ(Init(&handle), 0);
                EXPECT_EQ(DeInit(handle), 0);
            }
        });
    }
    for (std::thread& t : users) t.join();
    const std::vector<std::string> calls = AdapterCalls();
    EXPECT_GE(CountOf(calls, "NNModelLoadFromBuffer"), 1u);
    EXPECT_EQ(CountOf(calls, "NNModelLoadFromBuffer"), CountOf(calls, "NNModelUnload"));
    EXPECT_EQ(ScriptedAdapterLiveManagers(), 0);
    EXPECT_EQ(ScriptedAdapterLiveTensors(), 0);

    void* handle = nullptr;
    ASSERT_EQ(Init(&handle), 0);
    EXPECT_EQ(RunGreyFrame(handle), -1);
    EXPECT_EQ(DeInit(handle), 0);
}

}  // namespace
}  // namespace scancode_test
