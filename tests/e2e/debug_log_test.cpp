// With the debug switch on (set through the properties before the library
// loads), a frame's debug and timing lines come in the pipeline's order.
#include <gtest/gtest.h>

#include "e2e_support.h"
#include "log_capture.h"
#include "scancode.h"

namespace scancode_test {
namespace {

class DebugOn : public ::testing::Test {
  protected:
    void SetUp() override {
        ScriptedAdapterReset();
        ASSERT_EQ(Init(&handle_), 0);
    }
    void TearDown() override { DeInit(handle_); }

    int Run(int width, int height) {
        const std::vector<uint8_t> frame = GreyNV21(width, height, 90);
        out_.assign(frame.size(), 0);
        WarpPicInfo pic{out_.data(), false};
        return Process(handle_, frame.data(), width, height, width, height, &zoom_, &pic);
    }

    void* handle_ = nullptr;
    ZoomInfoResult zoom_{};
    std::vector<uint8_t> out_;
};

TEST_F(DebugOn, FrameWithoutCodeLogsEveryStep) {
    LogCapture logs;
    EXPECT_EQ(Run(1920, 1080), -1);
    std::string missing;
    EXPECT_TRUE(HasInOrder(
        logs.texts(),
        {"Process() enter", "the first frame ",
         "SYNC_DDK_TIME , Time of YUV2RGB is   : ", "code detect oriHei, orWid: 1080, 1920",
         "SYNC_DDK_TIME , Time of ResizePaddingRegular resize is   : ",
         "code detect copyMakeBorder top is 140, bottom is 140, left is 0, right is 0",
         "code detect image col is 640, row is 640, channel is 3",
         "SYNC_DDK_TIME , Time of ResizePaddingRegular is   : ",
         "inputImg col is 640, row is 640, channel is 3, types is 21", "addr of outputBuffer is ",
         "addr of codeDetectOutBuff is ", "code detect inference successful",
         "SYNC_DDK_TIME , Time of InferenceProcess is   : ", "no object detect",
         "SYNC_DDK_TIME , RunQRCode cost Time  : ", "no send warp pic to camera", "has Warp is 0",
         "SYNC_DDK_TIME , process total cost Time  : ", "Process() leave"},
        &missing))
        << "missing or out of order: " << missing;
    // Debug lines are at debug priority; the frame's results stay at info.
    for (const LogLine& l : logs.lines()) {
        if (l.text.rfind("SYNC_DDK_TIME", 0) == 0 || l.text.rfind("code detect", 0) == 0) {
            EXPECT_EQ(l.prio, 3) << l.text;
        }
    }
    EXPECT_TRUE(logs.Contains(4, "no object detect"));
}

TEST_F(DebugOn, PortraitFrameReportsACentredSplitOfTheRightPadding) {
    LogCapture logs;
    Run(1080, 1920);
    EXPECT_TRUE(logs.Contains(
        3, "code detect copyMakeBorder top is 0, bottom is 0, left is 140, right is 140"));
}

TEST_F(DebugOn, SecondUserFindsTheModelLoaded) {
    void* second = nullptr;
    LogCapture logs;
    EXPECT_EQ(Init(&second), 0);
    EXPECT_TRUE(logs.Contains(4, "EdgeDetectNpu model already loadedret: 0"));
    logs.Clear();
    EXPECT_EQ(DeInit(second), 0);
    EXPECT_TRUE(logs.Contains(3, "There is another user, don't unload now!"));
}

}  // namespace
}  // namespace scancode_test
