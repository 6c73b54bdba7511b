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

#include "image/pixelOps.h"
#include "util/wordAccess.h"

namespace {

unsigned char* bytesOf(uint32_t* p) { return reinterpret_cast<unsigned char*>(p); }

// First byte in memory of a word: the X (alpha) byte of an RGBX pixel.
inline unsigned alphaOf(uint32_t w) { return laneByte(w, 0); }

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
    return {lumaOf(bgr), static_cast<unsigned>(28800 * b - 9728 * r - 19072 * g + 8421376) >> 16,
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

// Stores the job of a frame <-> field pair conversion; the frame goes in
// `frameField`. Into the pair only the frame is required (a null field skips
// its lines); out of the pair all three buffers are. False when one is
// missing.
bool storePair(FromToRGB& job, uint32_t* odd, uint32_t* even, uint32_t* frame, int w, int h,
               uint32_t* FromToRGB::*frameField, bool outOfPair, const char* operation)
{
    if ((outOfPair && (!present(odd, operation) || !present(even, operation))) || !present(frame, operation))
        return false;
    job.oddField = odd;
    job.evenField = even;
    job.*frameField = frame;
    job.width = w;
    job.height = h;
    return true;
}

// Stores the RGB source of a conversion to YUV and the size of the YUV
// picture. With needsTarget, `target` is a YUV buffer that the operation
// requires. False when a required buffer is missing or the pixel size is
// refused.
bool storeRGBSource(FromToRGB& job, uint32_t* src, int w, int h, int pixelSize, const char* operation,
                    bool needsTarget = false, const uint32_t* target = nullptr)
{
    if (!present(src, operation) || (needsTarget && !present(target, operation)) ||
        !usablePixelSize(pixelSize, operation))
        return false;
    job.rgbSource = src;
    job.sourcePixelSize = pixelSize;
    job.width = w;
    job.height = h;
    return true;
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
            std::memcpy(out + l * stride, out, static_cast<size_t>(pixels) * static_cast<size_t>(repeat) * 4);
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

}  // namespace

// The static workers: each runs the member worker of its name on the job.
void FromToRGB::RGBtoSIR32part(void* job, int part, int parts)
{
    static_cast<FromToRGB*>(job)->RGBtoSIR32part(part, parts);
}
void FromToRGB::SIR32toRGBpart(void* job, int part, int parts)
{
    static_cast<FromToRGB*>(job)->SIR32toRGBpart(part, parts);
}
void FromToRGB::RGBXtoSIR32part(void* job, int part, int parts)
{
    static_cast<FromToRGB*>(job)->RGBXtoSIR32part(part, parts);
}
void FromToRGB::SIR32toRGBXpart(void* job, int part, int parts)
{
    static_cast<FromToRGB*>(job)->SIR32toRGBXpart(part, parts);
}
void FromToRGB::RGBXtoSIR32AlphaPart(void* job, int part, int parts)
{
    static_cast<FromToRGB*>(job)->RGBXtoSIR32AlphaPart(part, parts);
}
void FromToRGB::YUVtoSIRYUVpart(void* job, int part, int parts)
{
    static_cast<FromToRGB*>(job)->YUVtoSIRYUVpart(part, parts);
}
void FromToRGB::SIRYUVtoYUVpart(void* job, int part, int parts)
{
    static_cast<FromToRGB*>(job)->SIRYUVtoYUVpart(part, parts);
}
void FromToRGB::RGBXHalftoSIR32part(void* job, int part, int parts)
{
    static_cast<FromToRGB*>(job)->RGBXHalftoSIR32part(part, parts);
}
void FromToRGB::RGBHalftoSIR32part(void* job, int part, int parts)
{
    static_cast<FromToRGB*>(job)->RGBHalftoSIR32part(part, parts);
}
void FromToRGB::RGBXHalftoSIR32AlphaPart(void* job, int part, int parts)
{
    static_cast<FromToRGB*>(job)->RGBXHalftoSIR32AlphaPart(part, parts);
}
void FromToRGB::RGBXQuartToSIR32part(void* job, int part, int parts)
{
    static_cast<FromToRGB*>(job)->RGBXQuartToSIR32part(part, parts);
}
void FromToRGB::RGBQuartToSIR32part(void* job, int part, int parts)
{
    static_cast<FromToRGB*>(job)->RGBQuartToSIR32part(part, parts);
}
void FromToRGB::RGBXQuartToSIR32AlphaPart(void* job, int part, int parts)
{
    static_cast<FromToRGB*>(job)->RGBXQuartToSIR32AlphaPart(part, parts);
}
void FromToRGB::RGBXtoYUVFieldsPart(void* job, int part, int parts)
{
    static_cast<FromToRGB*>(job)->RGBXtoYUVFieldsPart(part, parts);
}
void FromToRGB::RGBXHalfToYUVFramePart(void* job, int part, int parts)
{
    static_cast<FromToRGB*>(job)->RGBXHalfToYUVFramePart(part, parts);
}
void FromToRGB::RGBXQuartToYUVFramePart(void* job, int part, int parts)
{
    static_cast<FromToRGB*>(job)->RGBXQuartToYUVFramePart(part, parts);
}
void FromToRGB::RGBXQuartToYUVFieldPart(void* job, int part, int parts)
{
    static_cast<FromToRGB*>(job)->RGBXQuartToYUVFieldPart(part, parts);
}
void FromToRGB::YUVtoYUVPart(void* job, int part, int parts)
{
    static_cast<FromToRGB*>(job)->YUVtoYUVPart(part, parts);
}

// ---------------------------------------------------------------------------
// Frame <-> SIR32 field pair
// ---------------------------------------------------------------------------

void FromToRGB::RGBtoSIR32(uint32_t* odd, uint32_t* even, uint32_t* frame, int w, int h)
{
    if (storePair(*this, odd, even, frame, w, h, &FromToRGB::rgbImage, false, "RGBtoSIR32"))
        RGBtoSIR32part(this, 0, 1);
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
    if (storePair(*this, odd, even, frame, w, h, &FromToRGB::rgbImage, true, "SIR32toRGB"))
        SIR32toRGBpart(this, 0, 1);
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
    if (storePair(*this, odd, even, frame, w, h, &FromToRGB::rgbImage, false, "RGBXtoSIR32"))
        RGBXtoSIR32part(this, 0, 1);
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
    if (storePair(*this, odd, even, frame, w, h, &FromToRGB::rgbImage, true, "SIR32toRGBX"))
        SIR32toRGBXpart(this, 0, 1);
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
        std::memcpy(rgbImage + static_cast<ptrdiff_t>(y) * width, fieldFor(y, oddField, evenField) + line * width,
                    static_cast<size_t>(pixels) * 4);
    }
}

void FromToRGB::RGBXtoSIR32Alpha(uint32_t* odd, uint32_t* even, uint32_t* frame, int w, int h)
{
    if (storePair(*this, odd, even, frame, w, h, &FromToRGB::rgbImage, false, "RGBXtoSIR32Alpha"))
        RGBXtoSIR32AlphaPart(this, 0, 1);
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
            storeWord(out + i, greyKey(alphaOf(loadWord(in + i))));
    }
}

