// NV21 decode and both encoders on random sizes within their contract: the
// decoder walks widths in groups of 8, the vector encoder in groups of 16,
// and buffers are exactly as long as the routines walk, so that any read or
// write beyond them lands outside the allocation. The decoder and the vector
// encoder are also compared byte for byte with the scalar row arithmetic.
#include <cstdint>
#include <cstring>
#include <vector>

#include <opencv2/core.hpp>

#include "entry/color_convert.h"
#include "entry/color_convert_row.h"
#include "fuzz_support.h"

namespace {

// Sizes of the buffers the routines walk for a frame of w x h.
size_t LumaBytes(int w, int h) {
    return static_cast<size_t>(w) * h;
}
size_t ChromaBytes(int w, int h) {
    return static_cast<size_t>(w) * ((h + 1) / 2);
}

void CheckDecoder(FuzzedDataProvider& in) {
    // Widths below 8 convert nothing; the rest are multiples of 8.
    const int w =
        in.ConsumeBool() ? in.ConsumeIntegralInRange(0, 7) : 8 * in.ConsumeIntegralInRange(1, 40);
    const int h = in.ConsumeIntegralInRange(0, 40);
    std::vector<uint8_t> nv21(LumaBytes(w, h) + ChromaBytes(w, h));
    const std::vector<uint8_t> bytes = in.ConsumeBytes<uint8_t>(nv21.size());
    std::copy(bytes.begin(), bytes.end(), nv21.begin());
    std::vector<uint8_t> rgb(LumaBytes(w, h) * 3, 0xA5);
    NV21toRGB_NEON(nv21.data(), rgb.data(), w, h);
    if (w < 8 || h < 1) {
        for (uint8_t b : rgb) {
            if (b != 0xA5) __builtin_trap();
        }
        return;
    }
    uint8_t want[3];
    for (int r = 0; r < h; ++r) {
        const uint8_t* vu = nv21.data() + LumaBytes(w, h) + static_cast<size_t>(r / 2) * w;
        for (int c = 0; c < w; ++c) {
            const size_t i = static_cast<size_t>(r) * w + c;
            scancode::DecodePixel(nv21[i], vu[c & ~1], vu[c | 1], want);
            if (std::memcmp(want, &rgb[3 * i], 3) != 0) __builtin_trap();
        }
    }
}

void CheckVectorEncoder(FuzzedDataProvider& in) {
    const int w =
        in.ConsumeBool() ? in.ConsumeIntegralInRange(0, 15) : 16 * in.ConsumeIntegralInRange(1, 20);
    const int h = in.ConsumeIntegralInRange(0, 40);
    cv::Mat bgr(h, w, CV_8UC3, cv::Scalar::all(0));
    const std::vector<uint8_t> bytes = in.ConsumeBytes<uint8_t>(LumaBytes(w, h) * 3);
    if (!bytes.empty()) std::memcpy(bgr.data, bytes.data(), bytes.size());
    std::vector<uint8_t> nv21(LumaBytes(w, h) + ChromaBytes(w, h), 0x5A);
    BGRtoNV21_NEON(nv21.data(), bgr, w, h);
    if (w < 16 || h < 1) {
        for (uint8_t b : nv21) {
            if (b != 0x5A) __builtin_trap();
        }
        return;
    }
    for (int r = 0; r < h; ++r) {
        for (int c = 0; c < w; ++c) {
            const uint8_t* px = bgr.ptr<uint8_t>(r) + 3 * c;
            const int luma = scancode::EncodeLuma(px[2], px[1], px[0]);
            if (nv21[static_cast<size_t>(r) * w + c] != (luma > 255 ? 255 : luma)) __builtin_trap();
            if (r % 2 != 0 || c % 2 != 0) continue;
            const uint8_t* vu = nv21.data() + LumaBytes(w, h) + static_cast<size_t>(r / 2) * w + c;
            if (vu[0] != scancode::Clamp255(scancode::EncodeV(px[2], px[1], px[0])) ||
                vu[1] != scancode::Clamp255(scancode::EncodeU(px[2], px[1], px[0]))) {
                __builtin_trap();
            }
        }
    }
}

void CheckScalarEncoder(FuzzedDataProvider& in) {
    // Even widths: each chroma pair of an even row then has its two pixels.
    const int w = 2 * in.ConsumeIntegralInRange(0, 80);
    const int h = in.ConsumeIntegralInRange(0, 40);
    cv::Mat bgr(h, w, CV_8UC3, cv::Scalar::all(0));
    const std::vector<uint8_t> bytes = in.ConsumeBytes<uint8_t>(LumaBytes(w, h) * 3);
    if (!bytes.empty()) std::memcpy(bgr.data, bytes.data(), bytes.size());
    std::vector<uint8_t> nv21(LumaBytes(w, h) + ChromaBytes(w, h));
    BGRtoNV21(nv21.data(), bgr, w, h);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    switch (in.ConsumeIntegralInRange(0, 2)) {
        case 0:
            CheckDecoder(in);
            break;
        case 1:
            CheckVectorEncoder(in);
            break;
        default:
            CheckScalarEncoder(in);
            break;
    }
    return 0;
}
