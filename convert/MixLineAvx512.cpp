// Line blend, AVX-512 (BW for the byte and 16-bit lanes): 64 bytes per step,
// then one 32-byte AVX2 step, then the plain rule for the last words. The
// 64-byte step is the AVX2 one (convert/mixLineAvx2.h) in four 128-bit lanes
// at once.
#include "convert/mixLineAvx2.h"

namespace {

struct Lanes64 {
    using type = __m512i;

    template <int K>
    static __m512i mix(__m512i p, __m512i q)
    {
        if constexpr (K == 128) {
            return _mm512_sub_epi8(_mm512_avg_epu8(p, q),
                                   _mm512_and_si512(_mm512_xor_si512(p, q), _mm512_set1_epi8(1)));
        } else {
            const __m512i weights = _mm512_set1_epi16(static_cast<short>((K & 0xFF) | ((-K & 0xFF) << 8)));
            const __m512i low = _mm512_srai_epi16(_mm512_maddubs_epi16(_mm512_unpacklo_epi8(p, q), weights), 8);
            const __m512i high = _mm512_srai_epi16(_mm512_maddubs_epi16(_mm512_unpackhi_epi8(p, q), weights), 8);
            return _mm512_add_epi8(_mm512_packs_epi16(low, high), q);
        }
    }

    static void stream(void* out, __m512i v) { _mm512_stream_si512(static_cast<__m512i*>(out), v); }
};

}  // namespace

void addAvx512MixLine(PixelKernels& table)
{
    addStreamedKernels<Lanes64, Lanes32>(table, [] { _mm_sfence(); });
}
