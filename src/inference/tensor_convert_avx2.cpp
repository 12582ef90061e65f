// x86-64 AVX2 dequantization: the SSE2 arithmetic, eight values a vector.
#include "inference/tensor_convert.h"

#if defined(__x86_64__)
#if !defined(__AVX2__)
#error "this file needs -mavx2 (cmake/simd.cmake)"
#endif

#include <immintrin.h>

void Uint8ToFP32_AVX2(int n, unsigned char const* in, float* out, int zeroPoint, float scale) {
    // FloatExact is an inline function the baseline files use too; the
    // comparison is spelled out here so this file emits no copy of it.
    if (!(zeroPoint > -scancode::kFloatExactZeroPoint &&
          zeroPoint < scancode::kFloatExactZeroPoint)) {
        Uint8ToFP32_C(n, in, out, zeroPoint, scale);
        return;
    }
    const __m256i zp = _mm256_set1_epi32(zeroPoint);
    const __m256 s = _mm256_set1_ps(scale);
    int i = 0;
    for (; i + 32 <= n; i += 32) {
        for (int k = 0; k < 4; ++k) {
            const __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(in + i + 8 * k));
            const __m256 v = _mm256_cvtepi32_ps(_mm256_add_epi32(_mm256_cvtepu8_epi32(bytes), zp));
            _mm256_storeu_ps(out + i + 8 * k, _mm256_mul_ps(v, s));
        }
    }
    for (; i + 8 <= n; i += 8) {
        const __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(in + i));
        const __m256 v = _mm256_cvtepi32_ps(_mm256_add_epi32(_mm256_cvtepu8_epi32(bytes), zp));
        _mm256_storeu_ps(out + i, _mm256_mul_ps(v, s));
    }
    for (; i < n; ++i) {
        out[i] = static_cast<float>(static_cast<int>(in[i]) + zeroPoint) * scale;
    }
}

#endif  // __x86_64__
