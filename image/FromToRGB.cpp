// Converters between 24-bit RGB, RGBX, YUV 4:2:2 and the per-field SIR32 and
// SIRYUV buffer pairs.
//
// Pixels are read and built byte by byte in memory order, so every result is
// the same on any machine; whole words are only moved, never taken apart by
// value. Any buffer may start at any byte (a frame in a block slot need not
// be word-aligned): words go in and out through loadWord and storeWord.
//
// Widths that do not fill the converters' groups: each line converts whole
// groups only (4 pixels for the SIR32 converters and the 24-bit enlargements,
// 8 words for the copies into a SIRYUV pair), as the store's other programs
// expect. The rest of each output line is left exactly as the caller's buffer
// had it; nothing is written past the last whole group.
//
// Null buffers: a null field in the conversions into a field pair, and a null
// target in RGBXtoYUVFrame / RGBXtoYUVFields, skips the lines that would go
// there. Every other buffer is required; a null one prints a message naming
// the operation and the call does nothing.
#include "image/FromToRGB.h"

#include <cstddef>
#include <cstdio>
#include <cstring>

#include "util/wordAccess.h"

namespace {

unsigned char* bytesOf(uint32_t* p) { return reinterpret_cast<unsigned char*>(p); }

// The word whose bytes in memory are b0 b1 b2 b3.
inline uint32_t wordOf(unsigned b0, unsigned b1, unsigned b2, unsigned b3)
{
    const unsigned char b[4] = {static_cast<unsigned char>(b0), static_cast<unsigned char>(b1),
                                static_cast<unsigned char>(b2), static_cast<unsigned char>(b3)};
    uint32_t w;
    std::memcpy(&w, b, 4);
    return w;
}

// First byte in memory of a word: the X (alpha) byte of an RGBX pixel.
inline unsigned firstByte(uint32_t w)
{
    unsigned char b[4];
    std::memcpy(b, &w, 4);
    return b[0];
}

// Grey key of an alpha value: bytes 0, A, A, A.
inline uint32_t greyKey(unsigned a) { return wordOf(0, a, a, a); }

// A 24-bit pixel (blue, green, red) as an SIR32 word: 255, blue, green, red.
inline uint32_t opaqueWord(const unsigned char* p) { return wordOf(255, p[0], p[1], p[2]); }

// BT.601 studio range, 16 fractional bits, rounded to nearest. The results
// stay within 16..235 (Y) and 16..240 (Cb, Cr) for every input.
struct YCbCr {
    unsigned y, cb, cr;
};

inline unsigned lumaOf(const unsigned char* bgr)
{
    const int b = bgr[0], g = bgr[1], r = bgr[2];
    return static_cast<unsigned>(16832 * r + 33024 * g + 6400 * b + 1081344) >> 16;
}

inline YCbCr yuvOf(const unsigned char* bgr)
{
    const int b = bgr[0], g = bgr[1], r = bgr[2];
    return {lumaOf(bgr),
            static_cast<unsigned>(28800 * b - 9728 * r - 19072 * g + 8421376) >> 16,
            static_cast<unsigned>(28800 * r - 24064 * g - 4672 * b + 8421376) >> 16};
}

// One source pixel repeated: Cb, Y, Cr, Y.
inline uint32_t yuvWordOf(const YCbCr& p) { return wordOf(p.cb, p.y, p.cr, p.y); }

bool present(const void* buffer, const char* operation)
{
    if (buffer)
        return true;
    printf("Missing image buffer [FromToRGB::%s]\n", operation);
    return false;
}

// Sizes other than 4 are taken as the stride with no byte skipped. Below 3 a
// pixel's three bytes would run into the next pixel and, at the end, past the
// image, so those sizes are refused.
bool usablePixelSize(int size, const char* operation)
{
    if (size >= 3)
        return true;
    printf("Source pixel size %d not supported [FromToRGB::%s]\n", size, operation);
    return false;
}

// Line of its field that frame line y takes in an SIR32 pair: the fields are
// stored bottom-up. An odd-height frame has one even line more than
// height / 2; that last line would land before the start of its field, so it
// is left out (the result is negative for it).
inline ptrdiff_t sir32Line(int y, int height) { return (height / 2 - 1) - y / 2; }

// Field buffer for frame line y: odd lines in the first, even in the second.
inline uint32_t* fieldFor(int y, uint32_t* odd, uint32_t* even) { return (y & 1) ? odd : even; }

// Reduced image -> one SIR32 field: source line y (top-down) goes to the
// `lines` output lines starting at lines * (h - 1 - y), each of `pixels`
// pixels repeated `repeat` times side by side; the field is repeat * w wide.
template <class PixelAt>
void enlargeIntoField(uint32_t* field, int w, int h, int pixels, int repeat, int lines, PixelAt pixelAt)
{
    if (w <= 0 || pixels <= 0)
        return;
    const ptrdiff_t stride = static_cast<ptrdiff_t>(repeat) * w;
    for (int y = 0; y < h; ++y) {
        uint32_t* out = field + static_cast<ptrdiff_t>(lines) * (h - 1 - y) * stride;
        for (int i = 0; i < pixels; ++i) {
            const uint32_t word = pixelAt(y, i);
            for (int r = 0; r < repeat; ++r)
                storeWord(out + repeat * i + r, word);
        }
        for (int l = 1; l < lines; ++l)
            std::memcpy(out + l * stride, out, static_cast<size_t>(pixels) * repeat * 4);
    }
}

// Bottom-up RGB image of w x h -> top-down YUV frame or field enlarged by
// wordsPerPixel * 2 across and `lines` down. Source line y fills the `lines`
// output lines starting at lines * (h - 1 - y), so the picture stays upright.
void enlargeToYUV(uint32_t* src, int w, int h, int pixelSize, uint32_t* out, int wordsPerPixel, int lines)
{
    if (w <= 0 || h <= 0)
        return;
    const ptrdiff_t inStride = static_cast<ptrdiff_t>(w) * pixelSize;
    const int skip = pixelSize == 4 ? 1 : 0;
    const ptrdiff_t outStride = static_cast<ptrdiff_t>(w) * wordsPerPixel;
    for (int y = 0; y < h; ++y) {
        const unsigned char* in = bytesOf(src) + y * inStride + skip;
        uint32_t* o = out + static_cast<ptrdiff_t>(lines) * (h - 1 - y) * outStride;
        for (int i = 0; i < w; ++i) {
            const uint32_t word = yuvWordOf(yuvOf(in + static_cast<ptrdiff_t>(i) * pixelSize));
            for (int r = 0; r < wordsPerPixel; ++r)
                storeWord(o + wordsPerPixel * i + r, word);
        }
        for (int l = 1; l < lines; ++l)
            std::memcpy(o + l * outStride, o, static_cast<size_t>(outStride) * 4);
    }
}

} // namespace

