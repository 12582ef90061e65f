// Vector variants of the quantization block kernels, chosen at build time.
// Each must give the bytes of its scalar reference in quantize.cpp.
//
// arm64 needs no fix-ups: the float-to-int conversion already truncates and
// saturates with NaN giving 0, and two saturating narrowings follow.
// x86 converts NaN and every out-of-range value to INT32_MIN, which would turn
// +inf and huge values into 0. Capping the sum at 256 first (with the sum as
// the operand whose NaN wins) keeps NaN -> 0 and sends everything large to 255.
#include "inference/quantize.h"

#include <cmath>

#if defined(__ARM_NEON)
#include <arm_neon.h>
#elif defined(__AVX2__) || defined(__SSE2__)
#include <immintrin.h>
#endif

#if defined(__ARM_NEON)

const char* const kQuantizeSimd = "neon";

namespace {
inline uint8x16_t Narrow16(int32x4_t a, int32x4_t b, int32x4_t c, int32x4_t d) {
    const int16x8_t ab = vcombine_s16(vqmovn_s32(a), vqmovn_s32(b));
    const int16x8_t cd = vcombine_s16(vqmovn_s32(c), vqmovn_s32(d));
    return vcombine_u8(vqmovun_s16(ab), vqmovun_s16(cd));
}
}  // namespace

void QuantizePixelBlocks(const float* in, uint8_t* out, size_t n) {
    const float32x4_t half = vdupq_n_f32(0.5f);
    for (size_t i = 0; i < n; i += 16) {
        const int32x4_t a = vcvtq_s32_f32(vaddq_f32(vld1q_f32(in + i), half));
        const int32x4_t b = vcvtq_s32_f32(vaddq_f32(vld1q_f32(in + i + 4), half));
        const int32x4_t c = vcvtq_s32_f32(vaddq_f32(vld1q_f32(in + i + 8), half));
        const int32x4_t d = vcvtq_s32_f32(vaddq_f32(vld1q_f32(in + i + 12), half));
        vst1q_u8(out + i, Narrow16(a, b, c, d));
    }
}

void QuantizeUnitBlocks(const float* in, uint8_t* out, size_t n) {
    const float32x4_t half = vdupq_n_f32(0.5f);
    const float32x4_t scale = vdupq_n_f32(kUnitScale);
    for (size_t i = 0; i < n; i += 16) {
        const int32x4_t a = vcvtq_s32_f32(vfmaq_f32(half, vld1q_f32(in + i), scale));
        const int32x4_t b = vcvtq_s32_f32(vfmaq_f32(half, vld1q_f32(in + i + 4), scale));
        const int32x4_t c = vcvtq_s32_f32(vfmaq_f32(half, vld1q_f32(in + i + 8), scale));
        const int32x4_t d = vcvtq_s32_f32(vfmaq_f32(half, vld1q_f32(in + i + 12), scale));
        vst1q_u8(out + i, Narrow16(a, b, c, d));
    }
}

#elif defined(__AVX2__)

const char* const kQuantizeSimd = "avx2";

namespace {
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

inline __m128i Narrow16(__m128 a, __m128 b, __m128 c, __m128 d) {
    const __m128 cap = _mm_set1_ps(256.0f);
    const __m128i ab =
        _mm_packs_epi32(_mm_cvttps_epi32(_mm_min_ps(cap, a)), _mm_cvttps_epi32(_mm_min_ps(cap, b)));
    const __m128i cd =
        _mm_packs_epi32(_mm_cvttps_epi32(_mm_min_ps(cap, c)), _mm_cvttps_epi32(_mm_min_ps(cap, d)));
    return _mm_packus_epi16(ab, cd);
}
}  // namespace

void QuantizePixelBlocks(const float* in, uint8_t* out, size_t n) {
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

#if defined(__FMA__)
void QuantizeUnitBlocks(const float* in, uint8_t* out, size_t n) {
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
    QuantizeUnitBlocksRef(in + i, out + i, n - i);
}
#else
// Without FMA instructions a vector product would round twice; the fused
// scalar path is the only exact one. This kernel is off the frame path.
void QuantizeUnitBlocks(const float* in, uint8_t* out, size_t n) {
    QuantizeUnitBlocksRef(in, out, n);
}
#endif

#elif defined(__SSE2__)

const char* const kQuantizeSimd = "sse2";

void QuantizePixelBlocks(const float* in, uint8_t* out, size_t n) {
    const __m128 half = _mm_set1_ps(0.5f);
    const __m128 cap = _mm_set1_ps(256.0f);
    for (size_t i = 0; i < n; i += 16) {
        __m128i q[4];
        for (int k = 0; k < 4; ++k) {
            const __m128 u = _mm_add_ps(_mm_loadu_ps(in + i + 4 * k), half);
            q[k] = _mm_cvttps_epi32(_mm_min_ps(cap, u));
        }
        const __m128i bytes =
            _mm_packus_epi16(_mm_packs_epi32(q[0], q[1]), _mm_packs_epi32(q[2], q[3]));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), bytes);
    }
}

void QuantizeUnitBlocks(const float* in, uint8_t* out, size_t n) {
    QuantizeUnitBlocksRef(in, out, n);
}

#else

const char* const kQuantizeSimd = "scalar";

void QuantizePixelBlocks(const float* in, uint8_t* out, size_t n) {
    QuantizePixelBlocksRef(in, out, n);
}

void QuantizeUnitBlocks(const float* in, uint8_t* out, size_t n) {
    QuantizeUnitBlocksRef(in, out, n);
}

#endif
