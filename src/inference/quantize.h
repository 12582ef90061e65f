// Float to 8-bit quantization of a network input.
//
// Two block kernels, each with a plain scalar reference that defines the
// result bit for bit and a vector variant chosen at build time (NEON on arm64,
// AVX2 or SSE2 on x86-64) that must produce the same bytes:
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

// The float nearest 1/255 (bits 0x3B808081), the model's input scale.
constexpr float kInputScale = 0.003921568859368563f;
// Its reciprocal in double precision (bits 0x406FDFFFE05FC01F).
constexpr double kInputScaleInverse = 1.0 / static_cast<double>(kInputScale);
// The float just below 255 (bits 0x437EFFFF).
constexpr float kUnitScale = 254.99998474121094f;

// Pixel blocks: `n` must be a multiple of 16.
void QuantizePixelBlocks(const float* in, uint8_t* out, size_t n);
void QuantizePixelBlocksRef(const float* in, uint8_t* out, size_t n);

// Unit blocks: `n` must be a multiple of 16.
void QuantizeUnitBlocks(const float* in, uint8_t* out, size_t n);
void QuantizeUnitBlocksRef(const float* in, uint8_t* out, size_t n);

// Pixel remainder: each x is scaled by kInputScale in single precision and
// written back into `in`, then u = round-half-away((double)x * kInputScaleInverse)
// clamped to 0..255 (NaN gives 0).
void QuantizePixelRemainder(float* in, uint8_t* out, size_t n);

// Unit remainder: u = round-half-away((double)x * kInputScaleInverse) clamped
// to 0..255; `in` is left as it is.
void QuantizeUnitRemainder(const float* in, uint8_t* out, size_t n);

// Name of the vector variant compiled in: "neon", "avx2", "sse2" or "scalar".
extern const char* const kQuantizeSimd;