// ---------------------------------------------------------------------------
// Frame <-> SIR32 field pair
// ---------------------------------------------------------------------------

void FromToRGB::RGBtoSIR32(uint32_t* odd, uint32_t* even, uint32_t* frame, int w, int h)
{
    if (!present(frame, "RGBtoSIR32"))
        return;
    oddField = odd;
    evenField = even;
    rgbImage = frame;
    width = w;
    height = h;
    RGBtoSIR32part(this, 0, 1);
}

void FromToRGB::RGBtoSIR32part(void* object, int partIndex, int partCount)
{
    static_cast<FromToRGB*>(object)->RGBtoSIR32part(partIndex, partCount);
}

void FromToRGB::RGBtoSIR32part(int, int)
{
    const int pixels = 4 * (width / 4);
    for (int y = 0; y < height; ++y) {
        uint32_t* field = fieldFor(y, oddField, evenField);
        const ptrdiff_t line = sir32Line(y, height);
        if (!field || line < 0)
            continue;
        const unsigned char* in = bytesOf(rgbImage) + 3 * static_cast<ptrdiff_t>(width) * y;
        uint32_t* out = field + line * width;
        for (int i = 0; i < pixels; ++i)
            storeWord(out + i, opaqueWord(in + 3 * i));
    }
}

