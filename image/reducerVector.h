// The x86 reducer rows' vector step, written once for any register width:
// Regs names the instructions of one width (Regs128 below for SSE2 and the
// AVX2 rows' last four pixels, Regs256 in image/reducerAvx2.cpp). Internal
// linkage (see image/pixelOps.h). x86 is little-endian, so the bytes Cb, Y0,
// Cr, Y1 of a word are its bits 0, 8, 16 and 24.
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

// The plain lane arithmetic of the step, for registers of any size through
// the compiler's vector types: halves are 16-bit lanes, words 32-bit ones.
template <std::size_t Bytes>
struct Lanes {
    typedef int16_t halves __attribute__((vector_size(Bytes)));
    typedef uint16_t unsignedHalves __attribute__((vector_size(Bytes)));
    typedef int32_t words __attribute__((vector_size(Bytes)));
};

// What only the instructions of one width do, 128 bits here.
struct Regs128 {
    using type = __m128i;
    static constexpr int units = 4;  // pixels per step: one per word

    static type roundedMean(type a, type b) { return _mm_avg_epu8(a, b); }
    static type multiplyAdd(type a, type b) { return _mm_madd_epi16(a, b); }
    // Words of a and b by a shuffle order: the pair averages' even and odd
    // words.
    template <int Order>
    static type pick(type a, type b)
    {
        return _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(a), _mm_castsi128_ps(b), Order));
    }
    // The pixels of a quarter step in order (they are).
    static type inOrder(type mixed) { return mixed; }
    static void store(type b, type g, type r, unsigned char* out);
};

// Lane average with the earlier operand rounded up: with the low bit of the
// later operand b cleared, ceil(a / 2) + floor(b / 2) is the rounded-up mean
// that the byte average instruction gives.
template <class Regs, class T = typename Regs::type>
inline T laneAverage(T a, T b)
{
    return Regs::roundedMean(a, b & T(typename Lanes<sizeof(T)>::unsignedHalves{} + 0xFEFE));
}

template <class Regs, class T = typename Regs::type>
inline T load(const uint32_t* words)
{
    T v;
    std::memcpy(&v, words, sizeof v);
    return v;
}

// Words 2j and 2j + 1 of one line for a step's pixels, averaged.
template <class Regs, class T = typename Regs::type>
inline T pairAverage(const uint32_t* line)
{
    const T a = load<Regs>(line), b = load<Regs>(line + Regs::units);
    return laneAverage<Regs>(Regs::template pick<_MM_SHUFFLE(2, 0, 2, 0)>(a, b),
                             Regs::template pick<_MM_SHUFFLE(3, 1, 3, 1)>(a, b));
}

// The colours of a step's averaged words as 32-bit B, G and R before
// clamping, equal to the plain formulas, stored by the register width's own
// packing and shuffles.
template <class Regs, class T = typename Regs::type>
inline void storeColours(T words, unsigned char* out)
{
    using namespace split;
    using H = typename Lanes<sizeof(T)>::halves;
    using W = typename Lanes<sizeof(T)>::words;
    const W chroma = W(H(words & T(W{} + 0x00FF00FF)) - 128);
    const T lumas = T(typename Lanes<sizeof(T)>::unsignedHalves(words) >> 8);
    const W s = W(Regs::multiplyAdd(lumas, T(H{} + 1)));
    const W base = W(Regs::multiplyAdd(lumas, T(H{} + lumaRest))) - lumaOffset;
    const W cr = chroma >> 16, cb = (chroma << 16) >> 16;
    auto colour = [&](int pair, W whole) {
        return T(((base + W(Regs::multiplyAdd(T(chroma), T(W{} + pair)))) >> 16) + s + whole);
    };
    Regs::store(colour(cbPairB, cb + cb), colour(crPairG, -cr), colour(crPairR, cr + cr), out);
}

// Clamps four pixels to 0..255 and stores them as 12 bytes B, G, R.
inline void Regs128::store(__m128i b, __m128i g, __m128i r, unsigned char* out)
{
    const __m128i bytes = _mm_packus_epi16(_mm_packs_epi32(b, g), _mm_packs_epi32(r, r));
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

// Regs::units pixels of a row (see vectorRow).
template <class Regs>
struct RowStep {
    static constexpr int units = Regs::units;

    template <bool Quarter>
    static void row(const uint32_t* lines, std::ptrdiff_t stride, int j, unsigned char* out)
    {
        typename Regs::type mixed;
        if constexpr (Quarter) {
            const uint32_t* l = lines + 2 * j;
            const auto upper = laneAverage<Regs>(pairAverage<Regs>(l), pairAverage<Regs>(l + stride));
            const auto lower = laneAverage<Regs>(pairAverage<Regs>(l + 2 * stride), pairAverage<Regs>(l + 3 * stride));
            mixed = Regs::inOrder(laneAverage<Regs>(upper, lower));
        } else {
            mixed = laneAverage<Regs>(load<Regs>(lines + j), load<Regs>(lines + stride + j));
        }
        storeColours<Regs>(mixed, out + 3 * j);
    }
};

}  // namespace
