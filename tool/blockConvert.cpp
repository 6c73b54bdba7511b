#include "tool/blockConvert.h"

#include <cstddef>
#include <cstdint>

#include "convert/Convert.h"
#include "convert/pixelKernels.h"
#include "image/quart.h"

namespace {

// Reduced lines made per band: the NTSC lines they come from (8 or 16 lines,
// 11.5 or 23 KB for a 720-pixel frame) are still in the first-level cache.
// Those lines are written with plain stores, since the reducer reads them
// back at once; lines no reducer reads are streamed (Convert::StreamLines).
// Making a band in a buffer of its own and streaming it into the block
// instead cost more (the copy) than the plain stores' reads of the block;
// with the AVX-512 kernels still 98 to 110 against 80 to 87 us a frame (load
// 2.5). Bands of 1 or 2 rows did as well as 4, bands of 8 worse (83 to 89
// against 75 to 80 us).
constexpr int bandRows = 4;

// The NTSC frame and its reduction, band by band: the lines of a band are
// converted, then reduced at once. The result is the same as converting the
// whole frame and then reducing it, since every NTSC line depends on the PAL
// frame alone and every reduced line on its own block of NTSC lines. The
// converter holds the frame's source and destination.
void convertAndReduce(Convert& converter, quart& reducer, uint32_t* ntscFrame, unsigned char* reducedFrame, int width,
                      int ntscLines, int scale)
{
    const quart::ReducedLines lines = quart::yuvReducedLines(scale, ntscLines);
    const std::ptrdiff_t stride = width >> 1;
    const std::ptrdiff_t reducedLine = 3 * static_cast<std::ptrdiff_t>(width / scale);

    int converted = 0;
    for (int k = 0; k < lines.rows; k += bandRows) {
        const int n = lines.rows - k < bandRows ? lines.rows - k : bandRows;
        const int firstLine = lines.first + k * scale;
        const int endLine = firstLine + n * scale;
        converter.ConvertLines(converted, endLine);
        converted = endLine;
        // The band's reduced lines, bottom-up like the frame's: rows k to
        // k + n - 1 are frame lines rows - k - n to rows - 1 - k.
        uint32_t* bandSource = ntscFrame + firstLine * stride;
        auto* bandDestination = reinterpret_cast<uint32_t*>(reducedFrame + (lines.rows - k - n) * reducedLine);
        if (scale == 4)
            reducer.zoomYUVtoQuartRGB(bandSource, width, n * scale, bandDestination);
        else
            reducer.zoomYUVtoHalfRGB(bandSource, width, n * scale, bandDestination);
    }
    converter.StreamLines(converted, ntscLines);
}

}  // namespace

void convert(void* palBlock, void* ntscBlock, void* reducedBlock, int frames, int width, int palLines, int ntscLines,
             int scale, int palSlot, int ntscSlot, int reducedSlot)
{
    float fieldMode = 1.0f;
    Convert converter(width, ntscLines, 1, &fieldMode);
    quart reducer{};

    auto* pal = static_cast<unsigned char*>(palBlock);
    auto* ntsc = static_cast<unsigned char*>(ntscBlock);
    auto* reduced = static_cast<unsigned char*>(reducedBlock);

    // With a slot that is not a multiple of 4 bytes these word pointers are
    // not word-aligned; the converter and the reducers take them as
    // addresses only and never assume alignment (util/wordAccess.h).
    for (int i = 0; i < frames; ++i) {
        auto* palFrame = reinterpret_cast<uint32_t*>(pal + static_cast<std::ptrdiff_t>(i) * palSlot);
        auto* ntscFrame = reinterpret_cast<uint32_t*>(ntsc + static_cast<std::ptrdiff_t>(i) * ntscSlot);
        converter.source = palFrame;
        converter.inputLines = palLines;
        converter.destination = ntscFrame;
        // Other scales have no reduction; the run never asks for one.
        if (reduced && (scale == 4 || scale == 2))
            convertAndReduce(converter, reducer, ntscFrame, reduced + static_cast<std::ptrdiff_t>(i) * reducedSlot,
                             width, ntscLines, scale);
        else
            converter.StreamLines(0, ntscLines);
    }
    // The block is handed to the thread that writes it.
    pixelKernels().streamFence();
}
