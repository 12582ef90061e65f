// Process (inference included) side by side with a zxing-cpp read of the
// same frames, interleaved so that drift in the machine's speed hits both.
// Wall time, and the process's CPU time over all its threads: a library that
// wins on wall time by keeping several cores busy may still cost a phone more.
#include <time.h>

#include <chrono>
#include <cstdio>

#include "evaluation.h"
#include "frame_source.h"

namespace {

double CpuMs() {
    timespec t;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return t.tv_sec * 1e3 + t.tv_nsec * 1e-6;
}

// One code in the middle of each frame, larger frame by frame, on desks and
// natural pictures in turn.
std::vector<Frame> SpeedFrames(cv::Size size, int count, const Backgrounds& bg) {
    std::vector<Frame> frames(count);
    for (int i = 0; i < count; ++i) {
        SceneSetup setup;
        setup.frameSize = size;
        setup.seed = 500 + i;
        setup.surface = i % 2 ? Surface::kNatural : Surface::kPaperOnDesk;
        const std::vector<cv::Mat>& pool = i % 2 ? bg.natural : bg.desks;
        cv::Mat background;
        if (!pool.empty()) background = CoverFrame(pool[i % pool.size()], size);
        setup.background = pool.empty() ? nullptr : &background;
        CodePlacement c;
        c.text = SampleText(500 + i);
        const float side = 0.25f * std::min(size.width, size.height) * (1 + 0.1f * i);
        c.corners = FitQuad(ViewedSquare({0, 0}, 100, 5.0 * i, 15.0 * (i % 4), 30.0 * i),
                            {size.width * 0.5f, size.height * 0.5f}, side);
        setup.codes.push_back(c);
        ToNV21Frame(RenderScene(setup).frame, frames[i]);
    }
    return frames;
}

}  // namespace

nlohmann::ordered_json RunSpeed(const Options& o, Detectors& det, const Backgrounds& bg) {
    const cv::Size sizes[] = {{1280, 720}, {1920, 1080}};
    const int framesPerSize = 8, rounds = o.quick ? 4 : 6;  // the first round warms up
    nlohmann::ordered_json j;
    printf(
        "\nSPEED: median per frame over %d runs (%d frames x %d rounds after a warm-up round), "
        "interleaved\n",
        framesPerSize * (rounds - 1), framesPerSize, rounds - 1);
    for (const cv::Size size : sizes) {
        const std::vector<Frame> frames = SpeedFrames(size, framesPerSize, bg);
        std::vector<double> ours, theirs, oursCpu, theirsCpu;
        LibraryFrame out;
        for (int round = 0; round < rounds; ++round) {
            for (const Frame& f : frames) {
                const double cpu0 = CpuMs();
                det.library().Run(f.nv21, f.width, f.height, out);
                const double cpu1 = CpuMs();
                const cv::Mat luma(f.height, f.width, CV_8UC1, const_cast<uint8_t*>(f.nv21.data()));
                const auto t0 = std::chrono::steady_clock::now();
                const size_t n = ReadWithZxing(luma).size();
                const double ms =
                    std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0)
                        .count();
                const double cpu2 = CpuMs();
                if (round == 0) continue;
                ours.push_back(out.ms);
                theirs.push_back(ms);
                oursCpu.push_back(cpu1 - cpu0);
                theirsCpu.push_back(cpu2 - cpu1);
                (void)n;
            }
        }
        const double a = Median(ours), b = Median(theirs);
        const double ac = Median(oursCpu), bc = Median(theirsCpu);
        const std::string name = std::to_string(size.width) + "x" + std::to_string(size.height);
        printf(
            "  %-10s Process %.2f ms, zxing-cpp read %.2f ms, ratio %.2f; CPU time %.2f / %.2f ms, "
            "ratio %.2f\n",
            name.c_str(), a, b, a / b, ac, bc, ac / bc);
        j[name] = {{"runs", ours.size()}, {"process_ms", a},      {"zxing_ms", b},
                   {"ratio", a / b},      {"process_cpu_ms", ac}, {"zxing_cpu_ms", bc},
                   {"cpu_ratio", ac / bc}};
    }
    return j;
}
