// Element-type and layout conversions of tensors, and thread placement.
// Exported with their C++ signatures: callers of the library use them too.
#pragma once

#include <string>

#include "inference/half.h"
#include "platform/cpu_features.h"
#include "platform/export.h"

// out[i] = ((double)in[i] + zeroPoint) * (double)scale, rounded to float.
// The detector's dequantization; n <= 0 does nothing. Uint8ToFP32_C is the
// reference, the others its vector variants, chosen at run time
// (platform/cpu_features.h).
SCANCODE_EXPORT void Uint8ToFP32(int n, unsigned char const* in, float* out, int zeroPoint,
                                 float scale);
void Uint8ToFP32_C(int n, unsigned char const* in, float* out, int zeroPoint, float scale);
#if defined(__x86_64__)
void Uint8ToFP32_SSE2(int n, unsigned char const* in, float* out, int zeroPoint, float scale);
void Uint8ToFP32_AVX2(int n, unsigned char const* in, float* out, int zeroPoint, float scale);
#endif
#if defined(__ARM_NEON)
void Uint8ToFP32_NEON(int n, unsigned char const* in, float* out, int zeroPoint, float scale);
#endif

namespace scancode {
using Uint8ToFP32Fn = void (*)(int n, unsigned char const* in, float* out, int zeroPoint,
                               float scale);

// While |zeroPoint| stays below this, q + zeroPoint is exact as a float and
// its product with a float scale is exact in double, so a float product
// rounds exactly like the double one: the same bits at float speed. The
// variants compute in float and take whole steps of such zero points only;
// RunUint8ToFP32 hands everything else to the reference.
constexpr int kFloatExactZeroPoint = (1 << 24) - 256;
}  // namespace scancode

// Every variant of this architecture, reference first, fastest last, with
// its step in elements.
inline constexpr scancode::KernelVariant<scancode::Uint8ToFP32Fn> kUint8ToFP32Variants[] = {
    {"C", 0, 1, Uint8ToFP32_C},
#if defined(__x86_64__)
    {"SSE2", scancode::kCpuSse2, 16, Uint8ToFP32_SSE2},
    {"AVX2", scancode::kCpuAvx2, 8, Uint8ToFP32_AVX2},
#endif
#if defined(__ARM_NEON)
    {"NEON", scancode::kCpuNeon, 16, Uint8ToFP32_NEON},
#endif
};

namespace scancode {
// `kernel` over the whole steps of `n` when the zero point allows it, the
// reference over the rest.
void RunUint8ToFP32(const KernelVariant<Uint8ToFP32Fn>& kernel, int n, unsigned char const* in,
                    float* out, int zeroPoint, float scale);
}  // namespace scancode

// The same arithmetic, reordering interleaved h x w pixels of c channels into
// planar order: out[k*h*w + p] = f(in[p*c + k]).
SCANCODE_EXPORT void Uint8ToFP32(int h, int w, int c, unsigned char const* in, float* out,
                                 int zeroPoint, float scale);

// Interleaved to planar without arithmetic: out[k*h*w + p] = in[p*c + k].
SCANCODE_EXPORT void Uint8NhwcToNchw(int h, int w, int c, unsigned char const* in,
                                     unsigned char* out);

SCANCODE_EXPORT void Fp16ToFp32(unsigned long n, half const* in, float* out);
SCANCODE_EXPORT void Fp32ToFp16(unsigned long n, float const* in, half* out);

// Pins the calling thread to core 4, else to cores 4-5, else to 4-6.
// 0 on the first placement that succeeds, -1 when none does.
SCANCODE_EXPORT int SetThreadAffinity();

// Always empty: the chip is not identified.
SCANCODE_EXPORT std::string GetChipType();
