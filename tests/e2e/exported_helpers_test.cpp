// The C++ helpers the library exports, called the way a caller calls them:
// through libscancode.so alone (this program links no library objects), so a
// helper that loses its export stops this program from linking.
#include <gtest/gtest.h>
#include <sched.h>

#include <cmath>
#include <thread>
#include <vector>

#include "entry/color_convert.h"
#include "inference/tensor_convert.h"

namespace scancode_test {
namespace {

struct Dequantization {
    const char* name;
    int h, w, c;  // h = 0: the flat form over w values
    std::vector<unsigned char> in;
    int zeroPoint;
    float scale;
    std::vector<float> out;
};

TEST(ExportedHelpers, Uint8ToFP32BothForms) {
    const Dequantization cases[] = {
        {"flat", 0, 3, 1, {0, 189, 255}, -189, 0.5f, {-94.5f, 0.0f, 33.0f}},
        {"flat, nothing", 0, 0, 1, {}, 5, 1.0f, {}},
        {"planar", 1, 2, 3, {1, 2, 3, 4, 5, 6}, 0, 1.0f, {1, 4, 2, 5, 3, 6}},
        {"planar, scaled", 2, 1, 2, {10, 20, 30, 40}, -10, 0.25f, {0.0f, 5.0f, 2.5f, 7.5f}},
    };
    for (const Dequantization& d : cases) {
        SCOPED_TRACE(d.name);
        std::vector<float> out(d.out.size() + 1, -1.0f);  // one guard value
        if (d.h == 0) {
            Uint8ToFP32(d.w, d.in.data(), out.data(), d.zeroPoint, d.scale);
        } else {
            Uint8ToFP32(d.h, d.w, d.c, d.in.data(), out.data(), d.zeroPoint, d.scale);
        }
        EXPECT_EQ(std::vector<float>(out.begin(), out.end() - 1), d.out);
        EXPECT_EQ(out.back(), -1.0f) << "wrote past the end";
    }
}

TEST(ExportedHelpers, Uint8NhwcToNchwReordersOnly) {
    const unsigned char in[6] = {1, 2, 3, 4, 5, 6};
    unsigned char out[7] = {0, 0, 0, 0, 0, 0, 0xEE};
    Uint8NhwcToNchw(1, 2, 3, in, out);
    EXPECT_EQ(std::vector<unsigned char>(out, out + 7),
              (std::vector<unsigned char>{1, 4, 2, 5, 3, 6, 0xEE}));
}

struct HalfCase {
    uint16_t bits;
    float value;
};

TEST(ExportedHelpers, HalfConversionsBothWays) {
    const HalfCase exact[] = {
        {0x3C00, 1.0f},  {0xC000, -2.0f},    {0x7BFF, 65504.0f},        {0x0001, 0x1p-24f},
        {0x8000, -0.0f}, {0x7C00, INFINITY}, {0x3555, 0.333251953125f},
    };
    for (const HalfCase& c : exact) {
        SCOPED_TRACE(c.bits);
        float f = 0.0f;
        const half h{c.bits};
        Fp16ToFp32(1, &h, &f);
        EXPECT_EQ(f, c.value);
        EXPECT_EQ(std::signbit(f), std::signbit(c.value));
        half back{0x1234};
        Fp32ToFp16(1, &c.value, &back);
        EXPECT_EQ(back.bits, c.bits);
    }
    // Halfway between two halves: the even one wins.
    const float ties[2] = {1.0f + 0x1p-11f, 1.0f + 3 * 0x1p-11f};
    half rounded[2] = {};
    Fp32ToFp16(2, ties, rounded);
    EXPECT_EQ(rounded[0].bits, 0x3C00);
    EXPECT_EQ(rounded[1].bits, 0x3C02);
}

TEST(ExportedHelpers, ScalarEncoderTakesChannelZeroAsRed) {
    // Row 0: white, red; row 1: white, white. Chroma comes from the pixel
    // with the odd running index on the even row: the red one.
    uint8_t pixels[] = {255, 255, 255, 255, 0, 0, 255, 255, 255, 255, 255, 255};
    const cv::Mat image(2, 2, CV_8UC3, pixels);
    std::vector<uint8_t> nv21(2 * 2 * 3 / 2 + 1, 0xEE);
    BGRtoNV21(nv21.data(), image, 2, 2);
    EXPECT_EQ(nv21, (std::vector<uint8_t>{235, 82, 235, 235, 240, 90, 0xEE}));
}

TEST(ExportedHelpers, ChipTypeIsEmpty) {
    EXPECT_EQ(GetChipType(), "");
}

// Pinning goes to core 4, else 4-5, else 4-6; on a machine without them
// nothing changes. Run on a thread of its own so the test's stays unpinned.
TEST(ExportedHelpers, SetThreadAffinityPinsOnlyToTheHighCores) {
    std::thread([] {
        cpu_set_t before, after;
        ASSERT_EQ(sched_getaffinity(0, sizeof before, &before), 0);
        const int rc = SetThreadAffinity();
        ASSERT_EQ(sched_getaffinity(0, sizeof after, &after), 0);
        if (CPU_ISSET(4, &before)) {
            EXPECT_EQ(rc, 0);
            EXPECT_EQ(CPU_COUNT(&after), 1);
            EXPECT_TRUE(CPU_ISSET(4, &after));
        } else if (rc == 0) {
            for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
                if (CPU_ISSET(cpu, &after)) {
                    EXPECT_TRUE(cpu >= 4 && cpu <= 6) << cpu;
                }
            }
        } else {
            EXPECT_EQ(rc, -1);
            EXPECT_TRUE(CPU_EQUAL(&before, &after));
        }
    }).join();
}

}  // namespace
}  // namespace scancode_test
