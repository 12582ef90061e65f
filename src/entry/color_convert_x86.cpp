// x86-64 row kernels. The decoder repeats the reference's 16-bit lane
// arithmetic: mullo/add/sub wrap modulo 2^16, srai is the arithmetic shift,
// and packus is exactly the clamp of a signed 16-bit value to 0..255. The
// encoder's sums never leave their range, so it may regroup them freely.
#include "entry/color_convert_row.h"

#if defined(__SSE4_1__)
#include <immintrin.h>

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

// 16 pixels (two groups) a step; an odd last group goes to the reference.
void NV21ToRGBRow_SSE41(const uint8_t* y, const uint8_t* vu, uint8_t* dst, int groups) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i low = _mm_set1_epi16(0x00FF);
    const __m128i bias = _mm_set1_epi16(128);
    const __m128i g455 = _mm_set1_epi16(455), g88 = _mm_set1_epi16(88);
    const __m128i g184 = _mm_set1_epi16(184), g360 = _mm_set1_epi16(360);
    for (; groups >= 2; groups -= 2, y += 16, vu += 16, dst += 48) {
        const __m128i luma = Load128(y);
        const __m128i pairs = Load128(vu);
        // One 16-bit lane per chroma pair: C0 in the low byte, C1 in the high.
        const __m128i c0 = _mm_sub_epi16(_mm_and_si128(pairs, low), bias);
        const __m128i c1 = _mm_sub_epi16(_mm_srli_epi16(pairs, 8), bias);
        const __m128i add0 = _mm_srai_epi16(_mm_mullo_epi16(c0, g455), 8);
        const __m128i sub1 =
            _mm_srai_epi16(_mm_add_epi16(_mm_mullo_epi16(c0, g88), _mm_mullo_epi16(c1, g184)), 8);
        const __m128i add2 = _mm_srai_epi16(_mm_mullo_epi16(c1, g360), 8);
        // Each pair term duplicated onto its two pixels.
        const __m128i ylo = _mm_unpacklo_epi8(luma, zero), yhi = _mm_unpackhi_epi8(luma, zero);
        const __m128i ch0 = _mm_packus_epi16(_mm_add_epi16(ylo, _mm_unpacklo_epi16(add0, add0)),
                                             _mm_add_epi16(yhi, _mm_unpackhi_epi16(add0, add0)));
        const __m128i ch1 = _mm_packus_epi16(_mm_sub_epi16(ylo, _mm_unpacklo_epi16(sub1, sub1)),
                                             _mm_sub_epi16(yhi, _mm_unpackhi_epi16(sub1, sub1)));
        const __m128i ch2 = _mm_packus_epi16(_mm_add_epi16(ylo, _mm_unpacklo_epi16(add2, add2)),
                                             _mm_add_epi16(yhi, _mm_unpackhi_epi16(add2, add2)));
        for (int part = 0; part < 3; ++part) {
            const __m128i out =
                _mm_or_si128(_mm_or_si128(_mm_shuffle_epi8(ch0, Mask128(kInterleave[part][0])),
                                          _mm_shuffle_epi8(ch1, Mask128(kInterleave[part][1]))),
                             _mm_shuffle_epi8(ch2, Mask128(kInterleave[part][2])));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 16 * part), out);
        }
    }
    if (groups > 0) NV21ToRGBRow_C(y, vu, dst, groups);
}

