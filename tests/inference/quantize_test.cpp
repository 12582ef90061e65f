#include "inference/quantize.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "kernel_variants.h"

namespace {

const float kNaN = std::numeric_limits<float>::quiet_NaN();
const float kInf = std::numeric_limits<float>::infinity();

uint32_t Bits(float v) {
    uint32_t u;
    memcpy(&u, &v, sizeof u);
    return u;
}

// Values that stress truncation, saturation and the x86 conversion's
// out-of-range answer.
std::vector<float> EdgeValues() {
    using L = std::numeric_limits<float>;
    const float tiny = L::denorm_min(), big = L::max(), lowest = L::lowest();
    std::vector<float> v = {
        kNaN,           -kNaN,    kInf,         -kInf,         0.0f,          -0.0f,
        tiny,           big,      lowest,       2147483520.0f, 2147483648.0f, -2147483648.0f,
        -2147483904.0f, 32767.5f, 32768.0f,     -32768.5f,     255.5f,        255.49998f,
        256.0f,         -0.5f,    -0.50000006f, 1e-30f,        1e30f,         -1e30f};
    for (int k = -2; k <= 257; ++k) {
        v.push_back(k + 0.5f);
        v.push_back(std::nextafter(k + 0.5f, -1e9f));
        v.push_back(std::nextafter(k + 0.5f, 1e9f));
        v.push_back(k / 255.0f);
        v.push_back(std::nextafter((k + 0.5f) / kUnitScale, 0.0f));
        v.push_back((k + 0.5f) / kUnitScale);
    }
    while (v.size() % 32 != 16) v.push_back(1.0f);  // end on a 16-block
    return v;
}

using Kernel = void (*)(const float*, uint8_t*, size_t);

// One variant of one block kernel, with the reference it must match and the
// input range its callers use.
struct VariantCase {
    std::string name;
    Kernel fn;
    Kernel ref;
    unsigned needs;
    float lo;
    float hi;
};

std::vector<VariantCase> AllVariants() {
    std::vector<VariantCase> cases;
    for (const auto& v : kQuantizePixelBlocksVariants) {
        cases.push_back(
            {std::string("pixel_") + v.name, v.fn, QuantizePixelBlocks_C, v.needs, -2.0f, 258.0f});
    }
    for (const auto& v : kQuantizeUnitBlocksVariants) {
        cases.push_back(
            {std::string("unit_") + v.name, v.fn, QuantizeUnitBlocks_C, v.needs, -0.01f, 1.01f});
    }
    return cases;
}

class QuantizeVariantTest : public ::testing::TestWithParam<VariantCase> {
  protected:
    void SetUp() override {
        if (!scancode::CpuHas(GetParam().needs)) {
            GTEST_SKIP() << "this CPU cannot run " << GetParam().name;
        }
    }
    void ExpectSameBytes(const std::vector<float>& in) const {
        ASSERT_EQ(in.size() % 16, 0u);
        std::vector<uint8_t> got(in.size() + 16, 0x5A);
        std::vector<uint8_t> want(in.size(), 0xA5);
        GetParam().fn(in.data(), got.data(), in.size());
        GetParam().ref(in.data(), want.data(), in.size());
        for (size_t i = 0; i < in.size(); ++i) {
            ASSERT_EQ(got[i], want[i]) << "x = " << in[i] << " (bits " << std::hex << Bits(in[i])
                                       << std::dec << ") at " << i;
        }
        // Nothing written past n.
        for (size_t i = in.size(); i < got.size(); ++i) ASSERT_EQ(got[i], 0x5A) << i;
    }
};

TEST_P(QuantizeVariantTest, MatchesReference) {
    const VariantCase& k = GetParam();
    ExpectSameBytes(EdgeValues());
    std::mt19937 rng(1);
    std::uniform_real_distribution<float> dist(k.lo, k.hi);
    std::vector<float> uniform(1 << 16), patterns(1 << 16);
    for (auto& x : uniform) x = dist(rng);
    for (auto& x : patterns) {
        const uint32_t b = rng();
        memcpy(&x, &b, 4);
    }
    ExpectSameBytes(uniform);
    ExpectSameBytes(patterns);
    // One to five blocks of 16: the wide kernels' 32-value steps end on a
    // whole step or leave one block.
    for (size_t blocks = 1; blocks <= 5; ++blocks)
        ExpectSameBytes(std::vector<float>(uniform.begin(), uniform.begin() + 16 * blocks));
}

INSTANTIATE_TEST_SUITE_P(Kernels, QuantizeVariantTest, ::testing::ValuesIn(AllVariants()),
                         VariantName());

TEST(QuantizePixelBlocks, RoundsHalfUpAndSaturates) {
    // 0.49999997f + 0.5f rounds to 1.0f in single precision, hence 1.
    const std::vector<std::pair<float, uint8_t>> cases = {
        {0.49f, 0},    {0.5f, 1},       {2.4999998f, 2}, {127.5f, 128}, {254.49998f, 254},
        {300.0f, 255}, {-1e9f, 0},      {kNaN, 0},       {kInf, 255},   {-kInf, 0},
        {3e9f, 255},   {65535.5f, 255}, {0.49999997f, 1}};
    std::vector<float> in(32, 7.0f);
    std::vector<uint8_t> expected(32, 7);
    for (size_t i = 0; i < cases.size(); ++i) std::tie(in[i], expected[i]) = cases[i];
    // The entry point (whichever variant it picked) and the reference.
    for (Kernel kernel : {QuantizePixelBlocks, QuantizePixelBlocks_C}) {
        std::vector<uint8_t> out(32, 0xAA);
        kernel(in.data(), out.data(), 32);
        EXPECT_EQ(out, expected) << (kernel == QuantizePixelBlocks ? "entry point" : "reference");
    }
}

}  // namespace
