// The CPU's instruction-set extensions, and the one place where a kernel
// variant is chosen from them.
//
// Every vector kernel comes as a plain C++ reference, <Kernel>_C, which
// defines its bytes, and variants named after the extensions they need:
// <Kernel>_SSE2, _SSE41, _AVX2, _AVX2FMA on x86-64 and _NEON on arm64. Each
// variant lives in a source file of its own (<module>_<isa>.cpp) that alone is
// compiled with those extensions (cmake/simd.cmake); everything else is built
// for the architecture's baseline, so the library and its programs start on
// any x86-64. A kernel's variants are listed in a table, reference first and
// fastest last, and its entry point keeps the last one the CPU can run (less
// what the host masks, see CpuFeatures) in a function-local static: chosen on
// first use, once per process.
//
// One tail rule holds for all of them: a variant processes whole steps only
// (its table entry says how many units a step is), and the kernel's walker
// runs it over the whole steps and the reference over what is left, so no
// variant carries a tail loop or calls another variant.
//
// A file compiled with extra extensions must not odr-use an inline function
// with external linkage that baseline files use too: the linker keeps one
// copy, which may be the one with the wider instructions. Its helpers go in an
// anonymous namespace.
#pragma once

#include <cstddef>

namespace scancode {

// Extensions a variant needs, as bits; a variant needing 0 runs anywhere.
enum CpuFeature : unsigned {
    kCpuSse2 = 1u << 0,
    kCpuSse41 = 1u << 1,
    kCpuAvx2 = 1u << 2,
    kCpuFma = 1u << 3,
    kCpuNeon = 1u << 4,
};

inline unsigned DetectCpuFeatures() {
#if defined(__x86_64__)
    // The AVX checks include the operating system's saving of the wide
    // registers, not only the CPUID bits.
    __builtin_cpu_init();
    unsigned features = 0;
    if (__builtin_cpu_supports("sse2")) features |= kCpuSse2;
    if (__builtin_cpu_supports("sse4.1")) features |= kCpuSse41;
    if (__builtin_cpu_supports("avx2")) features |= kCpuAvx2;
    if (__builtin_cpu_supports("fma")) features |= kCpuFma;
    return features;
#elif defined(__ARM_NEON)
    return kCpuNeon;  // part of every arm64 CPU
#else
    return 0;
#endif
}

// `detected` less the extensions a comma-separated list names (sse2, sse41,
// avx2, fma, neon; other names are ignored). On x86-64 a named extension takes
// the ones above it along (sse2 < sse41 < avx2 < fma), so that naming one
// leaves exactly the level below it, as on a CPU that stops there.
unsigned MaskCpuFeatures(unsigned detected, const char* disabled);

// The host's SCANCODE_CPU_DISABLE, or null (always on Android, which compiles
// no lookup): lets one machine run a program at any level below its best.
const char* HostDisabledCpuFeatures();

// The running CPU's extensions less those the host disabled, read on first
// use and kept for the process.
inline unsigned CpuFeatures() {
    static const unsigned features =
        MaskCpuFeatures(DetectCpuFeatures(), HostDisabledCpuFeatures());
    return features;
}

inline bool CpuHas(unsigned needed) {
    return (CpuFeatures() & needed) == needed;
}

template <typename Fn>
struct KernelVariant {
    const char* name;
    unsigned needs;  // CpuFeature bits
    int step;        // fn takes whole steps only: counts that are multiples of this
    Fn fn;
};

// The part of `count` a variant of `step` runs; each kernel's walker hands
// the rest to the reference.
template <typename Count>
constexpr Count WholeSteps(Count count, int step) {
    return count - count % static_cast<Count>(step);
}

// The last variant of `variants` whose extensions `available` has; the
// first, the reference, when none has them.
template <typename Fn, size_t N>
constexpr const KernelVariant<Fn>& PickVariant(const KernelVariant<Fn> (&variants)[N],
                                               unsigned available) {
    for (size_t i = N - 1; i > 0; --i) {
        if ((available & variants[i].needs) == variants[i].needs) return variants[i];
    }
    return variants[0];
}

// The variant a kernel's entry point uses on this CPU.
template <typename Fn, size_t N>
const KernelVariant<Fn>& PickVariant(const KernelVariant<Fn> (&variants)[N]) {
    return PickVariant(variants, CpuFeatures());
}

}  // namespace scancode
