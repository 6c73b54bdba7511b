// vclip export: a 4:2:2 clip as a YUV4MPEG2 stream, or one frame as a
// picture. Every frame it needs must be in the file before anything is
// written.
#include <algorithm>
#include <string>
#include <vector>

#include "tool/vclip/commands.h"
#include "tool/vclip/help.h"
#include "tool/vclip/imageFiles.h"
#include "tool/vclip/messages.h"
#include "tool/vclip/pictures.h"
#include "tool/vclip/y4mStream.h"

namespace {

// Frames first to last of the clip (last -1: the whole clip); `given` when
// --frames names them.
struct FrameRange {
    int first = 0;
    int last = -1;
    bool given = false;
};

// The stream header for the clip: its size, and its rate and interlacing
// unless the command line gives them.
bool y4mHeaderOf(vXfsFile& clip, const Arguments& args, Y4mHeader& header)
{
    header.width = clip.GetWidth();
    header.height = clip.GetHeight();
    double rate = 0;
    int interlacing = 0;
    clip.GetImageRate(rate);
    clip.GetInterlacing(interlacing);
    if (args.Has("rate") && !toRate(args.Get("rate"), rate))
        return badValue("rate", args.Get("rate"), "frames a second: 25, 29.97 or 30000/1001");
    if (args.Has("field-order") && !toFieldOrder(args.Get("field-order"), interlacing))
        return badValue("field order", args.Get("field-order"), "tff, bff or progressive");
    rateToFraction(rate, header.rate.num, header.rate.den);
    header.interlacing = interlacingTag(interlacing);
    header.colour = "422";
    return true;
}

// Every frame of the range must be in the file before anything is written.
// The message says why not: the count, or the first frame missing.
bool rangeIsPresent(vXfsFile& clip, const char* clipPath, FrameRange& range)
{
    const int64_t present = framesPresent(clip);
    if (range.last < 0) {
        range.last = clip.GetNumFrames() - 1;
        if (clip.GetNumFrames() < 0 || present < clip.GetNumFrames())
            return frameIsPresent(clip, clipPath, present, present);
        return true;
    }
    return frameIsPresent(clip, clipPath, range.last, present);
}

int exportY4m(vXfsFile& clip, const char* clipPath, const Arguments& args, FrameRange range, const OutputRules& rules)
{
    if (clip.GetImageFormat() != DM_IMAGE_PACKING_CbYCrY)
        return failure("%s is not a YUV 4:2:2 clip", clipPath);
    if (clip.GetWidth() % 2 != 0)
        return failure("%s has an odd width", clipPath);
    Y4mHeader header;
    if (!y4mHeaderOf(clip, args, header) || !rangeIsPresent(clip, clipPath, range))
        return 1;
    FileOutput out;
    Y4mStreamWriter writer(out);
    if (!out.Begin(args.Get("y4m"), OutputKind::Y4m, rules) || !writer.Begin(header))
        return 1;
    if (range.last >= range.first) {
        // Every frame is in the file, so the buffers are no larger than it.
        FrameBuffer frame(clip.ImageSize());
        std::vector<uint8_t> planes(y4mFrameBytes(header));
        if (frame.size() == 0)
            return failure("out of memory");
        for (int i = range.first; i <= range.last; ++i) {
            if (!readFrame(clip, clipPath, i, frame))
                return 1;
            packedToPlanar(frame.data(), header.width, header.height, planes.data());
            if (!writer.Frame(planes.data()))
                return 1;
        }
    }
    return writer.End() ? 0 : 1;
}

OutputKind outputKindOf(ImageKind kind)
{
    return kind == ImageKind::Png ? OutputKind::Png : kind == ImageKind::Ppm ? OutputKind::Ppm : OutputKind::Bmp;
}

// One frame as a picture of `kind` at `name`.
bool writePicture(vXfsFile& clip, const char* clipPath, int frameNumber, FrameBuffer& frame, ImageKind kind,
                  const std::string& name, const OutputRules& rules)
{
    FileOutput out;
    if (!out.Begin(name, outputKindOf(kind), rules) || !readFrame(clip, clipPath, frameNumber, frame))
        return false;
    RgbImage image;
    if (clip.GetImageFormat() == DM_IMAGE_PACKING_CbYCrY)
        yuv422ToRgb(frame.data(), clip.GetWidth(), clip.GetHeight(), image);
    else
        bgrBottomUpToRgb(frame.data(), clip.GetWidth(), clip.GetHeight(), image);
    std::vector<uint8_t> bytes;
    if (!encodeImage(kind, image, bytes))
        return report("%s: the picture could not be encoded", name.c_str());
    return out.Write(bytes.data(), bytes.size()) && out.Finish();
}

// One frame (--frame) at OUT, or a range (--frames) at the names OUT's
// pattern makes. Every name is looked at before any picture is written.
int exportImage(vXfsFile& clip, const char* clipPath, const Arguments& args, FrameRange range, const OutputRules& rules)
{
    const std::string& outPath = args.Get("image");
    const ImageKind kind = imageKindOf(outPath);
    if (kind == ImageKind::None)
        return failure("%s: the picture must end in .png, .ppm or .bmp", outPath.c_str());
    SequenceName pattern;
    std::string why;
    if (range.given && !parseSequenceName(outPath, pattern, why))
        return failure("%s: %s", outPath.c_str(), why.c_str());
    const DMimagepacking packing = clip.GetImageFormat();
    if (packing != DM_IMAGE_PACKING_CbYCrY && packing != DM_IMAGE_PACKING_BGR)
        return failure("%s holds neither YUV 4:2:2 nor 24-bit RGB frames", clipPath);
    if (!rangeIsPresent(clip, clipPath, range))
        return 1;
    auto nameOf = [&](int i) { return range.given ? pattern.Of(i) : outPath; };
    for (int i = range.first; i <= range.last; ++i) {
        Destination ignored;
        if (!examineDestination(nameOf(i), outputKindOf(kind), rules, ignored))
            return 1;
    }
    FrameBuffer frame(clip.ImageSize());
    if (frame.size() == 0)
        return failure("out of memory");
    for (int i = range.first; i <= range.last; ++i)
        if (!writePicture(clip, clipPath, i, frame, kind, nameOf(i), rules))
            return 1;
    return 0;
}

// "--frames A-B" (A <= B, from 0) or "--frame N": the range to export.
int readRange(const Arguments& args, FrameRange& range)
{
    if (args.Has("frame") && args.Has("frames"))
        return failure("--frame and --frames do not go together");
    if (args.Has("frame") && args.Has("y4m"))
        return failure("--frame goes with --image; --y4m writes every frame, or those --frames names");
    if (args.Has("frame")) {
        if (!toInt(args.Get("frame"), 0, INT32_MAX - 1, range.first))
            return failure("bad frame number '%s'", args.Get("frame").c_str());
        range.last = range.first;
    } else if (args.Has("image")) {
        range.last = 0;
    }
    if (!args.Has("frames"))
        return 0;
    const std::string& text = args.Get("frames");
    const size_t dash = text.find('-');
    range.given = true;
    if (dash == std::string::npos || !toInt(text.substr(0, dash), 0, INT32_MAX - 1, range.first) ||
        !toInt(text.substr(dash + 1), range.first, INT32_MAX - 1, range.last))
        return failure("bad frame range '%s' (A-B, frames counted from 0, A not after B)", text.c_str());
    return 0;
}

}  // namespace