void FromToRGB::SIR32toRGB(uint32_t* odd, uint32_t* even, uint32_t* frame, int w, int h)
{
    if (!present(odd, "SIR32toRGB") || !present(even, "SIR32toRGB") || !present(frame, "SIR32toRGB"))
        return;
    oddField = odd;
    evenField = even;
    rgbImage = frame;
    width = w;
    height = h;
    SIR32toRGBpart(this, 0, 1);
}

void FromToRGB::SIR32toRGBpart(void* object, int partIndex, int partCount)
{
    static_cast<FromToRGB*>(object)->SIR32toRGBpart(partIndex, partCount);
}

void FromToRGB::SIR32toRGBpart(int, int)
{
    const int pixels = 4 * (width / 4);
    for (int y = 0; y < height; ++y) {
        const ptrdiff_t line = sir32Line(y, height);
        if (line < 0)
            continue;
        uint32_t* in = fieldFor(y, oddField, evenField) + line * width;
        unsigned char* out = bytesOf(rgbImage) + 3 * static_cast<ptrdiff_t>(width) * y;
        for (int i = 0; i < pixels; ++i)
            std::memcpy(out + 3 * i, bytesOf(in + i) + 1, 3);
    }
}

void FromToRGB::RGBXtoSIR32(uint32_t* odd, uint32_t* even, uint32_t* frame, int w, int h)
{
    if (!present(frame, "RGBXtoSIR32"))
        return;
    oddField = odd;
    evenField = even;
    rgbImage = frame;
    width = w;
    height = h;
    RGBXtoSIR32part(this, 0, 1);
}

void FromToRGB::RGBXtoSIR32part(void* object, int partIndex, int partCount)
{
    static_cast<FromToRGB*>(object)->RGBXtoSIR32part(partIndex, partCount);
}

void FromToRGB::RGBXtoSIR32part(int, int)
{
    const int pixels = 4 * (width / 4);
    if (pixels <= 0)
        return;
    for (int y = 0; y < height; ++y) {
        uint32_t* field = fieldFor(y, oddField, evenField);
        const ptrdiff_t line = sir32Line(y, height);
        if (!field || line < 0)
            continue;
        std::memcpy(field + line * width, rgbImage + static_cast<ptrdiff_t>(y) * width,
                    static_cast<size_t>(pixels) * 4);
    }
}

void FromToRGB::SIR32toRGBX(uint32_t* odd, uint32_t* even, uint32_t* frame, int w, int h)
{
    if (!present(odd, "SIR32toRGBX") || !present(even, "SIR32toRGBX") || !present(frame, "SIR32toRGBX"))
        return;
    oddField = odd;
    evenField = even;
    rgbImage = frame;
    width = w;
    height = h;
    SIR32toRGBXpart(this, 0, 1);
}

void FromToRGB::SIR32toRGBXpart(void* object, int partIndex, int partCount)
{
    static_cast<FromToRGB*>(object)->SIR32toRGBXpart(partIndex, partCount);
}

void FromToRGB::SIR32toRGBXpart(int, int)
{
    const int pixels = 4 * (width / 4);
    if (pixels <= 0)
        return;
    for (int y = 0; y < height; ++y) {
        const ptrdiff_t line = sir32Line(y, height);
        if (line < 0)
            continue;
        std::memcpy(rgbImage + static_cast<ptrdiff_t>(y) * width,
                    fieldFor(y, oddField, evenField) + line * width, static_cast<size_t>(pixels) * 4);
    }
}

void FromToRGB::RGBXtoSIR32Alpha(uint32_t* odd, uint32_t* even, uint32_t* frame, int w, int h)
{
    if (!present(frame, "RGBXtoSIR32Alpha"))
        return;
    oddField = odd;
    evenField = even;
    rgbImage = frame;
    width = w;
    height = h;
    RGBXtoSIR32AlphaPart(this, 0, 1);
}

void FromToRGB::RGBXtoSIR32AlphaPart(void* object, int partIndex, int partCount)
{
    static_cast<FromToRGB*>(object)->RGBXtoSIR32AlphaPart(partIndex, partCount);
}

