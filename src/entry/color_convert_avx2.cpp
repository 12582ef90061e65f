// x86-64 AVX2 row kernels: the SSE4.1 arithmetic on 256-bit registers, two
// 128-bit lanes side by side.
#include "entry/color_convert_row.h"

#if defined(__x86_64__)
#if !defined(__AVX2__)
#error "this file needs -mavx2 (cmake/simd.cmake)"
#endif

#include "entry/color_convert_x86.h"

namespace scancode {
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
// store needs to cross lanes.
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
}

// Two groups (32 pixels) a step, loaded so that each 128-bit lane holds the
// 48 bytes of one group.
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
}

// The reference's own loop, which the compiler vectorises with AVX2 here.
void RGBToNV21Frame_AVX2(uint8_t* dst, const uint8_t* rgb, int width, int height) {
    RGBToNV21FrameBody(dst, rgb, width, height);
}

}  // namespace scancode

#endif  // __x86_64__
