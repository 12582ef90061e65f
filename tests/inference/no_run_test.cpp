// The adapter variant without the run, data, tensor-destroy and unload
// functions: each missing one is logged and counts as a failed call.
#include <gtest/gtest.h>

#include <vector>

#include "log_capture.h"
#include "scripted_session.h"

using namespace scancode_test;

namespace {

size_t CountPrefix(const LogCapture& logs, const std::string& prefix) {
    size_t count = 0;
    for (const auto& line : logs.lines()) count += line.text.rfind(prefix, 0) == 0;
    return count;
}

TEST_F(ScriptedAdapterTest, MissingFunctionsAreLoggedAndTreatedAsFailures) {
    NpuNetwork net;
    LoadAndSetUp(net);
    if (HasFatalFailure()) return;

    LogCapture logs;
    EXPECT_EQ(net.RunModel(), -1);
    EXPECT_EQ(CountPrefix(logs, "invoke(), failed to load sym NNTensorBufferGetData : "), 6u);
    EXPECT_EQ(CountPrefix(logs, "invoke(), failed to load sym NNModelRun : "), 1u);
    EXPECT_TRUE(logs.Contains(6, "NpuNetwork::NNModelRun run failed, ret is -1 \n"));
    EXPECT_EQ(NewTensors(), 6);

    logs.Clear();
    EXPECT_EQ(net.UnloadModel(), 0);
    EXPECT_EQ(CountPrefix(logs, "invoke(), failed to load sym NNTensorBufferDestroy : "), 6u);
    EXPECT_TRUE(logs.Contains(4, "errorCode of NNModelUnload is -1."));
    EXPECT_FALSE(net.tensorsAllocated);
    EXPECT_EQ(NewManagers(), 0) << "the manager is still destroyed";
    EXPECT_FALSE(net.GetLoadFlag());
    net.TeardownModel();
}

}  // namespace
