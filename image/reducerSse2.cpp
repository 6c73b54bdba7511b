// YUV-to-RGB reducer lines, SSE2: four output pixels per step, the rest by
// the plain code, so nothing past a line is read or written.
#include <emmintrin.h>

#include "image/reducerRows.h"
#include "image/reducerVector.h"

namespace {

inline __m128i load(const uint32_t* words)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(words));
}

// Words 2j and 2j + 1 of one line for four pixels, averaged.
inline __m128i pairAverage(const uint32_t* line)
{
    const __m128 a = _mm_castsi128_ps(load(line)), b = _mm_castsi128_ps(load(line + 4));
    const __m128i even = _mm_castps_si128(_mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0)));
    const __m128i odd = _mm_castps_si128(_mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1)));
    return laneAverage128(even, odd);
}

void quartRowSse2(const uint32_t* l0, const uint32_t* l1, const uint32_t* l2, const uint32_t* l3,
                  unsigned char* out, int pixels)
{
    int j = 0;
    for (; j + 4 <= pixels; j += 4) {
        const __m128i upper = laneAverage128(pairAverage(l0 + 2 * j), pairAverage(l1 + 2 * j));
        const __m128i lower = laneAverage128(pairAverage(l2 + 2 * j), pairAverage(l3 + 2 * j));
        storeBgr128(yuvToBgr128(laneAverage128(upper, lower)), out + 3 * j);
    }
    quartRowPlain(l0, l1, l2, l3, out, j, pixels);
}

void halfRowSse2(const uint32_t* upper, const uint32_t* lower, unsigned char* out, int pixels)
{
    int j = 0;
    for (; j + 4 <= pixels; j += 4)
        storeBgr128(yuvToBgr128(laneAverage128(load(upper + j), load(lower + j))), out + 3 * j);
    halfRowPlain(upper, lower, out, j, pixels);
}

} // namespace

ReducerRows sse2ReducerRows()
{
    return {&quartRowSse2, &halfRowSse2};
}