// One group of 16 pixels a step.
void BGRToNV21Row_SSE41(const uint8_t* bgr, uint8_t* y, uint8_t* vu, int groups) {
    const __m128i low = _mm_set1_epi16(0x00FF);
    const __m128i lumaBias = _mm_set1_epi16(kLumaBias);
    const __m128i chromaBias = _mm_set1_epi16(kChromaBias);
    const __m128i lumaRG = _mm_set1_epi16(kLumaRG), lumaBG = _mm_set1_epi16(kLumaBG);
    const __m128i vRG = _mm_set1_epi16(kVRG), vB = _mm_set1_epi16(kVB);
    const __m128i uRG = _mm_set1_epi16(kURG), uB = _mm_set1_epi16(kUB);
    for (int g = 0; g < groups; ++g, bgr += 48, y += 16) {
        const __m128i in[3] = {Load128(bgr), Load128(bgr + 16), Load128(bgr + 32)};
        __m128i ch[3];
        for (int c = 0; c < 3; ++c) {
            ch[c] =
                _mm_or_si128(_mm_or_si128(_mm_shuffle_epi8(in[0], Mask128(kDeinterleave[c][0])),
                                          _mm_shuffle_epi8(in[1], Mask128(kDeinterleave[c][1]))),
                             _mm_shuffle_epi8(in[2], Mask128(kDeinterleave[c][2])));
        }
        const __m128i b = ch[0], gr = ch[1], r = ch[2];
        auto luma = [&](__m128i rg, __m128i bg) {
            const __m128i sum =
                _mm_add_epi16(_mm_maddubs_epi16(rg, lumaRG), _mm_maddubs_epi16(bg, lumaBG));
            return _mm_srli_epi16(_mm_add_epi16(sum, lumaBias), 8);
        };
        const __m128i ylo = luma(_mm_unpacklo_epi8(r, gr), _mm_unpacklo_epi8(b, gr));
        const __m128i yhi = luma(_mm_unpackhi_epi8(r, gr), _mm_unpackhi_epi8(b, gr));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(y), _mm_packus_epi16(ylo, yhi));
        if (vu == nullptr) continue;
        // Even-column pixels: (R, G) and (B, 0) byte pairs in 16-bit lanes.
        const __m128i rg = _mm_or_si128(_mm_and_si128(r, low), _mm_slli_epi16(gr, 8));
        const __m128i b0 = _mm_and_si128(b, low);
        const __m128i v = _mm_add_epi16(_mm_maddubs_epi16(rg, vRG), _mm_maddubs_epi16(b0, vB));
        const __m128i u = _mm_add_epi16(_mm_maddubs_epi16(rg, uRG), _mm_maddubs_epi16(b0, uB));
        const __m128i v8 = _mm_srli_epi16(_mm_add_epi16(v, chromaBias), 8);
        const __m128i u8 = _mm_srli_epi16(_mm_add_epi16(u, chromaBias), 8);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(vu), _mm_or_si128(v8, _mm_slli_epi16(u8, 8)));
        vu += 16;
    }
}

#if defined(__AVX2__)
namespace {

inline __m256i Load256(const void* p) {
    return _mm256_loadu_si256(static_cast<const __m256i*>(p));
}
inline __m256i Mask256(const ByteShuffle& m) {
    return _mm256_broadcastsi128_si256(Mask128(m));
}
inline void Store256(uint8_t* p, __m256i v) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v);
}

}  // namespace

// 32 pixels (four groups) a step; every lane-wise operation keeps pixels
// 0-15 in the low 128 bits and 16-31 in the high, so only the final 96-byte
// store needs to cross lanes. Remaining groups go to the SSE4.1 kernel.
void NV21ToRGBRow_AVX2(const uint8_t* y, const uint8_t* vu, uint8_t* dst, int groups) {
    const __m256i zero = _mm256_setzero_si256();
    const __m256i low = _mm256_set1_epi16(0x00FF);
    const __m256i bias = _mm256_set1_epi16(128);
    const __m256i g455 = _mm256_set1_epi16(455), g88 = _mm256_set1_epi16(88);
    const __m256i g184 = _mm256_set1_epi16(184), g360 = _mm256_set1_epi16(360);
    for (; groups >= 4; groups -= 4, y += 32, vu += 32, dst += 96) {
        const __m256i luma = Load256(y);
        const __m256i pairs = Load256(vu);
        const __m256i c0 = _mm256_sub_epi16(_mm256_and_si256(pairs, low), bias);
        const __m256i c1 = _mm256_sub_epi16(_mm256_srli_epi16(pairs, 8), bias);
        const __m256i add0 = _mm256_srai_epi16(_mm256_mullo_epi16(c0, g455), 8);
        const __m256i sub1 = _mm256_srai_epi16(
            _mm256_add_epi16(_mm256_mullo_epi16(c0, g88), _mm256_mullo_epi16(c1, g184)), 8);
        const __m256i add2 = _mm256_srai_epi16(_mm256_mullo_epi16(c1, g360), 8);
        const __m256i ylo = _mm256_unpacklo_epi8(luma, zero);
        const __m256i yhi = _mm256_unpackhi_epi8(luma, zero);
        const __m256i ch0 =
            _mm256_packus_epi16(_mm256_add_epi16(ylo, _mm256_unpacklo_epi16(add0, add0)),
                                _mm256_add_epi16(yhi, _mm256_unpackhi_epi16(add0, add0)));
        const __m256i ch1 =
            _mm256_packus_epi16(_mm256_sub_epi16(ylo, _mm256_unpacklo_epi16(sub1, sub1)),
                                _mm256_sub_epi16(yhi, _mm256_unpackhi_epi16(sub1, sub1)));
        const __m256i ch2 =
            _mm256_packus_epi16(_mm256_add_epi16(ylo, _mm256_unpacklo_epi16(add2, add2)),
                                _mm256_add_epi16(yhi, _mm256_unpackhi_epi16(add2, add2)));
        __m256i out[3];
        for (int part = 0; part < 3; ++part) {
            out[part] = _mm256_or_si256(
                _mm256_or_si256(_mm256_shuffle_epi8(ch0, Mask256(kInterleave[part][0])),
                                _mm256_shuffle_epi8(ch1, Mask256(kInterleave[part][1]))),
                _mm256_shuffle_epi8(ch2, Mask256(kInterleave[part][2])));
        }
        // Low lanes hold bytes 0-47, high lanes bytes 48-95.
        Store256(dst, _mm256_permute2x128_si256(out[0], out[1], 0x20));
        Store256(dst + 32, _mm256_permute2x128_si256(out[2], out[0], 0x30));
        Store256(dst + 64, _mm256_permute2x128_si256(out[1], out[2], 0x31));
    }
    if (groups > 0) NV21ToRGBRow_SSE41(y, vu, dst, groups);
}

