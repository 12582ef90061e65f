// Float to 8-bit quantization of a network input.
//
// Two block kernels, each with a plain scalar reference (_C) that defines the
// result bit for bit and vector variants chosen at run time
// (platform/cpu_features.h) that must produce the same bytes:
//
//   pixels (0..255 floats):  u = trunc(x + 0.5f)
//   unit   (0..1 floats):    u = trunc(fmaf(x, kUnitScale, 0.5f))
//
// `trunc` truncates toward zero and saturates to int32 (NaN gives 0), as the
// arm64 conversion does; the result is then saturated to int16 and to 0..255.
// Block kernels take a count that is a multiple of 16; the elements past the
// last whole block go through the scalar remainder functions.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/cpu_features.h"

// The float nearest 1/255 (bits 0x3B808081), the model's input scale.
constexpr float kInputScale = 0.003921568859368563f;
// Its reciprocal in double precision (bits 0x406FDFFFE05FC01F).
constexpr double kInputScaleInverse = 1.0 / static_cast<double>(kInputScale);
// The float just below 255 (bits 0x437EFFFF).
constexpr float kUnitScale = 254.99998474121094f;

namespace scancode {
using QuantizeBlocksFn = void (*)(const float* in, uint8_t* out, size_t n);
}  // namespace scancode

// Pixel blocks: `n` must be a multiple of 16.
void QuantizePixelBlocks(const float* in, uint8_t* out, size_t n);
void QuantizePixelBlocks_C(const float* in, uint8_t* out, size_t n);
// Unit blocks: `n` must be a multiple of 16.
void QuantizeUnitBlocks(const float* in, uint8_t* out, size_t n);
void QuantizeUnitBlocks_C(const float* in, uint8_t* out, size_t n);

#if defined(__x86_64__)
void QuantizePixelBlocks_SSE2(const float* in, uint8_t* out, size_t n);
void QuantizePixelBlocks_AVX2(const float* in, uint8_t* out, size_t n);
// The unit kernel's fused multiply-add needs FMA instructions to stay exact.
void QuantizeUnitBlocks_AVX2FMA(const float* in, uint8_t* out, size_t n);
#endif
#if defined(__ARM_NEON)
void QuantizePixelBlocks_NEON(const float* in, uint8_t* out, size_t n);
void QuantizeUnitBlocks_NEON(const float* in, uint8_t* out, size_t n);
#endif

// Every variant of this architecture, reference first, fastest last.
inline constexpr scancode::KernelVariant<scancode::QuantizeBlocksFn>
    kQuantizePixelBlocksVariants[] = {
        {"C", 0, QuantizePixelBlocks_C},
#if defined(__x86_64__)
        {"SSE2", scancode::kCpuSse2, QuantizePixelBlocks_SSE2},
        {"AVX2", scancode::kCpuAvx2, QuantizePixelBlocks_AVX2},
#endif
#if defined(__ARM_NEON)
        {"NEON", scancode::kCpuNeon, QuantizePixelBlocks_NEON},
#endif
};
inline constexpr scancode::KernelVariant<scancode::QuantizeBlocksFn> kQuantizeUnitBlocksVariants[] =
    {
        {"C", 0, QuantizeUnitBlocks_C},
#if defined(__x86_64__)
        {"AVX2FMA", scancode::kCpuAvx2 | scancode::kCpuFma, QuantizeUnitBlocks_AVX2FMA},
#endif
#if defined(__ARM_NEON)
        {"NEON", scancode::kCpuNeon, QuantizeUnitBlocks_NEON},
#endif
};

// Pixel remainder: each x is scaled by kInputScale in single precision and
// written back into `in`, then u = round-half-away((double)x * kInputScaleInverse)
// clamped to 0..255 (NaN gives 0).
void QuantizePixelRemainder(float* in, uint8_t* out, size_t n);

// Unit remainder: u = round-half-away((double)x * kInputScaleInverse) clamped
// to 0..255; `in` is left as it is.
void QuantizeUnitRemainder(const float* in, uint8_t* out, size_t n);
