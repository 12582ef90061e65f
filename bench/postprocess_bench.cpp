// PostProcess on an empty frame, a typical frame (a few dozen cells above
// threshold) and the worst cases (every cell of every head passes, few
// distinct scores), next to the literal algorithm the results must match.
// PostProcess formats its info lines ("x = ..." per surviving box) even into
// a dropping sink; the literal runs print nothing.
//
// Only PostProcess itself is timed: the 200 kB output buffer it takes over is
// allocated and filled outside the timed region. Log lines go to a sink that
// drops them, as liblog's cost is not ours to measure.
#include <benchmark/benchmark.h>

#include <chrono>
#include <random>

#include "detect/detection_rules.h"
#include "detect/postprocess_calculator.h"
#include "host_shim.h"
#include "literal_postprocess.h"
#include "output_buffer.h"

using scancode_test::OutputBuffer;

namespace {

constexpr int kCols = 1920;
constexpr int kRows = 1080;

void DropLine(int, const char*, const char*, void*) {}

// Four codes, each covered by a 3 x 3 block of head-0 cells and a few head-1
// cells pointing at the same box, plus scattered weak cells just above the
// threshold: 52 candidates.
OutputBuffer TypicalFrame() {
    OutputBuffer b;
    std::mt19937 rng(1);
    std::uniform_real_distribution<float> jitter(-0.05f, 0.05f);
    const int codes[4][2] = {{12, 20}, {30, 60}, {50, 15}, {22, 40}};  // centre cell (r, c)
    int id = 0;
    for (const auto& code : codes) {
        const float cx = scancode_test::CellCentre(0, code[1]);
        const float cy = scancode_test::CellCentre(0, code[0]);
        auto point = [&](int head, int r, int c, float logit) {
            const float x = scancode_test::CellCentre(head, c),
                        y = scancode_test::CellCentre(head, r);
            b.SetCell(head, r, c, std::log(x - cx + 28) + jitter(rng), std::log(y - cy + 28),
                      std::log(cx + 28 - x) + jitter(rng), std::log(cy + 28 - y), logit);
        };
        for (int dr = -1; dr <= 1; ++dr) {
            for (int dc = -1; dc <= 1; ++dc)
                point(0, code[0] + dr, code[1] + dc, 2.0f - dr * dr - 0.1f * id);
        }
        point(1, code[0] / 2, code[1] / 2, 0.5f);
        point(1, code[0] / 2, code[1] / 2 + 1, 0.2f);
        ++id;
    }
    for (int k = 0; k < 8; ++k) b.SetCell(0, 5 + 9 * k, 70 - 3 * k, 1.0f, 1.0f, 1.0f, 1.0f, -0.8f);
    return b;
}

// Every cell passes with one of `levels` scores. logSize 0 gives 2 x 2 boxes
// that never touch, so every candidate survives suppression; 1.8 gives
// 12 x 12 boxes overlapping their neighbours.
OutputBuffer AllCellsPass(int levels, float logSize) {
    OutputBuffer b;
    std::mt19937 rng(2);
    for (int h = 0; h < detector_layout::kHeadCount; ++h) {
        const int g = detector_layout::kHeads[h].Grid();
        for (int r = 0; r < g; ++r) {
            for (int c = 0; c < g; ++c) {
                b.SetCell(
                    h, r, c, logSize, logSize, logSize, logSize,
                    detection_rules::kMinScoreLogitF + 0.5f * static_cast<float>(rng() % levels));
            }
        }
    }
    return b;
}

bool SameAsLiteral(const OutputBuffer& frame) {
    std::vector<cv::Rect> boxes;
    int count = 0;
    const int ret =
        CodeDetectPostprocesCalculator().PostProcess(kCols, kRows, frame.NewCopy(), boxes, count);
    const literal::Result want = literal::PostProcess(kCols, kRows, frame.data());
    return ret == want.ret && count == want.count && boxes == want.boxes;
}

void RunPostProcess(benchmark::State& state, const OutputBuffer& frame) {
    ScanHostSetLogSink(DropLine, nullptr);
    if (!SameAsLiteral(frame)) state.SkipWithError("result differs from the literal algorithm");
    int count = 0;
    for (auto _ : state) {
        float* output = frame.NewCopy();
        std::vector<cv::Rect> boxes;
        count = 0;
        const auto start = std::chrono::steady_clock::now();
        CodeDetectPostprocesCalculator().PostProcess(kCols, kRows, output, boxes, count);
        const auto end = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(boxes.data());
        state.SetIterationTime(std::chrono::duration<double>(end - start).count());
    }
    state.counters["survivors"] = count;
    ScanHostSetLogSink(nullptr, nullptr);
}

void RunLiteral(benchmark::State& state, const OutputBuffer& frame) {
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        const literal::Result r = literal::PostProcess(kCols, kRows, frame.data());
        const auto end = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(r.boxes.data());
        state.SetIterationTime(std::chrono::duration<double>(end - start).count());
    }
}

// Most preview frames hold no code: every cell is rejected.
void BM_PostProcess_Empty(benchmark::State& state) {
    static const OutputBuffer frame;
    RunPostProcess(state, frame);
}
void BM_PostProcess_Typical(benchmark::State& state) {
    static const OutputBuffer frame = TypicalFrame();
    RunPostProcess(state, frame);
}
void BM_Literal_Typical(benchmark::State& state) {
    static const OutputBuffer frame = TypicalFrame();
    RunLiteral(state, frame);
}
void BM_PostProcess_AllPassSeparate(benchmark::State& state) {
    static const OutputBuffer frame = AllCellsPass(4, 0.0f);
    RunPostProcess(state, frame);
}
void BM_Literal_AllPassSeparate(benchmark::State& state) {
    static const OutputBuffer frame = AllCellsPass(4, 0.0f);
    RunLiteral(state, frame);
}
void BM_PostProcess_AllPassTwoScoresOverlapping(benchmark::State& state) {
    static const OutputBuffer frame = AllCellsPass(2, 1.8f);
    RunPostProcess(state, frame);
}
void BM_Literal_AllPassTwoScoresOverlapping(benchmark::State& state) {
    static const OutputBuffer frame = AllCellsPass(2, 1.8f);
    RunLiteral(state, frame);
}

}  // namespace

BENCHMARK(BM_PostProcess_Empty)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PostProcess_Typical)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Literal_Typical)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PostProcess_AllPassSeparate)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Literal_AllPassSeparate)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PostProcess_AllPassTwoScoresOverlapping)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Literal_AllPassTwoScoresOverlapping)->UseManualTime()->Unit(benchmark::kMillisecond);