// ---------------------------------------------------------------------------
// Frame <-> SIRYUV field pair (top-down fields of width / 2 words a line)
// ---------------------------------------------------------------------------

void FromToRGB::YUVtoSIRYUV(uint32_t* odd, uint32_t* even, uint32_t* frame, int w, int h)
{
    if (storePair(*this, odd, even, frame, w, h, &FromToRGB::yuvFrame, false, "YUVtoSIRYUV"))
        YUVtoSIRYUVpart(this, 0, 1);
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
    if (storePair(*this, odd, even, frame, w, h, &FromToRGB::yuvFrame, true, "SIRYUVtoYUV"))
        SIRYUVtoYUVpart(this, 0, 1);
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

// What the reduced image of an enlargement holds, and what goes into the
// field for it: RGBX words as they are, 24-bit pixels made opaque (whole
// groups of four only), or the grey key of each RGBX pixel's alpha.
enum class Stored { rgbx, rgb, alpha };

// The stored enlargement job: its image `repeat` times across and `lines`
// times down into its field.
void enlargeStored(const FromToRGB& job, Stored kind, int repeat, int lines)
{
    const ptrdiff_t w = job.width;
    if (kind == Stored::rgb) {
        const unsigned char* in = bytesOf(job.rgbImage);
        enlargeIntoField(job.oddField, job.width, job.height, 4 * (job.width / 4), repeat, lines,
                         [=](int y, int i) { return opaqueWord(in + 3 * (y * w + i)); });
        return;
    }
    const uint32_t* in = job.rgbImage;
    enlargeIntoField(job.oddField, job.width, job.height, job.width, repeat, lines, [=](int y, int i) {
        const uint32_t word = loadWord(in + y * w + i);
        return kind == Stored::alpha ? greyKey(alphaOf(word)) : word;
    });
}

}  // namespace

void FromToRGB::RGBXHalftoSIR32(uint32_t* field, uint32_t* image, int w, int h)
{
    if (storeEnlargement(*this, field, image, w, h, "RGBXHalftoSIR32"))
        RGBXHalftoSIR32part(this, 0, 1);
}

void FromToRGB::RGBHalftoSIR32(uint32_t* field, uint32_t* image, int w, int h)
{
    if (storeEnlargement(*this, field, image, w, h, "RGBHalftoSIR32"))
        RGBHalftoSIR32part(this, 0, 1);
}

