// quart: one image job (sizes, source, destination) carried from a public
// operation to its worker. Every operation is an entry that fills the fields
// and runs the static worker as part 0 of 1, which runs the member worker.
#pragma once

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
    uint32_t* zoomYUVtoQuartRGB(uint32_t* source, int width, int height, uint32_t* destination);
    uint32_t* zoomYUVtoHalfRGB(uint32_t* source, int width, int height, uint32_t* destination);
    static void zoomYUVtoQuartRGBPart(void* object, int partIndex, int partCount);
    static void zoomYUVtoHalfRGBPart(void* object, int partIndex, int partCount);
    void zoomYUVtoQuartRGBPart(int partIndex, int partCount);
    void zoomYUVtoHalfRGBPart(int partIndex, int partCount);

    // --- Further reductions and enlargements ---
    // (declared below this line)
};
