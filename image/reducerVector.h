// Vector helpers of the x86 reducer rows, written once on 128-bit registers:
// the SSE2 rows are made of them, and the AVX2 rows use them for their last
// four pixels. Internal linkage (see image/pixelOps.h). x86 is little-endian,
// so the bytes Cb, Y0, Cr, Y1 of a word are its bits 0, 8, 16 and 24.
#pragma once

#include <emmintrin.h>

#include "image/reducerRows.h"

namespace {

// The colour formulas of image/pixelOps.h for 16-bit multiply-add: with
// cb = Cb - 128, cr = Cr - 128 and S = Y0 + Y1 they read
//     R: luma S + crToR cr - lumaOffset
//     G: luma S + crToG cr + cbToG cb - lumaOffset
//     B: luma S + cbToB cb - lumaOffset
// and each coefficient is a whole multiple of 65536 and a rest that fits 16
// bits. The rests go through the multiply-add before the shift; the whole
// multiples (S, 2 cr, -cr, 2 cb) are added after it, where they are exact.
namespace split {
using namespace yuvColour;
constexpr int lumaRest = luma - 65536;
constexpr int crToRRest = crToR - 2 * 65536;
constexpr int crToGRest = crToG + 65536;
constexpr int cbToBRest = cbToB - 2 * 65536;
static_assert(lumaRest >= -32768 && crToRRest >= -32768 && crToGRest < 32768 && cbToBRest < 32768 && cbToG >= -32768,
              "every rest fits a 16-bit factor");
// The chroma factor pairs (Cb in the low half of a 32-bit lane, Cr above).
constexpr int crPairR = static_cast<int>(static_cast<uint32_t>(crToRRest) << 16);
constexpr int crPairG = static_cast<int>((static_cast<uint32_t>(crToGRest) << 16) | static_cast<uint16_t>(cbToG));
constexpr int cbPairB = cbToBRest;
}  // namespace split

inline __m128i load128(const uint32_t* words) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(words)); }

// Lane average with the earlier operand rounded up: with the low bit of the
// later operand b cleared, ceil(a / 2) + floor(b / 2) is the rounded-up mean
// that the byte average instruction gives.
inline __m128i laneAverage128(__m128i a, __m128i b)
{
    return _mm_avg_epu8(a, _mm_and_si128(b, _mm_set1_epi8(static_cast<char>(0xFE))));
}

// Words 2j and 2j + 1 of one line for four pixels, averaged.
inline __m128i pairAverage128(const uint32_t* line)
{
    const __m128 a = _mm_castsi128_ps(load128(line)), b = _mm_castsi128_ps(load128(line + 4));
    return laneAverage128(_mm_castps_si128(_mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0))),
                          _mm_castps_si128(_mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1))));
}

struct Bgr128 {
    __m128i b, g, r;
};

// The colours of four averaged words as 32-bit B, G and R before clamping,
// equal to the plain formulas.
inline Bgr128 yuvToBgr128(__m128i words)
{
    using namespace split;
    const __m128i chroma = _mm_sub_epi16(_mm_and_si128(words, _mm_set1_epi32(0x00FF00FF)), _mm_set1_epi16(128));
    const __m128i lumas = _mm_srli_epi16(words, 8);
    const __m128i s = _mm_madd_epi16(lumas, _mm_set1_epi16(1));
    const __m128i base = _mm_sub_epi32(_mm_madd_epi16(lumas, _mm_set1_epi16(lumaRest)), _mm_set1_epi32(lumaOffset));
    const __m128i cr = _mm_srai_epi32(chroma, 16);
    const __m128i cb = _mm_srai_epi32(_mm_slli_epi32(chroma, 16), 16);
    auto colour = [&](int pair, __m128i whole) {
        return _mm_add_epi32(_mm_srai_epi32(_mm_add_epi32(base, _mm_madd_epi16(chroma, _mm_set1_epi32(pair))), 16),
                             _mm_add_epi32(s, whole));
    };
    return {colour(cbPairB, _mm_add_epi32(cb, cb)), colour(crPairG, _mm_sub_epi32(_mm_setzero_si128(), cr)),
            colour(crPairR, _mm_add_epi32(cr, cr))};
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
    std::memcpy(out + 8, &last, 4);
}

// Four pixels of a row (see vectorRow).
struct Rows128 {
    static constexpr int units = 4;

    template <bool Quarter>
    static void row(const uint32_t* lines, std::ptrdiff_t stride, int j, unsigned char* out)
    {
        __m128i mixed;
        if constexpr (Quarter) {
            const uint32_t* l = lines + 2 * j;
            const __m128i upper = laneAverage128(pairAverage128(l), pairAverage128(l + stride));
            const __m128i lower = laneAverage128(pairAverage128(l + 2 * stride), pairAverage128(l + 3 * stride));
            mixed = laneAverage128(upper, lower);
        } else {
            mixed = laneAverage128(load128(lines + j), load128(lines + stride + j));
        }
        storeBgr128(yuvToBgr128(mixed), out + 3 * j);
    }
};

}  // namespace
