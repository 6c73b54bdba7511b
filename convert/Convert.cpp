#include "convert/Convert.h"

#include <cmath>
#include <cstddef>

#include "convert/pixelKernels.h"

namespace {

// How far ahead of the lines in use the input is requested from memory.
constexpr int prefetchLines = 4;

// Where an output line comes from: input line a with weight 256 - w, and
// the next line of its field (or frame) with weight w (0 to 256).
struct LineSource {
    int a;
    int w;
};

// The line map of one frame: output line y sits at position
// (y or y / 2) * hin / hout in the input, in single precision, one rounding
// per operation. In field mode even output lines come from the odd input
// field and odd ones from the even field.
class LineMap {
public:
    LineMap(int hin, int hout, bool fieldMode)
        : field_(fieldMode), step_(fieldMode ? 2 : 1),
          // Last line of a field (or of the frame), counted within it.
          last_(fieldMode ? (hin >> 1) - 1 : hin - 1), r_(static_cast<float>(hin) / static_cast<float>(hout))
    {}

    // Lines apart of the two lines of a blend.
    int step() const { return step_; }

    // A frame too short to hold one line per field (one line in frame
    // mode) has no map: a negative last line would send it before the frame.
    bool empty() const { return last_ < 0; }

    LineSource operator()(int y) const
    {
        const int m = field_ ? y >> 1 : y;
        const float offset = field_ ? ((y & 1) ? 0.5f : -0.5f) : 0.0f;
        const int parity = field_ && !(y & 1) ? 1 : 0;
        // Each operation rounded to single precision on its own.
        const float scaled = static_cast<float>(m) * r_;
        const float pos = scaled + offset;

        int j = last_;
        int w = 0;
        if (pos < 2147483648.0f) {  // else past any line index: the last-line rule
            j = static_cast<int>(pos);
            const float fraction = pos - static_cast<float>(j);
            const float weight = fraction * 256.0f;
            w = static_cast<int>(weight);
        }
        if (j < 0 || j >= last_) {
            j = j < 0 ? 0 : last_;
            w = 0;
        }
        w = w < 0 ? 0 : (w > 256 ? 256 : w);
        return {step_ * j + parity, w};
    }

private:
    bool field_;
    int step_;
    int last_;
    float r_;
};

// The input is read nearly in order, two fields interleaved; fetching a few
// lines ahead of the furthest line used keeps the loads from memory running
// ahead of the kernels. Every input line is requested once. Measured on 250
// cold 720 x 576 frames (load near 1, variants taking turns), 8 lines ahead
// made streamed lines about 49 us a frame against 54 without the requests.
// With the AVX-512 kernels the distance matters (load 1.5 to 2.5, variants
// taking turns in one process, medians of 15): 4 lines ahead made streamed
// lines 45 to 46 us a frame against 48 to 52 for 8, and frames with the
// quarter reduction 68 against 73; 1 line (58) and 16 to 60 lines (58 to
// 62) were slower, and so were requests into the second-level cache only.
// Requesting the next frame's first lines while the last ones are made, and
// the next band's lines while a band is reduced, changed nothing. On a 2-core
// AMD Zen 3 with the AVX2 kernels the next band's first 4, 8 or 16 lines
// requested before a band is reduced made frames with the quarter reduction
// slower (6.0 to 6.6 against 6.8 to 7.1 thousand a second, load near 4).
class InputPrefetch {
public:
    InputPrefetch(const uint32_t* source, std::size_t stride, int lines)
        : source_(source), stride_(stride), lines_(lines)
    {}

