#include "inference/tensor_convert.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <thread>
#include <vector>

#include "inference/code_detect.h"
#include "log_capture.h"

using scancode_test::LogCapture;

namespace {

uint32_t FloatBits(float f) {
    uint32_t b;
    memcpy(&b, &f, 4);
    return b;
}

float ReferenceDequantize(unsigned char q, int zeroPoint, float scale) {
    return static_cast<float>((static_cast<double>(q) + zeroPoint) * static_cast<double>(scale));
}

TEST(Uint8ToFP32, FlatExample) {
    const unsigned char in[] = {0, 189, 255};
    float out[3] = {};
    Uint8ToFP32(3, in, out, -189, 0.5f);
    EXPECT_EQ(out[0], -94.5f);
    EXPECT_EQ(out[1], 0.0f);
    EXPECT_EQ(out[2], 33.0f);

    float untouched = 1.25f;
    Uint8ToFP32(0, in, &untouched, 0, 1.0f);
    Uint8ToFP32(-3, in, &untouched, 0, 1.0f);
    EXPECT_EQ(untouched, 1.25f);
}

TEST(Uint8ToFP32, DetectorOutputsMatchDoublePrecisionBitForBit) {
    // q = 189 of output 0 is exactly zero; q = 255 is 66 scales, computed in
    // double and rounded once.
    float out[256];
    std::vector<unsigned char> all(256);
    for (int q = 0; q < 256; ++q) all[q] = static_cast<unsigned char>(q);
    Uint8ToFP32(256, all.data(), out, kCodeDetectZeroPoints[0], kCodeDetectScales[0]);
    EXPECT_EQ(FloatBits(out[189]), 0u);
    EXPECT_EQ(out[255], static_cast<float>(66.0 * 0.06613318622112274));

    const int zeroPoints[] = {-189, -221,     -178,      -168,       -255,       0,
                              37,   16777000, -16777000, 2147483000, -2147483000};
    const float scales[] = {0.06613318622112274f,
                            0.15657134354114532f,
                            0.07030908763408661f,
                            0.07131850719451904f,
                            0.0829123929142952f,
                            1.0f,
                            3.3e-7f,
                            0.0999999f,
                            12345.678f,
                            1.1e-3f,
                            7.77f};
    for (int zp : zeroPoints) {
        for (float scale : scales) {
            Uint8ToFP32(256, all.data(), out, zp, scale);
            for (int q = 0; q < 256; ++q) {
                ASSERT_EQ(FloatBits(out[q]), FloatBits(ReferenceDequantize(q, zp, scale)))
                    << "q " << q << " zp " << zp << " scale " << scale;
            }
        }
    }
}

TEST(Uint8ToFP32, PlanarReordersChannels) {
    const unsigned char in[] = {1, 2, 3, 4, 5, 6};
    float out[6] = {};
    Uint8ToFP32(1, 2, 3, in, out, 0, 1.0f);
    EXPECT_EQ(std::vector<float>(out, out + 6), (std::vector<float>{1, 4, 2, 5, 3, 6}));

    Uint8ToFP32(1, 2, 3, in, out, -1, 0.5f);
    EXPECT_EQ(std::vector<float>(out, out + 6), (std::vector<float>{0, 1.5f, 0.5f, 2, 1, 2.5f}));

    float untouched[2] = {9, 9};
    Uint8ToFP32(1, 2, 0, in, untouched, 0, 1.0f);
    Uint8ToFP32(0, 2, 3, in, untouched, 0, 1.0f);
    EXPECT_EQ(untouched[0], 9);
}

TEST(Uint8NhwcToNchw, ReordersWithoutArithmetic) {
    const unsigned char in[] = {1, 2, 3, 4, 5, 6};
    unsigned char out[6] = {};
    Uint8NhwcToNchw(1, 2, 3, in, out);
    EXPECT_EQ(std::vector<int>(out, out + 6), (std::vector<int>{1, 4, 2, 5, 3, 6}));

    // One channel: a straight copy, also for long rows.
    std::vector<unsigned char> row(97), copy(97, 0);
    for (size_t i = 0; i < row.size(); ++i) row[i] = static_cast<unsigned char>(i * 7);
    Uint8NhwcToNchw(1, 97, 1, row.data(), copy.data());
    EXPECT_EQ(copy, row);

    LogCapture logs;
    Uint8NhwcToNchw(2, 2, 3, nullptr, out);
    EXPECT_TRUE(logs.Contains(6, "nhwcToNchw Received a nullptr"));
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

TEST(Half, RoundsToNearestEven) {
    struct Case {
        float value;
        uint16_t bits;
    };
    const Case cases[] = {
        {1.0f + 1.0f / 2048, 0x3c00},  // tie, even below
        {1.0f + 3.0f / 2048, 0x3c02},  // tie, even above
        {1.0f + 1.0f / 2048 + 1e-7f, 0x3c01},
        {65519.0f, 0x7bff},  // below the overflow tie
        {65520.0f, 0x7c00},  // tie rounds to even: infinity
        {1e10f, 0x7c00},
        {-1e10f, 0xfc00},
        {2.98023223876953125e-8f, 0x0000},  // 2^-25: tie between 0 and the least subnormal
        {2.98023259404089e-8f, 0x0001},     // just above it
        {8.940696716308594e-8f, 0x0002},    // 1.5 units: tie to even 2
        {1e-10f, 0x0000},
        {-1e-10f, 0x8000},
        {6.1e-5f, 0x03ff},
    };
    for (const auto& c : cases) {
        half h{};
        Fp32ToFp16(1, &c.value, &h);
        EXPECT_EQ(h.bits, c.bits) << c.value;
    }
}

// The compiler's own half type, where it has one. g++ for aarch64 offers
// only the storage type __fp16 in C++ (IEEE format, converted by the FPU);
// x86-64 g++ and clang have _Float16.
#if defined(__aarch64__)
#define SCANCODE_COMPILER_HALF 1
using CompilerHalf = __fp16;
#elif defined(__FLT16_MAX__)
#define SCANCODE_COMPILER_HALF 1
using CompilerHalf = _Float16;
#endif

#if defined(SCANCODE_COMPILER_HALF)
// The compiler's own conversions as a second opinion: every half value
// widened, and many floats narrowed.
TEST(Half, AgreesWithTheCompilersFloat16) {
    for (uint32_t b = 0; b < 65536; ++b) {
        const bool nan = (b & 0x7c00u) == 0x7c00u && (b & 0x3ffu) != 0;
        if (nan) continue;
        CompilerHalf theirs;
        const uint16_t bits = static_cast<uint16_t>(b);
        memcpy(&theirs, &bits, 2);
        const half h{bits};
        ASSERT_EQ(FloatBits(HalfToFloat(h)), FloatBits(static_cast<float>(theirs))) << b;
    }
    std::mt19937 rng(7);
    std::vector<float> values;
    for (int i = 0; i < 200000; ++i) {
        uint32_t b = rng();
        // Concentrate on exponents around the half range.
        b = (b & 0x807fffffu) | ((100u + (b >> 23) % 50u) << 23);
        float f;
        memcpy(&f, &b, 4);
        values.push_back(f);
    }
    std::vector<half> ours(values.size());
    Fp32ToFp16(values.size(), values.data(), ours.data());
    for (size_t i = 0; i < values.size(); ++i) {
        const CompilerHalf theirs = static_cast<CompilerHalf>(values[i]);
        uint16_t bits;
        memcpy(&bits, &theirs, 2);
        ASSERT_EQ(ours[i].bits, bits) << values[i];
    }
}
#endif

TEST(SetThreadAffinity, PinsToCoreFourOrFails) {
    // Run on a thread of its own so the test runner stays unpinned.
    int result = 99;
    cpu_set_t after;
    CPU_ZERO(&after);
    std::thread([&] {
        result = SetThreadAffinity();
        sched_getaffinity(0, sizeof after, &after);
    }).join();

    cpu_set_t allowed;
    sched_getaffinity(0, sizeof allowed, &allowed);
    bool anyOfFourToSix = false;
    for (int core = 4; core <= 6; ++core) anyOfFourToSix |= CPU_ISSET(core, &allowed) != 0;
    if (!anyOfFourToSix) {
        EXPECT_EQ(result, -1) << "cores 4 to 6 are not available here";
        return;
    }
    ASSERT_EQ(result, 0);
    EXPECT_TRUE(CPU_ISSET(4, &after) || CPU_ISSET(5, &after) || CPU_ISSET(6, &after));
    for (int core = 0; core < 4; ++core) EXPECT_FALSE(CPU_ISSET(core, &after)) << core;
}

TEST(GetChipType, IsEmpty) {
    EXPECT_EQ(GetChipType(), "");
}

}  // namespace
