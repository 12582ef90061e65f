#include "platform/cpu_features.h"

#include <cstdlib>
#include <cstring>

namespace scancode {

namespace {

struct FeatureName {
    const char* name;
    unsigned masked;  // the extension and, on x86-64, those above it
};

constexpr FeatureName kFeatureNames[] = {
    {"sse2", kCpuSse2 | kCpuSse41 | kCpuAvx2 | kCpuFma},
    {"sse41", kCpuSse41 | kCpuAvx2 | kCpuFma},
    {"avx2", kCpuAvx2 | kCpuFma},
    {"fma", kCpuFma},
    {"neon", kCpuNeon},
};

unsigned MaskOfName(const char* name, size_t length) {
    for (const FeatureName& f : kFeatureNames) {
        if (strlen(f.name) == length && strncmp(f.name, name, length) == 0) return f.masked;
    }
    return 0;
}

}  // namespace

unsigned MaskCpuFeatures(unsigned detected, const char* disabled) {
    if (disabled == nullptr) return detected;
    unsigned masked = 0;
    for (const char* at = disabled;;) {
        const char* end = strchr(at, ',');
        const size_t length = end != nullptr ? static_cast<size_t>(end - at) : strlen(at);
        masked |= MaskOfName(at, length);
        if (end == nullptr) break;
        at = end + 1;
    }
    return detected & ~masked;
}

const char* HostDisabledCpuFeatures() {
#ifndef __ANDROID__
    return std::getenv("SCANCODE_CPU_DISABLE");
#else
    return nullptr;
#endif
}

}  // namespace scancode
