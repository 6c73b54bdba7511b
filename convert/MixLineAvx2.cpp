// Line blend, AVX2 (with the SSSE3 byte multiply-add it includes): 32 bytes
// per step, then one 16-byte step, then the plain rule for the last words.
#include <immintrin.h>

#include "convert/mixLineWord.h"

namespace {

// Weight 128 is the mean rounded down: the rounded-up byte mean less the
// carried-away half. Other weights (1 to 127) fit a signed byte, so one
// maddubs makes K * p - K * q for a pair of bytes; shifted down (rounding
// towards minus infinity) that is the lane's distance from q, at most 126
// either way, so it packs into a signed byte and a wrapping byte add of q
// gives the lane. Every step stays within its 128-bit half.
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

struct Blend32 {
    static constexpr int units = 8;

    template <int K>
    static void blend(const uint32_t* first, const uint32_t* second, uint32_t* out)
    {
        const __m256i p = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(first));
        const __m256i q = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(second));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), blend32<K>(p, q));
    }
};

// 16 bytes in the low half of the registers.
struct Blend16 {
    static constexpr int units = 4;

    template <int K>
    static void blend(const uint32_t* first, const uint32_t* second, uint32_t* out)
    {
        const __m256i p = _mm256_zextsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(first)));
        const __m256i q = _mm256_zextsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(second)));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm256_castsi256_si128(blend32<K>(p, q)));
    }
};

}  // namespace

void addAvx2MixLine(PixelKernels& table) { table.mixLine = mixLineTable<VectorMixLines<Blend32, Blend16>>(); }
