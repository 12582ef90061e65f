// Frames through Init/Process/DeInit of the shared library, with the
// scripted adapter serving network outputs that place known boxes.
#include <gtest/gtest.h>

#include <cstring>

#include "e2e_support.h"
#include "log_capture.h"
#include "qr_decode.h"
#include "qr_render.h"
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
    void TearDown() override {
        g_cancelRun = false;
        isDebug = false;
        DeInit(handle_);
    }

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

TEST_F(FramePath, NothingFoundLeavesTheHostsRecordsAlone) {
    LogCapture logs;
    EXPECT_EQ(Run(GreyNV21(1920, 1080, 90), 1920, 1080), -1);
    EXPECT_FALSE(pic_.sendWarpPic);
    EXPECT_TRUE(OutUntouched());
    EXPECT_EQ(zoom_.bestZoom, -5.0f);
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{4, "Process() enter"},
                                                  {4, "no object detect"},
                                                  {4, "no send warp pic to camera"},
                                                  {4, "has Warp is 0"},
                                                  {4, "Process() leave"}}));
}

TEST_F(FramePath, TiltedCodeComesBackStraightened) {
    const cv::Size size(1920, 1080);
    const std::string text = "scancode end to end";
    SceneWithCode scene =
        MakeScene(size, ViewedSquare({960, 540}, 320, 8, 48, 0), text, 8, 0.8, 3.0);
    ASSERT_GT(std::max(scene.box.width, scene.box.height),
              1.2 * std::min(scene.box.width, scene.box.height));
    OutputMaps maps;
    maps.Place(2, ToInput(scene.box, size.width, size.height));
    maps.Serve();

    LogCapture logs;
    const int rc = Run(ToNV21(scene.frame), size.width, size.height);
    EXPECT_TRUE(rc == 0 || rc == -2) << rc;
    ASSERT_TRUE(pic_.sendWarpPic);
    EXPECT_TRUE(logs.Contains(4, "the num of qrcode is 1"));
    EXPECT_TRUE(logs.Contains(4, "has Warp is 1"));

    // The whole frame came back; the straightened code sits over the box.
    cv::Mat back;
    cv::cvtColor(cv::Mat(size.height * 3 / 2, size.width, CV_8UC1, out_.data()), back,
                 cv::COLOR_YUV2BGR_NV21);
    const cv::Rect around = (scene.box + cv::Size(scene.box.width, scene.box.height)) -
                            cv::Point(scene.box.width / 2, scene.box.height / 2);
    EXPECT_EQ(DecodeQr(back(around & cv::Rect(cv::Point(), size))), text);
}

TEST_F(FramePath, TwoCodesGetAZoomButNoStraightening) {
    OutputMaps maps;
    maps.Place(2, ToInput({500, 400, 120, 160}, 1920, 1080));
    maps.Place(2, ToInput({1300, 450, 120, 160}, 1920, 1080));
    maps.Serve();
    LogCapture logs;
    EXPECT_EQ(Run(GreyNV21(1920, 1080, 90), 1920, 1080), 0);
    EXPECT_TRUE(logs.Contains(4, "the num of qrcode is 2"));
    EXPECT_FALSE(pic_.sendWarpPic);
    EXPECT_TRUE(OutUntouched());
    EXPECT_GT(zoom_.bestZoom, 0.0f);
    EXPECT_LE(zoom_.bestZoom, 1.0f);
}

TEST_F(FramePath, CancelFlagEndsTheFrameAfterInference) {
    OutputMaps maps;
    maps.Place(2, ToInput({800, 400, 150, 200}, 1920, 1080));
    maps.Serve();
    g_cancelRun = true;
    LogCapture logs;
    EXPECT_EQ(Run(GreyNV21(1920, 1080, 90), 1920, 1080), -1);
    EXPECT_FALSE(logs.Contains("the num of qrcode is 1"));
    EXPECT_GT(ScriptedAdapterCallCount(), 0);  // the network still ran
}

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
    int imageCols, imageRows;  // the frame's extent inside the 640 x 640 input
};

class LetterboxTest : public FramePath, public ::testing::WithParamInterface<Letterbox> {};

INSTANTIATE_TEST_SUITE_P(Frames, LetterboxTest,
                         ::testing::Values(Letterbox{1920, 1080, 640, 360},
                                           Letterbox{1080, 1920, 360, 640},
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
