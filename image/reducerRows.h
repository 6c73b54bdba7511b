// One output line of the YUV-to-RGB reducers. The workers in quart.cpp walk
// the lines; these functions make the pixels of one line. Input lines may
// start at any byte (frames lie in block slots of any size). Internal to the
// image code.
#pragma once

#include <cstdint>

#include "image/pixelOps.h"
#include "util/wordAccess.h"

// Pixels [from, pixels) of a quarter-size line from four input lines: the
// words 2j and 2j + 1 of each line averaged (2j earlier), then the lines
// pairwise (upper earlier), then the two pairs.
inline void quartRowPlain(const uint32_t* l0, const uint32_t* l1, const uint32_t* l2, const uint32_t* l3,
                          unsigned char* out, int from, int pixels)
{
    for (int j = from; j < pixels; ++j) {
        const uint32_t h0 = laneAverage(loadWord(l0 + 2 * j), loadWord(l0 + 2 * j + 1));
        const uint32_t h1 = laneAverage(loadWord(l1 + 2 * j), loadWord(l1 + 2 * j + 1));
        const uint32_t h2 = laneAverage(loadWord(l2 + 2 * j), loadWord(l2 + 2 * j + 1));
        const uint32_t h3 = laneAverage(loadWord(l3 + 2 * j), loadWord(l3 + 2 * j + 1));
        yuvWordToBgr(laneAverage(laneAverage(h0, h1), laneAverage(h2, h3)), out + 3 * j);
    }
}

// Pixels [from, pixels) of a half-size line: word j of the upper line
// averaged with word j of the lower one.
inline void halfRowPlain(const uint32_t* upper, const uint32_t* lower, unsigned char* out, int from, int pixels)
{
    for (int j = from; j < pixels; ++j)
        yuvWordToBgr(laneAverage(loadWord(upper + j), loadWord(lower + j)), out + 3 * j);
}

using QuartRowKernel = void(const uint32_t* l0, const uint32_t* l1, const uint32_t* l2, const uint32_t* l3,
                            unsigned char* out, int pixels);
using HalfRowKernel = void(const uint32_t* upper, const uint32_t* lower, unsigned char* out, int pixels);

struct ReducerRows {
    QuartRowKernel* quart;
    HalfRowKernel* half;
};

// Row functions of the reference path and of the path selected now.
ReducerRows referenceReducerRows();
ReducerRows activeReducerRows();

// Vector versions, present on x86 builds only.
ReducerRows sse2ReducerRows();
ReducerRows avx2ReducerRows();
