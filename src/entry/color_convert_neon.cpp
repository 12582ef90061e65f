// Arm NEON row kernels: the device path. vmulq/vaddq/vsubq on 16-bit lanes
// wrap exactly like the reference, vshrq_n_s16 is the arithmetic shift and
// vqmovun_s16 is the clamp of a signed 16-bit value to 0..255.
#include "entry/color_convert_row.h"

#if defined(__ARM_NEON)
#include <arm_neon.h>

namespace scancode {

// One group of 8 pixels a step.
void NV21ToRGBRow_NEON(const uint8_t* y, const uint8_t* vu, uint8_t* dst, int groups) {
    const uint8x8_t bias = vdup_n_u8(128);
    for (int g = 0; g < groups; ++g, y += 8, vu += 8, dst += 24) {
        const int16x8_t luma = vreinterpretq_s16_u16(vmovl_u8(vld1_u8(y)));
        // C0 - 128, C1 - 128 alternating; the modulo-2^16 widening subtract
        // gives the signed value.
        const int16x8_t pairs = vreinterpretq_s16_u16(vsubl_u8(vld1_u8(vu), bias));
        // Lanes 0,0,2,2,.. and 1,1,3,3,..: each pair's C0 and C1 on both of
        // its pixels.
        const int16x8x2_t split = vtrnq_s16(pairs, pairs);
        const int16x8_t c0 = split.val[0];
        const int16x8_t c1 = split.val[1];
        const int16x8_t add0 = vshrq_n_s16(vmulq_n_s16(c0, 455), 8);
        const int16x8_t sub1 = vshrq_n_s16(vaddq_s16(vmulq_n_s16(c0, 88), vmulq_n_s16(c1, 184)), 8);
        const int16x8_t add2 = vshrq_n_s16(vmulq_n_s16(c1, 360), 8);
        uint8x8x3_t out;
        out.val[0] = vqmovun_s16(vaddq_s16(luma, add0));
        out.val[1] = vqmovun_s16(vsubq_s16(luma, sub1));
        out.val[2] = vqmovun_s16(vaddq_s16(luma, add2));
        vst3_u8(dst, out);
    }
}

namespace {

// Luma of 8 pixels in unsigned 16-bit lanes: the sum reaches 56228, past
// int16 but within uint16, hence the logical shift.
inline uint16x8_t Luma(uint8x8_t r, uint8x8_t g, uint8x8_t b) {
    uint16x8_t sum = vmull_u8(r, vdup_n_u8(66));
    sum = vaddq_u16(sum, vmull_u8(g, vdup_n_u8(129)));
    sum = vaddq_u16(sum, vmull_u8(b, vdup_n_u8(25)));
    sum = vaddq_u16(sum, vdupq_n_u16(128));
    return vaddq_u16(vshrq_n_u16(sum, 8), vdupq_n_u16(16));
}

}  // namespace

// One group of 16 pixels a step.
void BGRToNV21Row_NEON(const uint8_t* bgr, uint8_t* y, uint8_t* vu, int groups) {
    const int16x8_t round = vdupq_n_s16(128);
    for (int g = 0; g < groups; ++g, bgr += 48, y += 16) {
        const uint8x16x3_t px = vld3q_u8(bgr);
        const uint8x16_t b = px.val[0], gr = px.val[1], r = px.val[2];
        const uint16x8_t ylo = Luma(vget_low_u8(r), vget_low_u8(gr), vget_low_u8(b));
        const uint16x8_t yhi = Luma(vget_high_u8(r), vget_high_u8(gr), vget_high_u8(b));
        vst1q_u8(y, vcombine_u8(vqmovn_u16(ylo), vqmovn_u16(yhi)));
        if (vu == nullptr) continue;
        // The even-column pixels are the low bytes of the 16-bit lanes.
        const uint16x8_t low = vdupq_n_u16(0x00FF);
        const int16x8_t re = vreinterpretq_s16_u16(vandq_u16(vreinterpretq_u16_u8(r), low));
        const int16x8_t ge = vreinterpretq_s16_u16(vandq_u16(vreinterpretq_u16_u8(gr), low));
        const int16x8_t be = vreinterpretq_s16_u16(vandq_u16(vreinterpretq_u16_u8(b), low));
        int16x8_t v = vsubq_s16(vmulq_n_s16(re, 112), vmulq_n_s16(ge, 94));
        v = vsubq_s16(v, vmulq_n_s16(be, 18));
        v = vaddq_s16(vshrq_n_s16(vaddq_s16(v, round), 8), round);
        int16x8_t u = vsubq_s16(vmulq_n_s16(be, 112), vmulq_n_s16(re, 38));
        u = vsubq_s16(u, vmulq_n_s16(ge, 74));
        u = vaddq_s16(vshrq_n_s16(vaddq_s16(u, round), 8), round);
        uint8x8x2_t out;
        out.val[0] = vqmovun_s16(v);
        out.val[1] = vqmovun_s16(u);
        vst2_u8(vu, out);
        vu += 16;
    }
}

}  // namespace scancode

#endif  // __ARM_NEON
