// The library variant whose fixed model path names no file.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "inference/code_detect.h"
#include "log_capture.h"
#include "scripted_session.h"

using namespace scancode_test;

namespace {

TEST_F(ScriptedAdapterTest, MissingModelFailsTheLoadAfterSetup) {
    std::unique_ptr<CodeDetectbase> detector(GetCodeDetect());
    auto& net = static_cast<CodeDetectNpu*>(detector.get())->network;
    std::vector<float> in(kDetectorInputFloats, 1.0f);
    std::vector<float> out(detector_layout::kOutputValues, 0.0f);
    LogCapture logs;
    int ret = 0;
    const std::string printed = StdoutOf(
        [&] { ret = detector->CodeDetect(in.data(), out.data(), detector_layout::kOutputValues); });
    EXPECT_EQ(ret, -1);
    EXPECT_EQ(printed.rfind(std::string("open file ") + SCRIPTED_MODEL_PATH + " failed\n", 0), 0u)
        << printed;
    EXPECT_TRUE(logs.Contains(6, "load from Files, ret=-1"));
    EXPECT_TRUE(logs.Contains(6, "load code detect model failed, ret: -1"));
    EXPECT_FALSE(logs.Contains("code detection SetupModel fail"));
    // Set-up ran before the load result was looked at: it holds the lock.
    EXPECT_FALSE(net.netLock.try_lock());
    // Init raised the flag, so the model counts as loaded from now on.
    EXPECT_TRUE(detector->GetLoadFlag());
    EXPECT_EQ(FindCall("NNModelRun"), -1);

    EXPECT_EQ(detector->UnloadModel(), 0);
    EXPECT_TRUE(net.netLock.try_lock());
    net.netLock.unlock();
    EXPECT_EQ(NewManagers(), 0);
}

}  // namespace
