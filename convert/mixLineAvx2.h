// The AVX2 blend steps (with the SSSE3 byte multiply-add AVX2 includes): 32
// bytes and 16 bytes at a time. Internal to the line blend, with internal
// linkage (see convert/mixLineWord.h); the AVX2 kernels and the AVX-512
// kernels' narrow step are built on them.
#pragma once

#include <immintrin.h>

#include "convert/mixLineWord.h"

namespace {

// Weight 128 is the mean rounded down: the rounded-up byte mean less the
// carried-away half. Other weights (1 to 127) fit a signed byte, so one
// maddubs makes K * p - K * q for a pair of bytes; shifted down (rounding
// towards minus infinity) that is the lane's distance from q, at most 126
// either way, so it packs into a signed byte and a wrapping byte add of q
// gives the lane. Every step stays within its 128-bit lane, so the same
// rule serves any register width.
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

struct Lanes32 {
    using type = __m256i;

    template <int K>
    static __m256i mix(__m256i p, __m256i q)
    {
        return blend32<K>(p, q);
    }

    static void stream(void* out, __m256i v) { _mm256_stream_si256(static_cast<__m256i*>(out), v); }
};

// 16 bytes in the low half of the registers.
struct Lanes16 {
    using type = __m128i;

    template <int K>
    static __m128i mix(__m128i p, __m128i q)
    {
        return _mm256_castsi256_si128(blend32<K>(_mm256_zextsi128_si256(p), _mm256_zextsi128_si256(q)));
    }
};

}  // namespace
