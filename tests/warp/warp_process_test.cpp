// Choosing, cropping, mapping back and pasting in warpQRProcess.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "debug_switch.h"
#include "detect/postprocess_calculator.h"
#include "log_capture.h"
#include "qr_decode.h"
#include "qr_render.h"
#include "warp/rectify.h"
#include "warp_scene.h"

namespace {

using scancode_test::LogCapture;
using scancode_test::Quad;
using scancode_test::SameMat;
using scancode_test::ScopedDebugLog;

const cv::Size kFrameSize(1920, 1080);

// A dark frame with small white spots: every crop takes the whole-crop
// fall-back, whose corners reveal the crop rectangle.
cv::Mat FrameWithSpots(const std::vector<cv::Point>& spots) {
    cv::Mat frame(kFrameSize, CV_8UC3, cv::Scalar::all(30));
    for (const cv::Point& p : spots) frame(cv::Rect(p, cv::Size(8, 8))).setTo(cv::Scalar::all(230));
    return frame;
}

struct WarpRun {
    int rc;
    WarpInfo warp;
    std::vector<QRInformation> infos;
};

// `infos` holds the records already there before the step.
WarpRun RunWarp(cv::Mat& frame, const std::vector<cv::Rect>& boxes,
                std::vector<QRInformation> infos = {}) {
    CodeDetectPostprocesCalculator calc;
    WarpRun run{0, {true, false}, std::move(infos)};
    run.rc = calc.warpQRProcess(frame, boxes, run.warp, run.infos);
    return run;
}

cv::Rect ChangedRegion(const cv::Mat& before, const cv::Mat& after) {
    cv::Mat diff;
    cv::absdiff(before, after, diff);
    cv::cvtColor(diff, diff, cv::COLOR_BGR2GRAY);
    return cv::boundingRect(diff);
}

TEST(WarpQRProcess, NothingToStraighten) {
    // 114 / 100 is 1.14 in single precision, not above 1.14; 0 / 0 is NaN.
    const std::vector<std::vector<cv::Rect>> cases = {
        {},
        {{100, 100, 200, 200}},
        {{100, 100, 114, 100}, {600, 100, 100, 114}},
        {{100, 100, 0, 0}},
    };
    for (const auto& boxes : cases) {
        SCOPED_TRACE(boxes.size());
        cv::Mat frame = FrameWithSpots({{150, 150}, {650, 150}});
        const cv::Mat original = frame.clone();
        ScopedDebugLog on(true);
        LogCapture log;
        const WarpRun run = RunWarp(frame, boxes);
        EXPECT_EQ(run.rc, 0);
        EXPECT_FALSE(run.warp.hasWarp);
        EXPECT_TRUE(run.infos.empty());
        EXPECT_TRUE(SameMat(frame, original));
        // Only the rectifier's total time and the empty result count.
        EXPECT_EQ(log.lines().size(), 2u);
        EXPECT_TRUE(log.Contains(3, "the size of outputs is 0"));
    }
}

TEST(WarpQRProcess, EnlargedCropRectangles) {
    struct Case {
        const char* name;
        cv::Rect box;
        cv::Rect crop;  // as revealed by the fall-back corners
    };
    const Case cases[] = {
        {"inside", {400, 300, 200, 100}, {350, 275, 300, 150}},
        {"just above 1.14", {400, 300, 115, 100}, {371, 275, 172, 150}},
        // Shifted rather than shrunk at the top and left.
        {"near the top-left corner", {10, 20, 200, 100}, {0, 0, 300, 150}},
        // Cut at the right edge only.
        {"near the right and bottom edges", {1800, 1000, 100, 60}, {1775, 985, 145, 90}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        cv::Mat frame = FrameWithSpots({{c.box.x + 5, c.box.y + 5}});
        const WarpRun run = RunWarp(frame, {c.box});
        ASSERT_EQ(run.infos.size(), 1u);
        const QRInformation& info = run.infos[0];
        EXPECT_TRUE(info.isValid);
        EXPECT_EQ(info.qrSize, std::max(c.crop.width, c.crop.height));
        EXPECT_EQ(info.topLeft, cv::Point2f(c.crop.tl()));
        EXPECT_EQ(info.bottomRight, cv::Point2f(c.crop.br()));
        EXPECT_TRUE(run.warp.hasWarp);
    }
}

TEST(WarpQRProcess, PictureCutAtTheEdgeIsShrunkToASquare) {
    // Crop (1775, 985, 145, 90) gives a 145 square; centred on (1850, 1030)
    // it would reach x 1923 and y 1103, so it is shrunk to min(142, 122).
    cv::Mat frame = FrameWithSpots({{1840, 1020}});
    const cv::Mat original = frame.clone();
    const cv::Mat crop = original(cv::Rect(1775, 985, 145, 90));
    ScopedDebugLog off(false);
    LogCapture log;
    const WarpRun run = RunWarp(frame, {{1800, 1000, 100, 60}});

    EXPECT_TRUE(run.warp.hasWarp);
    // With the switch off this is the only line of the warp step.
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0], (scancode_test::LogLine{4, "tempWidth != tempHeight"}));
    cv::Mat picture, expected = original.clone();
    cv::resize(crop, picture, cv::Size(145, 145), 0, 0, cv::INTER_LINEAR);
    cv::resize(picture, picture, cv::Size(122, 122), 0, 0, cv::INTER_LINEAR);
    picture.copyTo(expected(cv::Rect(1778, 958, 122, 122)));
    EXPECT_TRUE(SameMat(frame, expected));
}