void FromToRGB::RGBXtoSIR32AlphaPart(int, int)
{
    const int pixels = 4 * (width / 4);
    for (int y = 0; y < height; ++y) {
        uint32_t* field = fieldFor(y, oddField, evenField);
        const ptrdiff_t line = sir32Line(y, height);
        if (!field || line < 0)
            continue;
        const uint32_t* in = rgbImage + static_cast<ptrdiff_t>(y) * width;
        uint32_t* out = field + line * width;
        for (int i = 0; i < pixels; ++i)
            storeWord(out + i, greyKey(firstByte(loadWord(in + i))));
    }
}

// ---------------------------------------------------------------------------
// Frame <-> SIRYUV field pair (top-down fields of width / 2 words a line)
// ---------------------------------------------------------------------------

void FromToRGB::YUVtoSIRYUV(uint32_t* odd, uint32_t* even, uint32_t* frame, int w, int h)
{
    if (!present(frame, "YUVtoSIRYUV"))
        return;
    oddField = odd;
    evenField = even;
    yuvFrame = frame;
    width = w;
    height = h;
    YUVtoSIRYUVpart(this, 0, 1);
}

void FromToRGB::YUVtoSIRYUVpart(void* object, int partIndex, int partCount)
{
    static_cast<FromToRGB*>(object)->YUVtoSIRYUVpart(partIndex, partCount);
}

void FromToRGB::YUVtoSIRYUVpart(int, int)
{
    const ptrdiff_t stride = width / 2;
    const int words = 8 * ((width / 2) / 8);
    if (words <= 0)
        return;
    for (int y = 0; y < height; ++y) {
        uint32_t* field = fieldFor(y, oddField, evenField);
        if (!field)
            continue;
        std::memcpy(field + (y / 2) * stride, yuvFrame + y * stride, static_cast<size_t>(words) * 4);
    }
}

void FromToRGB::SIRYUVtoYUV(uint32_t* odd, uint32_t* even, uint32_t* frame, int w, int h)
{
    if (!present(odd, "SIRYUVtoYUV") || !present(even, "SIRYUVtoYUV") || !present(frame, "SIRYUVtoYUV"))
        return;
    oddField = odd;
    evenField = even;
    yuvFrame = frame;
    width = w;
    height = h;
    SIRYUVtoYUVpart(this, 0, 1);
}

void FromToRGB::SIRYUVtoYUVpart(void* object, int partIndex, int partCount)
{
    static_cast<FromToRGB*>(object)->SIRYUVtoYUVpart(partIndex, partCount);
}

void FromToRGB::SIRYUVtoYUVpart(int, int)
{
    const ptrdiff_t stride = width / 2;
    if (stride <= 0)
        return;
    for (int y = 0; y < height; ++y)
        std::memcpy(yuvFrame + y * stride, fieldFor(y, oddField, evenField) + (y / 2) * stride,
                    static_cast<size_t>(stride) * 4);
}

// ---------------------------------------------------------------------------
// Half and quarter RGB images -> one enlarged SIR32 field
// ---------------------------------------------------------------------------

namespace {

// Stores the job of a reduced-image enlargement: the field goes in the odd
// field, the image in the RGB image. False when a buffer is missing.
bool storeEnlargement(FromToRGB& job, uint32_t* field, uint32_t* image, int w, int h, const char* operation)
{
    if (!present(field, operation) || !present(image, operation))
        return false;
    job.oddField = field;
    job.rgbImage = image;
    job.width = w;
    job.height = h;
    return true;
}

} // namespace

void FromToRGB::RGBXHalftoSIR32(uint32_t* field, uint32_t* image, int w, int h)
{
    if (storeEnlargement(*this, field, image, w, h, "RGBXHalftoSIR32"))
        RGBXHalftoSIR32part(this, 0, 1);
}

void FromToRGB::RGBXHalftoSIR32part(void* object, int partIndex, int partCount)
{
    static_cast<FromToRGB*>(object)->RGBXHalftoSIR32part(partIndex, partCount);
}

