#include "inference/quantize.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
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
    while (v.size() % 32 != 21) v.push_back(1.0f);  // a block and a remainder past the steps
    return v;
}

// One variant of one kernel, run through its walker, with the input range its
// callers use. The pixel walker is given a copy of the input, since its
// reference scales the remainder in place.
struct VariantCase {
    std::string name;
    std::function<void(std::vector<float>&, size_t at, uint8_t*, size_t n)> run;
    std::function<void(std::vector<float>&, size_t at, uint8_t*, size_t n)> reference;
    unsigned needs;
    float lo;
    float hi;
};

template <typename Fn, typename Walker>
std::function<void(std::vector<float>&, size_t, uint8_t*, size_t)> Through(
    const scancode::KernelVariant<Fn>& variant, Walker walker) {
    return [&variant, walker](std::vector<float>& in, size_t at, uint8_t* out, size_t n) {
        walker(variant, in.data() + at, out, n);
    };
}

std::vector<VariantCase> AllVariants() {
    std::vector<VariantCase> cases;
    for (const auto& v : kQuantizePixelsVariants) {
        cases.push_back({std::string("pixel_") + v.name, Through(v, scancode::RunQuantizePixels),
                         Through(kQuantizePixelsVariants[0], scancode::RunQuantizePixels), v.needs,
                         -2.0f, 258.0f});
    }
    for (const auto& v : kQuantizeUnitsVariants) {
        cases.push_back({std::string("unit_") + v.name, Through(v, scancode::RunQuantizeUnits),
                         Through(kQuantizeUnitsVariants[0], scancode::RunQuantizeUnits), v.needs,
                         -0.01f, 1.01f});
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
    // The first n values from element `at` on, through the variant and the
    // reference: the same bytes, the same input afterwards, nothing written
    // past n.
    void ExpectSameBytes(const std::vector<float>& values, size_t at = 0, size_t n = SIZE_MAX) {
        n = std::min(n, values.size() - at);
        std::vector<float> inGot = values, inWant = values;
        std::vector<uint8_t> got(n + 16, 0x5A), want(n, 0xA5);
        GetParam().run(inGot, at, got.data(), n);
        GetParam().reference(inWant, at, want.data(), n);
        for (size_t i = 0; i < n; ++i) {
            const float x = values[at + i];
            ASSERT_EQ(got[i], want[i]) << "x = " << x << " (bits " << std::hex << Bits(x)
                                       << std::dec << ") at " << i << " of " << n;
            ASSERT_EQ(Bits(inGot[at + i]), Bits(inWant[at + i])) << "input at " << i;
        }
        for (size_t i = n; i < got.size(); ++i) ASSERT_EQ(got[i], 0x5A) << i << " of " << n;
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
    // Every length up to three of the widest steps, from an aligned start and
    // from one element past it: whole steps, whole blocks left to the
    // reference, and a remainder short of a block.
    for (size_t at : {0, 1}) {
        for (size_t n = 0; n <= 96; ++n) ExpectSameBytes(uniform, at, n);
    }
}

INSTANTIATE_TEST_SUITE_P(Kernels, QuantizeVariantTest, ::testing::ValuesIn(AllVariants()),
                         VariantName());

TEST(QuantizePixels, RemainderScalesTheInputInPlace) {
    // n = 17: elements 0-15 are a block, element 16 the remainder.
    std::vector<float> in(17, 100.4f);
    in[16] = 100.6f;
    std::vector<uint8_t> out(17);
    QuantizePixels(in.data(), out.data(), in.size());
    EXPECT_EQ(out[0], 100);
    EXPECT_EQ(in[0], 100.4f) << "blocks leave the input as it is";
    EXPECT_EQ(out[16], 101);
    EXPECT_EQ(in[16], 100.6f * kInputScale);
}

TEST(QuantizePixels, BlocksRoundHalfUpAndSaturate) {
    // 0.49999997f + 0.5f rounds to 1.0f in single precision, hence 1.
    const std::vector<std::pair<float, uint8_t>> cases = {
        {0.49f, 0},    {0.5f, 1},       {2.4999998f, 2}, {127.5f, 128}, {254.49998f, 254},
        {300.0f, 255}, {-1e9f, 0},      {kNaN, 0},       {kInf, 255},   {-kInf, 0},
        {3e9f, 255},   {65535.5f, 255}, {0.49999997f, 1}};
    std::vector<float> in(32, 7.0f);
    std::vector<uint8_t> expected(32, 7);
    for (size_t i = 0; i < cases.size(); ++i) std::tie(in[i], expected[i]) = cases[i];
    // The entry point (whichever variant it picked) and the reference.
    for (auto kernel : {QuantizePixels, QuantizePixels_C}) {
        std::vector<uint8_t> out(32, 0xAA);
        kernel(in.data(), out.data(), 32);
        EXPECT_EQ(out, expected) << (kernel == QuantizePixels ? "entry point" : "reference");
    }
}

}  // namespace
