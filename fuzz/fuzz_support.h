// Shared bits of the fuzz targets: silencing the library's log, and special
// float values that a byte-level mutator rarely hits by itself.
#pragma once

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <limits>

#include <fuzzer/FuzzedDataProvider.h>

#include "detect/detection_rules.h"
#include "host_shim.h"

namespace scancode_fuzz {

// The fuzzer's input, with the library's log silenced on first use: per-frame
// info lines would cost more than the code under test.
inline FuzzedDataProvider QuietInput(const uint8_t* data, size_t size) {
    static const bool silenced =
        (ScanHostSetLogSink([](int, const char*, const char*, void*) {}, nullptr), true);
    (void)silenced;
    return FuzzedDataProvider(data, size);
}

// A float that is, with good odds, one of the values that break arithmetic.
inline float InterestingFloat(FuzzedDataProvider& in) {
    static const float kAwkward[] = {
        std::numeric_limits<float>::quiet_NaN(),
        -std::numeric_limits<float>::quiet_NaN(),
        std::numeric_limits<float>::infinity(),
        -std::numeric_limits<float>::infinity(),
        FLT_MAX,
        -FLT_MAX,
        FLT_MIN,
        -FLT_MIN,
        std::numeric_limits<float>::denorm_min(),
        -std::numeric_limits<float>::denorm_min(),
        0.0f,
        -0.0f,
        detection_rules::kMinScoreLogitF,  // the score threshold
        std::nextafter(detection_rules::kMinScoreLogitF, -1.0f),
        88.7f,  // exp overflows just above
        -103.0f,
        1e30f,
        -1e30f,
        2147483648.0f,
        -2147483904.0f,
    };
    switch (in.ConsumeIntegralInRange<int>(0, 3)) {
        case 0:
            return kAwkward[in.ConsumeIntegralInRange<size_t>(0, std::size(kAwkward) - 1)];
        case 1:
            return in.ConsumeFloatingPointInRange<float>(-20.0f, 20.0f);
        case 2: {
            uint32_t bits = in.ConsumeIntegral<uint32_t>();
            float f;
            static_assert(sizeof f == sizeof bits, "");
            __builtin_memcpy(&f, &bits, sizeof f);
            return f;
        }
        default:
            return in.ConsumeFloatingPoint<float>();
    }
}

}  // namespace scancode_fuzz
