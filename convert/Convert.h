// Convert: changes the number of lines of a YUV 4:2:2 frame, each output line
// a blend of two lines of one input field (field mode) or of the frame (frame
// mode), with a weight in 256ths. The line map is computed in single
// precision, one rounding per operation; pixels are only touched by the
// MixLine kernels.
#pragma once

#include <cstdint>

class Convert {
public:
    // The third argument is stored and never read. The flag is read at every
    // conversion, truncated towards zero: nonzero selects field mode. The
    // caller keeps the float alive while the object converts.
    Convert(int width, int outputLines, int unused, float* fieldFlag);

    // Converts one frame of inputLines lines into outputLines lines; both
    // frames are (width >> 1) words per line with no gaps, top line first.
    void DoConvert(uint32_t* source, int inputLines, uint32_t* destination);

    void DoConversion();
    static void DoConversion(void* object, int partIndex, int partCount);
    void DoConversion(int partIndex, int partCount);

    int32_t width;
    int32_t outputLines;
    int32_t inputLines;
    float* fieldFlag;
    int32_t unused;
    uint32_t* source;
    uint32_t* destination;
};