TEST(WarpQRProcess, PictureCutEquallyLeavesTheFrameAsItIs) {
    // Crop (1810, 985, 110, 90) gives a 110 square; centred on (1870, 1030)
    // it overshoots by 5 at the right and at the bottom: tempWidth and
    // tempHeight are both 105, nothing is resized, and copying into the
    // smaller view gives the view a buffer of its own.
    cv::Mat frame = FrameWithSpots({{1850, 1020}});
    const cv::Mat original = frame.clone();
    ScopedDebugLog on(true);
    LogCapture log;
    const WarpRun run = RunWarp(frame, {{1830, 1000, 80, 60}});

    EXPECT_TRUE(run.warp.hasWarp);
    EXPECT_TRUE(SameMat(frame, original));
    EXPECT_TRUE(log.Contains(3, "the tempWidth  is 105"));
    EXPECT_TRUE(log.Contains(3, "the tempHeight  is 105"));
    EXPECT_FALSE(log.Contains("tempWidth != tempHeight"));
}

TEST(WarpQRProcess, ResultsArePastedAtTheInputBoxOfTheSamePosition) {
    // [square, elongated]: the one result, from the elongated box, lands on
    // the centre of the square box.
    const Quad quad = scancode_test::ViewedSquare({1300, 500}, 300, 0, 35);
    const std::string text = "pairing by position";
    scancode_test::SceneWithCode scene = scancode_test::MakeScene(kFrameSize, quad, text);
    const cv::Rect square(300, 300, 400, 400);
    const std::vector<cv::Rect> boxes = {square, scene.box};
    const cv::Mat original = scene.frame.clone();

    // What the step straightens: the box enlarged by half, as a view.
    const cv::Rect cropRect = scancode_test::CropAround(scene.box, kFrameSize);
    QRInformation info{};
    const cv::Mat picture = rectifyQrcodeImg(original(cropRect), info);
    cv::Mat expected = original.clone();
    picture.copyTo(expected(
        cv::Rect(500 - picture.cols / 2, 500 - picture.rows / 2, picture.cols, picture.rows)));

    const WarpRun run = RunWarp(scene.frame, boxes, {{true, 42, {1, 2}, {3, 4}, {5, 6}, {7, 8}}});
    EXPECT_EQ(run.rc, 0);
    EXPECT_TRUE(run.warp.hasWarp);
    EXPECT_TRUE(SameMat(scene.frame, expected));
    EXPECT_EQ(scancode_test::DecodeQr(picture), text);
    ASSERT_EQ(run.infos.size(), 2u);
    EXPECT_EQ(run.infos[0].qrSize, 42) << "records already there are left alone";
    EXPECT_EQ(run.infos[0].topLeft, cv::Point2f(1, 2));
    const cv::Point2f origin(static_cast<float>(cropRect.x), static_cast<float>(cropRect.y));
    EXPECT_EQ(run.infos[1].topLeft, info.topLeft + origin);
    EXPECT_EQ(run.infos[1].bottomRight, info.bottomRight + origin);
    EXPECT_EQ(run.infos[1].qrSize, info.qrSize);
}

