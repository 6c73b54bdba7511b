// Line blend, AVX2: 32 bytes per step, the same exact 16-bit rule as the
// SSE2 version; the remaining words go through 16-byte steps and then the
// plain rule, so nothing past the line is read or written.
#include <immintrin.h>

#include <utility>

#include "convert/mixLineWord.h"

namespace {

template <int K>
inline __m256i blend32(__m256i p, __m256i q)
{
    const __m256i lowBytes = _mm256_set1_epi16(0x00FF);
    const __m256i k = _mm256_set1_epi16(K);
    const __m256i pLow = _mm256_and_si256(p, lowBytes), qLow = _mm256_and_si256(q, lowBytes);
    const __m256i pHigh = _mm256_srli_epi16(p, 8), qHigh = _mm256_srli_epi16(q, 8);
    const __m256i low = _mm256_add_epi16(qLow, _mm256_srai_epi16(_mm256_mullo_epi16(_mm256_sub_epi16(pLow, qLow), k), 8));
    const __m256i high =
        _mm256_add_epi16(qHigh, _mm256_srai_epi16(_mm256_mullo_epi16(_mm256_sub_epi16(pHigh, qHigh), k), 8));
    return _mm256_or_si256(low, _mm256_slli_epi16(high, 8));
}

template <int K>
inline __m128i blend16(__m128i p, __m128i q)
{
    const __m128i lowBytes = _mm_set1_epi16(0x00FF);
    const __m128i k = _mm_set1_epi16(K);
    const __m128i pLow = _mm_and_si128(p, lowBytes), qLow = _mm_and_si128(q, lowBytes);
    const __m128i pHigh = _mm_srli_epi16(p, 8), qHigh = _mm_srli_epi16(q, 8);
    const __m128i low = _mm_add_epi16(qLow, _mm_srai_epi16(_mm_mullo_epi16(_mm_sub_epi16(pLow, qLow), k), 8));
    const __m128i high = _mm_add_epi16(qHigh, _mm_srai_epi16(_mm_mullo_epi16(_mm_sub_epi16(pHigh, qHigh), k), 8));
    return _mm_or_si128(low, _mm_slli_epi16(high, 8));
}

template <int K>
void mixLineAvx2(uint32_t* first, uint32_t* second, uint32_t* out, int words)
{
    if constexpr (K == 0) {
        mixLineWords<0>(first, second, out, 0, words);
    } else {
        int i = 0;
        for (; i + 8 <= words; i += 8) {
            const __m256i p = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(first + i));
            const __m256i q = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(second + i));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), blend32<K>(p, q));
        }
        if (i + 4 <= words) {
            const __m128i p = _mm_loadu_si128(reinterpret_cast<const __m128i*>(first + i));
            const __m128i q = _mm_loadu_si128(reinterpret_cast<const __m128i*>(second + i));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), blend16<K>(p, q));
            i += 4;
        }
        mixLineWords<K>(first, second, out, i, words);
    }
}

template <std::size_t... K>
constexpr std::array<MixLineKernel*, mixLineWeights> avx2Table(std::index_sequence<K...>)
{
    return {{&mixLineAvx2<static_cast<int>(K)>...}};
}

constexpr std::array<MixLineKernel*, mixLineWeights> avx2Kernels = avx2Table(std::make_index_sequence<mixLineWeights>());

} // namespace

MixLineKernel* const* avx2MixLineKernels()
{
    return avx2Kernels.data();
}