std::string exportHelp()
{
    return "Usage: vclip export CLIP --y4m OUT.y4m|- [--frames A-B] [--rate R] [--field-order F] [--force]\n"
           "       vclip export CLIP --image OUT.png|OUT.ppm|OUT.bmp [--frame N] [--force]\n"
           "       vclip export CLIP --image 'OUT%04d.png' --frames A-B [--force]\n"
           "Writes a 4:2:2 clip as a YUV4MPEG2 stream (C422), to standard output for '-':\n"
           "every frame, or frames A to B. Its rate and interlacing are the header's (25:1\n"
           "when the rate is 0, Ip when the interlacing is 0) unless --rate R (25, 29.97,\n"
           "30000/1001) and --field-order tff|bff|progressive give them for this export.\n"
           "Or writes frames of a 4:2:2 clip or of a reduced 24-bit RGB clip as pictures\n"
           "(BT.601 studio range to full-range RGB for 4:2:2), the kind following OUT's\n"
           "ending: frame N (default 0), or frames A to B, each at the name OUT's pattern\n"
           "makes (exactly one %d, %Nd or %0Nd, no other '%'). PNG is compressed.\n"
           "Frames the file does not hold in full are refused before anything is written.\n"
           "Each OUT is written beside its place and put there only when complete, so a\n"
           "failed export leaves what was there as it was.\n" +
           replacesText("An existing OUT is replaced only when it is empty, a YUV4MPEG2 stream (for\n"
                        "--y4m) or a picture of the kind its ending names (for --image);\n");
}

int commandExport(const Arguments& args)
{
    if (!oneOperandAndOneOf(args, "export", "one clip", "--y4m OUT.y4m", "--image OUT"))
        return 1;
    if (args.Has("image") && (args.Has("rate") || args.Has("field-order")))
        return failure("--rate and --field-order go with --y4m");
    FrameRange range;
    if (readRange(args, range) != 0)
        return 1;
    const char* path = args.operands[0].c_str();
    vXfsFile clip;
    if (!openForReading(clip, path))
        return 1;
    const OutputRules rules = outputRules(args, {clip.Identity()});
    const int result =
        args.Has("y4m") ? exportY4m(clip, path, args, range, rules) : exportImage(clip, path, args, range, rules);
    clip.Close();
    return result;
}
