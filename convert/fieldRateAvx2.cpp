// Field-rate kernels, AVX2: the row of block differences 16 at a time, the
// blend 32 bytes a step, the vertical sampling pass 16 columns a step in
// whole steps (past the end as the table allows), and the packing 16 words,
// the unpacking 32 words and the halving 32 samples a step with the plain
// rule for the line's last ones. The horizontal pass works on runs too short
// for wider steps to pay: it stays SSE2.
#include <immintrin.h>

#include "convert/fieldRateKernels.h"

namespace {

// Each 128-bit half makes eight differences at once: a row of b (bytes 0 to
// 15 in the low half, 8 to 23 in the high one) against the block's row, its
// first four bytes at offsets i, its last four at i + 4.
void avx2SadAcross(const uint8_t* a, std::ptrdiff_t strideA, const uint8_t* b, std::ptrdiff_t strideB, unsigned* sums)
{
    __m256i total = _mm256_setzero_si256();
    for (int y = 0; y < 8; ++y, a += strideA, b += strideB) {
        const __m256i row =
            _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(b + 8), reinterpret_cast<const __m128i*>(b));
        const __m256i block = _mm256_broadcastq_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(a)));
        total = _mm256_add_epi16(total, _mm256_mpsadbw_epu8(row, block, 0));
        total = _mm256_add_epi16(total, _mm256_mpsadbw_epu8(row, block, 0x2D));
    }
    // At most 64 x 255 each: the 16-bit sums widened.
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(sums), _mm256_cvtepu16_epi32(_mm256_castsi256_si128(total)));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(sums + 8),
                        _mm256_cvtepu16_epi32(_mm256_extracti128_si256(total, 1)));
}

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

// The SSE2 blend's rule 32 bytes a step; the unpacking and packing work
// within 128-bit halves and undo each other.
void avx2Blend(const uint8_t* p, const uint8_t* q, int count, int weight, uint8_t* out)
{
    const __m256i zero = _mm256_setzero_si256(), limit = _mm256_set1_epi8(static_cast<char>(interpolateDisagreement));
    const __m256i wp = _mm256_set1_epi16(static_cast<short>(256 - weight)),
                  wq = _mm256_set1_epi16(static_cast<short>(weight));
    const __m256i round = _mm256_set1_epi16(128);
    const uint8_t* nearer = weight < 128 ? p : q;
    auto load = [](const uint8_t* at) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(at)); };
    auto mix = [&](__m256i x, __m256i y) {
        return _mm256_srli_epi16(
            _mm256_add_epi16(_mm256_add_epi16(_mm256_mullo_epi16(x, wp), _mm256_mullo_epi16(y, wq)), round), 8);
    };
    // The last step is moved back to end at count when there are 32 bytes
    // or more: it makes some of the bytes again, the same.
    if (count < 32) {
        fieldRateKernels(KernelPath::sse2).blend(p, q, count, weight, out);
        return;
    }
    for (int i = 0; i < count; i += 32) {
        if (i + 32 > count)
            i = count - 32;
        const __m256i a = load(p + i), b = load(q + i);
        const __m256i apart = _mm256_or_si256(_mm256_subs_epu8(a, b), _mm256_subs_epu8(b, a));
        const __m256i close = _mm256_cmpeq_epi8(_mm256_subs_epu8(apart, limit), zero);
        const __m256i blend = _mm256_packus_epi16(mix(_mm256_unpacklo_epi8(a, zero), _mm256_unpacklo_epi8(b, zero)),
                                                  mix(_mm256_unpackhi_epi8(a, zero), _mm256_unpackhi_epi8(b, zero)));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), _mm256_blendv_epi8(load(nearer + i), blend, close));
    }
}

