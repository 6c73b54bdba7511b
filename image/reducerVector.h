// Vector helpers shared by the SSE2 and AVX2 reducer rows, written once on
// 128-bit registers. Internal to the image code; x86 only, little-endian, so
// the bytes Cb, Y0, Cr, Y1 of a word are its bits 0, 8, 16 and 24.
#pragma once

#include <emmintrin.h>

// Lane average with the earlier operand rounded up: with the low bit of the
// later operand b cleared, ceil(a / 2) + floor(b / 2) is the rounded-up mean
// that the byte average instruction gives.
inline __m128i laneAverage128(__m128i a, __m128i b)
{
    return _mm_avg_epu8(a, _mm_and_si128(b, _mm_set1_epi8(static_cast<char>(0xFE))));
}

// The colour conversion of four averaged words, as 32-bit B, G and R before
// clamping, exactly equal to the plain 32-bit formulas. With cb = Cb - 128,
// cr = Cr - 128 and S = Y0 + Y1, the plain sums are
//     R: 38155 S + 104635 cr - 1220960
//     G: 38155 S - 53294 cr - 25690 cb - 1220960
//     B: 38155 S + 132278 cb - 1220960
// and taking the multiples of 65536 out of the coefficients (38155 =
// 65536 - 27381, 104635 = 131072 - 26437, -53294 = -65536 + 12242,
// 132278 = 131072 + 1206) leaves coefficients that fit 16-bit madd, with
// the whole multiples added after the shift, where they are exact.
struct Bgr128 {
    __m128i b, g, r;
};

inline Bgr128 yuvToBgr128(__m128i words)
{
    const __m128i chroma = _mm_sub_epi16(_mm_and_si128(words, _mm_set1_epi32(0x00FF00FF)), _mm_set1_epi16(128));
    const __m128i luma = _mm_srli_epi16(words, 8);
    const __m128i s = _mm_madd_epi16(luma, _mm_set1_epi16(1));
    const __m128i base = _mm_sub_epi32(_mm_madd_epi16(luma, _mm_set1_epi16(-27381)), _mm_set1_epi32(1220960));
    const __m128i cr = _mm_srai_epi32(chroma, 16);
    const __m128i cb = _mm_srai_epi32(_mm_slli_epi32(chroma, 16), 16);
    const __m128i crCoefficient = _mm_set1_epi32(static_cast<int>(static_cast<uint32_t>(-26437) << 16));
    const __m128i gCoefficients = _mm_set1_epi32(static_cast<int>((static_cast<uint32_t>(12242) << 16) | static_cast<uint16_t>(-25690)));
    const __m128i cbCoefficient = _mm_set1_epi32(1206);
    Bgr128 out;
    out.r = _mm_add_epi32(_mm_srai_epi32(_mm_add_epi32(base, _mm_madd_epi16(chroma, crCoefficient)), 16),
                          _mm_add_epi32(s, _mm_add_epi32(cr, cr)));
    out.g = _mm_add_epi32(_mm_srai_epi32(_mm_add_epi32(base, _mm_madd_epi16(chroma, gCoefficients)), 16),
                          _mm_sub_epi32(s, cr));
    out.b = _mm_add_epi32(_mm_srai_epi32(_mm_add_epi32(base, _mm_madd_epi16(chroma, cbCoefficient)), 16),
                          _mm_add_epi32(s, _mm_add_epi32(cb, cb)));
    return out;
}

// Clamps four pixels to 0..255 and stores them as 12 bytes B, G, R.
inline void storeBgr128(const Bgr128& pixel, unsigned char* out)
{
    const __m128i bytes = _mm_packus_epi16(_mm_packs_epi32(pixel.b, pixel.g), _mm_packs_epi32(pixel.r, pixel.r));
    // bytes: B0..B3 G0..G3 R0..R3 R0..R3; make B G R 0 per pixel.
    const __m128i bg = _mm_unpacklo_epi8(bytes, _mm_srli_si128(bytes, 4));
    const __m128i r0 = _mm_unpacklo_epi8(_mm_srli_si128(bytes, 8), _mm_setzero_si128());
    const __m128i bgrx = _mm_unpacklo_epi16(bg, r0);
    // Close the gaps: 6 bytes in each 64-bit half, then the halves together.
    const __m128i low32 = _mm_set_epi32(0, -1, 0, -1);
    const __m128i six = _mm_or_si128(_mm_and_si128(bgrx, low32), _mm_srli_epi64(_mm_andnot_si128(low32, bgrx), 8));
    const __m128i twelve = _mm_or_si128(_mm_move_epi64(six), _mm_slli_si128(_mm_srli_si128(six, 8), 6));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out), twelve);
    const int last = _mm_cvtsi128_si32(_mm_srli_si128(twelve, 8));
    __builtin_memcpy(out + 8, &last, 4);
}
