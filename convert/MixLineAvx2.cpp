// Line blend, AVX2 (with the SSSE3 byte multiply-add it includes): 32 bytes
// per step, then one 16-byte step, then the plain rule for the last words,
// so nothing past the line is read or written.
#include <immintrin.h>

#include <utility>

#include "convert/mixLineWord.h"

namespace {

// Weight 128 is the mean rounded down: the rounded-up byte mean less the
// carried-away half. Other weights (1 to 127) fit a signed byte, so one
// maddubs makes K * p - K * q for a pair of bytes; shifted down (rounding
// towards minus infinity) that is the lane's distance from q, at most 126
// either way, so it packs into a signed byte and a wrapping byte add of q
// gives the lane.
template <int K>
inline __m256i blend32(__m256i p, __m256i q)
{
    if constexpr (K == 128) {
        return _mm256_sub_epi8(_mm256_avg_epu8(p, q), _mm256_and_si256(_mm256_xor_si256(p, q), _mm256_set1_epi8(1)));
    } else {
        const __m256i weights = _mm256_set1_epi16(static_cast<short>((K & 0xFF) | ((-K & 0xFF) << 8)));
        const __m256i low = _mm256_srai_epi16(_mm256_maddubs_epi16(_mm256_unpacklo_epi8(p, q), weights), 8);
        const __m256i high = _mm256_srai_epi16(_mm256_maddubs_epi16(_mm256_unpackhi_epi8(p, q), weights), 8);
        return _mm256_add_epi8(_mm256_packs_epi16(low, high), q);
    }
}

template <int K>
inline __m128i blend16(__m128i p, __m128i q)
{
    if constexpr (K == 128) {
        return _mm_sub_epi8(_mm_avg_epu8(p, q), _mm_and_si128(_mm_xor_si128(p, q), _mm_set1_epi8(1)));
    } else {
        const __m128i weights = _mm_set1_epi16(static_cast<short>((K & 0xFF) | ((-K & 0xFF) << 8)));
        const __m128i low = _mm_srai_epi16(_mm_maddubs_epi16(_mm_unpacklo_epi8(p, q), weights), 8);
        const __m128i high = _mm_srai_epi16(_mm_maddubs_epi16(_mm_unpackhi_epi8(p, q), weights), 8);
        return _mm_add_epi8(_mm_packs_epi16(low, high), q);
    }
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
