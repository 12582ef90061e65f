#include "inference/quantize.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace {

template <typename T, typename U>
U Bits(T v) {
    static_assert(sizeof(T) == sizeof(U), "");
    U u;
    memcpy(&u, &v, sizeof u);
    return u;
}

TEST(QuantizeConstants, ExactBits) {
    EXPECT_EQ((Bits<float, uint32_t>(kInputScale)), 0x3B808081u);
    EXPECT_EQ((Bits<double, uint64_t>(kInputScaleInverse)), 0x406FDFFFE05FC01Full);
    EXPECT_EQ((Bits<float, uint32_t>(kUnitScale)), 0x437EFFFFu);
}

struct BlockCase {
    float x;
    uint8_t pixel;  // round-half-up of a 0..255 value
};

TEST(QuantizePixelBlocks, RoundsHalfUpAndSaturates) {
    const float kNaN = std::numeric_limits<float>::quiet_NaN();
    const float kInf = std::numeric_limits<float>::infinity();
    const BlockCase cases[] = {
        {0.0f, 0},     {0.49f, 0},        {0.5f, 1},     {254.6f, 255},   {300.0f, 255},
        {-0.3f, 0},    {-1.0f, 0},        {-1e9f, 0},    {1.5f, 2},       {2.4999998f, 2},
        {127.5f, 128}, {254.49998f, 254}, {255.0f, 255}, {kNaN, 0},       {kInf, 255},
        {-kInf, 0},    {3e9f, 255},       {-3e9f, 0},    {65535.5f, 255}, {0.49999997f, 1},
    };
    // 0.49999997f + 0.5f rounds to 1.0f in single precision, hence 1.
    std::vector<float> in;
    std::vector<uint8_t> expected;
    for (const auto& c : cases) {
        in.push_back(c.x);
        expected.push_back(c.pixel);
    }
    in.resize(32, 7.0f);
    expected.resize(32, 7);
    std::vector<uint8_t> simd(32, 0xAA);
    std::vector<uint8_t> ref(32, 0xAA);
    QuantizePixelBlocks(in.data(), simd.data(), 32);
    QuantizePixelBlocksRef(in.data(), ref.data(), 32);
    for (size_t i = 0; i < in.size(); ++i) {
        EXPECT_EQ(ref[i], expected[i]) << "x = " << in[i];
        EXPECT_EQ(simd[i], expected[i]) << "x = " << in[i] << " (" << kQuantizeSimd << ")";
    }
}

