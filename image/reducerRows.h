// The YUV-to-RGB reducers' rows (kernels of convert/pixelKernels.h): the
// plain rule, and the loop that runs vector steps along a row. Internal to
// the image code, with internal linkage (see image/pixelOps.h).
#pragma once

#include <cstddef>
#include <cstdint>

#include "convert/pixelKernels.h"
#include "image/pixelOps.h"
#include "util/wordAccess.h"

namespace {

// Pixels [from, pixels) of a quarter-size row from four lines `stride` words
// apart: the words 2j and 2j + 1 of each line averaged (2j earlier), then the
// lines pairwise (upper earlier), then the two pairs.
inline void quartRowPlain(const uint32_t* lines, std::ptrdiff_t stride, unsigned char* out, int from, int pixels)
{
    uint32_t h[4];
    for (int j = from; j < pixels; ++j) {
        for (int l = 0; l < 4; ++l)
            h[l] = laneAverage(loadWord(lines + l * stride + 2 * j), loadWord(lines + l * stride + 2 * j + 1));
        yuvWordToBgr(laneAverage(laneAverage(h[0], h[1]), laneAverage(h[2], h[3])), out + 3 * j);
    }
}

// Pixels [from, pixels) of a half-size row: word j of the upper line averaged
// with word j of the lower one.
inline void halfRowPlain(const uint32_t* lines, std::ptrdiff_t stride, unsigned char* out, int from, int pixels)
{
    for (int j = from; j < pixels; ++j)
        yuvWordToBgr(laneAverage(loadWord(lines + j), loadWord(lines + stride + j)), out + 3 * j);
}

// A row kernel from vector steps (see vectorSteps): a step makes the
// Step::units pixels from pixel j on, Step::row<Quarter>(lines, stride, j,
// out).
template <class Wide, class Narrow, bool Quarter>
void vectorRow(const uint32_t* lines, std::ptrdiff_t stride, unsigned char* out, int pixels)
{
    const int j = vectorSteps<Wide, Narrow>(
        pixels, [&](auto step, int at) { decltype(step)::template row<Quarter>(lines, stride, at, out); });
    if constexpr (Quarter)
        quartRowPlain(lines, stride, out, j, pixels);
    else
        halfRowPlain(lines, stride, out, j, pixels);
}

template <class Wide, class Narrow = Wide>
void addVectorRows(PixelKernels& table)
{
    table.quartRow = &vectorRow<Wide, Narrow, true>;
    table.halfRow = &vectorRow<Wide, Narrow, false>;
}

}  // namespace
