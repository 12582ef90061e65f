// warpQRProcess on a 1920 x 1080 frame, whole and stage by stage.
//
//   BM_WarpQRProcess/tilted300   one tilted code of about 300 px
//   BM_WarpQRProcess/large       one code taller than half the frame
//   BM_Stage_*                   the steps of rectification on the crop of
//                                the first scene (scaled crop for the second)
#include <benchmark/benchmark.h>

#include <climits>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "detect/postprocess_calculator.h"
#include "qr_render.h"
#include "warp/line.h"
#include "warp/rectify.h"

namespace {

struct Scene {
    cv::Mat frame;
    cv::Rect box;
    cv::Mat crop;  // as the warp step hands it to rectification
};

Scene MakeBenchScene(bool large) {
    const cv::Size size(1920, 1080);
    const scancode_test::Quad quad = large
                                         ? scancode_test::ViewedSquare({960, 540}, 700, 0, 30)
                                         : scancode_test::ViewedSquare({900, 500}, 320, 5, 35, 10);
    const scancode_test::SceneWithCode s =
        scancode_test::MakeScene(size, quad, "scancode benchmark", large ? 16 : 8);
    Scene scene{s.frame, s.box, {}};
    const cv::Rect& b = s.box;
    const int left = std::max(0, static_cast<int>(b.x - 0.25f * b.width));
    const int top = std::max(0, static_cast<int>(b.y - 0.25f * b.height));
    const cv::Rect crop =
        cv::Rect(left, top, static_cast<int>(1.5f * b.width), static_cast<int>(1.5f * b.height)) &
        cv::Rect(0, 0, size.width, size.height);
    scene.crop = s.frame(crop).clone();
    const int half = size.height / 2;
    const int longer = std::max(b.width, b.height);
    if (longer > half) {
        const float ratio = static_cast<float>(half) / static_cast<float>(longer);
        cv::resize(scene.crop, scene.crop,
                   cv::Size(static_cast<int>(ratio * scene.crop.cols),
                            static_cast<int>(ratio * scene.crop.rows)));
    }
    return scene;
}

const Scene& BenchScene(bool large) {
    static const Scene tilted = MakeBenchScene(false);
    static const Scene big = MakeBenchScene(true);
    return large ? big : tilted;
}

void BM_WarpQRProcess(benchmark::State& state) {
    const Scene& scene = BenchScene(state.range(0) != 0);
    cv::Mat frame = scene.frame.clone();
    const std::vector<cv::Rect> boxes = {scene.box};
    CodeDetectPostprocesCalculator calc;
    std::vector<QRInformation> infos;
    infos.reserve(1);
    for (auto _ : state) {
        // The paste changes the frame: start every run from the same one.
        state.PauseTiming();
        scene.frame.copyTo(frame);
        infos.clear();
        state.ResumeTiming();
        WarpInfo warp{true, false};
        calc.warpQRProcess(frame, boxes, warp, infos);
        benchmark::DoNotOptimize(warp.hasWarp);
    }
}
BENCHMARK(BM_WarpQRProcess)->ArgName("large")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_Stage_Binarize(benchmark::State& state) {
    const cv::Mat& crop = BenchScene(state.range(0) != 0).crop;
    cv::Mat grey, binary;
    for (auto _ : state) {
        cv::cvtColor(crop, grey, cv::COLOR_BGR2GRAY);
        cv::threshold(grey, binary, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU);
        benchmark::DoNotOptimize(dilateAndErode(binary, 5, 3, 5, 1).data);
    }
}
BENCHMARK(BM_Stage_Binarize)->ArgName("large")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

struct Outline {
    cv::Mat morph;
    std::vector<std::vector<cv::Point>> contours;
    int chosen = -1;
};

Outline FindOutline(const cv::Mat& crop) {
    Outline o;
    cv::Mat grey, binary;
    cv::cvtColor(crop, grey, cv::COLOR_BGR2GRAY);
    o.morph = binarizeImageByOTSU(grey, binary, 5, 3, 5, 1, true);
    cv::findContours(o.morph, o.contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
    double best = 0;
    for (size_t i = 0; i < o.contours.size(); ++i) {
        const double area = cv::contourArea(o.contours[i]);
        if (area > best) best = area, o.chosen = static_cast<int>(i);
    }
    return o;
}

void BM_Stage_Contours(benchmark::State& state) {
    const Outline o = FindOutline(BenchScene(state.range(0) != 0).crop);
    std::vector<std::vector<cv::Point>> contours;
    std::vector<cv::Vec4i> hierarchy;
    for (auto _ : state) {
        cv::findContours(o.morph, contours, hierarchy, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
        double best = 0;
        for (const auto& c : contours) best = std::max(best, cv::contourArea(c));
        benchmark::DoNotOptimize(best);
    }
}
BENCHMARK(BM_Stage_Contours)->ArgName("large")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

void BM_Stage_Lines(benchmark::State& state) {
    const Outline o = FindOutline(BenchScene(state.range(0) != 0).crop);
    const cv::Rect bRect = cv::boundingRect(o.contours[o.chosen]);
    for (auto _ : state) {
        cv::Mat mask = cv::Mat::zeros(o.morph.size(), CV_8UC1);
        cv::drawContours(mask, o.contours, o.chosen, cv::Scalar(255), 1, cv::LINE_8, cv::noArray(),
                         INT_MAX);
        std::vector<Line> lines = extractLineFromHough(mask(bRect));
        const cv::Moments m = cv::moments(o.contours[o.chosen]);
        std::vector<std::vector<Line>> groups;
        classifyLinesByDirection(lines, groups, m.m10 / m.m00, m.m01 / m.m00);
        for (auto& g : groups) benchmark::DoNotOptimize(mergeLines(g, bRect.height, bRect.width));
    }
}
BENCHMARK(BM_Stage_Lines)->ArgName("large")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

void BM_Stage_Warp(benchmark::State& state) {
    const cv::Mat& crop = BenchScene(state.range(0) != 0).crop;
    QRInformation info{};
    rectifyQrcodeImg(crop, info);
    const std::vector<cv::Point2f> corners = {info.topLeft, info.topRight, info.bottomLeft,
                                              info.bottomRight};
    for (auto _ : state) benchmark::DoNotOptimize(warpImage(crop, corners).data);
}
BENCHMARK(BM_Stage_Warp)->ArgName("large")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

void BM_Stage_Rectify(benchmark::State& state) {
    const cv::Mat& crop = BenchScene(state.range(0) != 0).crop;
    for (auto _ : state) {
        QRInformation info{};
        benchmark::DoNotOptimize(rectifyQrcodeImg(crop, info).data);
    }
}
BENCHMARK(BM_Stage_Rectify)->ArgName("large")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

}  // namespace
