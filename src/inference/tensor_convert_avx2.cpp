// x86-64 AVX2 dequantization: the float path as a plain loop, which the
// compiler vectorises eight values a register here.
#include "inference/tensor_convert.h"

#if defined(__x86_64__)
#if !defined(__AVX2__)
#error "this file needs -mavx2 (cmake/simd.cmake)"
#endif

void Uint8ToFP32_AVX2(int n, unsigned char const* in, float* out, int zeroPoint, float scale) {
    for (int i = 0; i < n; ++i) {
        out[i] = static_cast<float>(static_cast<int>(in[i]) + zeroPoint) * scale;
    }
}

#endif  // __x86_64__
