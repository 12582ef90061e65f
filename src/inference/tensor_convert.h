// Element-type and layout conversions of tensors, and thread placement.
#pragma once

#include <string>

#include "inference/half.h"

// out[i] = ((double)in[i] + zeroPoint) * (double)scale, rounded to float.
// The detector's dequantization; n <= 0 does nothing.
void Uint8ToFP32(int n, unsigned char const* in, float* out, int zeroPoint, float scale);

// The same arithmetic, reordering interleaved h x w pixels of c channels into
// planar order: out[k*h*w + p] = f(in[p*c + k]).
void Uint8ToFP32(int h, int w, int c, unsigned char const* in, float* out, int zeroPoint,
                 float scale);

// Interleaved to planar without arithmetic: out[k*h*w + p] = in[p*c + k].
void Uint8NhwcToNchw(int h, int w, int c, unsigned char const* in, unsigned char* out);

void Fp16ToFp32(unsigned long n, half const* in, float* out);
void Fp32ToFp16(unsigned long n, float const* in, half* out);

// Pins the calling thread to core 4, else to cores 4-5, else to 4-6.
// 0 on the first placement that succeeds, -1 when none does.
int SetThreadAffinity();

// Always empty: the chip is not identified.
std::string GetChipType();
