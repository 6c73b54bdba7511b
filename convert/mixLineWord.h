// The blend of one word, shared by the plain kernels and the tails of the
// vector kernels. Internal to the line converter.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "convert/MixLine.h"
#include "util/wordAccess.h"

// Two lanes at a time: each pair holds its lanes 16 bits apart, so the
// product of a lane difference (-255..255) and K (at most 128) stays inside
// its field; a negative difference borrows from the field above and the
// masks cut the borrow away again. All arithmetic is modulo 2^32. Which
// bytes sit under which mask depends on the byte order, but since all four
// lanes follow the same rule the bytes in memory come out the same.
template <int K>
constexpr uint32_t mixWord(uint32_t p, uint32_t q)
{
    constexpr uint32_t k = K;
    const uint32_t high = (((((p & 0xFF00FF00u) >> 8) - ((q & 0xFF00FF00u) >> 8)) * k) + (q & 0xFF00FF00u)) & 0xFF00FF00u;
    const uint32_t low = (((((p & 0x00FF00FFu) - (q & 0x00FF00FFu)) * k) >> 8) + (q & 0x00FF00FFu)) & 0x00FF00FFu;
    return high + low;
}

// Words [from, words) of a line by the plain rule. The weight-0 kernel copies
// the second line and does not touch the first. Lines may start at any byte.
template <int K>
inline void mixLineWords(const uint32_t* first, const uint32_t* second, uint32_t* out, int from, int words)
{
    if (from >= words)
        return;
    if constexpr (K == 0) {
        (void)first;
        std::memmove(out + from, second + from, static_cast<std::size_t>(words - from) * sizeof(uint32_t));
    } else {
        for (int i = from; i < words; ++i)
            storeWord(out + i, mixWord<K>(loadWord(first + i), loadWord(second + i)));
    }
}

// Vector versions, present on x86 builds only.
MixLineKernel* const* sse2MixLineKernels();
MixLineKernel* const* avx2MixLineKernels();
