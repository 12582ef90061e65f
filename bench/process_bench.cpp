// One 1920 x 1080 frame through Process, with the scripted adapter standing
// in for the network, with and without straightening; then each stage of the
// frame path on its own, on the same frame, for the breakdown.
#include <benchmark/benchmark.h>

#include <opencv2/imgproc.hpp>

#include "detect/code_detect_graph.h"
#include "detect/postprocess_calculator.h"
#include "detect/qr_code_manager.h"
#include "e2e_support.h"
#include "entry/color_convert.h"
#include "inference/code_detect.h"
#include "inference/detector_layout.h"
#include "inference/quantize.h"
#include "inference/tensor_convert.h"
#include "qr_render.h"
#include "scancode.h"

namespace {

constexpr int kSide = detector_layout::kInputSide;

using namespace scancode_test;

const cv::Size kSize(1920, 1080);

struct Scene {
    std::vector<uint8_t> nv21;
    OutputMaps maps;
    cv::Rect box;
};

Scene MakeBenchScene(const Quad& quad, const std::string& text) {
    Scene s;
    SceneWithCode c = MakeScene(kSize, quad, text);
    s.nv21 = ToNV21(c.frame);
    s.box = c.box;
    s.maps.Place(2, ToInput(c.box, kSize.width, kSize.height));
    return s;
}

// A code seen at an angle (elongated box: straightened) or head-on (square
// box: left as it is).
const Scene& GetScene(bool tilted) {
    static const Scene scenes[2] = {MakeBenchScene(ViewedSquare({960, 540}, 300, 0, 0), "head-on"),
                                    MakeBenchScene(ViewedSquare({960, 540}, 320, 8, 48), "tilted")};
    return scenes[tilted];
}

// The library opened once for all benchmarks.
void* Handle() {
    static void* handle = [] {
        void* h = nullptr;
        Init(&h);
        return h;
    }();
    return handle;
}

cv::Mat DecodedFrame(bool tilted) {
    cv::Mat rgb(kSize, CV_8UC3);
    NV21toRGB_NEON(GetScene(tilted).nv21.data(), rgb.data, kSize.width, kSize.height);
    return rgb;
}

std::vector<float> Dequantized(const OutputMaps& maps) {
    std::vector<float> out(detector_layout::kOutputValues);
    size_t at = 0;
    for (int i = 0; i < 5; ++i) {
        const std::vector<uint8_t>& q = maps.map(i);
        Uint8ToFP32(static_cast<int>(q.size()), q.data(), out.data() + at, kHeads[i].zeroPoint,
                    kHeads[i].scale);
        at += q.size();
    }
    return out;
}

void BM_Process(benchmark::State& state) {
    const Scene& scene = GetScene(state.range(0) != 0);
    void* handle = Handle();
    scene.maps.Serve();
    std::vector<uint8_t> out(scene.nv21.size());
    int sent = 0;
    for (auto _ : state) {
        ZoomInfoResult zoom{};
        WarpPicInfo pic{out.data(), false};
        benchmark::DoNotOptimize(Process(handle, scene.nv21.data(), kSize.width, kSize.height,
                                         kSize.width, kSize.height, &zoom, &pic));
        ScriptedAdapterClearCalls();
        sent += pic.sendWarpPic;
    }
    state.counters["warped"] = static_cast<double>(sent) / state.iterations();
}
BENCHMARK(BM_Process)->ArgName("warp")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_Stage_Decode(benchmark::State& state) {
    const Scene& scene = GetScene(false);
    cv::Mat rgb(kSize, CV_8UC3);
    for (auto _ : state) {
        NV21toRGB_NEON(scene.nv21.data(), rgb.data, kSize.width, kSize.height);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_Stage_Decode)->Unit(benchmark::kMicrosecond);

void BM_Stage_Letterbox(benchmark::State& state) {  // resize, pad and float conversion
    Handle();
    cv::Mat frame = DecodedFrame(false);
    for (auto _ : state) {
        ResizePaddingRegular(frame, g_codeManager.inputImg, kSide, kSide, 0);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_Stage_Letterbox)->Unit(benchmark::kMicrosecond);

void BM_Stage_FloatConversion(benchmark::State& state) {  // the float part of the letterbox
    cv::Mat padded(kSide, kSide, CV_8UC3, cv::Scalar(90, 90, 90)), input(kSide, kSide, CV_32FC3);
    for (auto _ : state) {
        padded.convertTo(input, CV_32FC3, 1.0, 0.0);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_Stage_FloatConversion)->Unit(benchmark::kMicrosecond);

void BM_Stage_Quantize(benchmark::State& state) {
    std::vector<float> in(detector_layout::kInputFloats, 90.0f);
    std::vector<uint8_t> out(in.size());
    for (auto _ : state) {
        QuantizePixels(in.data(), out.data(), in.size());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_Stage_Quantize)->Unit(benchmark::kMicrosecond);

void BM_Stage_Dequantize(benchmark::State& state) {
    const OutputMaps& maps = GetScene(true).maps;
    for (auto _ : state) benchmark::DoNotOptimize(Dequantized(maps).data());
}
BENCHMARK(BM_Stage_Dequantize)->Unit(benchmark::kMicrosecond);

void BM_Stage_PostProcess(benchmark::State& state) {
    const std::vector<float> output = Dequantized(GetScene(true).maps);
    CodeDetectPostprocesCalculator post;
    for (auto _ : state) {
        float* buffer = new float[detector_layout::kOutputValues];  // PostProcess releases it
        std::copy(output.begin(), output.end(), buffer);
        std::vector<cv::Rect> boxes;
        int count = 0;
        benchmark::DoNotOptimize(post.PostProcess(kSize.width, kSize.height, buffer, boxes, count));
    }
}
BENCHMARK(BM_Stage_PostProcess)->Unit(benchmark::kMicrosecond);

void BM_Stage_Zoom(benchmark::State& state) {
    std::vector<cv::Rect> boxes{GetScene(true).box};
    const QRRatioInfo limits{0.1f, 0.35f, 0.16f};
    CodeDetectPostprocesCalculator post;
    for (auto _ : state) {
        ZoomInfoResult zoom{};
        bool noZoomNeeded = false;
        benchmark::DoNotOptimize(
            post.zoomCalculate(kSize.width, kSize.height, boxes, limits, zoom, noZoomNeeded));
    }
}
BENCHMARK(BM_Stage_Zoom)->Unit(benchmark::kMicrosecond);

void BM_Stage_Warp(benchmark::State& state) {
    const cv::Mat decoded = DecodedFrame(true);
    const std::vector<cv::Rect> boxes{GetScene(true).box};
    cv::Mat frame = decoded.clone();
    CodeDetectPostprocesCalculator post;
    for (auto _ : state) {
        WarpInfo warp{true, false};
        std::vector<QRInformation> infos;
        post.warpQRProcess(frame, boxes, warp, infos);
        state.PauseTiming();
        decoded.copyTo(frame);
        state.ResumeTiming();
    }
}
BENCHMARK(BM_Stage_Warp)->Unit(benchmark::kMicrosecond);

void BM_Stage_Encode(benchmark::State& state) {
    const cv::Mat frame = DecodedFrame(true);
    std::vector<uint8_t> nv21(kSize.area() * 3 / 2);
    for (auto _ : state) {
        BGRtoNV21_NEON(nv21.data(), frame, kSize.width, kSize.height);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_Stage_Encode)->Unit(benchmark::kMicrosecond);

}  // namespace
