// Line blend, SSE2: 16 bytes per step. The two lanes of each 16-bit field
// are blended apart, as q + ((p - q) * K >> 8) with an arithmetic shift,
// which is exact: |p - q| * K stays within 32640.
#include <emmintrin.h>

#include "convert/mixLineWord.h"

namespace {

struct Lanes16 {
    using type = __m128i;

    template <int K>
    static __m128i mix(__m128i p, __m128i q)
    {
        const __m128i lowBytes = _mm_set1_epi16(0x00FF);
        const __m128i k = _mm_set1_epi16(K);
        const __m128i pLow = _mm_and_si128(p, lowBytes), qLow = _mm_and_si128(q, lowBytes);
        const __m128i pHigh = _mm_srli_epi16(p, 8), qHigh = _mm_srli_epi16(q, 8);
        const __m128i low = _mm_add_epi16(qLow, _mm_srai_epi16(_mm_mullo_epi16(_mm_sub_epi16(pLow, qLow), k), 8));
        const __m128i high = _mm_add_epi16(qHigh, _mm_srai_epi16(_mm_mullo_epi16(_mm_sub_epi16(pHigh, qHigh), k), 8));
        return _mm_or_si128(low, _mm_slli_epi16(high, 8));
    }

    static void stream(void* out, __m128i v) { _mm_stream_si128(static_cast<__m128i*>(out), v); }
};

}  // namespace

void addSse2MixLine(PixelKernels& table)
{
    addStreamedKernels<Lanes16>(table, [] { _mm_sfence(); });
}
