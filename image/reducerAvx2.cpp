// YUV-to-RGB reducer rows, AVX2: eight output pixels per step, then four
// with the 128-bit step, then the plain rule for the rest. The 256-bit step
// is the one of image/reducerVector.h, in both halves at once.
#include <immintrin.h>

#include "image/reducerVector.h"

namespace {

struct Regs256 {
    using type = __m256i;
    static constexpr int units = 8;

    static type roundedMean(type a, type b) { return _mm256_avg_epu8(a, b); }
    static type multiplyAdd(type a, type b) { return _mm256_madd_epi16(a, b); }
    // Within each 128-bit half, as the 128-bit pick does.
    template <int Order>
    static type pick(type a, type b)
    {
        return _mm256_castps_si256(_mm256_shuffle_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b), Order));
    }
    // The halves' picks leave a quarter step's pixels in the order
    // 0 1 4 5 2 3 6 7.
    static type inOrder(type mixed) { return _mm256_permute4x64_epi64(mixed, _MM_SHUFFLE(3, 1, 2, 0)); }

    // Clamped by the packs and stored as 24 bytes B, G, R: per half
    // B0..B3 G0..G3 R0..R3 R0..R3, shuffled to B G R x4 in 12 bytes and the
    // halves closed up.
    static void store(type b, type g, type r, unsigned char* out)
    {
        const __m256i bytes = _mm256_packus_epi16(_mm256_packs_epi32(b, g), _mm256_packs_epi32(r, r));
        const __m256i order = _mm256_setr_epi8(0, 4, 8, 1, 5, 9, 2, 6, 10, 3, 7, 11, -1, -1, -1, -1, 0, 4, 8, 1, 5, 9,
                                               2, 6, 10, 3, 7, 11, -1, -1, -1, -1);
        const __m256i packed =
            _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(bytes, order), _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm256_castsi256_si128(packed));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 16), _mm256_extracti128_si256(packed, 1));
    }
};

}  // namespace

void addAvx2Reducers(PixelKernels& table) { addVectorRows<RowStep<Regs256>, RowStep<Regs128>>(table); }
