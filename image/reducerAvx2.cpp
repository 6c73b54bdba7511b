// YUV-to-RGB reducer lines, AVX2: eight output pixels per step, then four
// with the 128-bit code, then the plain code for the rest, so nothing past a
// line is read or written. The 256-bit steps follow the 128-bit ones of
// reducerVector.h operation for operation, in both halves at once.
#include <immintrin.h>

#include "image/reducerRows.h"
#include "image/reducerVector.h"

namespace {

inline __m256i load(const uint32_t* words)
{
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(words));
}

inline __m256i laneAverage256(__m256i a, __m256i b)
{
    return _mm256_avg_epu8(a, _mm256_and_si256(b, _mm256_set1_epi8(static_cast<char>(0xFE))));
}

// Words 2j and 2j + 1 of one line for eight pixels, averaged; the pixels come
// out in the order 0 1 4 5 2 3 6 7, put right once per step by the caller.
inline __m256i pairAverage(const uint32_t* line)
{
    const __m256 a = _mm256_castsi256_ps(load(line)), b = _mm256_castsi256_ps(load(line + 8));
    const __m256i even = _mm256_castps_si256(_mm256_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0)));
    const __m256i odd = _mm256_castps_si256(_mm256_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1)));
    return laneAverage256(even, odd);
}

// Colour conversion of eight words and store of 24 bytes B, G, R.
inline void convertAndStore(__m256i words, unsigned char* out)
{
    const __m256i chroma = _mm256_sub_epi16(_mm256_and_si256(words, _mm256_set1_epi32(0x00FF00FF)), _mm256_set1_epi16(128));
    const __m256i luma = _mm256_srli_epi16(words, 8);
    const __m256i s = _mm256_madd_epi16(luma, _mm256_set1_epi16(1));
    const __m256i base = _mm256_sub_epi32(_mm256_madd_epi16(luma, _mm256_set1_epi16(-27381)), _mm256_set1_epi32(1220960));
    const __m256i cr = _mm256_srai_epi32(chroma, 16);
    const __m256i cb = _mm256_srai_epi32(_mm256_slli_epi32(chroma, 16), 16);
    const __m256i crCoefficient = _mm256_set1_epi32(static_cast<int>(static_cast<uint32_t>(-26437) << 16));
    const __m256i gCoefficients =
        _mm256_set1_epi32(static_cast<int>((static_cast<uint32_t>(12242) << 16) | static_cast<uint16_t>(-25690)));
    const __m256i cbCoefficient = _mm256_set1_epi32(1206);
    const __m256i r = _mm256_add_epi32(_mm256_srai_epi32(_mm256_add_epi32(base, _mm256_madd_epi16(chroma, crCoefficient)), 16),
                                       _mm256_add_epi32(s, _mm256_add_epi32(cr, cr)));
    const __m256i g = _mm256_add_epi32(_mm256_srai_epi32(_mm256_add_epi32(base, _mm256_madd_epi16(chroma, gCoefficients)), 16),
                                       _mm256_sub_epi32(s, cr));
    const __m256i b = _mm256_add_epi32(_mm256_srai_epi32(_mm256_add_epi32(base, _mm256_madd_epi16(chroma, cbCoefficient)), 16),
                                       _mm256_add_epi32(s, _mm256_add_epi32(cb, cb)));

    // Per half: B0..B3 G0..G3 R0..R3 R0..R3, clamped to 0..255 by the packs,
    // then shuffled to B G R x4 in 12 bytes and the halves closed up.
    const __m256i bytes = _mm256_packus_epi16(_mm256_packs_epi32(b, g), _mm256_packs_epi32(r, r));
    const __m256i order = _mm256_setr_epi8(0, 4, 8, 1, 5, 9, 2, 6, 10, 3, 7, 11, -1, -1, -1, -1,
                                           0, 4, 8, 1, 5, 9, 2, 6, 10, 3, 7, 11, -1, -1, -1, -1);
    const __m256i packed = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(bytes, order), _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm256_castsi256_si128(packed));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 16), _mm256_extracti128_si256(packed, 1));
}

inline __m128i load128(const uint32_t* words)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(words));
}

inline __m128i pairAverage128(const uint32_t* line)
{
    const __m128 a = _mm_castsi128_ps(load128(line)), b = _mm_castsi128_ps(load128(line + 4));
    return laneAverage128(_mm_castps_si128(_mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0))),
                          _mm_castps_si128(_mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1))));
}

void quartRowAvx2(const uint32_t* l0, const uint32_t* l1, const uint32_t* l2, const uint32_t* l3,
                  unsigned char* out, int pixels)
{
    int j = 0;
    for (; j + 8 <= pixels; j += 8) {
        const __m256i upper = laneAverage256(pairAverage(l0 + 2 * j), pairAverage(l1 + 2 * j));
        const __m256i lower = laneAverage256(pairAverage(l2 + 2 * j), pairAverage(l3 + 2 * j));
        const __m256i mixed = laneAverage256(upper, lower);
        convertAndStore(_mm256_permute4x64_epi64(mixed, _MM_SHUFFLE(3, 1, 2, 0)), out + 3 * j);
    }
    if (j + 4 <= pixels) {
        const __m128i upper = laneAverage128(pairAverage128(l0 + 2 * j), pairAverage128(l1 + 2 * j));
        const __m128i lower = laneAverage128(pairAverage128(l2 + 2 * j), pairAverage128(l3 + 2 * j));
        storeBgr128(yuvToBgr128(laneAverage128(upper, lower)), out + 3 * j);
        j += 4;
    }
    quartRowPlain(l0, l1, l2, l3, out, j, pixels);
}

void halfRowAvx2(const uint32_t* upper, const uint32_t* lower, unsigned char* out, int pixels)
{
    int j = 0;
    for (; j + 8 <= pixels; j += 8)
        convertAndStore(laneAverage256(load(upper + j), load(lower + j)), out + 3 * j);
    if (j + 4 <= pixels) {
        storeBgr128(yuvToBgr128(laneAverage128(load128(upper + j), load128(lower + j))), out + 3 * j);
        j += 4;
    }
    halfRowPlain(upper, lower, out, j, pixels);
}

} // namespace

ReducerRows avx2ReducerRows()
{
    return {&quartRowAvx2, &halfRowAvx2};
}
