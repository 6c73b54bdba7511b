// The pixel kernels, in one table per path: the line blend of every weight
// (convert/MixLine.h), plain and streamed, and the two reducer rows
// (image/quart.h). The path is
// chosen once per process for this CPU (util/cpuFeatures.h); the tests'
// hook that limits it picks another path's table. The reference table holds
// the plain kernels; every vector table starts as a copy of it and each
// instruction set's files put in the kernels they have.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "convert/MixLine.h"
#include "util/cpuFeatures.h"

using MixLineKernels = std::array<MixLineKernel*, mixLineWeights>;

// One output line of a YUV-to-RGB reducer: `pixels` pixels of 24-bit RGB
// (bytes B, G, R) from the lines starting at `lines`, `stride` words apart
// (four of them for the quarter reducer, two for the half one). Lines may
// start at any byte; nothing past a line is read or written.
using ReducerRowKernel = void(const uint32_t* lines, std::ptrdiff_t stride, unsigned char* out, int pixels);

struct PixelKernels {
    MixLineKernels mixLine;          // by weight, 0 to 128
    MixLineKernels mixLineStreamed;  // the same, streamed (below)
    ReducerRowKernel* quartRow;      // words 2j, 2j + 1 of four lines to pixel j
    ReducerRowKernel* halfRow;       // word j of two lines to pixel j
    void (*streamFence)();           // plain: nothing to wait for
};

// The streamed blends write lines bound for the disk: where the path has
// them, with stores that do not fetch the destination's cache lines first
// (the block goes to the disk, not back to the processor). Such stores reach
// other threads and devices only after the path's streamFence.

// The table of the path in use.
const PixelKernels& pixelKernels();

// The plain kernels, the reference for every vector version.
const PixelKernels& referencePixelKernels();

// The vector kernels of one instruction set, put into its table. Only the
// files of the machine built for are compiled.
void addSse2MixLine(PixelKernels& table);
void addSse2Reducers(PixelKernels& table);
void addAvx2MixLine(PixelKernels& table);
void addAvx2Reducers(PixelKernels& table);
void addAvx512MixLine(PixelKernels& table);
void addAvx512Reducers(PixelKernels& table);
void addNeonMixLine(PixelKernels& table);
void addNeonReducers(PixelKernels& table);

// For the kernel files: the vector steps along a line of `count` units
// (words or pixels). Wide::units at a time while a whole step fits, then
// Narrow steps while one still fits; run(Step{}, i) makes the step that
// starts at unit i. Gives the units done, for the plain rule to finish the
// line, so that nothing past it is read or written.
template <class Wide, class Narrow, class Run>
inline int vectorSteps(int count, Run run)
{
    int i = 0;
    for (; i + Wide::units <= count; i += Wide::units)
        run(Wide{}, i);
    if constexpr (Narrow::units < Wide::units)
        for (; i + Narrow::units <= count; i += Narrow::units)
            run(Narrow{}, i);
    return i;
}
