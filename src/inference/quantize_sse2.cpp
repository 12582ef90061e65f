// x86-64 SSE2 quantization kernel: the baseline every x86-64 CPU has. The
// unit kernel has no SSE2 variant: without FMA instructions a vector product
// would round twice, and the fused scalar reference is the only exact path.
#include "inference/quantize.h"

#if defined(__x86_64__)

#include "inference/quantize_x86.h"

void QuantizePixels_SSE2(float* in, uint8_t* out, size_t n) {
    const __m128 half = _mm_set1_ps(0.5f);
    for (size_t i = 0; i + 16 <= n; i += 16) {
        const __m128 a = _mm_add_ps(_mm_loadu_ps(in + i), half);
        const __m128 b = _mm_add_ps(_mm_loadu_ps(in + i + 4), half);
        const __m128 c = _mm_add_ps(_mm_loadu_ps(in + i + 8), half);
        const __m128 d = _mm_add_ps(_mm_loadu_ps(in + i + 12), half);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), Narrow16(a, b, c, d));
    }
}

#endif  // __x86_64__
