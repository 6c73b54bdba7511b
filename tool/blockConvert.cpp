#include "tool/blockConvert.h"

#include <cstddef>
#include <cstdint>

#include "convert/Convert.h"
#include "image/quart.h"

void convert(void* palBlock, void* ntscBlock, void* reducedBlock, int frames, int width, int palLines,
             int ntscLines, int scale, int palSlot, int ntscSlot, int reducedSlot)
{
    float fieldMode = 1.0f;
    Convert converter(width, ntscLines, 1, &fieldMode);
    quart reducer{};

    auto* pal = static_cast<unsigned char*>(palBlock);
    auto* ntsc = static_cast<unsigned char*>(ntscBlock);
    auto* reduced = static_cast<unsigned char*>(reducedBlock);

    for (int i = 0; i < frames; ++i) {
        auto* palFrame = reinterpret_cast<uint32_t*>(pal + static_cast<std::ptrdiff_t>(i) * palSlot);
        auto* ntscFrame = reinterpret_cast<uint32_t*>(ntsc + static_cast<std::ptrdiff_t>(i) * ntscSlot);
        converter.DoConvert(palFrame, palLines, ntscFrame);
        if (!reduced)
            continue;
        auto* reducedFrame = reinterpret_cast<uint32_t*>(reduced + static_cast<std::ptrdiff_t>(i) * reducedSlot);
        // Other scales have no reduction here; the run never asks for one.
        if (scale == 4)
            reducer.zoomYUVtoQuartRGB(ntscFrame, width, ntscLines, reducedFrame);
        else if (scale == 2)
            reducer.zoomYUVtoHalfRGB(ntscFrame, width, ntscLines, reducedFrame);
    }
}
