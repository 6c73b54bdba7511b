#include "convert/MixLine.h"

#include "convert/mixLineWord.h"

namespace {

struct NamedMixLines {
    template <int K>
    static constexpr MixLineKernel* of = &MixLine<K>;
};

}  // namespace

const std::array<MixLineKernel*, mixLineWeights> MixLineTable = mixLineTable<NamedMixLines>();

MixLineKernel* activeMixLine(int k) { return pixelKernels().mixLine[static_cast<std::size_t>(k)]; }