TEST(WarpQRProcess, BoxesWithoutACropAreSkippedWithoutHarm) {
    const std::vector<cv::Rect> boxes = {
        {0, 0, 0, 50},          // no width: nothing to crop
        {5000, 5000, 100, 50},  // beyond the frame: nothing to crop
        {1900, 1070, 3, 1},     // a 4 x 1 crop
        {-300, -300, 100, 50},  // the enlarged rectangle starts at the corner
    };
    // The two results are pasted at the first two boxes: one lands in the
    // frame's corner, the other would lie outside and is dropped.
    cv::Mat frame = FrameWithSpots({{10, 10}});
    const WarpRun run = RunWarp(frame, boxes);
    EXPECT_EQ(run.rc, 0);
    EXPECT_EQ(run.infos.size(), 2u);

    cv::Mat empty;
    const WarpRun none = RunWarp(empty, {{10, 10, 100, 50}});
    EXPECT_EQ(none.rc, 0);
    EXPECT_TRUE(none.infos.empty());
    EXPECT_FALSE(none.warp.hasWarp);
}

struct CodeScene {
    const char* name;
    cv::Point2f centre;
    float side;
    double roll, yaw, pitch;
    bool scaled;  // longer box side above half the frame height
};

class WarpRealCode : public ::testing::TestWithParam<CodeScene> {};

TEST_P(WarpRealCode, CornersInFramePixelsAndADecodablePaste) {
    const CodeScene& s = GetParam();
    const std::string text = std::string("warp ") + s.name;
    const Quad quad = scancode_test::ViewedSquare(s.centre, s.side, s.roll, s.yaw, s.pitch);
    scancode_test::SceneWithCode scene =
        scancode_test::MakeScene(kFrameSize, quad, text, s.side > 500 ? 16 : 8, 1.0, 5.0);
    const int longer = std::max(scene.box.width, scene.box.height);
    ASSERT_EQ(longer > kFrameSize.height / 2, s.scaled) << "premise";
    ASSERT_GT(longer, 1.15 * std::min(scene.box.width, scene.box.height)) << "premise";
    const cv::Mat original = scene.frame.clone();

    ScopedDebugLog on(true);
    LogCapture log;
    const WarpRun run = RunWarp(scene.frame, {scene.box});

    ASSERT_EQ(run.infos.size(), 1u);
    const QRInformation& info = run.infos[0];
    const double ratio = s.scaled ? 540.0f / static_cast<float>(longer) : 1.0;
    const cv::Point2f found[4] = {info.topLeft, info.topRight, info.bottomRight, info.bottomLeft};
    // About 5 px of morphology growth at the scale the corners were found.
    for (int i = 0; i < 4; ++i) {
        EXPECT_LT(cv::norm(found[i] - quad[i]), 10.0 / ratio)
            << "corner " << i << " found " << found[i] << " true " << quad[i];
    }
    double longest = 0;
    for (int i = 0; i < 4; ++i) longest = std::max(longest, cv::norm(quad[i] - quad[(i + 1) % 4]));
    EXPECT_NEAR(info.qrSize, longest, 14.0 / ratio);

    char line[64];
    std::snprintf(line, sizeof line, "tempRatio is %f", ratio);
    EXPECT_EQ(log.Contains(line), s.scaled);
    EXPECT_EQ(log.Contains("QRCode too big ,need to resize"), s.scaled);

    EXPECT_TRUE(run.warp.hasWarp);
    const cv::Rect pasted = ChangedRegion(original, scene.frame);
    ASSERT_FALSE(pasted.empty());
    EXPECT_NEAR(pasted.x + pasted.width / 2, scene.box.x + scene.box.width / 2, 2);
    EXPECT_EQ(scancode_test::DecodeQr(scene.frame(pasted)), text);
}

const CodeScene kCodeScenes[] = {
    {"tilted", {960, 540}, 300, 0, 35, 0, false},
    {"tilted and turned", {700, 400}, 300, 8, -40, 10, false},
    {"taller than half the frame", {960, 540}, 700, 0, 30, 0, true},
    {"wider than half the frame", {960, 540}, 560, 0, 0, 35, true},
};

INSTANTIATE_TEST_SUITE_P(Scenes, WarpRealCode, ::testing::ValuesIn(kCodeScenes),
                         scancode_test::SceneName<CodeScene>);

}  // namespace
