// x86-64 AVX2 unit quantization kernel. fmadd rounds once, exactly like the
// reference's fmaf; this is the only file built with FMA instructions, and
// contraction stays off, so nothing else in it is fused.
#include "inference/quantize.h"

#if defined(__x86_64__)
#if !defined(__AVX2__) || !defined(__FMA__)
#error "this file needs -mavx2 -mfma (cmake/simd.cmake)"
#endif

#include "inference/quantize_x86.h"

void QuantizeUnitBlocks_AVX2FMA(const float* in, uint8_t* out, size_t n) {
    const __m256 half = _mm256_set1_ps(0.5f);
    const __m256 scale = _mm256_set1_ps(kUnitScale);
    size_t i = 0;
    for (; i + 32 <= n; i += 32) {
        const __m256 a = _mm256_fmadd_ps(_mm256_loadu_ps(in + i), scale, half);
        const __m256 b = _mm256_fmadd_ps(_mm256_loadu_ps(in + i + 8), scale, half);
        const __m256 c = _mm256_fmadd_ps(_mm256_loadu_ps(in + i + 16), scale, half);
        const __m256 d = _mm256_fmadd_ps(_mm256_loadu_ps(in + i + 24), scale, half);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), Narrow32(a, b, c, d));
    }
    if (i < n) {  // one block of 16 left
        const __m128 h = _mm_set1_ps(0.5f);
        const __m128 s = _mm_set1_ps(kUnitScale);
        const __m128 a = _mm_fmadd_ps(_mm_loadu_ps(in + i), s, h);
        const __m128 b = _mm_fmadd_ps(_mm_loadu_ps(in + i + 4), s, h);
        const __m128 c = _mm_fmadd_ps(_mm_loadu_ps(in + i + 8), s, h);
        const __m128 d = _mm_fmadd_ps(_mm_loadu_ps(in + i + 12), s, h);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), Narrow16(a, b, c, d));
    }
}

#endif  // __x86_64__
