// YUV-to-RGB reducer rows, AVX2: eight output pixels per step, then four
// with the 128-bit code, then the plain rule for the rest. The 256-bit step
// follows the 128-bit one of image/reducerVector.h operation for operation,
// in both halves at once.
#include <immintrin.h>

#include "image/reducerVector.h"

namespace {

inline __m256i load256(const uint32_t* words) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(words)); }

inline __m256i laneAverage256(__m256i a, __m256i b)
{
    return _mm256_avg_epu8(a, _mm256_and_si256(b, _mm256_set1_epi8(static_cast<char>(0xFE))));
}

// Words 2j and 2j + 1 of one line for eight pixels, averaged; the pixels come
// out in the order 0 1 4 5 2 3 6 7, put right once per step.
inline __m256i pairAverage256(const uint32_t* line)
{
    const __m256 a = _mm256_castsi256_ps(load256(line)), b = _mm256_castsi256_ps(load256(line + 8));
    return laneAverage256(_mm256_castps_si256(_mm256_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0))),
                          _mm256_castps_si256(_mm256_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1))));
}

// Colour conversion of eight words (yuvToBgr128 in both halves), clamped by
// the packs and stored as 24 bytes B, G, R.
inline void convertAndStore(__m256i words, unsigned char* out)
{
    using namespace split;
    const __m256i chroma =
        _mm256_sub_epi16(_mm256_and_si256(words, _mm256_set1_epi32(0x00FF00FF)), _mm256_set1_epi16(128));
    const __m256i lumas = _mm256_srli_epi16(words, 8);
    const __m256i s = _mm256_madd_epi16(lumas, _mm256_set1_epi16(1));
    const __m256i base =
        _mm256_sub_epi32(_mm256_madd_epi16(lumas, _mm256_set1_epi16(lumaRest)), _mm256_set1_epi32(lumaOffset));
    const __m256i cr = _mm256_srai_epi32(chroma, 16);
    const __m256i cb = _mm256_srai_epi32(_mm256_slli_epi32(chroma, 16), 16);
    auto colour = [&](int pair, __m256i whole) {
        return _mm256_add_epi32(
            _mm256_srai_epi32(_mm256_add_epi32(base, _mm256_madd_epi16(chroma, _mm256_set1_epi32(pair))), 16),
            _mm256_add_epi32(s, whole));
    };
    const __m256i r = colour(crPairR, _mm256_add_epi32(cr, cr));
    const __m256i g = colour(crPairG, _mm256_sub_epi32(_mm256_setzero_si256(), cr));
    const __m256i b = colour(cbPairB, _mm256_add_epi32(cb, cb));

    // Per half: B0..B3 G0..G3 R0..R3 R0..R3, then shuffled to B G R x4 in
    // 12 bytes and the halves closed up.
    const __m256i bytes = _mm256_packus_epi16(_mm256_packs_epi32(b, g), _mm256_packs_epi32(r, r));
    const __m256i order = _mm256_setr_epi8(0, 4, 8, 1, 5, 9, 2, 6, 10, 3, 7, 11, -1, -1, -1, -1, 0, 4, 8, 1, 5, 9, 2, 6,
                                           10, 3, 7, 11, -1, -1, -1, -1);
    const __m256i packed =
        _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(bytes, order), _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm256_castsi256_si128(packed));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 16), _mm256_extracti128_si256(packed, 1));
}

// Eight pixels of a row (see vectorRow).
struct Rows256 {
    static constexpr int units = 8;

    template <bool Quarter>
    static void row(const uint32_t* lines, std::ptrdiff_t stride, int j, unsigned char* out)
    {
        __m256i mixed;
        if constexpr (Quarter) {
            const uint32_t* l = lines + 2 * j;
            const __m256i upper = laneAverage256(pairAverage256(l), pairAverage256(l + stride));
            const __m256i lower = laneAverage256(pairAverage256(l + 2 * stride), pairAverage256(l + 3 * stride));
            mixed = _mm256_permute4x64_epi64(laneAverage256(upper, lower), _MM_SHUFFLE(3, 1, 2, 0));
        } else {
            mixed = laneAverage256(load256(lines + j), load256(lines + stride + j));
        }
        convertAndStore(mixed, out + 3 * j);
    }
};

}  // namespace

void addAvx2Reducers(PixelKernels& table) { addVectorRows<Rows256, Rows128>(table); }