void FromToRGB::RGBHalftoSIR32(uint32_t* field, uint32_t* image, int w, int h)
{
    if (storeEnlargement(*this, field, image, w, h, "RGBHalftoSIR32"))
        RGBHalftoSIR32part(this, 0, 1);
}

void FromToRGB::RGBHalftoSIR32part(void* object, int partIndex, int partCount)
{
    static_cast<FromToRGB*>(object)->RGBHalftoSIR32part(partIndex, partCount);
}

void FromToRGB::RGBXHalftoSIR32Alpha(uint32_t* field, uint32_t* image, int w, int h)
{
    if (storeEnlargement(*this, field, image, w, h, "RGBXHalftoSIR32Alpha"))
        RGBXHalftoSIR32AlphaPart(this, 0, 1);
}

void FromToRGB::RGBXHalftoSIR32AlphaPart(void* object, int partIndex, int partCount)
{
    static_cast<FromToRGB*>(object)->RGBXHalftoSIR32AlphaPart(partIndex, partCount);
}

void FromToRGB::RGBXQuartToSIR32(uint32_t* field, uint32_t* image, int w, int h)
{
    if (storeEnlargement(*this, field, image, w, h, "RGBXQuartToSIR32"))
        RGBXQuartToSIR32part(this, 0, 1);
}

void FromToRGB::RGBXQuartToSIR32part(void* object, int partIndex, int partCount)
{
    static_cast<FromToRGB*>(object)->RGBXQuartToSIR32part(partIndex, partCount);
}

void FromToRGB::RGBQuartToSIR32(uint32_t* field, uint32_t* image, int w, int h)
{
    if (storeEnlargement(*this, field, image, w, h, "RGBQuartToSIR32"))
        RGBQuartToSIR32part(this, 0, 1);
}

void FromToRGB::RGBQuartToSIR32part(void* object, int partIndex, int partCount)
{
    static_cast<FromToRGB*>(object)->RGBQuartToSIR32part(partIndex, partCount);
}

void FromToRGB::RGBXQuartToSIR32Alpha(uint32_t* field, uint32_t* image, int w, int h)
{
    if (storeEnlargement(*this, field, image, w, h, "RGBXQuartToSIR32Alpha"))
        RGBXQuartToSIR32AlphaPart(this, 0, 1);
}

void FromToRGB::RGBXQuartToSIR32AlphaPart(void* object, int partIndex, int partCount)
{
    static_cast<FromToRGB*>(object)->RGBXQuartToSIR32AlphaPart(partIndex, partCount);
}

void FromToRGB::RGBXHalftoSIR32part(int, int)
{
    const uint32_t* in = rgbImage;
    const ptrdiff_t w = width;
    enlargeIntoField(oddField, width, height, width, 2, 1,
                     [=](int y, int i) { return loadWord(in + y * w + i); });
}

void FromToRGB::RGBHalftoSIR32part(int, int)
{
    const unsigned char* in = bytesOf(rgbImage);
    const ptrdiff_t w = width;
    enlargeIntoField(oddField, width, height, 4 * (width / 4), 2, 1,
                     [=](int y, int i) { return opaqueWord(in + 3 * (y * w + i)); });
}

void FromToRGB::RGBXHalftoSIR32AlphaPart(int, int)
{
    const uint32_t* in = rgbImage;
    const ptrdiff_t w = width;
    enlargeIntoField(oddField, width, height, width, 2, 1,
                     [=](int y, int i) { return greyKey(firstByte(loadWord(in + y * w + i))); });
}

void FromToRGB::RGBXQuartToSIR32part(int, int)
{
    const uint32_t* in = rgbImage;
    const ptrdiff_t w = width;
    enlargeIntoField(oddField, width, height, width, 4, 2,
                     [=](int y, int i) { return loadWord(in + y * w + i); });
}

void FromToRGB::RGBQuartToSIR32part(int, int)
{
    const unsigned char* in = bytesOf(rgbImage);
    const ptrdiff_t w = width;
    enlargeIntoField(oddField, width, height, 4 * (width / 4), 4, 2,
                     [=](int y, int i) { return opaqueWord(in + 3 * (y * w + i)); });
}