    // Requests the lines up to `line` past line a, the first line of a blend.
    void request(int a, int line)
    {
        if (requested_ < 0)
            requested_ = a > 2 ? a - 2 : 0;  // the other field starts near here
        if (line > lines_)
            line = lines_;
        if (requested_ >= line)
            return;
        // The lines lie one after the other: one run of requests, a cache
        // line apart, four to a step.
        const char* at = reinterpret_cast<const char*>(source_ + static_cast<std::size_t>(requested_) * stride_);
        const std::size_t bytes = static_cast<std::size_t>(line - requested_) * stride_ * sizeof(uint32_t);
        std::size_t offset = 0;
        for (; offset + 256 <= bytes; offset += 256) {
            __builtin_prefetch(at + offset);
            __builtin_prefetch(at + offset + 64);
            __builtin_prefetch(at + offset + 128);
            __builtin_prefetch(at + offset + 192);
        }
        for (; offset < bytes; offset += 64)
            __builtin_prefetch(at + offset);
        requested_ = line;
    }

private:
    const uint32_t* source_;
    std::size_t stride_;
    int lines_;
    int requested_ = -1;
};

// One output line from its source: weights up to 128 blend the next line
// into line a, larger ones line a into the next line.
void blendLine(const MixLineKernels& kernels, uint32_t* lineA, std::size_t apart, LineSource from, uint32_t* out,
               int words)
{
    if (from.w == 0) {
        // The copy kernel does not read its first line; the next line may lie
        // past the frame here, so its address is not even formed.
        kernels[0](lineA, lineA, out, words);
        return;
    }
    uint32_t* lineB = lineA + apart;
    if (from.w <= 128)
        kernels[static_cast<std::size_t>(from.w)](lineB, lineA, out, words);
    else
        kernels[static_cast<std::size_t>(256 - from.w)](lineA, lineB, out, words);
}

}  // namespace

Convert::Convert(int width_, int outputLines_, int unused_, float* fieldFlag_)
    : width(width_), outputLines(outputLines_), inputLines(0), fieldFlag(fieldFlag_), unused(unused_), source(nullptr),
      destination(nullptr)
{}

void Convert::DoConvert(uint32_t* source_, int inputLines_, uint32_t* destination_)
{
    source = source_;
    inputLines = inputLines_;
    destination = destination_;
    DoConversion();
}

void Convert::DoConversion() { DoConversion(this, 0, 1); }

void Convert::DoConversion(void* object, int partIndex, int partCount)
{
    static_cast<Convert*>(object)->DoConversion(partIndex, partCount);
}

// The whole frame, whatever the part: the job is never split.
void Convert::DoConversion(int, int) { ConvertLines(0, outputLines); }

void Convert::ConvertLines(int from, int to) { MakeLines(from, to, false, nullptr); }

void Convert::StreamLines(int from, int to) { MakeLines(from, to, true, nullptr); }

void Convert::StreamLinesVia(int from, int to, uint32_t* band) { MakeLines(from, to, true, band); }

void Convert::MakeLines(int from, int to, bool streamed, uint32_t* band)
{
    const int L = width >> 1;
    if (from < 0)
        from = 0;
    if (to > outputLines)
        to = outputLines;
    if (from >= to)
        return;

    // Truncating the flag towards zero gives nonzero exactly when its
    // magnitude is at least one. Comparing instead of converting keeps huge
    // values defined; a NaN counts as zero (frame mode).
    const LineMap map(inputLines, outputLines, std::fabs(*fieldFlag) >= 1.0f);
    // A frame without a map is left unconverted and nothing of it is read.
    if (map.empty())
        return;

    const std::size_t stride = static_cast<std::size_t>(L > 0 ? L : 0);
    InputPrefetch prefetch(source, stride, inputLines);
    // The kernels of the path in use, looked up once for all the lines.
    const PixelKernels& path = pixelKernels();
    const MixLineKernels& kernels = streamed && !band ? path.mixLineStreamed : path.mixLine;
    for (int y = from; y < to; ++y) {
        const LineSource line = map(y);
        prefetch.request(line.a, line.a + map.step() + prefetchLines);
        uint32_t* out = destination + static_cast<std::size_t>(y) * stride;
        uint32_t* made = band ? band + static_cast<std::size_t>(y - from) * stride : out;
        blendLine(kernels, source + static_cast<std::size_t>(line.a) * stride,
                  static_cast<std::size_t>(map.step()) * stride, line, made, L);
        if (band)
            path.mixLineStreamed[0](made, made, out, L);
    }
}
