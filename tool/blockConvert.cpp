#include "tool/blockConvert.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "convert/Convert.h"
#include "convert/pixelKernels.h"
#include "image/quart.h"

namespace {

// The NTSC and reduced lines of a frame are made band by band in these
// buffers, which stay in the first-level cache (48 KB here) with the input
// lines being read, and are then streamed into the block (pixelKernels.h).
// The reducers read the NTSC lines from here, so nothing written to the
// block is read back.
struct Band {
    static constexpr std::size_t ntscWords = 6144;     // 24 KB: 17 lines of 720 pixels
    static constexpr std::size_t reducedBytes = 9216;  // what they reduce to, by 2 or 4
    alignas(64) uint32_t ntsc[ntscWords];
    alignas(64) unsigned char reduced[reducedBytes];
};

// One frame's geometry and destinations.
struct Frame {
    uint32_t* pal;
    unsigned char* ntsc;
    unsigned char* reduced;
    int width, palLines, ntscLines, scale;
};

std::size_t lineBytes(int width) { return 4 * static_cast<std::size_t>(width >> 1); }

// Reduced rows per band: a band's NTSC lines, with the `lead` lines before
// the first block of the reduction, and its reduced rows fit the buffers.
// 0 when not even one row fits, and for an input without a line per field:
// nothing of it is converted, so the buffer would hold nothing to copy.
int bandRows(const Frame& frame, int lead)
{
    if (frame.palLines < 2)
        return 0;
    const std::size_t line = lineBytes(frame.width);
    const std::size_t reducedRow = 3 * static_cast<std::size_t>(frame.width / frame.scale);
    const std::size_t lines = line == 0 ? Band::ntscWords : Band::ntscWords * 4 / line;
    const std::size_t byLines = lines > static_cast<std::size_t>(lead) ? (lines - lead) / frame.scale : 0;
    const std::size_t byRows = reducedRow == 0 ? byLines : Band::reducedBytes / reducedRow;
    return static_cast<int>(std::min({byLines, byRows, std::size_t{64}}));
}

// The NTSC frame and its reduction, band by band: the lines of a band are
// converted, then reduced at once. The result is the same as converting the
// whole frame and then reducing it, since every NTSC line depends on the PAL
// frame alone and every reduced line on its own block of NTSC lines. A frame
// too wide for the band buffer is made in place, four rows a band.
void convertAndReduce(Convert& converter, quart& reducer, Band& band, const Frame& frame)
{
    const PixelKernels& kernels = pixelKernels();
    const quart::ReducedLines lines = quart::yuvReducedLines(frame.scale, frame.ntscLines);
    const std::size_t line = lineBytes(frame.width);
    const std::size_t reducedRow = 3 * static_cast<std::size_t>(frame.width / frame.scale);
    const int rowsFit = bandRows(frame, lines.first);
    const bool buffered = rowsFit > 0;
    const int rowsPerBand = buffered ? rowsFit : 4;

    int converted = 0;
    for (int k = 0; k < lines.rows; k += rowsPerBand) {
        const int n = lines.rows - k < rowsPerBand ? lines.rows - k : rowsPerBand;
        const int firstLine = lines.first + k * frame.scale;
        const int endLine = firstLine + n * frame.scale;
        // The band's reduced lines, bottom-up like the frame's: rows k to
        // k + n - 1 are frame lines rows - k - n to rows - 1 - k.
        unsigned char* ntscAt = frame.ntsc + static_cast<std::size_t>(converted) * line;
        unsigned char* reducedAt = frame.reduced + static_cast<std::size_t>(lines.rows - k - n) * reducedRow;
        auto* made = buffered ? band.ntsc : reinterpret_cast<uint32_t*>(ntscAt);
        unsigned char* reducedTo = buffered ? band.reduced : reducedAt;
        converter.ConvertLines(converted, endLine, made);
        auto* bandSource = reinterpret_cast<uint32_t*>(reinterpret_cast<unsigned char*>(made) +
                                                       static_cast<std::size_t>(firstLine - converted) * line);
        auto* bandDestination = reinterpret_cast<uint32_t*>(reducedTo);
        if (frame.scale == 4)
            reducer.zoomYUVtoQuartRGB(bandSource, frame.width, n * frame.scale, bandDestination);
        else
            reducer.zoomYUVtoHalfRGB(bandSource, frame.width, n * frame.scale, bandDestination);
        if (buffered) {
            kernels.streamCopy(band.ntsc, ntscAt, static_cast<std::size_t>(endLine - converted) * line);
            kernels.streamCopy(band.reduced, reducedAt, static_cast<std::size_t>(n) * reducedRow);
        }
        converted = endLine;
    }
    converter.StreamLines(converted, frame.ntscLines);
}

}  // namespace

void convert(void* palBlock, void* ntscBlock, void* reducedBlock, int frames, int width, int palLines, int ntscLines,
             int scale, int palSlot, int ntscSlot, int reducedSlot)
{
    float fieldMode = 1.0f;
    Convert converter(width, ntscLines, 1, &fieldMode);
    quart reducer{};
    Band band;

    auto* pal = static_cast<unsigned char*>(palBlock);
    auto* ntsc = static_cast<unsigned char*>(ntscBlock);
    auto* reduced = static_cast<unsigned char*>(reducedBlock);

    // With a slot that is not a multiple of 4 bytes these word pointers are
    // not word-aligned; the converter and the reducers take them as
    // addresses only and never assume alignment (util/wordAccess.h).
    for (int i = 0; i < frames; ++i) {
        const Frame frame{reinterpret_cast<uint32_t*>(pal + static_cast<std::ptrdiff_t>(i) * palSlot),
                          ntsc + static_cast<std::ptrdiff_t>(i) * ntscSlot,
                          reduced ? reduced + static_cast<std::ptrdiff_t>(i) * reducedSlot : nullptr,
                          width,
                          palLines,
                          ntscLines,
                          scale};
        converter.source = frame.pal;
        converter.inputLines = palLines;
        converter.destination = reinterpret_cast<uint32_t*>(frame.ntsc);
        // Other scales have no reduction; the run never asks for one.
        if (reduced && (scale == 4 || scale == 2))
            convertAndReduce(converter, reducer, band, frame);
        else
            converter.StreamLines(0, ntscLines);
    }
    // The block is handed to the thread that writes it.
    pixelKernels().streamFence();
}
