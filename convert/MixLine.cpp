#include "convert/MixLine.h"

#include <utility>

#include "convert/mixLineWord.h"
#include "util/cpuFeatures.h"

namespace {

template <int K>
void mixLineReference(uint32_t* first, uint32_t* second, uint32_t* out, int words)
{
    mixLineWords<K>(first, second, out, 0, words);
}

template <std::size_t... K>
constexpr std::array<MixLineKernel*, mixLineWeights> referenceTable(std::index_sequence<K...>)
{
    return {{&mixLineReference<static_cast<int>(K)>...}};
}

template <std::size_t... K>
constexpr std::array<MixLineKernel*, mixLineWeights> namedTable(std::index_sequence<K...>)
{
    return {{&MixLine<static_cast<int>(K)>...}};
}

constexpr std::array<MixLineKernel*, mixLineWeights> referenceKernels =
    referenceTable(std::make_index_sequence<mixLineWeights>());

} // namespace

const std::array<MixLineKernel*, mixLineWeights> MixLineTable = namedTable(std::make_index_sequence<mixLineWeights>());

MixLineKernel* const* referenceMixLineKernels()
{
    return referenceKernels.data();
}

MixLineKernel* const* activeMixLineKernels()
{
    switch (kernelPath()) {
#if defined(__x86_64__) || defined(__i386__)
    case KernelPath::avx2:
        return avx2MixLineKernels();
    case KernelPath::sse2:
        return sse2MixLineKernels();
#endif
    default:
        break;
    }
    return referenceKernels.data();
}
