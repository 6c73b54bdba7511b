// Field-rate kernels, SSE2: the row of block differences one block at a
// time, the sampling passes 16 columns or 8 samples a
// step (in whole steps, past the end as the table allows), the blend 16 bytes,
// the packing 8 words, the unpacking 16 words and the halving 16 samples a
// step, each with the plain rule for the line's last ones.
#include <emmintrin.h>

#include "convert/fieldRateKernels.h"
#include "convert/motionKernels.h"

namespace {

void sse2SadAcross(const uint8_t* a, std::ptrdiff_t strideA, const uint8_t* b, std::ptrdiff_t strideB, unsigned* sums)
{
    for (int i = 0; i < 16; ++i)
        sums[i] = sad8x8(a, strideA, b + i, strideB);
}

inline __m128i load(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
inline void store(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }

void sse2Columns(const uint8_t* top, std::ptrdiff_t stride, const int* taps, int count, int16_t* column)
{
    const __m128i zero = _mm_setzero_si128();
    __m128i t[4];
    for (int k = 0; k < 4; ++k)
        t[k] = _mm_set1_epi16(static_cast<short>(taps[k]));
    // Wrapping 16-bit sums: the products may pass 16 bits on the way, the
    // column does not.
    for (int i = 0; i < count; i += 16) {
        __m128i low = zero, high = zero;
        for (int k = 0; k < 4; ++k) {
            const __m128i bytes = load(top + i + k * stride);
            low = _mm_add_epi16(low, _mm_mullo_epi16(_mm_unpacklo_epi8(bytes, zero), t[k]));
            high = _mm_add_epi16(high, _mm_mullo_epi16(_mm_unpackhi_epi8(bytes, zero), t[k]));
        }
        store(column + i, low);
        store(column + i + 8, high);
    }
}

void sse2Rows(const int16_t* column, const int* taps, int count, uint8_t* out)
{
    const __m128i t01 = _mm_set1_epi32(tapPair(taps)), t23 = _mm_set1_epi32(tapPair(taps + 2)),
                  round = _mm_set1_epi32(2048);
    for (int i = 0; i < count; i += 8) {
        const __m128i a = load(column + i), b = load(column + i + 1);
        const __m128i c = load(column + i + 2), d = load(column + i + 3);
        const __m128i low =
            _mm_add_epi32(_mm_madd_epi16(_mm_unpacklo_epi16(a, b), t01), _mm_madd_epi16(_mm_unpacklo_epi16(c, d), t23));
        const __m128i high =
            _mm_add_epi32(_mm_madd_epi16(_mm_unpackhi_epi16(a, b), t01), _mm_madd_epi16(_mm_unpackhi_epi16(c, d), t23));
        const __m128i words = _mm_packs_epi32(_mm_srai_epi32(_mm_add_epi32(low, round), 12),
                                              _mm_srai_epi32(_mm_add_epi32(high, round), 12));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out + i), _mm_packus_epi16(words, words));
    }
}

// Products of bytes and weights up to 256 stay below 65536: unsigned 16-bit
// lanes hold them and their rounded sum.
void sse2Blend(const uint8_t* p, const uint8_t* q, int count, int weight, uint8_t* out)
{
    const __m128i zero = _mm_setzero_si128(), limit = _mm_set1_epi8(static_cast<char>(interpolateDisagreement));
    const __m128i wp = _mm_set1_epi16(static_cast<short>(256 - weight)),
                  wq = _mm_set1_epi16(static_cast<short>(weight));
    const __m128i round = _mm_set1_epi16(128);
    const uint8_t* nearer = weight < 128 ? p : q;
    int i = 0;
    for (; i + 16 <= count; i += 16) {
        const __m128i a = load(p + i), b = load(q + i);
        const __m128i close =
            _mm_cmpeq_epi8(_mm_subs_epu8(_mm_or_si128(_mm_subs_epu8(a, b), _mm_subs_epu8(b, a)), limit), zero);
        auto mix = [&](__m128i x, __m128i y) {
            return _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(_mm_mullo_epi16(x, wp), _mm_mullo_epi16(y, wq)), round),
                                  8);
        };
        const __m128i blend = _mm_packus_epi16(mix(_mm_unpacklo_epi8(a, zero), _mm_unpacklo_epi8(b, zero)),
                                               mix(_mm_unpackhi_epi8(a, zero), _mm_unpackhi_epi8(b, zero)));
        store(out + i, _mm_or_si128(_mm_and_si128(close, blend), _mm_andnot_si128(close, load(nearer + i))));
    }
    fieldRateKernels(KernelPath::reference).blend(p + i, q + i, count - i, weight, out + i);
}

