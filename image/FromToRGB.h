// FromToRGB: converters between the store's pixel layouts.
//
//   24-bit RGB   three bytes per pixel: blue, green, red
//   RGBX         one word per pixel: X (alpha), blue, green, red
//   YUV 4:2:2    one word per two pixels: Cb, Y0, Cr, Y1
//   SIR32 pair   two buffers of RGBX words, odd frame lines then even frame
//                lines, each field stored bottom-up
//   SIRYUV pair  two buffers of YUV 4:2:2 words, odd lines then even lines,
//                each field stored top-down
//
// Byte orders above are memory orders. Like quart, the object carries one
// job: each entry stores its arguments and runs its worker as part 0 of 1.
// All buffers belong to the caller; nothing is allocated or freed here. A
// buffer may start at any byte.
#pragma once

#include <cstdint>

struct FromToRGB {
    int32_t width;
    int32_t height;
    int32_t halfWidth;
    int32_t halfHeight;
    int32_t quartWidth;
    int32_t quartHeight;
    int32_t sourcePixelSize;
    uint32_t* oddField;
    uint32_t* evenField;
    uint32_t* rgbSource;
    uint32_t* rgbImage;
    uint32_t* firstYUVField;
    uint32_t* secondYUVField;
    uint32_t* yuvFrame;

    // --- Frame <-> field pair (odd field, even field, frame, frame size) ---
    void RGBtoSIR32(uint32_t* odd, uint32_t* even, uint32_t* frame, int w, int h);
    void SIR32toRGB(uint32_t* odd, uint32_t* even, uint32_t* frame, int w, int h);
    void RGBXtoSIR32(uint32_t* odd, uint32_t* even, uint32_t* frame, int w, int h);
    void SIR32toRGBX(uint32_t* odd, uint32_t* even, uint32_t* frame, int w, int h);
    void RGBXtoSIR32Alpha(uint32_t* odd, uint32_t* even, uint32_t* frame, int w, int h);
    void YUVtoSIRYUV(uint32_t* odd, uint32_t* even, uint32_t* frame, int w, int h);
    void SIRYUVtoYUV(uint32_t* odd, uint32_t* even, uint32_t* frame, int w, int h);

    // --- Reduced image -> one enlarged SIR32 field (field, image, reduced size) ---
    void RGBXHalftoSIR32(uint32_t* field, uint32_t* image, int w, int h);
    void RGBHalftoSIR32(uint32_t* field, uint32_t* image, int w, int h);
    void RGBXHalftoSIR32Alpha(uint32_t* field, uint32_t* image, int w, int h);
    void RGBXQuartToSIR32(uint32_t* field, uint32_t* image, int w, int h);
    void RGBQuartToSIR32(uint32_t* field, uint32_t* image, int w, int h);
    void RGBXQuartToSIR32Alpha(uint32_t* field, uint32_t* image, int w, int h);

    // --- RGB (bottom-up, 3 or 4 bytes per pixel) -> YUV 4:2:2 ---
    void RGBXtoYUVFrame(uint32_t* src, int w, int h, int pixelSize, uint32_t* frame);
    void RGBXtoYUVFields(uint32_t* src, int w, int h, int pixelSize, uint32_t* oddLines, uint32_t* evenLines);
    void RGBXHalfToYUVFrame(uint32_t* src, int w, int h, int pixelSize, uint32_t* frame);
    void RGBXQuartToYUVFrame(uint32_t* src, int w, int h, int pixelSize, uint32_t* frame);
    void RGBXQuartToYUVField(uint32_t* src, int w, int h, int pixelSize, uint32_t* field);

    // --- YUV frames ---
    void YUVtoYUV(uint32_t* src, int w, int h, uint32_t* dst);
    void FillBlackYUV(uint32_t* frame, int w, int h);

    // --- Workers: static (object, part index, part count) and member ---
    static void RGBtoSIR32part(void* object, int partIndex, int partCount);
    static void SIR32toRGBpart(void* object, int partIndex, int partCount);
    static void RGBXtoSIR32part(void* object, int partIndex, int partCount);
    static void SIR32toRGBXpart(void* object, int partIndex, int partCount);
    static void RGBXtoSIR32AlphaPart(void* object, int partIndex, int partCount);
    static void YUVtoSIRYUVpart(void* object, int partIndex, int partCount);
    static void SIRYUVtoYUVpart(void* object, int partIndex, int partCount);
    static void RGBXHalftoSIR32part(void* object, int partIndex, int partCount);
    static void RGBHalftoSIR32part(void* object, int partIndex, int partCount);
    static void RGBXHalftoSIR32AlphaPart(void* object, int partIndex, int partCount);
    static void RGBXQuartToSIR32part(void* object, int partIndex, int partCount);
    static void RGBQuartToSIR32part(void* object, int partIndex, int partCount);
    static void RGBXQuartToSIR32AlphaPart(void* object, int partIndex, int partCount);
    static void RGBXtoYUVFieldsPart(void* object, int partIndex, int partCount);
    static void RGBXHalfToYUVFramePart(void* object, int partIndex, int partCount);
    static void RGBXQuartToYUVFramePart(void* object, int partIndex, int partCount);
    static void RGBXQuartToYUVFieldPart(void* object, int partIndex, int partCount);
    static void YUVtoYUVPart(void* object, int partIndex, int partCount);

    void RGBtoSIR32part(int partIndex, int partCount);
    void SIR32toRGBpart(int partIndex, int partCount);
    void RGBXtoSIR32part(int partIndex, int partCount);
    void SIR32toRGBXpart(int partIndex, int partCount);
    void RGBXtoSIR32AlphaPart(int partIndex, int partCount);
    void YUVtoSIRYUVpart(int partIndex, int partCount);
    void SIRYUVtoYUVpart(int partIndex, int partCount);
    void RGBXHalftoSIR32part(int partIndex, int partCount);
    void RGBHalftoSIR32part(int partIndex, int partCount);
    void RGBXHalftoSIR32AlphaPart(int partIndex, int partCount);
    void RGBXQuartToSIR32part(int partIndex, int partCount);
    void RGBQuartToSIR32part(int partIndex, int partCount);
    void RGBXQuartToSIR32AlphaPart(int partIndex, int partCount);
    void RGBXtoYUVFieldsPart(int partIndex, int partCount);
    void RGBXHalfToYUVFramePart(int partIndex, int partCount);
    void RGBXQuartToYUVFramePart(int partIndex, int partCount);
    void RGBXQuartToYUVFieldPart(int partIndex, int partCount);
    void YUVtoYUVPart(int partIndex, int partCount);
};
