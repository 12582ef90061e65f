#include "inference/tensor_convert.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "inference/detector_layout.h"
#include "kernel_variants.h"

namespace {

using detector_layout::kHeads;

uint32_t FloatBits(float f) {
    uint32_t b;
    memcpy(&b, &f, 4);
    return b;
}

// Every dequantization variant against (q + zp) * scale worked out in double
// and rounded once, bit for bit: all byte values, the detector's own
// quantization, zero points on both sides of the float-exact bound, and
// lengths and starts that leave every remainder of the steps to the reference.
class DequantizeVariantTest
    : public ::testing::TestWithParam<scancode::KernelVariant<scancode::Uint8ToFP32Fn>> {
  protected:
    void SetUp() override {
        if (!scancode::CpuHas(GetParam().needs)) {
            GTEST_SKIP() << "this CPU cannot run " << GetParam().name;
        }
    }
};

TEST_P(DequantizeVariantTest, MatchesReferenceBitForBit) {
    std::vector<int> zeroPoints = {0,
                                   255,
                                   scancode::kFloatExactZeroPoint - 1,
                                   -scancode::kFloatExactZeroPoint + 1,
                                   scancode::kFloatExactZeroPoint,
                                   -scancode::kFloatExactZeroPoint,
                                   2147483000,
                                   -2147483000};
    std::vector<float> scales = {1.0f, -0.5f, 3.3e-7f, 1e-38f, 3e38f, 12345.678f};
    for (const detector_layout::Head& h : kHeads) {
        zeroPoints.push_back(h.zeroPoint);
        scales.push_back(h.scale);
    }
    const int lengths[] = {1, 7, 8, 15, 16, 17, 31, 32, 33, 47, 63, 64, 65, 256, 1000, 38400};
    std::mt19937 rng(3);
    std::vector<unsigned char> in(38400 + 64);
    for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<unsigned char>(i < 256 ? i : rng());
    constexpr float kGuard = -12.25f;
    std::vector<float> got(in.size() + 16), want(in.size() + 16);
    for (int zp : zeroPoints) {
        for (float scale : scales) {
            for (int n : lengths) {
                for (int at : {0, 1}) {
                    std::fill(got.begin(), got.end(), kGuard);
                    std::fill(want.begin(), want.end(), kGuard);
                    scancode::RunUint8ToFP32(GetParam(), n, in.data() + at, got.data(), zp, scale);
                    for (int i = 0; i < n; ++i)
                        want[i] =
                            static_cast<float>((in[at + i] + zp) * static_cast<double>(scale));
                    for (int i = 0; i < n + 16; ++i) {
                        ASSERT_EQ(FloatBits(got[i]), FloatBits(want[i]))
                            << "at " << i << " of " << n << " from " << at << ", zp " << zp
                            << " scale " << scale;
                    }
                }
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Variants, DequantizeVariantTest, ::testing::ValuesIn(kUint8ToFP32Variants),
                         VariantName());

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
