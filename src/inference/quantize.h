// Float to 8-bit quantization of a network input.
//
// Two kernels, each with a plain scalar reference (_C) that defines the
// result bit for bit and vector variants chosen at run time
// (platform/cpu_features.h) that must produce the same bytes. Inputs are
// quantized in blocks of 16:
//
//   pixels (0..255 floats):  u = trunc(x + 0.5f)
//   unit   (0..1 floats):    u = trunc(fmaf(x, kUnitScale, 0.5f))
//
// `trunc` truncates toward zero and saturates to int32 (NaN gives 0), as the
// arm64 conversion does; the result is then saturated to int16 and to 0..255.
// The elements past the last whole block take the scalar remainder path:
//
//   pixels:  x is scaled by kInputScale in single precision and written back
//            into `in`, then u = round-half-away((double)x * kInputScaleInverse)
//   unit:    u = round-half-away((double)x * kInputScaleInverse), `in` kept
//
// clamped to 0..255 (NaN gives 0). The references do both; a variant takes
// whole steps of its table entry's `step` elements (a multiple of 16) and
// reads `in` only, and the Run* walkers hand the rest to the reference.
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
// `in` is not const for the pixel kernel: its reference scales the remainder
// in place.
using QuantizePixelsFn = void (*)(float* in, uint8_t* out, size_t n);
using QuantizeUnitsFn = void (*)(const float* in, uint8_t* out, size_t n);
}  // namespace scancode

// The entry points: the variant this CPU runs, over any `n`.
void QuantizePixels(float* in, uint8_t* out, size_t n);
void QuantizeUnits(const float* in, uint8_t* out, size_t n);

void QuantizePixels_C(float* in, uint8_t* out, size_t n);
void QuantizeUnits_C(const float* in, uint8_t* out, size_t n);
#if defined(__x86_64__)
void QuantizePixels_SSE2(float* in, uint8_t* out, size_t n);
void QuantizePixels_AVX2(float* in, uint8_t* out, size_t n);
// The unit kernel's fused multiply-add needs FMA instructions to stay exact.
void QuantizeUnits_AVX2FMA(const float* in, uint8_t* out, size_t n);
#endif
#if defined(__ARM_NEON)
void QuantizePixels_NEON(float* in, uint8_t* out, size_t n);
void QuantizeUnits_NEON(const float* in, uint8_t* out, size_t n);
#endif

// Every variant of this architecture, reference first, fastest last, with
// its step in elements.
inline constexpr scancode::KernelVariant<scancode::QuantizePixelsFn> kQuantizePixelsVariants[] = {
    {"C", 0, 1, QuantizePixels_C},
#if defined(__x86_64__)
    {"SSE2", scancode::kCpuSse2, 16, QuantizePixels_SSE2},
    {"AVX2", scancode::kCpuAvx2, 32, QuantizePixels_AVX2},
#endif
#if defined(__ARM_NEON)
    {"NEON", scancode::kCpuNeon, 16, QuantizePixels_NEON},
#endif
};
inline constexpr scancode::KernelVariant<scancode::QuantizeUnitsFn> kQuantizeUnitsVariants[] = {
    {"C", 0, 1, QuantizeUnits_C},
#if defined(__x86_64__)
    {"AVX2FMA", scancode::kCpuAvx2 | scancode::kCpuFma, 32, QuantizeUnits_AVX2FMA},
#endif
#if defined(__ARM_NEON)
    {"NEON", scancode::kCpuNeon, 16, QuantizeUnits_NEON},
#endif
};

namespace scancode {
// `kernel` over the whole steps of `n`, the reference over the rest.
void RunQuantizePixels(const KernelVariant<QuantizePixelsFn>& kernel, float* in, uint8_t* out,
                       size_t n);
void RunQuantizeUnits(const KernelVariant<QuantizeUnitsFn>& kernel, const float* in, uint8_t* out,
                      size_t n);
}  // namespace scancode
