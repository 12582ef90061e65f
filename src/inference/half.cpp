#include "inference/half.h"

#include <cmath>
#include <cstring>

namespace {

inline uint32_t FloatBits(float f) {
    uint32_t b;
    memcpy(&b, &f, sizeof b);
    return b;
}

inline float BitsFloat(uint32_t b) {
    float f;
    memcpy(&f, &b, sizeof f);
    return f;
}

}  // namespace

float HalfToFloat(half h) {
    const uint32_t sign = static_cast<uint32_t>(h.bits & 0x8000u) << 16;
    const uint32_t exponent = (h.bits >> 10) & 0x1fu;
    const uint32_t mantissa = h.bits & 0x3ffu;
    if (exponent == 0) {
        // Zero or subnormal: mantissa x 2^-24 is exact in single precision.
        return BitsFloat(sign | FloatBits(std::ldexp(static_cast<float>(mantissa), -24)));
    }
    if (exponent == 0x1f) {
        const uint32_t quiet = mantissa != 0 ? 0x00400000u : 0u;
        return BitsFloat(sign | 0x7f800000u | quiet | (mantissa << 13));
    }
    return BitsFloat(sign | ((exponent + 112) << 23) | (mantissa << 13));
}

half FloatToHalf(float f) {
    const uint32_t bits = FloatBits(f);
    const uint16_t sign = static_cast<uint16_t>((bits >> 16) & 0x8000u);
    const uint32_t magnitude = bits & 0x7fffffffu;

    if (magnitude > 0x7f800000u) {  // NaN
        return half{static_cast<uint16_t>(sign | 0x7e00u | ((magnitude & 0x7fffffu) >> 13))};
    }
    if (magnitude >= 0x477ff000u) {  // 65520 and above round to infinity
        return half{static_cast<uint16_t>(sign | 0x7c00u)};
    }
    if (magnitude >= 0x38800000u) {  // normal half range, from 2^-14
        uint32_t h = (magnitude >> 13) - (112u << 10);
        const uint32_t rest = magnitude & 0x1fffu;
        if (rest > 0x1000u || (rest == 0x1000u && (h & 1u))) {
            ++h;  // may carry into the exponent, which is still right
        }
        return half{static_cast<uint16_t>(sign | h)};
    }
    // Subnormal half (or zero): count units of 2^-24.
    const uint32_t exponent = magnitude >> 23;
    const uint32_t shift = 126u - exponent;  // 14 for the largest subnormal
    if (exponent == 0 || shift > 24) {
        return half{sign};  // below a quarter unit: rounds to zero
    }
    const uint32_t mantissa = (magnitude & 0x7fffffu) | 0x800000u;
    uint32_t h = mantissa >> shift;
    const uint32_t rest = mantissa & ((1u << shift) - 1u);
    const uint32_t halfway = 1u << (shift - 1);
    if (rest > halfway || (rest == halfway && (h & 1u))) {
        ++h;
    }
    return half{static_cast<uint16_t>(sign | h)};
}
