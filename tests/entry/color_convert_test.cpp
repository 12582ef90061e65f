#include "entry/color_convert.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "entry/color_convert_row.h"
#include "kernel_variants.h"

namespace {

using scancode::BGRToNV21RowFn;
using scancode::kBGRToNV21RowVariants;
using scancode::KernelVariant;
using scancode::kNV21ToRGBRowVariants;
using scancode::NV21ToRGBRowFn;

constexpr uint8_t kUntouched = 0xA5;

std::vector<uint8_t> RandomBytes(size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> v(n);
    for (auto& b : v) b = static_cast<uint8_t>(rng());
    return v;
}

size_t Nv21Size(int width, int height) {
    return static_cast<size_t>(width) * height + static_cast<size_t>(width) * ((height + 1) / 2);
}

// An NV21 frame whose every pixel has luma y and every pair (c0, c1).
std::vector<uint8_t> FlatNv21(int width, int height, uint8_t y, uint8_t c0, uint8_t c1) {
    std::vector<uint8_t> f(Nv21Size(width, height), y);
    for (size_t i = static_cast<size_t>(width) * height; i + 1 < f.size(); i += 2) {
        f[i] = c0;
        f[i + 1] = c1;
    }
    return f;
}

std::vector<uint8_t> Decode(const std::vector<uint8_t>& nv21, int width, int height) {
    std::vector<uint8_t> out(static_cast<size_t>(width) * height * 3, kUntouched);
    NV21toRGB_NEON(nv21.data(), out.data(), width, height);
    return out;
}

std::vector<uint8_t> EncodeWith(void (*encode)(uint8_t*, cv::Mat, int, int),
                                std::vector<uint8_t> bgr, int width, int height) {
    std::vector<uint8_t> out(Nv21Size(width, height), kUntouched);
    encode(out.data(), cv::Mat(height, width, CV_8UC3, bgr.data()), width, height);
    return out;
}

TEST(NV21toRGB, WorkedValuesOnFlatFrames) {
    const struct {
        uint8_t y, c0, c1;
        std::array<uint8_t, 3> expected;
    } cases[] = {
        {16, 128, 128, {16, 16, 16}},  // grey stays grey: full range, no 16 offset
        {255, 128, 128, {255, 255, 255}},
        {128, 200, 128, {255, 104, 128}},  // the first chroma byte drives channel 0, saturating
        {100, 201, 128, {0, 75, 100}},     // 455 x 73 leaves int16: channel 0 jumps to 0
        {128, 128, 200, {128, 77, 229}},   // the second chroma byte drives channel 2
        {128, 128, 220, {128, 62, 1}},     // 360 x 92 wraps as well
        {0, 255, 255, {0, 122, 0}},        // and so does the green sum at both extremes
        {255, 0, 0, {255, 135, 255}},
    };
    for (const auto& c : cases) {
        const std::vector<uint8_t> out = Decode(FlatNv21(16, 4, c.y, c.c0, c.c1), 16, 4);
        for (size_t i = 0; i < out.size(); i += 3) {
            ASSERT_EQ((std::array<uint8_t, 3>{out[i], out[i + 1], out[i + 2]}), c.expected)
                << "pixel " << i / 3 << " of " << int(c.y) << "," << int(c.c0) << "," << int(c.c1);
        }
    }
}

TEST(BGRtoNV21, WorkedValuesVectorAndScalarAgree) {
    // Limited range: black and white land on 16 and 235, the chroma extremes
    // on 16 and 240.
    const struct {
        std::array<uint8_t, 3> bgr;
        uint8_t y, v, u;
    } cases[] = {{{255, 104, 128}, 126, 128, 191}, {{0, 0, 0}, 16, 128, 128},
                 {{255, 255, 255}, 235, 128, 128}, {{0, 0, 255}, 82, 240, 90},
                 {{255, 255, 0}, 169, 16, 166},    {{0, 255, 255}, 210, 146, 16}};
    constexpr int kW = 16, kH = 2;
    for (const auto& c : cases) {
        std::vector<uint8_t> bgr(kW * kH * 3), rgb(kW * kH * 3);
        for (size_t i = 0; i < bgr.size(); i += 3) {
            std::copy(c.bgr.begin(), c.bgr.end(), bgr.begin() + i);
            std::copy(c.bgr.rbegin(), c.bgr.rend(),
                      rgb.begin() + i);  // the scalar form reads R first
        }
        const std::vector<uint8_t> expected = FlatNv21(kW, kH, c.y, c.v, c.u);
        EXPECT_EQ(EncodeWith(BGRtoNV21_NEON, bgr, kW, kH), expected) << int(c.y);
        EXPECT_EQ(EncodeWith(BGRtoNV21, rgb, kW, kH), expected) << int(c.y);
    }
}

// ---- every variant against the reference -----------------------------------

// Each variant of a row kernel on its own, skipped where the CPU lacks what it
// needs; element 0 of the table is the reference.
template <typename Fn>
class VariantTest : public ::testing::TestWithParam<KernelVariant<Fn>> {
  protected:
    void SetUp() override {
        if (!scancode::CpuHas(this->GetParam().needs)) {
            GTEST_SKIP() << "this CPU cannot run " << this->GetParam().name;
        }
    }
};
using DecoderTest = VariantTest<NV21ToRGBRowFn>;
using EncoderTest = VariantTest<BGRToNV21RowFn>;
using ScalarEncoderTest = VariantTest<scancode::RGBToNV21FrameFn>;
const KernelVariant<NV21ToRGBRowFn>& kDecodeRef = kNV21ToRGBRowVariants[0];
const KernelVariant<BGRToNV21RowFn>& kEncodeRef = kBGRToNV21RowVariants[0];
const scancode::RGBToNV21FrameFn kRGBToNV21FrameRef = scancode::kRGBToNV21FrameVariants[0].fn;

TEST_P(DecoderTest, MatchesReferenceForEveryPixelValue) {
    // 64 frames of 2048 x 128. Pair p of a frame carries (C0, C1) =
    // (p >> 8, p & 255); its four pixels carry luma 4f .. 4f + 3 in frame f,
    // so all 2^24 (Y, C0, C1) triples pass through.
    constexpr int kW = 2048, kH = 128;
    std::vector<uint8_t> nv21(Nv21Size(kW, kH));
    for (int p = 0; p < kW / 2 * kH / 2; ++p) {
        nv21[kW * kH + 2 * p] = static_cast<uint8_t>(p >> 8);
        nv21[kW * kH + 2 * p + 1] = static_cast<uint8_t>(p);
    }
    std::vector<uint8_t> want(kW * kH * 3), got(kW * kH * 3);
    for (int f = 0; f < 64; ++f) {
        for (int r = 0; r < kH; ++r) {
            for (int x = 0; x < kW; ++x)
                nv21[r * kW + x] = static_cast<uint8_t>(4 * f + (r % 2) * 2 + x % 2);
        }
        scancode::NV21ToRGBFrame(kDecodeRef, nv21.data(), want.data(), kW, kH);
        scancode::NV21ToRGBFrame(GetParam(), nv21.data(), got.data(), kW, kH);
        ASSERT_EQ(got, want) << "frame " << f;
    }
}

TEST_P(EncoderTest, MatchesReferenceForEveryPixelValue) {
    // Frames of 4096 x 16 whose chroma-giving pixels (even columns of even
    // rows) and their neighbours carry consecutive 24-bit values.
    constexpr int kW = 4096, kH = 16, kPerFrame = kW / 2 * kH / 2;
    std::vector<uint8_t> bgr(kW * kH * 3), want(Nv21Size(kW, kH)), got(want.size());
    for (int f = 0; f < (1 << 24) / kPerFrame; ++f) {
        for (int r = 0; r < kH; ++r) {
            for (int x = 0; x < kW; ++x) {
                const uint32_t v = f * kPerFrame + (r / 2) * (kW / 2) + x / 2;
                uint8_t* px = &bgr[3 * (r * kW + x)];
                px[0] = static_cast<uint8_t>(v);
                px[1] = static_cast<uint8_t>(v >> 8);
                px[2] = static_cast<uint8_t>(v >> 16 ^ (r % 2) * 0x5A);
            }
        }
        scancode::BGRToNV21Frame(kEncodeRef, want.data(), bgr.data(), kW, kH);
        scancode::BGRToNV21Frame(GetParam(), got.data(), bgr.data(), kW, kH);
        ASSERT_EQ(got, want) << "frame " << f;
    }
}

// Random frames, including widths that are not a multiple of the group size
// (rows run on), odd heights and group counts that leave every remainder of
// the widest step (1 to 7 groups, then past whole steps) to the reference;
// rows of an odd group count start the next row's vector steps off their
// alignment. Output buffers carry guard bytes so writes past the described
// extent show up.
constexpr size_t kGuard = 64;
const std::pair<int, int> kRandomSizes[] = {
    {8, 1},   {16, 2}, {24, 7}, {32, 3},   {40, 2},    {56, 3},      {37, 5},
    {100, 3}, {17, 9}, {63, 4}, {130, 11}, {640, 481}, {1920, 1080}, {4000, 3},
    {31, 17}, {8, 2},  {48, 1}, {80, 2},   {112, 1}};

TEST_P(DecoderTest, RandomFramesMatchReference) {
    uint32_t seed = 10;
    for (auto [w, h] : kRandomSizes) {
        SCOPED_TRACE(std::to_string(w) + "x" + std::to_string(h));
        const std::vector<uint8_t> nv21 = RandomBytes(Nv21Size(w, h), seed++);
        std::vector<uint8_t> want(static_cast<size_t>(w) * h * 3 + kGuard, kUntouched), got = want;
        const uint8_t* endRef =
            scancode::NV21ToRGBFrame(kDecodeRef, nv21.data(), want.data(), w, h);
        const uint8_t* end = scancode::NV21ToRGBFrame(GetParam(), nv21.data(), got.data(), w, h);
        EXPECT_EQ(end, endRef);
        EXPECT_EQ(got, want);
        const size_t decoded = static_cast<size_t>(h) * (w / 8) * 24;
        EXPECT_EQ(std::count(got.begin() + decoded, got.end(), kUntouched),
                  got.end() - got.begin() - decoded);
    }
}

TEST_P(EncoderTest, RandomFramesMatchReference) {
    uint32_t seed = 100;
    for (auto [w, h] : kRandomSizes) {
        SCOPED_TRACE(std::to_string(w) + "x" + std::to_string(h));
        const std::vector<uint8_t> bgr = RandomBytes(static_cast<size_t>(w) * h * 3, seed++);
        std::vector<uint8_t> want(Nv21Size(w, h) + kGuard, kUntouched), got = want;
        scancode::BGRToNV21Frame(kEncodeRef, want.data(), bgr.data(), w, h);
        scancode::BGRToNV21Frame(GetParam(), got.data(), bgr.data(), w, h);
        EXPECT_EQ(got, want);
        const size_t luma = static_cast<size_t>(h) * (w / 16) * 16;
        const size_t chroma = static_cast<size_t>((h + 1) / 2) * (w / 16) * 16;
        const size_t plane = static_cast<size_t>(w) * h;
        EXPECT_EQ(std::count(got.begin() + luma, got.begin() + plane, kUntouched), plane - luma);
        EXPECT_EQ(std::count(got.begin() + plane + chroma, got.end(), kUntouched),
                  got.end() - got.begin() - plane - chroma);
    }
}

// The scalar encoder's variants on random frames of every width parity and
// odd heights, where its running-index chroma rule is most fragile.
TEST_P(ScalarEncoderTest, RandomFramesMatchReference) {
    const std::pair<int, int> sizes[] = {{1, 1},  {2, 2},    {3, 3},   {7, 5},     {16, 2},
                                         {31, 9}, {33, 4},   {64, 7},  {101, 13},  {640, 481},
                                         {1, 9},  {1920, 3}, {257, 2}, {1001, 11}, {4000, 3}};
    uint32_t seed = 1000;
    for (auto [w, h] : sizes) {
        SCOPED_TRACE(std::to_string(w) + "x" + std::to_string(h));
        const std::vector<uint8_t> rgb = RandomBytes(static_cast<size_t>(w) * h * 3, seed++);
        std::vector<uint8_t> want(Nv21Size(w, h) + kGuard, kUntouched), got = want;
        kRGBToNV21FrameRef(want.data(), rgb.data(), w, h);
        GetParam().fn(got.data(), rgb.data(), w, h);
        EXPECT_EQ(got, want);
    }
}

INSTANTIATE_TEST_SUITE_P(Variants, DecoderTest, ::testing::ValuesIn(kNV21ToRGBRowVariants),
                         VariantName());
INSTANTIATE_TEST_SUITE_P(Variants, EncoderTest, ::testing::ValuesIn(kBGRToNV21RowVariants),
                         VariantName());
INSTANTIATE_TEST_SUITE_P(Variants, ScalarEncoderTest,
                         ::testing::ValuesIn(scancode::kRGBToNV21FrameVariants), VariantName());

}  // namespace
