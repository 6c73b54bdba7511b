// vclip import: a 4:2:2 clip from raw UYVY frames or from a YUV4MPEG2
// stream, the input checked whole before the output is touched.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "tool/vclip/commands.h"
#include "tool/vclip/help.h"
#include "tool/vclip/messages.h"
#include "tool/vclip/pictures.h"
#include "tool/vclip/y4mStream.h"

namespace {

int importUyvy(const Arguments& args)
{
    ClipFormat format;
    if (!args.Has("width") || !args.Has("height"))
        return failure("import --uyvy needs --width and --height");
    if (!toInt(args.Get("width"), 2, kMaxSide, format.width) || format.width % 2 != 0)
        return failure("bad width '%s' (an even number of pixels)", args.Get("width").c_str());
    if (!toInt(args.Get("height"), 1, kMaxSide, format.height))
        return failure("bad height '%s'", args.Get("height").c_str());
    if (args.Has("rate") && !toRate(args.Get("rate"), format.rate))
        return failure("bad rate '%s' (frames a second: 25, 29.97 or 30000/1001)", args.Get("rate").c_str());
    const std::string& raw = args.Get("uyvy");
    UniqueFd in;
    int64_t size = 0;
    if (!openInput(raw, "a file of raw UYVY frames", in, size))
        return 1;
    const int64_t frameBytes = rawFrameBytes(format.width, format.height);
    if (size % frameBytes != 0)
        return failure("%s holds %lld bytes, not whole %dx%d frames of %lld bytes", raw.c_str(),
                       static_cast<long long>(size), format.width, format.height, static_cast<long long>(frameBytes));
    const int64_t frames = size / frameBytes;
    if (frames > INT32_MAX)
        return failure("%s holds too many frames for a clip", raw.c_str());

    ClipOutput out;
    if (!out.Create(args.operands[0], format, static_cast<int32_t>(frames),
                    outputRules(args, {fsIdentityOf(in.Get())})))
        return 1;
    if (frames > 0) {
        // The file holds at least one frame, so the slot is no larger than
        // the input (but for its rounding to whole blocks).
        FrameBuffer frame(out.Clip().ImageSize());
        if (frame.size() == 0)
            return failure("out of memory");
        for (int i = 0; i < frames; ++i) {
            if (readAt(in.Get(), frame.data(), frameBytes, i * frameBytes) != frameBytes)
                return failure("%s: frame %d: the file changed while it was read", raw.c_str(), i);
            if (!out.WriteFrame(i, frame))
                return 1;
        }
    }
    return out.Finish() ? 0 : 1;
}

// Frames of a stream into a clip made beside its destination, put in place
// once the stream has ended whole.
class ClipSink : public Y4mSink {
public:
    ClipSink(const std::string& name, const OutputRules& rules) : name_(name), rules_(rules) {}

    bool Begin(const Y4mHeader& header) override
    {
        header_ = header;
        ClipFormat format;
        format.width = header.width;
        format.height = header.height;
        format.rate = header.rate.den > 0 ? double(header.rate.num) / header.rate.den : 25.0;
        format.interlacing = interlacingFromTag(header.interlacing);
        return out_.CreateForStream(name_, format, rules_);
    }

    bool Frame(const uint8_t* planes) override
    {
        if (frames_ == INT32_MAX) {
            failure("%s: more than %d frames for one clip", name_.c_str(), INT32_MAX);
            return false;
        }
        // Made with the first frame, once its bytes are all there.
        if (frame_.size() == 0)
            frame_ = FrameBuffer(out_.Clip().ImageSize());
        if (frame_.size() == 0) {
            failure("out of memory");
            return false;
        }
        planarToPacked(planes, header_.width, header_.height, frame_.data());
        return out_.WriteFrame(frames_++, frame_);
    }

    bool End() override { return out_.Finish(frames_); }

private:
    std::string name_;
    OutputRules rules_;
    Y4mHeader header_;
    ClipOutput out_;
    FrameBuffer frame_{0};
    int32_t frames_ = 0;
};

int importY4m(const Arguments& args)
{
    UniqueFd file;
    int input = -1;
    std::string shownName;
    if (!openY4mInput(args.Get("y4m"), file, input, shownName))
        return 1;
    Y4mStreamReader reader(input, shownName);
    Y4mHeader header;
    if (!reader.ReadHeader(header))
        return 1;
    ClipSink sink(args.operands[0], outputRules(args, {fsIdentityOf(input)}));
    return reader.Pump(sink) ? 0 : 1;
}

}  // namespace

std::string importHelp()
{
    return "Usage: vclip import --uyvy RAW --width W --height H [--rate R] [--force] OUT\n"
           "       vclip import --y4m IN.y4m|- [--force] OUT\n"
           "Makes a YUV 4:2:2 clip (packing 1008). RAW holds whole frames of bytes\n"
           "Cb Y0 Cr Y1, top line first (rate 25 unless given). IN.y4m, or '-' for\n"
           "standard input (a pipe from FFmpeg: -pix_fmt yuv422p -f yuv4mpegpipe -), must\n"
           "be a YUV4MPEG2 stream in C422; its rate and interlacing go into the header\n"
           "(It: 1 top field first, Ib: 2 bottom field first, otherwise 0). The stream is\n"
           "read front to back and the clip made beside OUT, put in its place only once the\n"
           "stream has ended whole: a FRAME line that is malformed, longer than 4096\n"
           "characters or carries a tag other than X, a cut-off FRAME line and a last frame\n"
           "cut short are errors naming the frame (counted from 0), and leave OUT as it was.\n" +
           replacesText("An existing OUT is replaced only when it is empty or a replaceable clip;\n");
}

int commandImport(const Arguments& args)
{
    if (!oneOperandAndOneOf(args, "import", "one output clip", "--uyvy RAW", "--y4m IN.y4m"))
        return 1;
    return args.Has("uyvy") ? importUyvy(args) : importY4m(args);
}
