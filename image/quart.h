// quart: one image job (sizes, source, destination) carried from a public
// operation to its worker. Every operation is an entry that fills the fields
// and runs the static worker as part 0 of 1, which runs the member worker.
// Sources and caller-given destinations may start at any byte.
#pragma once

#include <cstddef>
#include <cstdint>

void* newMem(int size);
void delMem(void* block);

struct quart {
    int32_t width;
    int32_t height;
    uint32_t* source;
    uint32_t* destination;
    int32_t ratio;

    // --- YUV 4:2:2 to 24-bit RGB reducers ---
    // The frame lines a reduction by `scale` (4: quarter, 2: half) of a
    // frame of `height` lines reads: output line rows - 1 - k (the lines are
    // stored bottom-up) comes from the `scale` lines from first + k * scale
    // on. The quarter reduction starts at line 2 for heights of remainder 2
    // or 3, so that its blocks of four end at the last line; the half one
    // starts at line 0. A frame reduced in bands of whole blocks, each band
    // from its own first line, gives the same lines.
    struct ReducedLines {
        int first;
        int rows;
    };
    static ReducedLines yuvReducedLines(int scale, int height);
    uint32_t* zoomYUVtoQuartRGB(uint32_t* source, int width, int height, uint32_t* destination);
    uint32_t* zoomYUVtoHalfRGB(uint32_t* source, int width, int height, uint32_t* destination);
    static void zoomYUVtoQuartRGBPart(void* object, int partIndex, int partCount);
    static void zoomYUVtoHalfRGBPart(void* object, int partIndex, int partCount);
    void zoomYUVtoQuartRGBPart(int partIndex, int partCount);
    void zoomYUVtoHalfRGBPart(int partIndex, int partCount);

    // --- Further reductions and enlargements ---
    // (declared below this line)
    // Every operation returns a new image from newMem (the caller gives it back
    // with delMem), or null when the image cannot be allocated or the source is
    // null. Pictures keep their orientation: output line k is stored k-th.
    // 24-bit images are three bytes per pixel (blue, green, red) and may start
    // at any byte address.
    uint32_t* zoomtoquart(uint32_t* source, int width, int height);
    uint32_t* zoomtohalf(uint32_t* source, int width, int height);
    uint32_t* zoomtohalfX(uint32_t* source, int width, int height);
    uint32_t* zoomtohalfY(uint32_t* source, int width, int height);
    uint32_t* zoomtohalf24(uint32_t* source, int width, int height);
    uint32_t* zoomtoquart24(uint32_t* source, int width, int height);
    uint32_t* zoomtothird(uint32_t* source, int width, int height);
    uint32_t* zoomtoquartNTSC(uint32_t* source, int width, int height);
    uint32_t* correctNtscRatio(uint32_t* source, int width, int height);
    uint32_t* scaleXFourThirds(uint32_t* source, int width, int height);
    uint32_t* zoomUp(uint32_t* source, int width, int height, int ratio);
    uint32_t* pass24to32(unsigned char* source, int width, int height);
    unsigned char* pass32to24(uint32_t* source, int width, int height);
    void linkImgWithAlpha(uint32_t* image, unsigned char* matte, int width, int height);

    static void zoomtoquartPart(void* object, int partIndex, int partCount);
    static void zoomtohalfPart(void* object, int partIndex, int partCount);
    static void zoomtohalfXPart(void* object, int partIndex, int partCount);
    static void zoomtohalfYPart(void* object, int partIndex, int partCount);
    static void zoomtohalf24Part(void* object, int partIndex, int partCount);
    static void zoomtohalf24N4Part(void* object, int partIndex, int partCount);
    static void correctNtscRatioPart(void* object, int partIndex, int partCount);
    static void scaleXFourThirds(void* object, int partIndex, int partCount);
    static void zoomUpPart(void* object, int partIndex, int partCount);
    void zoomtoquartPart(int partIndex, int partCount);
    void zoomtohalfPart(int partIndex, int partCount);
    void zoomtohalfXPart(int partIndex, int partCount);
    void zoomtohalfYPart(int partIndex, int partCount);
    void zoomtohalf24Part(int partIndex, int partCount);
    void zoomtohalf24N4Part(int partIndex, int partCount);
    void correctNtscRatioPart(int partIndex, int partCount);
    void scaleXFourThirds(int partIndex, int partCount);
    void zoomUpPart(int partIndex, int partCount);

    // The entries' common parts (quart.cpp, quartZoom.cpp).
    uint32_t* beginYUVReduction(uint32_t* src, int w, int h, uint32_t* dst, int scale);
    uint32_t* runImageJob(uint32_t* src, int w, int h, int64_t outPixels, void (*worker)(void*, int, int),
                          std::ptrdiff_t skip = 0);
};
