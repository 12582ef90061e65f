// x86-64 AVX2 pixel quantization kernel: 32 values a step.
#include "inference/quantize.h"

#if defined(__x86_64__)
#if !defined(__AVX2__)
#error "this file needs -mavx2 (cmake/simd.cmake)"
#endif

#include "inference/quantize_x86.h"

void QuantizePixelBlocks_AVX2(const float* in, uint8_t* out, size_t n) {
    const __m256 half = _mm256_set1_ps(0.5f);
    size_t i = 0;
    for (; i + 32 <= n; i += 32) {
        const __m256 a = _mm256_add_ps(_mm256_loadu_ps(in + i), half);
        const __m256 b = _mm256_add_ps(_mm256_loadu_ps(in + i + 8), half);
        const __m256 c = _mm256_add_ps(_mm256_loadu_ps(in + i + 16), half);
        const __m256 d = _mm256_add_ps(_mm256_loadu_ps(in + i + 24), half);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), Narrow32(a, b, c, d));
    }
    if (i < n) {  // one block of 16 left
        const __m128 h = _mm_set1_ps(0.5f);
        const __m128 a = _mm_add_ps(_mm_loadu_ps(in + i), h);
        const __m128 b = _mm_add_ps(_mm_loadu_ps(in + i + 4), h);
        const __m128 c = _mm_add_ps(_mm_loadu_ps(in + i + 8), h);
        const __m128 d = _mm_add_ps(_mm_loadu_ps(in + i + 12), h);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), Narrow16(a, b, c, d));
    }
}

#endif  // __x86_64__
