// x86-64 AVX2 dequantization: the float path's plain loop, which the
// compiler vectorises eight values a register here.
#include "inference/tensor_convert.h"

#if defined(__x86_64__)
#if !defined(__AVX2__)
#error "this file needs -mavx2 (cmake/simd.cmake)"
#endif

void Uint8ToFP32_AVX2(int n, unsigned char const* in, float* out, int zeroPoint, float scale) {
    if (!scancode::FloatExact(zeroPoint)) {
        Uint8ToFP32_C(n, in, out, zeroPoint, scale);
        return;
    }
    scancode::Uint8ToFP32FloatLoop(n, in, out, zeroPoint, scale);
}

#endif  // __x86_64__