void FromToRGB::RGBXQuartToSIR32AlphaPart(int, int)
{
    const uint32_t* in = rgbImage;
    const ptrdiff_t w = width;
    enlargeIntoField(oddField, width, height, width, 4, 2,
                     [=](int y, int i) { return greyKey(firstByte(loadWord(in + y * w + i))); });
}

// ---------------------------------------------------------------------------
// RGB -> YUV 4:2:2
// ---------------------------------------------------------------------------

void FromToRGB::RGBXtoYUVFrame(uint32_t* src, int w, int h, int pixelSize, uint32_t* frame)
{
    if (!present(src, "RGBXtoYUVFrame") || !usablePixelSize(pixelSize, "RGBXtoYUVFrame"))
        return;
    width = w;
    height = h;
    sourcePixelSize = pixelSize;
    rgbSource = src;
    yuvFrame = frame;
    firstYUVField = nullptr;
    secondYUVField = nullptr;
    RGBXtoYUVFieldsPart(this, 0, 1);
}

void FromToRGB::RGBXtoYUVFields(uint32_t* src, int w, int h, int pixelSize, uint32_t* oddLines, uint32_t* evenLines)
{
    if (!present(src, "RGBXtoYUVFields") || !usablePixelSize(pixelSize, "RGBXtoYUVFields"))
        return;
    width = w;
    height = h;
    sourcePixelSize = pixelSize;
    rgbSource = src;
    firstYUVField = oddLines;
    secondYUVField = evenLines;
    yuvFrame = nullptr;
    RGBXtoYUVFieldsPart(this, 0, 1);
}

void FromToRGB::RGBXtoYUVFieldsPart(void* object, int partIndex, int partCount)
{
    static_cast<FromToRGB*>(object)->RGBXtoYUVFieldsPart(partIndex, partCount);
}

// Chroma comes from the left pixel of each pair alone; the right pixel gives
// only its luma. With fields, each holds height / 2 lines: an odd-height
// frame's last (even) line has no place in them and is left out.
void FromToRGB::RGBXtoYUVFieldsPart(int, int)
{
    const ptrdiff_t words = width / 2;
    if (words <= 0)
        return;
    const ptrdiff_t inStride = static_cast<ptrdiff_t>(width) * sourcePixelSize;
    const ptrdiff_t step = sourcePixelSize;
    const int skip = sourcePixelSize == 4 ? 1 : 0;
    for (int y = 0; y < height; ++y) {
        uint32_t* out;
        if (yuvFrame) {
            out = yuvFrame + y * words;
        } else {
            uint32_t* field = fieldFor(y, firstYUVField, secondYUVField);
            if (!field || y / 2 >= height / 2)
                continue;
            out = field + (y / 2) * words;
        }
        const unsigned char* in = bytesOf(rgbSource) + (height - 1 - y) * inStride + skip;
        for (ptrdiff_t i = 0; i < words; ++i) {
            const unsigned char* left = in + 2 * i * step;
            const YCbCr l = yuvOf(left);
            storeWord(out + i, wordOf(l.cb, l.y, l.cr, lumaOf(left + step)));
        }
    }
}

void FromToRGB::RGBXHalfToYUVFrame(uint32_t* src, int w, int h, int pixelSize, uint32_t* frame)
{
    if (!present(src, "RGBXHalfToYUVFrame") || !present(frame, "RGBXHalfToYUVFrame") ||
        !usablePixelSize(pixelSize, "RGBXHalfToYUVFrame"))
        return;
    width = 2 * w;
    height = 2 * h;
    halfWidth = w;
    halfHeight = h;
    sourcePixelSize = pixelSize;
    rgbSource = src;
    yuvFrame = frame;
    RGBXHalfToYUVFramePart(this, 0, 1);
}

void FromToRGB::RGBXHalfToYUVFramePart(void* object, int partIndex, int partCount)
{
    static_cast<FromToRGB*>(object)->RGBXHalfToYUVFramePart(partIndex, partCount);
}

