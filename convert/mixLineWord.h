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

// One vector step of a line blend: Lanes::type holds Lanes::units words,
// and Lanes::mix<K>(p, q) blends two of them by the rule above. Loads and
// stores assume no alignment; a streamed step writes with Lanes::stream, the
// instruction set's store that does not read the destination first (its
// address must be aligned to the register's size).
template <class Lanes, bool Streamed = false>
struct BlendStep {
    using Type = typename Lanes::type;
    static constexpr int units = static_cast<int>(sizeof(Type) / sizeof(uint32_t));

    template <int K>
    static void blend(const uint32_t* first, const uint32_t* second, uint32_t* out)
    {
        Type p, q;
        std::memcpy(&p, first, sizeof p);
        std::memcpy(&q, second, sizeof q);
        const Type mixed = Lanes::template mix<K>(p, q);
        if constexpr (Streamed)
            Lanes::stream(out, mixed);
        else
            std::memcpy(out, &mixed, sizeof mixed);
    }
};

// A line kernel from vector steps (see vectorSteps) of Wide and Narrow
// lanes. Weight 0 is the plain copy on every path.
template <class Wide, class Narrow, int K>
void vectorMixLine(uint32_t* first, uint32_t* second, uint32_t* out, int words)
{
    int i = 0;
    if constexpr (K != 0)
        i = vectorSteps<BlendStep<Wide>, BlendStep<Narrow>>(
            words, [&](auto step, int at) { decltype(step)::template blend<K>(first + at, second + at, out + at); });
    mixLineWords<K>(first, second, out, i, words);
}

// Words before the first address of `out` aligned for Lanes' streaming
// stores, at most `words`; all of them when `out` is not on a word boundary.
template <class Lanes>
int wordsBeforeAlignment(const void* out, int words)
{
    constexpr std::uintptr_t alignment = sizeof(typename Lanes::type);
    const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(out);
    if (address % sizeof(uint32_t) != 0)
        return words;
    const int lead = static_cast<int>((alignment - address % alignment) % alignment / sizeof(uint32_t));
    return lead < words ? lead : words;
}

// The same line written with streaming stores (see PixelKernels): the
// words up to the first aligned address by the plain rule, whole Wide steps
// streamed, the rest as vectorMixLine makes it. The weight-0 copy streams
// the second line blended with itself, which is that line. With 64-byte
// steps, every other 1440-byte line starts half-way into a cache line; also
// streaming those halves with the 32-byte step, so that no cache line is
// written partly by plain stores, was slower (55 against 46 us a frame).
template <class Wide, class Narrow, int K>
void streamedMixLine(uint32_t* first, uint32_t* second, uint32_t* out, int words)
{
    const int lead = wordsBeforeAlignment<Wide>(out, words);
    mixLineWords<K>(first, second, out, 0, lead);
    const uint32_t* blended = K == 0 ? second : first;
    int i = lead;
    for (; i + BlendStep<Wide>::units <= words; i += BlendStep<Wide>::units)
        BlendStep<Wide, true>::template blend<K>(blended + i, second + i, out + i);
    vectorMixLine<Wide, Narrow, K>(first + i, second + i, out + i, words - i);
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

// The kernels of a path with lanes Wide and Narrow, written plainly or with
// streaming stores.
template <class Wide, class Narrow = Wide>
struct VectorMixLines {
    template <int K>
    static constexpr MixLineKernel* of = &vectorMixLine<Wide, Narrow, K>;
};

template <class Wide, class Narrow = Wide>
struct StreamedMixLines {
    template <int K>
    static constexpr MixLineKernel* of = &streamedMixLine<Wide, Narrow, K>;
};

// A path's blend kernels, both kinds, and the fence of its streaming stores.
template <class Wide, class Narrow = Wide>
void addStreamedKernels(PixelKernels& table, void (*fence)())
{
    table.mixLine = mixLineTable<VectorMixLines<Wide, Narrow>>();
    table.mixLineStreamed = mixLineTable<StreamedMixLines<Wide, Narrow>>();
    table.streamFence = fence;
}

}  // namespace
