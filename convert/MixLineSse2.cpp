// Line blend, SSE2: 16 bytes per step. The two lanes of each 16-bit field
// are blended apart, as q + ((p - q) * K >> 8) with an arithmetic shift,
// which is exact: |p - q| * K stays within 32640.
#include <emmintrin.h>

#include <utility>

#include "convert/mixLineWord.h"

namespace {

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
void mixLineSse2(uint32_t* first, uint32_t* second, uint32_t* out, int words)
{
    if constexpr (K == 0) {
        mixLineWords<0>(first, second, out, 0, words);
    } else {
        int i = 0;
        for (; i + 4 <= words; i += 4) {
            const __m128i p = _mm_loadu_si128(reinterpret_cast<const __m128i*>(first + i));
            const __m128i q = _mm_loadu_si128(reinterpret_cast<const __m128i*>(second + i));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), blend16<K>(p, q));
        }
        mixLineWords<K>(first, second, out, i, words);
    }
}

template <std::size_t... K>
constexpr std::array<MixLineKernel*, mixLineWeights> sse2Table(std::index_sequence<K...>)
{
    return {{&mixLineSse2<static_cast<int>(K)>...}};
}

constexpr std::array<MixLineKernel*, mixLineWeights> sse2Kernels = sse2Table(std::make_index_sequence<mixLineWeights>());

} // namespace

MixLineKernel* const* sse2MixLineKernels()
{
    return sse2Kernels.data();
}
