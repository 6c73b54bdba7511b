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

// The stream header for the clip: its size, rate and interlacing.
Y4mHeader y4mHeaderOf(vXfsFile& clip)
{
    Y4mHeader header;
    header.width = clip.GetWidth();
    header.height = clip.GetHeight();
    double rate = 0;
    int interlacing = 0;
    clip.GetImageRate(rate);
    clip.GetInterlacing(interlacing);
    rateToFraction(rate, header.rateNum, header.rateDen);
    header.interlacing = interlacingTag(interlacing);
    header.colour = "422";
    return header;
}

int exportY4m(vXfsFile& clip, const char* clipPath, const std::string& outPath, const OutputRules& rules)
{
    if (clip.GetImageFormat() != DM_IMAGE_PACKING_CbYCrY)
        return failure("%s is not a YUV 4:2:2 clip", clipPath);
    if (clip.GetWidth() % 2 != 0)
        return failure("%s has an odd width", clipPath);
    const int32_t frames = clip.GetNumFrames();
    const int64_t present = framesPresent(clip);
    // Every frame must be in the file before anything is written. The
    // message says why not: the count, or the first frame missing.
    if (frames < 0 || present < frames) {
        frameIsPresent(clip, clipPath, present, present);
        return 1;
    }

    const Y4mHeader header = y4mHeaderOf(clip);
    FileOutput out;
    Y4mStreamWriter writer(out);
    if (!out.Begin(outPath, OutputKind::Y4m, rules) || !writer.Begin(header))
        return 1;
    if (frames > 0) {
        // Every frame is in the file, so the buffers are no larger than it.
        FrameBuffer frame(clip.ImageSize());
        std::vector<uint8_t> planes(y4mFrameBytes(header));
        if (frame.size() == 0)
            return failure("out of memory");
        for (int i = 0; i < frames; ++i) {
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

int exportImage(vXfsFile& clip, const char* clipPath, const std::string& outPath, int frameNumber,
                const OutputRules& rules)
{
    const ImageKind kind = imageKindOf(outPath);
    if (kind == ImageKind::None)
        return failure("%s: the picture must end in .png, .ppm or .bmp", outPath.c_str());
    const DMimagepacking packing = clip.GetImageFormat();
    if (packing != DM_IMAGE_PACKING_CbYCrY && packing != DM_IMAGE_PACKING_BGR)
        return failure("%s holds neither YUV 4:2:2 nor 24-bit RGB frames", clipPath);
    if (!frameIsPresent(clip, clipPath, frameNumber, framesPresent(clip)))
        return 1;
    FileOutput out;
    if (!out.Begin(outPath, outputKindOf(kind), rules))
        return 1;
    FrameBuffer frame(clip.ImageSize());
    if (frame.size() == 0)
        return failure("out of memory");
    if (!readFrame(clip, clipPath, frameNumber, frame))
        return 1;
    RgbImage image;
    if (packing == DM_IMAGE_PACKING_CbYCrY)
        yuv422ToRgb(frame.data(), clip.GetWidth(), clip.GetHeight(), image);
    else
        bgrBottomUpToRgb(frame.data(), clip.GetWidth(), clip.GetHeight(), image);
    const std::vector<uint8_t> bytes = encodeImage(kind, image);
    return out.Write(bytes.data(), bytes.size()) && out.Finish() ? 0 : 1;
}

}  // namespace

std::string exportHelp()
{
    return "Usage: vclip export CLIP --y4m OUT.y4m [--force]\n"
           "       vclip export CLIP --frame N --image OUT.png|OUT.ppm|OUT.bmp [--force]\n"
           "Writes a 4:2:2 clip as a YUV4MPEG2 stream (C422, rate from the header or\n"
           "25:1, interlacing from the header), or one frame (N from 0) of a 4:2:2\n"
           "clip or of a reduced 24-bit RGB clip as a picture (BT.601 studio range\n"
           "to full-range RGB for 4:2:2). The kind of picture follows OUT's ending.\n"
           "Frames the file does not hold in full are refused before anything is written.\n"
           "OUT is written beside its place and put there only when complete, so a\n"
           "failed export leaves what was there as it was.\n" +
           replacesText("An existing OUT is replaced only when it is empty, a YUV4MPEG2 stream (for\n"
                        "--y4m) or a picture of the kind its ending names (for --image);\n");
}

int commandExport(const Arguments& args)
{
    if (args.operands.size() != 1)
        return failure("export takes one clip; see 'vclip export --help'");
    if (args.Has("y4m") == args.Has("image"))
        return failure("export needs one of --y4m OUT.y4m and --image OUT");
    if (args.Has("frame") && args.Has("y4m"))
        return failure("--frame goes with --image; --y4m writes every frame");
    int frameNumber = 0;
    if (args.Has("frame") && !toInt(args.Get("frame"), 0, INT32_MAX, frameNumber))
        return failure("bad frame number '%s'", args.Get("frame").c_str());
    const char* path = args.operands[0].c_str();
    vXfsFile clip;
    if (!openForReading(clip, path))
        return 1;
    const OutputRules rules = outputRules(args, {clip.Identity()});
    const int result = args.Has("y4m") ? exportY4m(clip, path, args.Get("y4m"), rules)
                                       : exportImage(clip, path, args.Get("image"), frameNumber, rules);
    clip.Close();
    return result;
}
