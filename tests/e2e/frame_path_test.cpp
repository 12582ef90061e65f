// Frames through Init/Process/DeInit of the shared library that the sample
// frame digest does not reach: rejected arguments and portrait or square
// frames in the network input.
#include <gtest/gtest.h>

#include <algorithm>

#include "e2e_support.h"
#include "log_capture.h"
#include "scancode.h"

namespace scancode_test {
namespace {

constexpr uint8_t kUntouched = 0xAB;

class FramePath : public ::testing::Test {
  protected:
    void SetUp() override {
        ScriptedAdapterReset();
        ASSERT_EQ(Init(&handle_), 0);
    }
    void TearDown() override { DeInit(handle_); }

    int Run(const std::vector<uint8_t>& nv21, int width, int height) {
        out_.assign(nv21.size(), kUntouched);
        pic_ = {out_.data(), true};
        return Process(handle_, nv21.data(), width, height, width, height, &zoom_, &pic_);
    }
    bool OutUntouched() const {
        return std::all_of(out_.begin(), out_.end(), [](uint8_t b) { return b == kUntouched; });
    }

    void* handle_ = nullptr;
    ZoomInfoResult zoom_{-5.0f, -5.0f};
    std::vector<uint8_t> out_;
    WarpPicInfo pic_{};
};

struct BadCall {
    const char* name;
    bool nullFrame, badHandle;
    int inputWidth, inputHeight;
    const char* error;
};

TEST_F(FramePath, InvalidArgumentsAreRejected) {
    const BadCall cases[] = {
        {"null frame", true, false, 64, 64, "input image is null or size invalid."},
        {"input width 0", false, false, 0, 64, "input image is null or size invalid."},
        {"null handle", false, true, 64, 64, "input handle is null or size invalid."},
    };
    const std::vector<uint8_t> frame = GreyNV21(64, 64, 90);
    for (const BadCall& c : cases) {
        SCOPED_TRACE(c.name);
        out_.assign(frame.size(), kUntouched);
        pic_ = {out_.data(), true};
        LogCapture logs;
        EXPECT_EQ(Process(c.badHandle ? nullptr : handle_, c.nullFrame ? nullptr : frame.data(),
                          c.inputWidth, c.inputHeight, 64, 64, &zoom_, &pic_),
                  -1);
        EXPECT_TRUE(logs.Contains(6, c.error));
        EXPECT_TRUE(pic_.sendWarpPic);  // the host's record is not touched
        EXPECT_TRUE(OutUntouched());
    }
    // A frame of another size than the first would not fit the frame image.
    LogCapture logs;
    const std::vector<uint8_t> bigger = GreyNV21(128, 64, 90);
    EXPECT_EQ(Process(handle_, bigger.data(), 128, 64, 128, 64, &zoom_, &pic_), -1);
    EXPECT_TRUE(logs.Contains(6, "input image is null or size invalid."));
}

struct Letterbox {
    int cols, rows;
    int imageCols, imageRows;  // the frame's extent inside the input square
};

class LetterboxTest : public FramePath, public ::testing::WithParamInterface<Letterbox> {};

INSTANTIATE_TEST_SUITE_P(Frames, LetterboxTest,
                         ::testing::Values(Letterbox{1080, 1920, 360, 640},
                                           Letterbox{640, 640, 640, 640}));

TEST_P(LetterboxTest, FrameIsAnchoredTopLeftWithBlackPadding) {
    const Letterbox& l = GetParam();
    Run(GreyNV21(l.cols, l.rows, 100), l.cols, l.rows);
    size_t size = 0;
    const uint8_t* input = static_cast<const uint8_t*>(ScriptedAdapterRunInput(&size));
    ASSERT_EQ(size, 640u * 640u * 3u);
    int wrong = 0;
    for (int i = 0; i < 640 * 640 * 3; ++i) {
        const int x = i / 3 % 640, y = i / 3 / 640;
        wrong += input[i] != ((x < l.imageCols && y < l.imageRows) ? 100 : 0);
    }
    EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace scancode_test