void sse2Pack(const uint8_t* luma, const uint8_t* cb, const uint8_t* cr, int words, uint8_t* out)
{
    int i = 0;
    for (; i + 8 <= words; i += 8) {
        const __m128i chroma = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(cb + i)),
                                                 _mm_loadl_epi64(reinterpret_cast<const __m128i*>(cr + i)));
        const __m128i y = load(luma + 2 * i);
        store(out + 4 * i, _mm_unpacklo_epi8(chroma, y));
        store(out + 4 * i + 16, _mm_unpackhi_epi8(chroma, y));
    }
    fieldRateKernels(KernelPath::reference).pack(luma + 2 * i, cb + i, cr + i, words - i, out + 4 * i);
}

// The odd bytes of two vectors of 16-bit lanes, then the even ones, each
// pair of vectors packed into one vector of bytes in order.
inline __m128i oddBytes(__m128i a, __m128i b) { return _mm_packus_epi16(_mm_srli_epi16(a, 8), _mm_srli_epi16(b, 8)); }
inline __m128i evenBytes(__m128i a, __m128i b)
{
    const __m128i low = _mm_set1_epi16(0xFF);
    return _mm_packus_epi16(_mm_and_si128(a, low), _mm_and_si128(b, low));
}

void sse2Unpack(const uint8_t* in, int words, uint8_t* luma, uint8_t* cb, uint8_t* cr)
{
    int i = 0;
    for (; i + 16 <= words; i += 16) {
        const uint8_t* from = in + 4 * i;
        const __m128i a = load(from), b = load(from + 16), c = load(from + 32), d = load(from + 48);
        store(luma + 2 * i, oddBytes(a, b));
        store(luma + 2 * i + 16, oddBytes(c, d));
        // cb, cr, cb, cr ...
        const __m128i first = evenBytes(a, b), second = evenBytes(c, d);
        store(cb + i, evenBytes(first, second));
        store(cr + i, oddBytes(first, second));
    }
    fieldRateKernels(KernelPath::reference).unpack(in + 4 * i, words - i, luma + 2 * i, cb + i, cr + i);
}

// The sums of each pair of neighbouring bytes of a and of b, plus 2.
inline __m128i pairSums(__m128i a, __m128i b)
{
    const __m128i low = _mm_set1_epi16(0xFF);
    const __m128i left = _mm_add_epi16(_mm_and_si128(a, low), _mm_and_si128(b, low));
    const __m128i right = _mm_add_epi16(_mm_srli_epi16(a, 8), _mm_srli_epi16(b, 8));
    return _mm_add_epi16(_mm_add_epi16(left, right), _mm_set1_epi16(2));
}

void sse2Halve(const uint8_t* a, const uint8_t* b, int count, uint8_t* out)
{
    int i = 0;
    for (; i + 16 <= count; i += 16) {
        const __m128i first = pairSums(load(a + 2 * i), load(b + 2 * i));
        const __m128i second = pairSums(load(a + 2 * i + 16), load(b + 2 * i + 16));
        store(out + i, _mm_packus_epi16(_mm_srli_epi16(first, 2), _mm_srli_epi16(second, 2)));
    }
    fieldRateKernels(KernelPath::reference).halve(a + 2 * i, b + 2 * i, count - i, out + i);
}

}  // namespace

void addSse2FieldRate(FieldRateKernels& table)
{
    table.sadAcross = &sse2SadAcross;
    table.columns = &sse2Columns;
    table.rows = &sse2Rows;
    table.blend = &sse2Blend;
    table.pack = &sse2Pack;
    table.unpack = &sse2Unpack;
    table.halve = &sse2Halve;
}
