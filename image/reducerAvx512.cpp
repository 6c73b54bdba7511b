// YUV-to-RGB reducer rows, AVX-512 (BW for the byte and 16-bit lanes):
// sixteen output pixels per step, then four at a time with the 128-bit
// step, then the plain rule for the rest. The 512-bit step is the one of
// image/reducerVector.h, in four 128-bit lanes at once.
#include <immintrin.h>

#include "image/reducerVector.h"

namespace {

struct Regs512 {
    using type = __m512i;
    static constexpr int units = 16;

    static type roundedMean(type a, type b) { return _mm512_avg_epu8(a, b); }
    static type multiplyAdd(type a, type b) { return _mm512_madd_epi16(a, b); }
    // Within each 128-bit lane, as the 128-bit pick does.
    template <int Order>
    static type pick(type a, type b)
    {
        return _mm512_castps_si512(_mm512_shuffle_ps(_mm512_castsi512_ps(a), _mm512_castsi512_ps(b), Order));
    }
    // The lanes' picks leave a quarter step's pixels in pairs in the order
    // 0 4 1 5 2 6 3 7 (pixels 2i and 2i + 1 make pair i).
    static type inOrder(type mixed)
    {
        return _mm512_maskz_permutexvar_epi64(0xFF, _mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7), mixed);
    }

    // Clamped by the packs and stored as 48 bytes B, G, R: per lane
    // B0..B3 G0..G3 R0..R3 R0..R3, shuffled to B G R x4 in 12 bytes and the
    // lanes closed up.
    static void store(type b, type g, type r, unsigned char* out)
    {
        const __m512i bytes = _mm512_packus_epi16(_mm512_packs_epi32(b, g), _mm512_packs_epi32(r, r));
        const __m512i order = _mm512_setr4_epi32(0x01080400, 0x06020905, 0x0B07030A, -1);
        const __m512i packed = _mm512_maskz_permutexvar_epi32(
            0xFFFF, _mm512_setr_epi32(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 3, 7, 11, 15),
            _mm512_shuffle_epi8(bytes, order));
        _mm512_mask_storeu_epi32(out, 0x0FFF, packed);
    }
};

}  // namespace

void addAvx512Reducers(PixelKernels& table) { addVectorRows<RowStep<Regs512>, RowStep<Regs128>>(table); }