void FromToRGB::RGBXHalfToYUVFramePart(int, int)
{
    enlargeToYUV(rgbSource, halfWidth, halfHeight, sourcePixelSize, yuvFrame, 1, 2);
}

void FromToRGB::RGBXQuartToYUVFrame(uint32_t* src, int w, int h, int pixelSize, uint32_t* frame)
{
    if (!present(src, "RGBXQuartToYUVFrame") || !present(frame, "RGBXQuartToYUVFrame") ||
        !usablePixelSize(pixelSize, "RGBXQuartToYUVFrame"))
        return;
    width = 4 * w;
    height = 4 * h;
    quartWidth = w;
    quartHeight = h;
    sourcePixelSize = pixelSize;
    rgbSource = src;
    yuvFrame = frame;
    RGBXQuartToYUVFramePart(this, 0, 1);
}

void FromToRGB::RGBXQuartToYUVFramePart(void* object, int partIndex, int partCount)
{
    static_cast<FromToRGB*>(object)->RGBXQuartToYUVFramePart(partIndex, partCount);
}

void FromToRGB::RGBXQuartToYUVFramePart(int, int)
{
    enlargeToYUV(rgbSource, quartWidth, quartHeight, sourcePixelSize, yuvFrame, 2, 4);
}

void FromToRGB::RGBXQuartToYUVField(uint32_t* src, int w, int h, int pixelSize, uint32_t* field)
{
    if (!present(src, "RGBXQuartToYUVField") || !present(field, "RGBXQuartToYUVField") ||
        !usablePixelSize(pixelSize, "RGBXQuartToYUVField"))
        return;
    width = 4 * w;
    height = 2 * h;
    quartWidth = w;
    quartHeight = h;
    sourcePixelSize = pixelSize;
    rgbSource = src;
    firstYUVField = field;
    RGBXQuartToYUVFieldPart(this, 0, 1);
}

void FromToRGB::RGBXQuartToYUVFieldPart(void* object, int partIndex, int partCount)
{
    static_cast<FromToRGB*>(object)->RGBXQuartToYUVFieldPart(partIndex, partCount);
}

void FromToRGB::RGBXQuartToYUVFieldPart(int, int)
{
    enlargeToYUV(rgbSource, quartWidth, quartHeight, sourcePixelSize, firstYUVField, 2, 2);
}

// ---------------------------------------------------------------------------
// YUV frames
// ---------------------------------------------------------------------------

void FromToRGB::YUVtoYUV(uint32_t* src, int w, int h, uint32_t* dst)
{
    if (!present(src, "YUVtoYUV") || !present(dst, "YUVtoYUV"))
        return;
    width = w;
    height = h;
    firstYUVField = src;
    yuvFrame = dst;
    YUVtoYUVPart(this, 0, 1);
}

void FromToRGB::YUVtoYUVPart(void* object, int partIndex, int partCount)
{
    static_cast<FromToRGB*>(object)->YUVtoYUVPart(partIndex, partCount);
}

void FromToRGB::YUVtoYUVPart(int, int)
{
    const ptrdiff_t words = width / 2;
    if (words <= 0)
        return;
    for (int y = 0; y < height; ++y)
        std::memmove(yuvFrame + y * words, firstYUVField + y * words, static_cast<size_t>(words) * 4);
}

// Each line is a run of whole groups of eight words (360 words for a 720-pixel
// line), and the next line starts right after the last word written: for
// widths whose word count is not a multiple of 8 the lines are short and the
// end of the frame keeps what the caller's buffer held.
void FromToRGB::FillBlackYUV(uint32_t* frame, int w, int h)
{
    if (!present(frame, "FillBlackYUV"))
        return;
    const uint32_t black = wordOf(0x80, 0x10, 0x80, 0x10);
    const ptrdiff_t words = 8 * ((w / 2) / 8);
    if (words <= 0 || h <= 0)
        return;
    uint32_t* out = frame;
    for (int y = 0; y < h; ++y)
        for (ptrdiff_t i = 0; i < words; ++i)
            storeWord(out++, black);
}
