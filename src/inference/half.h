// IEEE 754 half precision as a plain 16-bit value, with exact conversions
// that do not depend on compiler or processor support for the type.
#pragma once

#include <cstdint>

struct half {
    uint16_t bits;
};
static_assert(sizeof(half) == 2, "half is stored as 16 bits");

// Exact; a NaN stays a NaN with its payload, made quiet as processors do.
float HalfToFloat(half h);
// Rounds to nearest, ties to even; overflow gives infinity, NaN stays NaN
// (quiet, payload truncated to the top ten bits).
half FloatToHalf(float f);
