#include "tool/blockConvert.h"

#include <cstddef>
#include <cstdint>
#include <vector>

#include "convert/Convert.h"
#include "convert/pixelKernels.h"
#include "image/quart.h"

namespace {

// Reduced lines made per band. Where the path has streaming stores, a
// band's NTSC lines (8 or 16 lines, 11.5 or 23 KB for a 720-pixel frame) are
// made in a buffer of their own, each line streamed into the block as soon
// as it is made (Convert::StreamLinesVia), and reduced from the buffer while
// it is still in the first-level cache. On a 2-core AMD Zen 3 with the AVX2
// kernels (variants taking turns in one process, medians of 60 runs of 250
// frames) that made frames with the quarter reduction 158 us against 173 for
// plain stores into the block, whose cache lines are fetched from memory
// before they are written (load 2; 155 against 160 at load 5). Bands of 2
// rows did as well as 1 and 4 there. Streaming the whole band after reducing
// it, rather than each line as it is made, and reducing into a buffer
// streamed into the reduced block (partial cache lines) were slower; so, on an AMD Zen 5 with the
// AVX-512 kernels, was making the band in a buffer and copying it into the
// block in one pass (98 to 110 against 80 to 87 us a frame, load 2.5).
constexpr int bandRows = 2;

// Where a band's NTSC lines are made, on a cache-line boundary: room for
// `lines` lines of a frame `width` pixels wide.
class BandBuffer {
public:
    BandBuffer(int width, int lines)
        : words_(static_cast<std::size_t>(lines) * static_cast<std::size_t>(width > 0 ? width >> 1 : 0) + alignWords)
    {}

    uint32_t* lines()
    {
        const auto address = reinterpret_cast<std::uintptr_t>(words_.data());
        return words_.data() + (alignBytes - address % alignBytes) % alignBytes / sizeof(uint32_t);
    }

private:
    static constexpr std::size_t alignBytes = 64;
    static constexpr std::size_t alignWords = alignBytes / sizeof(uint32_t);
    std::vector<uint32_t> words_;
};

// The NTSC frame and its reduction, band by band: the lines of a band are
// converted, then reduced at once. The result is the same as converting the
// whole frame and then reducing it, since every NTSC line depends on the PAL
// frame alone and every reduced line on its own block of NTSC lines. The
// converter holds the frame's source and destination; with a band buffer
// (null on a path without streaming stores) the band is made there and
// streamed into the frame, else it is written into the frame and reduced
// from it.
void convertAndReduce(Convert& converter, quart& reducer, uint32_t* band, unsigned char* reducedFrame, int width,
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
        uint32_t* bandSource = band;
        if (band) {
            converter.StreamLines(converted, firstLine);
            converter.StreamLinesVia(firstLine, endLine, band);
        } else {
            converter.ConvertLines(converted, endLine);
            bandSource = converter.destination + firstLine * stride;
        }
        converted = endLine;
        // The band's reduced lines, bottom-up like the frame's: rows k to
        // k + n - 1 are frame lines rows - k - n to rows - 1 - k.
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
    // Other scales have no reduction; the run never asks for one. Without
    // streaming stores, making a band apart would only add a copy.
    const bool reduces = reducedBlock && (scale == 4 || scale == 2);
    const PixelKernels& path = pixelKernels();
    const bool viaBand = reduces && path.mixLineStreamed[0] != path.mixLine[0];
    BandBuffer band(width, viaBand ? bandRows * scale : 0);

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
        if (reduces)
            convertAndReduce(converter, reducer, viaBand ? band.lines() : nullptr,
                             reduced + static_cast<std::ptrdiff_t>(i) * reducedSlot, width, ntscLines, scale);
        else
            converter.StreamLines(0, ntscLines);
    }
    // The block is handed to the thread that writes it.
    pixelKernels().streamFence();
}