// Two groups (32 pixels) a step, loaded so that each 128-bit lane holds the
// 48 bytes of one group; an odd last group goes to the SSE4.1 kernel.
void BGRToNV21Row_AVX2(const uint8_t* bgr, uint8_t* y, uint8_t* vu, int groups) {
    const __m256i low = _mm256_set1_epi16(0x00FF);
    const __m256i lumaBias = _mm256_set1_epi16(kLumaBias);
    const __m256i chromaBias = _mm256_set1_epi16(kChromaBias);
    const __m256i lumaRG = _mm256_set1_epi16(kLumaRG), lumaBG = _mm256_set1_epi16(kLumaBG);
    const __m256i vRG = _mm256_set1_epi16(kVRG), vB = _mm256_set1_epi16(kVB);
    const __m256i uRG = _mm256_set1_epi16(kURG), uB = _mm256_set1_epi16(kUB);
    for (; groups >= 2; groups -= 2, bgr += 96, y += 32) {
        __m256i in[3];
        for (int part = 0; part < 3; ++part) {
            in[part] = _mm256_inserti128_si256(_mm256_castsi128_si256(Load128(bgr + 16 * part)),
                                               Load128(bgr + 48 + 16 * part), 1);
        }
        __m256i ch[3];
        for (int c = 0; c < 3; ++c) {
            ch[c] = _mm256_or_si256(
                _mm256_or_si256(_mm256_shuffle_epi8(in[0], Mask256(kDeinterleave[c][0])),
                                _mm256_shuffle_epi8(in[1], Mask256(kDeinterleave[c][1]))),
                _mm256_shuffle_epi8(in[2], Mask256(kDeinterleave[c][2])));
        }
        const __m256i b = ch[0], gr = ch[1], r = ch[2];
        auto luma = [&](__m256i rg, __m256i bg) {
            const __m256i sum = _mm256_add_epi16(_mm256_maddubs_epi16(rg, lumaRG),
                                                 _mm256_maddubs_epi16(bg, lumaBG));
            return _mm256_srli_epi16(_mm256_add_epi16(sum, lumaBias), 8);
        };
        const __m256i ylo = luma(_mm256_unpacklo_epi8(r, gr), _mm256_unpacklo_epi8(b, gr));
        const __m256i yhi = luma(_mm256_unpackhi_epi8(r, gr), _mm256_unpackhi_epi8(b, gr));
        Store256(y, _mm256_packus_epi16(ylo, yhi));
        if (vu == nullptr) continue;
        const __m256i rg = _mm256_or_si256(_mm256_and_si256(r, low), _mm256_slli_epi16(gr, 8));
        const __m256i b0 = _mm256_and_si256(b, low);
        const __m256i v =
            _mm256_add_epi16(_mm256_maddubs_epi16(rg, vRG), _mm256_maddubs_epi16(b0, vB));
        const __m256i u =
            _mm256_add_epi16(_mm256_maddubs_epi16(rg, uRG), _mm256_maddubs_epi16(b0, uB));
        const __m256i v8 = _mm256_srli_epi16(_mm256_add_epi16(v, chromaBias), 8);
        const __m256i u8 = _mm256_srli_epi16(_mm256_add_epi16(u, chromaBias), 8);
        Store256(vu, _mm256_or_si256(v8, _mm256_slli_epi16(u8, 8)));
        vu += 32;
    }
    if (groups > 0) BGRToNV21Row_SSE41(bgr, y, vu, groups);
}
#endif  // __AVX2__

}  // namespace scancode

#endif  // __SSE4_1__
