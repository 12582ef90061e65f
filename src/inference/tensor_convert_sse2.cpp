// x86-64 SSE2 dequantization: 16 bytes widened to four vectors of int32, the
// zero point added in integers, then one exact conversion and one float
// product each.
#include "inference/tensor_convert.h"

#if defined(__x86_64__)
#include <emmintrin.h>

void Uint8ToFP32_SSE2(int n, unsigned char const* in, float* out, int zeroPoint, float scale) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i zp = _mm_set1_epi32(zeroPoint);
    const __m128 s = _mm_set1_ps(scale);
    for (int i = 0; i + 16 <= n; i += 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i));
        const __m128i lo = _mm_unpacklo_epi8(bytes, zero), hi = _mm_unpackhi_epi8(bytes, zero);
        const __m128i q[4] = {_mm_unpacklo_epi16(lo, zero), _mm_unpackhi_epi16(lo, zero),
                              _mm_unpacklo_epi16(hi, zero), _mm_unpackhi_epi16(hi, zero)};
        for (int k = 0; k < 4; ++k) {
            const __m128 v = _mm_cvtepi32_ps(_mm_add_epi32(q[k], zp));
            _mm_storeu_ps(out + i + 4 * k, _mm_mul_ps(v, s));
        }
    }
}

#endif  // __x86_64__
