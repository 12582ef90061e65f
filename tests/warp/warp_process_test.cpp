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
