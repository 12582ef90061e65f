// Shuffles, coefficients and load helpers shared by the x86-64 colour
// conversion kernels. Only the per-ISA kernel files include it; everything
// here has internal linkage so that each of them compiles its own copy with
// its own instruction set.
#pragma once

#include <immintrin.h>

#include <cstdint>

namespace scancode {
namespace {

struct alignas(16) ByteShuffle {
    int8_t b[16];
};

// Shuffle that places channel `channel` of 16 planar pixels into bytes
// [16 * part, 16 * part + 16) of their 48-byte interleaved form.
constexpr ByteShuffle InterleaveShuffle(int part, int channel) {
    ByteShuffle m{};
    for (int j = 0; j < 16; ++j) {
        const int k = 16 * part + j;
        m.b[j] = k % 3 == channel ? static_cast<int8_t>(k / 3) : static_cast<int8_t>(-128);
    }
    return m;
}

// Shuffle that gathers channel `channel` of 16 interleaved pixels from the
// 16-byte block `part` of their 48 bytes.
constexpr ByteShuffle DeinterleaveShuffle(int part, int channel) {
    ByteShuffle m{};
    for (int j = 0; j < 16; ++j) {
        const int k = 3 * j + channel;
        m.b[j] = k / 16 == part ? static_cast<int8_t>(k % 16) : static_cast<int8_t>(-128);
    }
    return m;
}

// [part][channel]
constexpr ByteShuffle kInterleave[3][3] = {
    {InterleaveShuffle(0, 0), InterleaveShuffle(0, 1), InterleaveShuffle(0, 2)},
    {InterleaveShuffle(1, 0), InterleaveShuffle(1, 1), InterleaveShuffle(1, 2)},
    {InterleaveShuffle(2, 0), InterleaveShuffle(2, 1), InterleaveShuffle(2, 2)},
};
// [channel][part]
constexpr ByteShuffle kDeinterleave[3][3] = {
    {DeinterleaveShuffle(0, 0), DeinterleaveShuffle(1, 0), DeinterleaveShuffle(2, 0)},
    {DeinterleaveShuffle(0, 1), DeinterleaveShuffle(1, 1), DeinterleaveShuffle(2, 1)},
    {DeinterleaveShuffle(0, 2), DeinterleaveShuffle(1, 2), DeinterleaveShuffle(2, 2)},
};

// Encoder coefficients as signed byte pairs for maddubs: low byte weighs the
// first byte of each 16-bit lane, high byte the second. Every partial sum
// stays inside int16 (maddubs saturates): 66R + 62G <= 32640, 25B + 67G <=
// 23460, and the chroma pairs stay within +-28560. 129G is split as 62G +
// 67G for that reason.
constexpr int16_t BytePair(int first, int second) {
    return static_cast<int16_t>(static_cast<uint16_t>((second & 0xFF) << 8 | (first & 0xFF)));
}
constexpr int16_t kLumaRG = BytePair(66, 62), kLumaBG = BytePair(25, 67);
constexpr int16_t kVRG = BytePair(112, -94), kVB = BytePair(-18, 0);
constexpr int16_t kURG = BytePair(-38, -74), kUB = BytePair(112, 0);
// Rounding and offset folded into one unsigned add before the logical shift:
// (s + 128 + 16 * 256) >> 8 for luma (s + 4224 <= 60324) and
// (s + 128 + 128 * 256) >> 8 for chroma (s + 32896 in 4336..61456). The
// biased sums stay below 2^16 as unsigned values and the results within
// 16..240, so no clamp is needed.
constexpr int16_t kLumaBias = 4224;
constexpr int16_t kChromaBias = static_cast<int16_t>(static_cast<uint16_t>(32896));

inline __m128i Load128(const void* p) {
    return _mm_loadu_si128(static_cast<const __m128i*>(p));
}
inline __m128i Mask128(const ByteShuffle& m) {
    return _mm_load_si128(reinterpret_cast<const __m128i*>(m.b));
}

}  // namespace
}  // namespace scancode