inline __m256i load256(const uint8_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
inline void store256(uint8_t* p, __m256i v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }

// The packs and unpacks work within 128-bit halves: quarters 0, 2, 1, 3 put
// back in order.
inline __m256i inOrder(__m256i v) { return _mm256_permute4x64_epi64(v, 0xD8); }

void avx2Pack(const uint8_t* luma, const uint8_t* cb, const uint8_t* cr, int words, uint8_t* out)
{
    int i = 0;
    for (; i + 16 <= words; i += 16) {
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(cb + i));
        const __m128i r = _mm_loadu_si128(reinterpret_cast<const __m128i*>(cr + i));
        // Words 0 to 7 in the low half, 8 to 15 in the high one.
        const __m256i chroma = _mm256_set_m128i(_mm_unpackhi_epi8(b, r), _mm_unpacklo_epi8(b, r));
        const __m256i y = load256(luma + 2 * i);
        const __m256i low = _mm256_unpacklo_epi8(chroma, y), high = _mm256_unpackhi_epi8(chroma, y);
        store256(out + 4 * i, _mm256_permute2x128_si256(low, high, 0x20));
        store256(out + 4 * i + 32, _mm256_permute2x128_si256(low, high, 0x31));
    }
    fieldRateKernels(KernelPath::reference).pack(luma + 2 * i, cb + i, cr + i, words - i, out + 4 * i);
}

// The odd bytes of two vectors of 16-bit lanes, then the even ones, each
// pair packed into one vector of bytes in order.
inline __m256i oddBytes(__m256i a, __m256i b)
{
    return inOrder(_mm256_packus_epi16(_mm256_srli_epi16(a, 8), _mm256_srli_epi16(b, 8)));
}
inline __m256i evenBytes(__m256i a, __m256i b)
{
    const __m256i low = _mm256_set1_epi16(0xFF);
    return inOrder(_mm256_packus_epi16(_mm256_and_si256(a, low), _mm256_and_si256(b, low)));
}

void avx2Unpack(const uint8_t* in, int words, uint8_t* luma, uint8_t* cb, uint8_t* cr)
{
    int i = 0;
    for (; i + 32 <= words; i += 32) {
        const uint8_t* from = in + 4 * i;
        const __m256i a = load256(from), b = load256(from + 32), c = load256(from + 64), d = load256(from + 96);
        store256(luma + 2 * i, oddBytes(a, b));
        store256(luma + 2 * i + 32, oddBytes(c, d));
        // cb, cr, cb, cr ...
        const __m256i first = evenBytes(a, b), second = evenBytes(c, d);
        store256(cb + i, evenBytes(first, second));
        store256(cr + i, oddBytes(first, second));
    }
    fieldRateKernels(KernelPath::reference).unpack(in + 4 * i, words - i, luma + 2 * i, cb + i, cr + i);
}

// The sums of each pair of neighbouring bytes of a and of b, plus 2.
inline __m256i pairSums(__m256i a, __m256i b)
{
    const __m256i low = _mm256_set1_epi16(0xFF);
    const __m256i left = _mm256_add_epi16(_mm256_and_si256(a, low), _mm256_and_si256(b, low));
    const __m256i right = _mm256_add_epi16(_mm256_srli_epi16(a, 8), _mm256_srli_epi16(b, 8));
    return _mm256_add_epi16(_mm256_add_epi16(left, right), _mm256_set1_epi16(2));
}

void avx2Halve(const uint8_t* a, const uint8_t* b, int count, uint8_t* out)
{
    int i = 0;
    for (; i + 32 <= count; i += 32) {
        const __m256i first = pairSums(load256(a + 2 * i), load256(b + 2 * i));
        const __m256i second = pairSums(load256(a + 2 * i + 32), load256(b + 2 * i + 32));
        store256(out + i, inOrder(_mm256_packus_epi16(_mm256_srli_epi16(first, 2), _mm256_srli_epi16(second, 2))));
    }
    fieldRateKernels(KernelPath::reference).halve(a + 2 * i, b + 2 * i, count - i, out + i);
}

}  // namespace

void addAvx2FieldRate(FieldRateKernels& table)
{
    table.blend = &avx2Blend;
    table.sadAcross = &avx2SadAcross;
    table.columns = &avx2Columns;
    table.pack = &avx2Pack;
    table.unpack = &avx2Unpack;
    table.halve = &avx2Halve;
}
