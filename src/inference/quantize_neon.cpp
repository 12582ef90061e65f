// Arm NEON quantization kernels. arm64 needs no fix-ups: the float-to-int
// conversion already truncates and saturates with NaN giving 0, and two
// saturating narrowings follow. vfmaq rounds once, like the reference's fmaf.
#include "inference/quantize.h"

#if defined(__ARM_NEON)
#include <arm_neon.h>

namespace {
inline uint8x16_t Narrow16(int32x4_t a, int32x4_t b, int32x4_t c, int32x4_t d) {
    const int16x8_t ab = vcombine_s16(vqmovn_s32(a), vqmovn_s32(b));
    const int16x8_t cd = vcombine_s16(vqmovn_s32(c), vqmovn_s32(d));
    return vcombine_u8(vqmovun_s16(ab), vqmovun_s16(cd));
}
}  // namespace

void QuantizePixels_NEON(float* in, uint8_t* out, size_t n) {
    const float32x4_t half = vdupq_n_f32(0.5f);
    for (size_t i = 0; i + 16 <= n; i += 16) {
        const int32x4_t a = vcvtq_s32_f32(vaddq_f32(vld1q_f32(in + i), half));
        const int32x4_t b = vcvtq_s32_f32(vaddq_f32(vld1q_f32(in + i + 4), half));
        const int32x4_t c = vcvtq_s32_f32(vaddq_f32(vld1q_f32(in + i + 8), half));
        const int32x4_t d = vcvtq_s32_f32(vaddq_f32(vld1q_f32(in + i + 12), half));
        vst1q_u8(out + i, Narrow16(a, b, c, d));
    }
}

void QuantizeUnits_NEON(const float* in, uint8_t* out, size_t n) {
    const float32x4_t half = vdupq_n_f32(0.5f);
    const float32x4_t scale = vdupq_n_f32(kUnitScale);
    for (size_t i = 0; i + 16 <= n; i += 16) {
        const int32x4_t a = vcvtq_s32_f32(vfmaq_f32(half, vld1q_f32(in + i), scale));
        const int32x4_t b = vcvtq_s32_f32(vfmaq_f32(half, vld1q_f32(in + i + 4), scale));
        const int32x4_t c = vcvtq_s32_f32(vfmaq_f32(half, vld1q_f32(in + i + 8), scale));
        const int32x4_t d = vcvtq_s32_f32(vfmaq_f32(half, vld1q_f32(in + i + 12), scale));
        vst1q_u8(out + i, Narrow16(a, b, c, d));
    }
}

#endif  // __ARM_NEON
