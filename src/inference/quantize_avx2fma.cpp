// x86-64 AVX2 unit quantization kernel. fmadd rounds once, exactly like the
// reference's fmaf; this is the only file built with FMA instructions, and
// contraction stays off, so nothing else in it is fused.
#include "inference/quantize.h"

#if defined(__x86_64__)
#if !defined(__AVX2__) || !defined(__FMA__)
#error "this file needs -mavx2 -mfma (cmake/simd.cmake)"
#endif

#include "inference/quantize_x86.h"

void QuantizeUnits_AVX2FMA(const float* in, uint8_t* out, size_t n) {
    const __m256 half = _mm256_set1_ps(0.5f);
    const __m256 scale = _mm256_set1_ps(kUnitScale);
    for (size_t i = 0; i + 32 <= n; i += 32) {
        const __m256 a = _mm256_fmadd_ps(_mm256_loadu_ps(in + i), scale, half);
        const __m256 b = _mm256_fmadd_ps(_mm256_loadu_ps(in + i + 8), scale, half);
        const __m256 c = _mm256_fmadd_ps(_mm256_loadu_ps(in + i + 16), scale, half);
        const __m256 d = _mm256_fmadd_ps(_mm256_loadu_ps(in + i + 24), scale, half);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), Narrow32(a, b, c, d));
    }
}

#endif  // __x86_64__
