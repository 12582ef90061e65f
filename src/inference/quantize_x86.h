// Narrowing helpers shared by the x86-64 quantization kernels. Only the
// per-ISA kernel files include it; everything here has internal linkage so
// that each of them compiles its own copy with its own instruction set.
//
// x86 converts NaN and every out-of-range value to INT32_MIN, which would turn
// +inf and huge values into 0. Capping the sum at 256 first (with the sum as
// the operand whose NaN wins) keeps NaN -> 0 and sends everything large to 255.
#pragma once

#include <immintrin.h>

namespace {

// Four vectors of four sums -> 16 bytes in element order.
inline __m128i Narrow16(__m128 a, __m128 b, __m128 c, __m128 d) {
    const __m128 cap = _mm_set1_ps(256.0f);
    const __m128i ab =
        _mm_packs_epi32(_mm_cvttps_epi32(_mm_min_ps(cap, a)), _mm_cvttps_epi32(_mm_min_ps(cap, b)));
    const __m128i cd =
        _mm_packs_epi32(_mm_cvttps_epi32(_mm_min_ps(cap, c)), _mm_cvttps_epi32(_mm_min_ps(cap, d)));
    return _mm_packus_epi16(ab, cd);
}

#if defined(__AVX2__)
// Four vectors of eight sums -> 32 bytes in element order.
inline __m256i Narrow32(__m256 a, __m256 b, __m256 c, __m256 d) {
    const __m256 cap = _mm256_set1_ps(256.0f);
    const __m256i ia = _mm256_cvttps_epi32(_mm256_min_ps(cap, a));
    const __m256i ib = _mm256_cvttps_epi32(_mm256_min_ps(cap, b));
    const __m256i ic = _mm256_cvttps_epi32(_mm256_min_ps(cap, c));
    const __m256i id = _mm256_cvttps_epi32(_mm256_min_ps(cap, d));
    // Packing works per 128-bit lane; the permute restores element order.
    const __m256i bytes =
        _mm256_packus_epi16(_mm256_packs_epi32(ia, ib), _mm256_packs_epi32(ic, id));
    return _mm256_permutevar8x32_epi32(bytes, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}
#endif

}  // namespace
