// Element-type and layout conversions of tensors, and thread placement.
// Exported with their C++ signatures: callers of the library use them too.
#pragma once

#include <string>

#include "inference/half.h"
#include "platform/export.h"

// out[i] = ((double)in[i] + zeroPoint) * (double)scale, rounded to float.
// The detector's dequantization; n <= 0 does nothing.
SCANCODE_EXPORT void Uint8ToFP32(int n, unsigned char const* in, float* out, int zeroPoint,
                                 float scale);

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
