// x86-64 AVX2 pixel quantization kernel: 32 values a step.
#include "inference/quantize.h"

#if defined(__x86_64__)
#if !defined(__AVX2__)
#error "this file needs -mavx2 (cmake/simd.cmake)"
#endif

#include "inference/quantize_x86.h"

void QuantizePixels_AVX2(float* in, uint8_t* out, size_t n) {
    const __m256 half = _mm256_set1_ps(0.5f);
    for (size_t i = 0; i + 32 <= n; i += 32) {
        const __m256 a = _mm256_add_ps(_mm256_loadu_ps(in + i), half);
        const __m256 b = _mm256_add_ps(_mm256_loadu_ps(in + i + 8), half);
        const __m256 c = _mm256_add_ps(_mm256_loadu_ps(in + i + 16), half);
        const __m256 d = _mm256_add_ps(_mm256_loadu_ps(in + i + 24), half);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), Narrow32(a, b, c, d));
    }
}

#endif  // __x86_64__
