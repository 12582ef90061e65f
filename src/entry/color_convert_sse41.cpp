// x86-64 SSE4.1 row kernels. The decoder repeats the reference's 16-bit lane
// arithmetic: mullo/add/sub wrap modulo 2^16, srai is the arithmetic shift,
// and packus is exactly the clamp of a signed 16-bit value to 0..255. The
// encoder's sums never leave their range, so it may regroup them freely.
#include "entry/color_convert_row.h"

#if defined(__x86_64__)
#if !defined(__SSE4_1__)
#error "this file needs -msse4.1 (cmake/simd.cmake)"
#endif

#include "entry/color_convert_x86.h"

namespace scancode {

// 16 pixels (two groups) a step.
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

}  // namespace scancode

#endif  // __x86_64__
