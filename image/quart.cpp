#include "image/quart.h"

#include <cstddef>
#include <cstdint>
#include <new>

#include "convert/pixelKernels.h"

// Image buffers come from the array allocator. A size the allocator cannot
// serve (or a negative one) gives a null block instead of an exception, so
// that callers see a null image rather than a crash.
void* newMem(int size)
{
    if (size < 0)
        return nullptr;
    return new (std::nothrow) char[static_cast<std::size_t>(size)];
}

void delMem(void* block) { delete[] static_cast<char*>(block); }

namespace {

// Bytes of a reduced RGB image of the given size; sizes that do not fit an
// int (or negative ones) give -1, which newMem refuses.
int reducedBytes(int outWidth, int outHeight)
{
    const int64_t w = outWidth > 0 ? outWidth : 0;
    const int64_t h = outHeight > 0 ? outHeight : 0;
    const int64_t bytes = 3 * w * h;
    return bytes > INT32_MAX ? -1 : static_cast<int>(bytes);
}

// The rows of a reduction by `scale`, each made by `row` from `scale` lines
// of the frame (width >> 1 words a line) and stored bottom-up.
void reduceYUV(ReducerRowKernel* row, int scale, const uint32_t* frame, int width, int height, unsigned char* out)
{
    const quart::ReducedLines lines = quart::yuvReducedLines(scale, height);
    const int outWidth = width / scale;
    if (lines.rows <= 0 || outWidth <= 0)
        return;
    const std::ptrdiff_t stride = width >> 1;
    const std::ptrdiff_t outStride = 3 * static_cast<std::ptrdiff_t>(outWidth);
    const uint32_t* first = frame + lines.first * stride;
    for (int k = 0; k < lines.rows; ++k)
        row(first + scale * k * stride, stride, out + (lines.rows - 1 - k) * outStride, outWidth);
}

}  // namespace

quart::ReducedLines quart::yuvReducedLines(int scale, int height)
{
    const int remainder = height % 4;
    const int first = scale == 4 && (remainder == 2 || remainder == 3) ? 2 : 0;
    return {first, height / scale};
}

// The entry of both reductions: stores the job, with a new image when the
// caller gives none. An allocation that fails returns null and touches no
// memory.
uint32_t* quart::beginYUVReduction(uint32_t* source_, int width_, int height_, uint32_t* destination_, int scale)
{
    width = width_;
    height = height_;
    source = source_;
    if (!destination_)
        destination_ = static_cast<uint32_t*>(newMem(reducedBytes(width_ / scale, height_ / scale)));
    destination = destination_;
    return destination_;
}

uint32_t* quart::zoomYUVtoQuartRGB(uint32_t* source_, int width_, int height_, uint32_t* destination_)
{
    if (beginYUVReduction(source_, width_, height_, destination_, 4))
        zoomYUVtoQuartRGBPart(this, 0, 1);
    return destination;
}

uint32_t* quart::zoomYUVtoHalfRGB(uint32_t* source_, int width_, int height_, uint32_t* destination_)
{
    if (beginYUVReduction(source_, width_, height_, destination_, 2))
        zoomYUVtoHalfRGBPart(this, 0, 1);
    return destination;
}

// The static workers: each runs the member worker of its name on the job.
void quart::zoomYUVtoQuartRGBPart(void* job, int part, int parts)
{
    static_cast<quart*>(job)->zoomYUVtoQuartRGBPart(part, parts);
}
void quart::zoomYUVtoHalfRGBPart(void* job, int part, int parts)
{
    static_cast<quart*>(job)->zoomYUVtoHalfRGBPart(part, parts);
}

// Whole image, whatever the part.
void quart::zoomYUVtoQuartRGBPart(int, int)
{
    reduceYUV(pixelKernels().quartRow, 4, source, width, height, reinterpret_cast<unsigned char*>(destination));
}

void quart::zoomYUVtoHalfRGBPart(int, int)
{
    reduceYUV(pixelKernels().halfRow, 2, source, width, height, reinterpret_cast<unsigned char*>(destination));
}
