// Row kernels behind the NV21 conversions, one plain C reference and the
// vector variants of this architecture (platform/cpu_features.h), plus the
// frame walks they share. Every variant is visible here so tests can hold each
// of them against the reference byte for byte.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/cpu_features.h"

namespace scancode {

// ---- per-pixel arithmetic -------------------------------------------------
// Internal linkage: the files built with wider instruction sets compile their
// own copies (platform/cpu_features.h).
namespace {

// The decoder works in signed 16-bit lanes: every product and sum wraps
// modulo 2^16 and shifts are arithmetic. Compilers we build with define the
// narrowing conversion and >> on negative values as two's complement.
inline int Wrap16(int v) {
    return static_cast<int16_t>(static_cast<uint16_t>(v));
}
inline uint8_t Clamp255(int v) {
    return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
}

// One decoded pixel from luma `y` and the pair's chroma bytes c0 (V) and c1 (U).
inline void DecodePixel(int y, int c0, int c1, uint8_t* out) {
    c0 -= 128;
    c1 -= 128;
    out[0] = Clamp255(Wrap16(y + (Wrap16(455 * c0) >> 8)));
    out[1] = Clamp255(Wrap16(y - (Wrap16(88 * c0 + 184 * c1) >> 8)));
    out[2] = Clamp255(Wrap16(y + (Wrap16(360 * c1) >> 8)));
}

// BT.601 limited-range luma; the sum stays below 2^16 and below 255 after the
// offset, so neither the unsigned lanes nor the saturation ever bite.
inline int EncodeLuma(int r, int g, int b) {
    return ((66 * r + 129 * g + 25 * b + 128) >> 8) + 16;
}
inline int EncodeV(int r, int g, int b) {
    return ((112 * r - 94 * g - 18 * b + 128) >> 8) + 128;
}
inline int EncodeU(int r, int g, int b) {
    return ((-38 * r - 74 * g + 112 * b + 128) >> 8) + 128;
}

// The scalar encoder behind BGRtoNV21: channel 0 = R, 2 = B, every pixel
// converted, chroma (modulo 256) on even rows from the pixels whose running
// index row * width + column is odd. One definition, compiled as the
// reference and again where the compiler can vectorise it wider.
inline void RGBToNV21FrameBody(uint8_t* dst, const uint8_t* px, int width, int height) {
    size_t lumaIndex = 0;
    uint8_t* vu = dst + static_cast<size_t>(width) * height;
    for (int r = 0; r < height; ++r) {
        for (int c = 0; c < width; ++c, ++lumaIndex, px += 3) {
            const int red = px[0], green = px[1], blue = px[2];
            const int luma = EncodeLuma(red, green, blue);
            dst[lumaIndex] = static_cast<uint8_t>(luma > 255 ? 255 : luma);
            // The pixel with the odd running index supplies the pair's chroma.
            // On even rows that is the odd column, and an odd width leaves its
            // last column without a chroma pair.
            if (r % 2 == 0 && (lumaIndex & 1) != 0) {
                vu[0] = static_cast<uint8_t>(EncodeV(red, green, blue));
                vu[1] = static_cast<uint8_t>(EncodeU(red, green, blue));
                vu += 2;
            }
        }
    }
}

}  // namespace

// ---- row kernels ------------------------------------------------------------
// Decoder row: `groups` groups of 8 pixels. Luma from `y` (8 bytes a group),
// chroma from `vu` (4 pairs a group, pair k serving pixels 2k and 2k + 1),
// 24 interleaved bytes a group to `dst`. A variant takes whole steps of its
// table entry's `step` groups; RunNV21ToRGBRow takes any count.
using NV21ToRGBRowFn = void (*)(const uint8_t* y, const uint8_t* vu, uint8_t* dst, int groups);
// Encoder row: `groups` groups of 16 pixels read from `bgr` (48 bytes a group,
// channel 0 = B), 16 luma bytes a group to `y`; unless `vu` is null, 8 V,U
// pairs a group taken from the even-column pixels. Steps as for the decoder.
using BGRToNV21RowFn = void (*)(const uint8_t* bgr, uint8_t* y, uint8_t* vu, int groups);
// Whole-frame scalar encoder (RGBToNV21FrameBody) for width, height >= 1; its
// variant is the same loop compiled wider, so any frame is a whole step.
using RGBToNV21FrameFn = void (*)(uint8_t* dst, const uint8_t* rgb, int width, int height);

void NV21ToRGBRow_C(const uint8_t* y, const uint8_t* vu, uint8_t* dst, int groups);
void BGRToNV21Row_C(const uint8_t* bgr, uint8_t* y, uint8_t* vu, int groups);
void RGBToNV21Frame_C(uint8_t* dst, const uint8_t* rgb, int width, int height);
#if defined(__x86_64__)
void NV21ToRGBRow_SSE41(const uint8_t* y, const uint8_t* vu, uint8_t* dst, int groups);
void BGRToNV21Row_SSE41(const uint8_t* bgr, uint8_t* y, uint8_t* vu, int groups);
void NV21ToRGBRow_AVX2(const uint8_t* y, const uint8_t* vu, uint8_t* dst, int groups);
void BGRToNV21Row_AVX2(const uint8_t* bgr, uint8_t* y, uint8_t* vu, int groups);
void RGBToNV21Frame_AVX2(uint8_t* dst, const uint8_t* rgb, int width, int height);
#endif
#if defined(__ARM_NEON)
void NV21ToRGBRow_NEON(const uint8_t* y, const uint8_t* vu, uint8_t* dst, int groups);
void BGRToNV21Row_NEON(const uint8_t* bgr, uint8_t* y, uint8_t* vu, int groups);
#endif

// Every variant of this architecture, reference first, fastest last, with
// its step in groups.
inline constexpr KernelVariant<NV21ToRGBRowFn> kNV21ToRGBRowVariants[] = {
    {"C", 0, 1, NV21ToRGBRow_C},
#if defined(__x86_64__)
    {"SSE41", kCpuSse41, 2, NV21ToRGBRow_SSE41},
    {"AVX2", kCpuAvx2, 4, NV21ToRGBRow_AVX2},
#endif
#if defined(__ARM_NEON)
    {"NEON", kCpuNeon, 1, NV21ToRGBRow_NEON},
#endif
};
inline constexpr KernelVariant<BGRToNV21RowFn> kBGRToNV21RowVariants[] = {
    {"C", 0, 1, BGRToNV21Row_C},
#if defined(__x86_64__)
    {"SSE41", kCpuSse41, 1, BGRToNV21Row_SSE41},
    {"AVX2", kCpuAvx2, 2, BGRToNV21Row_AVX2},
#endif
#if defined(__ARM_NEON)
    {"NEON", kCpuNeon, 1, BGRToNV21Row_NEON},
#endif
};
inline constexpr KernelVariant<RGBToNV21FrameFn> kRGBToNV21FrameVariants[] = {
    {"C", 0, 1, RGBToNV21Frame_C},
#if defined(__x86_64__)
    {"AVX2", kCpuAvx2, 1, RGBToNV21Frame_AVX2},
#endif
};

// ---- row walkers ------------------------------------------------------------
// `row` over the whole steps of `groups`, the reference over the rest.
void RunNV21ToRGBRow(const KernelVariant<NV21ToRGBRowFn>& row, const uint8_t* y, const uint8_t* vu,
                     uint8_t* dst, int groups);
void RunBGRToNV21Row(const KernelVariant<BGRToNV21RowFn>& row, const uint8_t* bgr, uint8_t* y,
                     uint8_t* vu, int groups);

// ---- frame walks ------------------------------------------------------------
// The whole-frame behaviour of NV21toRGB_NEON and BGRtoNV21_NEON with the
// given row variant: early returns, chroma row stepping, running pointers.
const uint8_t* NV21ToRGBFrame(const KernelVariant<NV21ToRGBRowFn>& row, const uint8_t* src,
                              uint8_t* dst, int width, int height);
void BGRToNV21Frame(const KernelVariant<BGRToNV21RowFn>& row, uint8_t* dst, const uint8_t* src,
                    int width, int height);

}  // namespace scancode