void FromToRGB::RGBXHalftoSIR32Alpha(uint32_t* field, uint32_t* image, int w, int h)
{
    if (storeEnlargement(*this, field, image, w, h, "RGBXHalftoSIR32Alpha"))
        RGBXHalftoSIR32AlphaPart(this, 0, 1);
}

void FromToRGB::RGBXQuartToSIR32(uint32_t* field, uint32_t* image, int w, int h)
{
    if (storeEnlargement(*this, field, image, w, h, "RGBXQuartToSIR32"))
        RGBXQuartToSIR32part(this, 0, 1);
}

void FromToRGB::RGBQuartToSIR32(uint32_t* field, uint32_t* image, int w, int h)
{
    if (storeEnlargement(*this, field, image, w, h, "RGBQuartToSIR32"))
        RGBQuartToSIR32part(this, 0, 1);
}

void FromToRGB::RGBXQuartToSIR32Alpha(uint32_t* field, uint32_t* image, int w, int h)
{
    if (storeEnlargement(*this, field, image, w, h, "RGBXQuartToSIR32Alpha"))
        RGBXQuartToSIR32AlphaPart(this, 0, 1);
}

void FromToRGB::RGBXHalftoSIR32part(int, int) { enlargeStored(*this, Stored::rgbx, 2, 1); }

void FromToRGB::RGBHalftoSIR32part(int, int) { enlargeStored(*this, Stored::rgb, 2, 1); }

void FromToRGB::RGBXHalftoSIR32AlphaPart(int, int) { enlargeStored(*this, Stored::alpha, 2, 1); }

void FromToRGB::RGBXQuartToSIR32part(int, int) { enlargeStored(*this, Stored::rgbx, 4, 2); }

void FromToRGB::RGBQuartToSIR32part(int, int) { enlargeStored(*this, Stored::rgb, 4, 2); }

void FromToRGB::RGBXQuartToSIR32AlphaPart(int, int) { enlargeStored(*this, Stored::alpha, 4, 2); }

// ---------------------------------------------------------------------------
// RGB -> YUV 4:2:2
// ---------------------------------------------------------------------------

void FromToRGB::RGBXtoYUVFrame(uint32_t* src, int w, int h, int pixelSize, uint32_t* frame)
{
    if (storeRGBSource(*this, src, w, h, pixelSize, "RGBXtoYUVFrame")) {
        yuvFrame = frame;
        firstYUVField = nullptr;
        secondYUVField = nullptr;
        RGBXtoYUVFieldsPart(this, 0, 1);
    }
}

void FromToRGB::RGBXtoYUVFields(uint32_t* src, int w, int h, int pixelSize, uint32_t* oddLines, uint32_t* evenLines)
{
    if (storeRGBSource(*this, src, w, h, pixelSize, "RGBXtoYUVFields")) {
        yuvFrame = nullptr;
        firstYUVField = oddLines;
        secondYUVField = evenLines;
        RGBXtoYUVFieldsPart(this, 0, 1);
    }
}

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

// The enlargements store the reduced size as halfWidth / halfHeight or
// quartWidth / quartHeight, and the enlarged size as width / height.
void FromToRGB::RGBXHalfToYUVFrame(uint32_t* src, int w, int h, int pixelSize, uint32_t* frame)
{
    if (storeRGBSource(*this, src, 2 * w, 2 * h, pixelSize, "RGBXHalfToYUVFrame", true, frame)) {
        halfWidth = w;
        halfHeight = h;
        yuvFrame = frame;
        RGBXHalfToYUVFramePart(this, 0, 1);
    }
}

void FromToRGB::RGBXQuartToYUVFrame(uint32_t* src, int w, int h, int pixelSize, uint32_t* frame)
{
    if (storeRGBSource(*this, src, 4 * w, 4 * h, pixelSize, "RGBXQuartToYUVFrame", true, frame)) {
        quartWidth = w;
        quartHeight = h;
        yuvFrame = frame;
        RGBXQuartToYUVFramePart(this, 0, 1);
    }
}

void FromToRGB::RGBXQuartToYUVField(uint32_t* src, int w, int h, int pixelSize, uint32_t* field)
{
    if (storeRGBSource(*this, src, 4 * w, 2 * h, pixelSize, "RGBXQuartToYUVField", true, field)) {
        quartWidth = w;
        quartHeight = h;
        firstYUVField = field;
        RGBXQuartToYUVFieldPart(this, 0, 1);
    }
}

void FromToRGB::RGBXHalfToYUVFramePart(int, int)
{
    enlargeToYUV(rgbSource, halfWidth, halfHeight, sourcePixelSize, yuvFrame, 1, 2);
}

void FromToRGB::RGBXQuartToYUVFramePart(int, int)
{
    enlargeToYUV(rgbSource, quartWidth, quartHeight, sourcePixelSize, yuvFrame, 2, 4);
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
