#include "convert/motionKernels.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

inline unsigned average(unsigned x, unsigned y) { return (x + y + 1) >> 1; }

}  // namespace

unsigned sad8x8Plain(const uint8_t* a, std::ptrdiff_t strideA, const uint8_t* b, std::ptrdiff_t strideB)
{
    unsigned sum = 0;
    for (int y = 0; y < 8; ++y, a += strideA, b += strideB)
        for (int x = 0; x < 8; ++x)
            sum += a[x] > b[x] ? unsigned(a[x] - b[x]) : unsigned(b[x] - a[x]);
    return sum;
}

unsigned sad8x8HalfPlain(const uint8_t* a, std::ptrdiff_t strideA, const uint8_t* b, std::ptrdiff_t strideB, int hx,
                         int hy)
{
    const std::ptrdiff_t down = hy ? strideB : 0;
    const int right = hx ? 1 : 0;
    unsigned sum = 0;
    for (int y = 0; y < 8; ++y, a += strideA, b += strideB)
        for (int x = 0; x < 8; ++x) {
            const unsigned top = average(b[x], b[x + right]);
            const unsigned bottom = average(b[x + down], b[x + down + right]);
            const unsigned s = average(top, bottom);
            sum += a[x] > s ? a[x] - s : s - a[x];
        }
    return sum;
}

#if defined(__SSE2__)

namespace {

inline __m128i load8(const uint8_t* p) { return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)); }

// Two rows of eight bytes in one register.
inline __m128i load8x2(const uint8_t* p, std::ptrdiff_t stride)
{
    return _mm_unpacklo_epi64(load8(p), load8(p + stride));
}

inline unsigned total(__m128i sums)
{
    return static_cast<unsigned>(_mm_cvtsi128_si32(sums) + _mm_cvtsi128_si32(_mm_srli_si128(sums, 8)));
}

}  // namespace

unsigned sad8x8(const uint8_t* a, std::ptrdiff_t strideA, const uint8_t* b, std::ptrdiff_t strideB)
{
    __m128i sums = _mm_setzero_si128();
    for (int y = 0; y < 8; y += 2, a += 2 * strideA, b += 2 * strideB)
        sums = _mm_add_epi64(sums, _mm_sad_epu8(load8x2(a, strideA), load8x2(b, strideB)));
    return total(sums);
}

unsigned sad8x8Half(const uint8_t* a, std::ptrdiff_t strideA, const uint8_t* b, std::ptrdiff_t strideB, int hx, int hy)
{
    const std::ptrdiff_t down = hy ? strideB : 0;
    const int right = hx ? 1 : 0;
    __m128i sums = _mm_setzero_si128();
    for (int y = 0; y < 8; y += 2, a += 2 * strideA, b += 2 * strideB) {
        const __m128i top = _mm_avg_epu8(load8x2(b, strideB), load8x2(b + right, strideB));
        const __m128i bottom = _mm_avg_epu8(load8x2(b + down, strideB), load8x2(b + down + right, strideB));
        sums = _mm_add_epi64(sums, _mm_sad_epu8(load8x2(a, strideA), _mm_avg_epu8(top, bottom)));
    }
    return total(sums);
}

#else

unsigned sad8x8(const uint8_t* a, std::ptrdiff_t strideA, const uint8_t* b, std::ptrdiff_t strideB)
{
    return sad8x8Plain(a, strideA, b, strideB);
}

unsigned sad8x8Half(const uint8_t* a, std::ptrdiff_t strideA, const uint8_t* b, std::ptrdiff_t strideB, int hx, int hy)
{
    return sad8x8HalfPlain(a, strideA, b, strideB, hx, hy);
}

#endif
