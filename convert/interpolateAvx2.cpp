// Interpolation kernels, AVX2: the sampling passes 16 columns or samples a
// step, in whole steps (past the end as the table allows).
#include <immintrin.h>

#include "convert/interpolateKernels.h"

namespace {

void avx2Columns(const uint8_t* top, std::ptrdiff_t stride, const int* taps, int count, int16_t* column)
{
    __m256i t[4];
    for (int k = 0; k < 4; ++k)
        t[k] = _mm256_set1_epi16(static_cast<short>(taps[k]));
    // Wrapping 16-bit sums, as in the SSE2 version.
    for (int i = 0; i < count; i += 16) {
        __m256i sum = _mm256_setzero_si256();
        for (int k = 0; k < 4; ++k) {
            const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(top + i + k * stride));
            sum = _mm256_add_epi16(sum, _mm256_mullo_epi16(_mm256_cvtepu8_epi16(bytes), t[k]));
        }
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(column + i), sum);
    }
}

inline __m256i load(const int16_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }

// The unpacks and packs work within each 128-bit half, so the samples come
// out in order: 0 to 7 in the low half, 8 to 15 in the high one.
void avx2Rows(const int16_t* column, const int* taps, int count, uint8_t* out)
{
    const __m256i t01 = _mm256_set1_epi32(tapPair(taps)), t23 = _mm256_set1_epi32(tapPair(taps + 2)),
                  round = _mm256_set1_epi32(2048);
    for (int i = 0; i < count; i += 16) {
        const __m256i a = load(column + i), b = load(column + i + 1);
        const __m256i c = load(column + i + 2), d = load(column + i + 3);
        const __m256i low = _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpacklo_epi16(a, b), t01),
                                             _mm256_madd_epi16(_mm256_unpacklo_epi16(c, d), t23));
        const __m256i high = _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpackhi_epi16(a, b), t01),
                                              _mm256_madd_epi16(_mm256_unpackhi_epi16(c, d), t23));
        const __m256i words = _mm256_packs_epi32(_mm256_srai_epi32(_mm256_add_epi32(low, round), 12),
                                                 _mm256_srai_epi32(_mm256_add_epi32(high, round), 12));
        const __m128i bytes = _mm_packus_epi16(_mm256_castsi256_si128(words), _mm256_extracti128_si256(words, 1));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), bytes);
    }
}

}  // namespace

void addAvx2Interpolate(InterpolateKernels& table)
{
    table.columns = &avx2Columns;
    table.rows = &avx2Rows;
}
