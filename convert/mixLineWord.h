// The blend of one word, the plain kernels built on it, the loop that runs
// a vector blend along a line, and the one generator of kernel tables.
// Internal to the line blend.
//
// Everything here has internal linkage: the instruction-set files compile
// it with their own flags, and a copy built for one instruction set must
// never stand in for another's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "convert/pixelKernels.h"
#include "util/wordAccess.h"

namespace {

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
    const uint32_t high =
        (((((p & 0xFF00FF00u) >> 8) - ((q & 0xFF00FF00u) >> 8)) * k) + (q & 0xFF00FF00u)) & 0xFF00FF00u;
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

// A line kernel from vector steps (see vectorSteps); a step blends
// Step::units words of each line. Weight 0 is the plain copy on every path.
template <class Wide, class Narrow, int K>
void vectorMixLine(uint32_t* first, uint32_t* second, uint32_t* out, int words)
{
    int i = 0;
    if constexpr (K != 0)
        i = vectorSteps<Wide, Narrow>(
            words, [&](auto step, int at) { decltype(step)::template blend<K>(first + at, second + at, out + at); });
    mixLineWords<K>(first, second, out, i, words);
}

// The kernels of one path for every weight: Kernels::of<K> at index K.
template <class Kernels, std::size_t... K>
constexpr MixLineKernels mixLineTable(std::index_sequence<K...>)
{
    return {{Kernels::template of<static_cast<int>(K)>...}};
}

template <class Kernels>
constexpr MixLineKernels mixLineTable()
{
    return mixLineTable<Kernels>(std::make_index_sequence<mixLineWeights>());
}

// The kernels of a path with vector steps Wide and Narrow.
template <class Wide, class Narrow = Wide>
struct VectorMixLines {
    template <int K>
    static constexpr MixLineKernel* of = &vectorMixLine<Wide, Narrow, K>;
};

}  // namespace
