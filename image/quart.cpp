#include "image/quart.h"

#include <cstddef>
#include <cstdint>
#include <new>

#include "image/reducerRows.h"
#include "util/cpuFeatures.h"

// Image buffers come from the array allocator. A size the allocator cannot
// serve (or a negative one) gives a null block instead of an exception, so
// that callers see a null image rather than a crash.
void* newMem(int size)
{
    if (size < 0)
        return nullptr;
    return new (std::nothrow) char[static_cast<std::size_t>(size)];
}

void delMem(void* block)
{
    delete[] static_cast<char*>(block);
}

namespace {

void quartRowReference(const uint32_t* l0, const uint32_t* l1, const uint32_t* l2, const uint32_t* l3,
                       unsigned char* out, int pixels)
{
    quartRowPlain(l0, l1, l2, l3, out, 0, pixels);
}

void halfRowReference(const uint32_t* upper, const uint32_t* lower, unsigned char* out, int pixels)
{
    halfRowPlain(upper, lower, out, 0, pixels);
}

// Bytes of a reduced RGB image of the given size; sizes that do not fit an
// int (or negative ones) give -1, which newMem refuses.
int reducedBytes(int outWidth, int outHeight)
{
    const int64_t w = outWidth > 0 ? outWidth : 0;
    const int64_t h = outHeight > 0 ? outHeight : 0;
    const int64_t bytes = 3 * w * h;
    return bytes > INT32_MAX ? -1 : static_cast<int>(bytes);
}

} // namespace

ReducerRows referenceReducerRows()
{
    return {&quartRowReference, &halfRowReference};
}

ReducerRows activeReducerRows()
{
    switch (kernelPath()) {
#if defined(__x86_64__) || defined(__i386__)
    case KernelPath::avx2:
        return avx2ReducerRows();
    case KernelPath::sse2:
        return sse2ReducerRows();
#endif
    default:
        break;
    }
    return referenceReducerRows();
}

uint32_t* quart::zoomYUVtoQuartRGB(uint32_t* source_, int width_, int height_, uint32_t* destination_)
{
    width = width_;
    height = height_;
    // Heights of remainder 2 or 3 lose their first two lines, so that the
    // blocks of four end at the last line. The skip is two lines of the
    // frame's own stride (width >> 1 words): for the even widths of video
    // frames that is 4 x width bytes, and for an odd width it keeps the
    // blocks on line starts and every read inside the frame.
    const int remainder = height_ % 4;
    source = source_;
    if (remainder == 2 || remainder == 3)
        source = source_ + 2 * static_cast<std::ptrdiff_t>(width_ >> 1);
    if (!destination_) {
        // An allocation that fails returns null and touches no memory.
        destination_ = static_cast<uint32_t*>(newMem(reducedBytes(width_ >> 2, height_ >> 2)));
        if (!destination_)
            return nullptr;
    }
    destination = destination_;
    zoomYUVtoQuartRGBPart(this, 0, 1);
    return destination_;
}

uint32_t* quart::zoomYUVtoHalfRGB(uint32_t* source_, int width_, int height_, uint32_t* destination_)
{
    width = width_;
    height = height_;
    source = source_;
    if (!destination_) {
        destination_ = static_cast<uint32_t*>(newMem(reducedBytes(width_ >> 1, height_ >> 1)));
        if (!destination_)
            return nullptr;
    }
    destination = destination_;
    zoomYUVtoHalfRGBPart(this, 0, 1);
    return destination_;
}

void quart::zoomYUVtoQuartRGBPart(void* object, int partIndex, int partCount)
{
    static_cast<quart*>(object)->zoomYUVtoQuartRGBPart(partIndex, partCount);
}

void quart::zoomYUVtoHalfRGBPart(void* object, int partIndex, int partCount)
{
    static_cast<quart*>(object)->zoomYUVtoHalfRGBPart(partIndex, partCount);
}

// Whole image, whatever the part. Output lines are stored bottom-up: input
// block k becomes output line H - 1 - k.
void quart::zoomYUVtoQuartRGBPart(int, int)
{
    const int outWidth = width >> 2;
    const int outHeight = height >> 2;
    if (outHeight <= 0 || outWidth <= 0)
        return;
    const std::ptrdiff_t stride = width >> 1;
    const std::ptrdiff_t outStride = 3 * static_cast<std::ptrdiff_t>(outWidth);
    QuartRowKernel* row = activeReducerRows().quart;
    unsigned char* out = reinterpret_cast<unsigned char*>(destination);
    for (int k = 0; k < outHeight; ++k) {
        const uint32_t* l0 = source + 4 * static_cast<std::ptrdiff_t>(k) * stride;
        row(l0, l0 + stride, l0 + 2 * stride, l0 + 3 * stride, out + (outHeight - 1 - k) * outStride, outWidth);
    }
}

void quart::zoomYUVtoHalfRGBPart(int, int)
{
    const int outWidth = width >> 1;
    const int outHeight = height >> 1;
    if (outHeight <= 0 || outWidth <= 0)
        return;
    const std::ptrdiff_t stride = width >> 1;
    const std::ptrdiff_t outStride = 3 * static_cast<std::ptrdiff_t>(outWidth);
    HalfRowKernel* row = activeReducerRows().half;
    unsigned char* out = reinterpret_cast<unsigned char*>(destination);
    for (int k = 0; k < outHeight; ++k) {
        const uint32_t* upper = source + 2 * static_cast<std::ptrdiff_t>(k) * stride;
        row(upper, upper + stride, out + (outHeight - 1 - k) * outStride, outWidth);
    }
}
