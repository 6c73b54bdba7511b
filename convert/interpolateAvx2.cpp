// Interpolation kernels, AVX2: the vertical sampling pass, 16 columns a step
// in whole steps (past the end as the table allows). The horizontal pass
// works on runs too short for wider steps to pay: it stays SSE2.
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

}  // namespace

void addAvx2Interpolate(InterpolateKernels& table) { table.columns = &avx2Columns; }
