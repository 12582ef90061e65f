// Arm NEON dequantization: 16 bytes widened to four vectors of int32, the
// zero point added in integers, then one exact conversion and one float
// product each.
#include "inference/tensor_convert.h"

#if defined(__ARM_NEON)
#include <arm_neon.h>

void Uint8ToFP32_NEON(int n, unsigned char const* in, float* out, int zeroPoint, float scale) {
    const int32x4_t zp = vdupq_n_s32(zeroPoint);
    for (int i = 0; i + 16 <= n; i += 16) {
        const uint8x16_t bytes = vld1q_u8(in + i);
        const uint16x8_t lo = vmovl_u8(vget_low_u8(bytes)), hi = vmovl_u8(vget_high_u8(bytes));
        const uint32x4_t q[4] = {vmovl_u16(vget_low_u16(lo)), vmovl_u16(vget_high_u16(lo)),
                                 vmovl_u16(vget_low_u16(hi)), vmovl_u16(vget_high_u16(hi))};
        for (int k = 0; k < 4; ++k) {
            const float32x4_t v = vcvtq_f32_s32(vaddq_s32(vreinterpretq_s32_u32(q[k]), zp));
            vst1q_f32(out + i + 4 * k, vmulq_n_f32(v, scale));
        }
    }
}

#endif  // __ARM_NEON
