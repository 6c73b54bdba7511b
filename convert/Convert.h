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

    // Output lines [from, to) of the frame held in source, inputLines and
    // destination; the whole frame is lines 0 to outputLines. Every line
    // depends on the frame alone, so a frame made in runs of lines is the
    // same as one made at once. The block converter uses this to reduce a
    // frame band by band while the lines just made are still in cache.
    void ConvertLines(int from, int to);

    // The same lines written into destination with streaming stores (see
    // convert/pixelKernels.h): for a frame bound for the disk, which the
    // processor does not read again. The caller runs the path's streamFence
    // before another thread uses them.
    void StreamLines(int from, int to);

    // The same lines streamed into destination by way of `band`: each is
    // made there with plain stores (line `from` at band, the next ones
    // (width >> 1) words apart), then copied with streaming stores. The band
    // stays in cache for a reducer, and no line of the frame is fetched
    // from memory before it is written.
    void StreamLinesVia(int from, int to, uint32_t* band);

    int32_t width;
    int32_t outputLines;
    int32_t inputLines;
    float* fieldFlag;
    int32_t unused;
    uint32_t* source;
    uint32_t* destination;

private:
    void MakeLines(int from, int to, bool streamed, uint32_t* band);
};
