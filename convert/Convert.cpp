#include "convert/Convert.h"

#include <cmath>
#include <cstddef>

#include "convert/MixLine.h"

namespace {

// How far ahead of the lines in use the input is requested from memory.
constexpr int prefetchLines = 8;

} // namespace

Convert::Convert(int width_, int outputLines_, int unused_, float* fieldFlag_)
    : width(width_),
      outputLines(outputLines_),
      inputLines(0),
      fieldFlag(fieldFlag_),
      unused(unused_),
      source(nullptr),
      destination(nullptr)
{
}

void Convert::DoConvert(uint32_t* source_, int inputLines_, uint32_t* destination_)
{
    source = source_;
    inputLines = inputLines_;
    destination = destination_;
    DoConversion();
}

void Convert::DoConversion()
{
    DoConversion(this, 0, 1);
}

void Convert::DoConversion(void* object, int partIndex, int partCount)
{
    static_cast<Convert*>(object)->DoConversion(partIndex, partCount);
}

// The whole frame, whatever the part: the job is never split.
void Convert::DoConversion(int, int)
{
    ConvertLines(0, outputLines);
}

void Convert::ConvertLines(int from, int to)
{
    const int L = width >> 1;
    const int hin = inputLines;
    const int hout = outputLines;
    if (from < 0)
        from = 0;
    if (to > hout)
        to = hout;
    if (from >= to)
        return;

    // Truncating the flag towards zero gives nonzero exactly when its
    // magnitude is at least one. Comparing instead of converting keeps huge
    // values defined; a NaN counts as zero (frame mode).
    const bool fieldMode = std::fabs(*fieldFlag) >= 1.0f;

    // Last line of a field (or of the frame), counted within it. A frame too
    // short to hold one line per field (one line in frame mode) would make it
    // negative and send the map before the frame: such a frame is left
    // unconverted and nothing of the input is read.
    const int last = fieldMode ? (hin >> 1) - 1 : hin - 1;
    if (last < 0)
        return;

    const float r = static_cast<float>(hin) / static_cast<float>(hout);
    const int step = fieldMode ? 2 : 1;
    const std::size_t stride = static_cast<std::size_t>(L > 0 ? L : 0);

    // The input is read nearly in order, two fields interleaved; fetching a
    // few lines ahead of the furthest line used keeps the loads from memory
    // running ahead of the kernels. Every input line is requested once.
    const std::size_t lineBytes = stride * sizeof(uint32_t);
    int requested = -1;
    auto requestUpTo = [&](int line) {
        if (line > hin)
            line = hin;
        for (; requested < line; ++requested) {
            const char* start = reinterpret_cast<const char*>(source + static_cast<std::size_t>(requested) * stride);
            for (std::size_t offset = 0; offset < lineBytes; offset += 64)
                __builtin_prefetch(start + offset);
        }
    };

    // The kernels of the path in use, looked up once for all the lines.
    MixLineKernel* const* kernels = activeMixLineKernels();
    for (int y = from; y < to; ++y) {
        int m = y;
        float offset = 0.0f;
        int parity = 0;
        if (fieldMode) {
            m = y >> 1;
            // Even output lines come from the odd input field, odd ones from
            // the even field.
            offset = (y & 1) ? 0.5f : -0.5f;
            parity = (y & 1) ? 0 : 1;
        }

        // Each operation rounded to single precision on its own.
        const float scaled = static_cast<float>(m) * r;
        const float pos = scaled + offset;

        int j;
        int w;
        if (pos >= 2147483648.0f) {
            // Past any line index: the last-line rule below applies.
            j = last;
            w = 0;
        } else {
            j = static_cast<int>(pos);
            const float fraction = pos - static_cast<float>(j);
            const float weight = fraction * 256.0f;
            w = static_cast<int>(weight);
        }
        if (j < 0) {
            j = 0;
            w = 0;
        }
        if (j >= last) {
            j = last;
            w = 0;
        }
        if (w < 0)
            w = 0;
        if (w > 256)
            w = 256;

        const int a = step * j + parity;
        if (requested < 0)
            requested = a > 2 ? a - 2 : 0;  // the other field starts near here
        requestUpTo(a + step + prefetchLines);
        uint32_t* lineA = source + static_cast<std::size_t>(a) * stride;
        uint32_t* out = destination + static_cast<std::size_t>(y) * stride;
        if (w == 0) {
            // The copy kernel does not read its first line; line B may lie
            // past the frame here, so its address is not even formed.
            kernels[0](lineA, lineA, out, L);
            continue;
        }
        uint32_t* lineB = lineA + static_cast<std::size_t>(step) * stride;
        if (w <= 128)
            kernels[w](lineB, lineA, out, L);
        else
            kernels[256 - w](lineA, lineB, out, L);
    }
}