// Values that stress truncation, saturation and the x86 conversion's
// out-of-range answer.
std::vector<float> EdgeValues() {
    const float kNaN = std::numeric_limits<float>::quiet_NaN();
    const float kInf = std::numeric_limits<float>::infinity();
    std::vector<float> v = {kNaN,
                            -kNaN,
                            kInf,
                            -kInf,
                            0.0f,
                            -0.0f,
                            std::numeric_limits<float>::denorm_min(),
                            std::numeric_limits<float>::max(),
                            std::numeric_limits<float>::lowest(),
                            2147483520.0f,
                            2147483648.0f,
                            -2147483648.0f,
                            -2147483904.0f,
                            32767.5f,
                            32768.0f,
                            -32768.5f,
                            255.5f,
                            255.49998f,
                            256.0f,
                            -0.5f,
                            -0.50000006f,
                            1e-30f,
                            1e30f,
                            -1e30f};
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

std::vector<float> RandomValues(size_t n, float lo, float hi, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> dist(lo, hi);
    std::vector<float> v(n);
    for (auto& x : v) x = dist(rng);
    return v;
}

std::vector<float> RandomBitPatterns(size_t n, unsigned seed) {
    std::mt19937 rng(seed);
    std::vector<float> v(n);
    for (auto& x : v) {
        const uint32_t b = rng();
        memcpy(&x, &b, 4);
    }
    return v;
}

using Kernel = void (*)(const float*, uint8_t*, size_t);

void ExpectSameBytes(Kernel simd, Kernel ref, const std::vector<float>& in) {
    ASSERT_EQ(in.size() % 16, 0u);
    std::vector<uint8_t> a(in.size(), 0x5A);
    std::vector<uint8_t> b(in.size(), 0xA5);
    simd(in.data(), a.data(), in.size());
    ref(in.data(), b.data(), in.size());
    for (size_t i = 0; i < in.size(); ++i) {
        ASSERT_EQ(a[i], b[i]) << "x = " << in[i] << " (bits " << std::hex
                              << (Bits<float, uint32_t>(in[i])) << std::dec << ") at " << i << ", "
                              << kQuantizeSimd;
    }
}

struct KernelPair {
    const char* name;
    Kernel simd;
    Kernel ref;
    float lo;
    float hi;
};

void PrintTo(const KernelPair& k, std::ostream* os) {
    *os << k.name;
}

class QuantizeKernelTest : public ::testing::TestWithParam<KernelPair> {};

TEST_P(QuantizeKernelTest, VectorMatchesScalarOnEdges) {
    ExpectSameBytes(GetParam().simd, GetParam().ref, EdgeValues());
}

TEST_P(QuantizeKernelTest, VectorMatchesScalarOnRandomValues) {
    const KernelPair& k = GetParam();
    ExpectSameBytes(k.simd, k.ref, RandomValues(1 << 16, k.lo, k.hi, 1));
    ExpectSameBytes(k.simd, k.ref, RandomBitPatterns(1 << 16, 2));
    // Every whole and half step across the useful range, in order.
    std::vector<float> steps;
    for (float x = k.lo; steps.size() < 4096; x += (k.hi - k.lo) / 4000.0f) steps.push_back(x);
    ExpectSameBytes(k.simd, k.ref, steps);
}

INSTANTIATE_TEST_SUITE_P(Kernels, QuantizeKernelTest,
                         ::testing::Values(KernelPair{"pixel", QuantizePixelBlocks,
                                                      QuantizePixelBlocksRef, -2.0f, 258.0f},
                                           KernelPair{"unit", QuantizeUnitBlocks,
                                                      QuantizeUnitBlocksRef, -0.01f, 1.01f}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(QuantizePixelRemainder, ScalesWritesBackAndRoundsAwayFromZero) {
    float in[] = {
        0.0f, 127.5f, 255.0f, 300.0f, -5.0f, 1.0f, std::numeric_limits<float>::quiet_NaN()};
    const float original[] = {0.0f, 127.5f, 255.0f, 300.0f, -5.0f, 1.0f};
    uint8_t out[7] = {};
    QuantizePixelRemainder(in, out, 7);
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ((Bits<float, uint32_t>(in[i])),
                  (Bits<float, uint32_t>(original[i] * kInputScale)))
            << "written back scaled, " << i;
    }
    EXPECT_TRUE(std::isnan(in[6]));
    EXPECT_EQ(out[0], 0);
    // 127.5 / 255 rounds to 0.5f, which scales back to just under 127.5.
    EXPECT_EQ(out[1], 127);
    EXPECT_EQ(out[2], 255);
    EXPECT_EQ(out[3], 255);
    EXPECT_EQ(out[4], 0);
    EXPECT_EQ(out[5], 1);
    EXPECT_EQ(out[6], 0);
}

TEST(QuantizeUnitRemainder, LeavesTheInputAlone) {
    const float in[] = {0.002f, 1.0f, 2.0f, -1.0f, 0.25f};
    uint8_t out[5] = {};
    QuantizeUnitRemainder(in, out, 5);
    EXPECT_EQ(out[0], 1);
    EXPECT_EQ(out[1], 255);
    EXPECT_EQ(out[2], 255);
    EXPECT_EQ(out[3], 0);
    EXPECT_EQ(out[4], 64);
    EXPECT_EQ(in[0], 0.002f);
}

}  // namespace
