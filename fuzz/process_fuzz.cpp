// Process through the shared library on random NV21 frames, with the scripted
// adapter serving output maps from the input: every size within the contract
// (widths a multiple of 16, even heights), frames that are uniform, noisy or
// hold dark quadrilaterals, and output maps whose background and hot cells
// the input chooses, so that zero, one (then warped) and many codes occur.
// Each input is one session: Init, one frame, DeInit, since the frame size
// may only change between sessions.
#include <cstdint>
#include <cstring>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "fuzz_support.h"
#include "scancode.h"
#include "scripted_adapter.h"

namespace {

constexpr int kGrid[5] = {80, 40, 20, 10, 5};

std::vector<uint8_t> Frame(FuzzedDataProvider& in, int w, int h) {
    const size_t luma = static_cast<size_t>(w) * h;
    std::vector<uint8_t> nv21(luma * 3 / 2, 128);
    switch (in.ConsumeIntegralInRange(0, 2)) {
        case 0:
            std::fill(nv21.begin(), nv21.begin() + luma, in.ConsumeIntegral<uint8_t>());
            break;
        case 1: {
            std::vector<uint8_t> bytes = in.ConsumeBytes<uint8_t>(2048);
            if (bytes.empty()) bytes.push_back(7);
            for (size_t i = 0; i < nv21.size(); ++i) nv21[i] = bytes[i % bytes.size()];
            break;
        }
        default: {
            cv::Mat y(h, w, CV_8UC1, nv21.data());
            y.setTo(220);
            const int shapes = in.ConsumeIntegralInRange(1, 2);
            for (int s = 0; s < shapes; ++s) {
                std::vector<cv::Point> quad;
                for (int k = 0; k < 4; ++k) {
                    quad.emplace_back(in.ConsumeIntegralInRange(0, w - 1),
                                      in.ConsumeIntegralInRange(0, h - 1));
                }
                cv::fillConvexPoly(y, quad, cv::Scalar(in.ConsumeIntegralInRange(0, 50)));
            }
            break;
        }
    }
    return nv21;
}

void ServeOutputs(FuzzedDataProvider& in) {
    const bool randomBackground = in.ConsumeIntegralInRange(0, 7) == 0;
    std::vector<uint8_t> maps[5];
    for (int i = 0; i < 5; ++i) {
        maps[i].assign(static_cast<size_t>(kGrid[i]) * kGrid[i] * 6, 0);
        if (randomBackground) {
            const std::vector<uint8_t> bytes = in.ConsumeBytes<uint8_t>(512);
            for (size_t k = 0; k < maps[i].size() && !bytes.empty(); ++k) {
                maps[i][k] = bytes[k % bytes.size()];
            }
        }
    }
    const int hot = in.ConsumeIntegralInRange(0, 4);
    for (int k = 0; k < hot; ++k) {
        const int head = in.ConsumeIntegralInRange(0, 4);
        const int cell = in.ConsumeIntegralInRange(0, kGrid[head] * kGrid[head] - 1);
        for (int v = 0; v < 6; ++v) maps[head][6 * cell + v] = in.ConsumeIntegral<uint8_t>();
    }
    for (int i = 0; i < 5; ++i) ScriptedAdapterSetOutput(i, maps[i].data(), maps[i].size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in = scancode_fuzz::QuietInput(data, size);
    const int w = 16 * in.ConsumeIntegralInRange(1, 80);
    const int h = 2 * in.ConsumeIntegralInRange(1, 540);
    const bool cancel = in.ConsumeIntegralInRange(0, 15) == 0;
    const std::vector<uint8_t> frame = Frame(in, w, h);
    ServeOutputs(in);

    void* handle = nullptr;
    if (Init(&handle) != 0) __builtin_trap();
    g_cancelRun = cancel;
    // Exactly the documented minimum, so an encoder overrun is caught.
    std::vector<uint8_t> out(frame.size());
    ZoomInfoResult zoom{1.0f, 0.0f};
    WarpPicInfo pic{out.data(), false};
    const int ret = Process(handle, frame.data(), w, h, w, h, &zoom, &pic);
    g_cancelRun = false;
    if (ret < -2 || ret > 0) __builtin_trap();
    if (DeInit(handle) != 0) __builtin_trap();
    ScriptedAdapterClearCalls();
    return 0;
}
