// Field-rate kernels, AVX2: the row of block differences 16 at a time, the
// vertical sampling pass, 16 columns a step
// in whole steps (past the end as the table allows). The horizontal pass
// works on runs too short for wider steps to pay: it stays SSE2.
#include <immintrin.h>

#include "convert/fieldRateKernels.h"

namespace {

// Each 128-bit half makes eight differences at once: a row of b (bytes 0 to
// 15 in the low half, 8 to 23 in the high one) against the block's row, its
// first four bytes at offsets i, its last four at i + 4.
void avx2SadAcross(const uint8_t* a, std::ptrdiff_t strideA, const uint8_t* b, std::ptrdiff_t strideB, unsigned* sums)
{
    __m256i total = _mm256_setzero_si256();
    for (int y = 0; y < 8; ++y, a += strideA, b += strideB) {
        const __m256i row =
            _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(b + 8), reinterpret_cast<const __m128i*>(b));
        const __m256i block = _mm256_broadcastq_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(a)));
        total = _mm256_add_epi16(total, _mm256_mpsadbw_epu8(row, block, 0));
        total = _mm256_add_epi16(total, _mm256_mpsadbw_epu8(row, block, 0x2D));
    }
    // At most 64 x 255 each: the 16-bit sums widened.
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(sums), _mm256_cvtepu16_epi32(_mm256_castsi256_si128(total)));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(sums + 8),
                        _mm256_cvtepu16_epi32(_mm256_extracti128_si256(total, 1)));
}

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

}  // namespace

void addAvx2FieldRate(FieldRateKernels& table)
{
    table.sadAcross = &avx2SadAcross;
    table.columns = &avx2Columns;
}
