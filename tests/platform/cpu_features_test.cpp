#include "platform/cpu_features.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

using scancode::KernelVariant;
using scancode::PickVariant;
using Fn = int (*)();

int Ref() {
    return 0;
}
int Narrow() {
    return 1;
}
int Wide() {
    return 2;
}
int Fused() {
    return 3;
}

constexpr unsigned kSse41 = scancode::kCpuSse41, kAvx2 = scancode::kCpuAvx2,
                   kFma = scancode::kCpuFma;
constexpr KernelVariant<Fn> kTable[] = {{"C", 0, 1, Ref},
                                        {"SSE41", kSse41, 1, Narrow},
                                        {"AVX2", kAvx2, 1, Wide},
                                        {"AVX2FMA", kAvx2 | kFma, 1, Fused}};

TEST(PickVariant, TakesTheLastVariantTheFeaturesCover) {
    const struct {
        unsigned available;
        const char* expected;
    } cases[] = {
        {0, "C"},
        {kSse41, "SSE41"},
        {kAvx2, "AVX2"},  // a variant's needs, not its place, decide
        {kSse41 | kAvx2, "AVX2"},
        {kFma, "C"},  // FMA alone covers no variant
        {kSse41 | kFma, "SSE41"},
        {kSse41 | kAvx2 | kFma, "AVX2FMA"},
        {~0u, "AVX2FMA"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(std::string(PickVariant(kTable, c.available).name), c.expected)
            << "features " << c.available;
    }
    // A table of the reference alone, and the reference when nothing fits.
    constexpr KernelVariant<Fn> refOnly[] = {{"C", 0, 1, Ref}};
    EXPECT_EQ(PickVariant(refOnly, 0).fn, Ref);
    constexpr KernelVariant<Fn> unmet[] = {{"C", 0, 1, Ref}, {"X", 1u << 31, 1, Wide}};
    EXPECT_EQ(PickVariant(unmet, ~0u >> 1).fn, Ref);
}

TEST(MaskCpuFeatures, TakesNamedExtensionsAndThoseAboveThemAway) {
    constexpr unsigned kSse2 = scancode::kCpuSse2, kNeon = scancode::kCpuNeon;
    constexpr unsigned kX86 = kSse2 | kSse41 | kAvx2 | kFma;
    const struct {
        const char* disabled;
        unsigned detected, expected;
    } cases[] = {
        {nullptr, kX86, kX86},
        {"", kX86, kX86},
        {"fma", kX86, kSse2 | kSse41 | kAvx2},
        {"avx2", kX86, kSse2 | kSse41},  // the level below AVX2
        {"sse41", kX86, kSse2},
        {"sse2", kX86, 0},
        {"avx2,sse41", kX86, kSse2},
        {"sse41,,fma", kX86, kSse2},
        {"avx2", kSse2 | kSse41, kSse2 | kSse41},  // nothing to take away
        {"neon", kNeon, 0},
        {"sse2", kNeon, kNeon},
        {"AVX2,avx,avx2 ,avx512", kX86, kX86},  // names are exact
    };
    for (const auto& c : cases) {
        EXPECT_EQ(scancode::MaskCpuFeatures(c.detected, c.disabled), c.expected)
            << (c.disabled ? c.disabled : "(unset)") << " of " << c.detected;
    }
}

// The detected extensions less the host's mask. CTest runs this once more
// with SCANCODE_CPU_DISABLE=sse2,neon, where every kernel picks its reference.
TEST(CpuFeatures, AreTheDetectedOnesLessTheHostsMask) {
    const char* disabled = getenv("SCANCODE_CPU_DISABLE");
    const unsigned detected = scancode::DetectCpuFeatures();
    EXPECT_EQ(scancode::CpuFeatures(), scancode::MaskCpuFeatures(detected, disabled));
    if (disabled != nullptr && std::string(disabled) == "sse2,neon") {
        EXPECT_EQ(scancode::CpuFeatures(), 0u);
        EXPECT_EQ(std::string(PickVariant(kTable).name), "C");
    }
    EXPECT_TRUE(scancode::CpuHas(0));
}

TEST(CpuFeatures, DescribeThisArchitecture) {
    const unsigned f = scancode::DetectCpuFeatures();
#if defined(__x86_64__)
    EXPECT_TRUE(f & scancode::kCpuSse2) << "part of every x86-64";
    EXPECT_FALSE(f & scancode::kCpuNeon);
    // Each level implies the one below it.
    if (f & kAvx2) {
        EXPECT_TRUE(f & kSse41);
    }
#elif defined(__ARM_NEON)
    EXPECT_EQ(f, unsigned{scancode::kCpuNeon});
#endif
}

}  // namespace
