#include "inference/tensor_convert.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "inference/detector_layout.h"


namespace {

using detector_layout::kHeads;

uint32_t FloatBits(float f) {
    uint32_t b;
    memcpy(&b, &f, 4);
    return b;
}

TEST(Uint8ToFP32, DetectorOutputsMatchDoublePrecisionBitForBit) {
    // q = 189 of output 0 is exactly zero; q = 255 is 66 scales, computed in
    // double and rounded once.
    float out[256];
    std::vector<unsigned char> all(256);
    for (int q = 0; q < 256; ++q) all[q] = static_cast<unsigned char>(q);
    Uint8ToFP32(256, all.data(), out, kHeads[0].zeroPoint, kHeads[0].scale);
    EXPECT_EQ(FloatBits(out[189]), 0u);
    EXPECT_EQ(out[255], static_cast<float>(66.0 * 0.06613318622112274));

    const int zeroPoints[] = {-189, -221,     -178,      -168,       -255,       0,
                              37,   16777000, -16777000, 2147483000, -2147483000};
    // The detector's own scales and a spread of others.
    std::vector<float> scales;
    for (const detector_layout::Head& h : kHeads) scales.push_back(h.scale);
    scales.insert(scales.end(), {1.0f, 3.3e-7f, 0.0999999f, 12345.678f, 1.1e-3f, 7.77f});
    for (int zp : zeroPoints) {
        for (float scale : scales) {
            Uint8ToFP32(256, all.data(), out, zp, scale);
            for (int q = 0; q < 256; ++q) {
                const float expected = static_cast<float>((q + zp) * static_cast<double>(scale));
                ASSERT_EQ(FloatBits(out[q]), FloatBits(expected))
                    << "q " << q << " zp " << zp << " scale " << scale;
            }
        }
    }
}

TEST(Half, EveryHalfValueRoundTrips) {
    for (uint32_t b = 0; b < 65536; ++b) {
        const half h{static_cast<uint16_t>(b)};
        float f;
        Fp16ToFp32(1, &h, &f);
        half back{};
        Fp32ToFp16(1, &f, &back);
        const bool nan = (b & 0x7c00u) == 0x7c00u && (b & 0x3ffu) != 0;
        if (nan) {
            ASSERT_TRUE(std::isnan(f)) << std::hex << b;
            // A NaN comes back quiet, sign and payload kept.
            ASSERT_EQ(back.bits, b | 0x200u) << std::hex << b;
        } else {
            ASSERT_EQ(back.bits, b) << std::hex << b;
        }
    }
}

}  // namespace
