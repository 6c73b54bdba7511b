// The field-rate converter's kernels that have versions by path
// (util/cpuFeatures.h), one table per path: the coarse motion search's row of
// block differences, and for motion-compensated interpolation
// (convert/fieldInterpolate.h) cubic sampling in two passes, the blend of the
// two fields' samples and the packing of a line into YUV 4:2:2 words; for
// taking frames apart (convert/fieldPlanes.h) the unpacking of words into
// planes and the halving of a picture for the coarse search. The
// reference table holds the plain kernels; the vector paths put in theirs,
// and the tests compare each with the plain one on random data.
#pragma once

#include <cstddef>
#include <cstdint>

#include "util/cpuFeatures.h"

// Where the two fields' samples differ by more than this, the blend takes
// the nearer field's alone: the place is covered or uncovered between them.
constexpr int interpolateDisagreement = 40;

// The sampling passes work in whole vectors: they may read up to
// `samplingOverrun` bytes past the last input sample they use and write as
// far past `count`; callers leave that room after their lines.
constexpr int samplingOverrun = 32;

struct FieldRateKernels {
    // sums[i] = the sum of absolute differences of the 8 x 8 blocks at a and
    // at b + i, for i 0 to 15.
    void (*sadAcross)(const uint8_t* a, std::ptrdiff_t strideA, const uint8_t* b, std::ptrdiff_t strideB,
                      unsigned* sums);
    // Vertical pass: column[i] = sum of taps[k] * top[i + k * stride], k 0 to
    // 3, for i in [0, count). The taps (summing to 64, the positive ones to
    // at most 128) keep every column within 16 bits.
    void (*columns)(const uint8_t* top, std::ptrdiff_t stride, const int* taps, int count, int16_t* column);
    // Horizontal pass: out[i] = (sum of taps[k] * column[i + k] + 2048) >> 12,
    // clamped to 0 to 255, for i in [0, count).
    void (*rows)(const int16_t* column, const int* taps, int count, uint8_t* out);
    // out[i] = the blend of p[i] and q[i] with weight / 256 (0 to 256) on q,
    // rounded, or the nearer field's sample (q from weight 128) where the
    // two differ by more than interpolateDisagreement. out does not overlap
    // p or q.
    void (*blend)(const uint8_t* p, const uint8_t* q, int count, int weight, uint8_t* out);
    // `words` words of bytes cb[i], luma[2i], cr[i], luma[2i + 1].
    void (*pack)(const uint8_t* luma, const uint8_t* cb, const uint8_t* cr, int words, uint8_t* out);
    // The other way: `words` words of bytes cb, luma, cr, luma to the planes.
    void (*unpack)(const uint8_t* in, int words, uint8_t* luma, uint8_t* cb, uint8_t* cr);
    // out[i] = (a[2i] + a[2i + 1] + b[2i] + b[2i + 1] + 2) >> 2, for i in
    // [0, count): the rounded mean of a 2 x 2 square, rows a and b.
    void (*halve)(const uint8_t* a, const uint8_t* b, int count, uint8_t* out);
};

// Two 16-bit taps in one 32-bit lane, the first in the low half: what the
// vector kernels multiply pairs of neighbouring columns by.
inline int32_t tapPair(const int* taps)
{
    return static_cast<int32_t>((static_cast<uint32_t>(taps[1]) << 16) | (static_cast<uint32_t>(taps[0]) & 0xFFFFu));
}

// The table of the path in use, and of any available path (for the tests).
const FieldRateKernels& fieldRateKernels();
const FieldRateKernels& fieldRateKernels(KernelPath path);

// Only the files of the machine built for are compiled.
void addSse2FieldRate(FieldRateKernels& table);
void addAvx2FieldRate(FieldRateKernels& table);
