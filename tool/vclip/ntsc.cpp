// vclip ntsc: a 4:2:2 YUV4MPEG2 stream through the converter's line
// conversion, frame by frame, from a file or standard input to a file or
// standard output. The frames are the ones pal2ntsc makes from the same
// frames in a clip: the same block converter makes them.
#include <cstdint>
#include <string>
#include <vector>

#include "tool/blockConvert.h"
#include "tool/vclip/commands.h"
#include "tool/vclip/help.h"
#include "tool/vclip/messages.h"
#include "tool/vclip/ntscRate.h"
#include "tool/vclip/pictures.h"
#include "tool/vclip/y4mStream.h"

namespace {

// Lines of the converter's output frames.
constexpr int kNtscLines = 486;
// Input frames read ahead of the rate conversion.
constexpr int kRateReadAhead = 3;

// Room after each frame, so that no kernel reading a whole vector at the
// end of a line can reach past the buffer.
constexpr size_t kSlack = 64;

// The output's even lines come from the input's odd field and its odd lines
// from the even field: the field that was first in time ends up second in
// the frame, so top field first becomes bottom field first and the other
// way round. Progressive, mixed and unknown stay as they were.
char convertedFieldOrder(char interlacing) { return interlacing == 't' ? 'b' : interlacing == 'b' ? 't' : interlacing; }

// The conversion stage: each frame to the converter's NTSC lines.
class NtscLines : public Y4mSink {
public:
    explicit NtscLines(Y4mSink& next) : next_(next) {}

    bool Begin(const Y4mHeader& header) override
    {
        width_ = header.width;
        lines_ = header.height;
        Y4mHeader out = header;
        out.height = kNtscLines;
        out.interlacing = convertedFieldOrder(header.interlacing);
        palBytes_ = static_cast<int>(rawFrameBytes(width_, lines_));
        ntscBytes_ = static_cast<int>(rawFrameBytes(width_, kNtscLines));
        return next_.Begin(out);
    }

    bool Frame(const uint8_t* planes) override
    {
        // Made with the first frame, once its bytes are all there.
        if (pal_.empty()) {
            pal_.assign(static_cast<size_t>(palBytes_) + kSlack, 0);
            ntsc_.assign(static_cast<size_t>(ntscBytes_) + kSlack, 0);
            planes_.assign(static_cast<size_t>(ntscBytes_), 0);
        }
        planarToPacked(planes, width_, lines_, pal_.data());
        convert(pal_.data(), ntsc_.data(), nullptr, 1, width_, lines_, kNtscLines, 0, palBytes_, ntscBytes_, 0);
        packedToPlanar(ntsc_.data(), width_, kNtscLines, planes_.data());
        return next_.Frame(planes_.data());
    }

    bool End() override { return next_.End(); }

private:
    Y4mSink& next_;
    int width_ = 0, lines_ = 0, palBytes_ = 0, ntscBytes_ = 0;
    std::vector<uint8_t> pal_, ntsc_, planes_;
};

}  // namespace

std::string ntscHelp()
{
    return "Usage: vclip ntsc IN.y4m OUT.y4m [--rate R [--field-order tff|bff|progressive]] [--force]\n"
           "Converts every frame of a YUV4MPEG2 stream to 486 lines with the converter's\n"
           "own line conversion: its frames are byte for byte the ones pal2ntsc makes from\n"
           "the same frames in a clip. IN or OUT may be '-', standard input or output, so\n"
           "that a stream FFmpeg reads or writes never needs a file. Frames are converted\n"
           "one at a time, as they arrive.\n"
           "The stream must be 8-bit 4:2:2 (C422, FFmpeg: -pix_fmt yuv422p) with an even\n"
           "width and at least 2 lines, of any height (576-line PAL is what the conversion\n"
           "is made for; other heights are scaled the same way to 486 lines). Other streams\n"
           "are refused. The output header keeps the width, the frame rate (the number\n"
           "of frames is not changed) and the pixel aspect; its field order follows\n"
           "where the output lines come from: It becomes Ib and Ib becomes It, Ip, Im and\n"
           "I? stay. A stream that ends cut short or malformed is an error naming the\n"
           "frame, and OUT (a file) is then left as it was.\n"
           "--rate R (30000/1001 for NTSC) also changes the frame rate, keeping the\n"
           "duration: each output field shows the scene at its own instant, made from the\n"
           "input fields of its parity around it by motion-compensated interpolation,\n"
           "never blended across a scene cut; progressive input (Ip) too. The output is\n"
           "interlaced, Ib for It or Ip input, It for Ib input, and needs an input of at\n"
           "least 32 x 32. --field-order tff|bff|progressive gives the input's order where\n"
           "the header gives none (I?, Im) or a wrong one.\n" +
           replacesText("An existing OUT is replaced only when it is empty or a YUV4MPEG2 stream;\n");
}

int commandNtsc(const Arguments& args)
{
    if (args.operands.size() != 2)
        return failure("ntsc takes an input and an output stream; see 'vclip ntsc --help'");
    NtscRate rate;
    if (!ntscRateOptions(args, rate))
        return 1;
    UniqueFd file;
    int input = -1;
    std::string shownName;
    if (!openY4mInput(args.operands[0], file, input, shownName))
        return 1;
    Y4mStreamReader reader(input, shownName);
    Y4mHeader header;
    if (!reader.ReadHeader(header))
        return 1;
    if (header.height < 2)
        return failure("%s: %d lines; the conversion needs at least 2", shownName.c_str(), header.height);
    FileOutput out;
    if (!out.Begin(args.operands[1], OutputKind::Y4m, outputRules(args, {fsIdentityOf(input)})))
        return 1;
    Y4mStreamWriter writer(out);
    NtscLines conversion(writer);
    const std::unique_ptr<Y4mSink> timed = rate.rate.num ? fieldRateStage(writer, rate, shownName) : nullptr;
    // The rate conversion works long on each frame: its input is read
    // meanwhile.
    return (timed ? reader.PumpAhead(*timed, kRateReadAhead) : reader.Pump(conversion)) ? 0 : 1;
}
