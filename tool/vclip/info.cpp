// vclip info: every header field of a clip, where its frames lie, and how
// many of them the file really holds.
#include <cstdio>

#include "clipfile/vXfsFile.h"
#include "tool/vclip/commands.h"
#include "tool/vclip/help.h"
#include "tool/vclip/messages.h"

namespace {

const char* packingName(DMimagepacking packing)
{
    switch (packing) {
    case DM_IMAGE_PACKING_CbYCrY:
        return " (YUV 4:2:2)";
    case DM_IMAGE_PACKING_BGR:
        return " (24-bit BGR, bottom line first)";
    default:
        return "";
    }
}

void printCompleteness(int32_t frames, int64_t present)
{
    if (frames < 0)
        std::printf("complete:     no, the frame count %d is not valid\n", frames);
    else if (present == frames)
        std::printf("complete:     yes, all %d frames present\n", frames);
    else
        std::printf("complete:     no, %lld of %d frames present\n", static_cast<long long>(present), frames);
}

}  // namespace

std::string infoHelp()
{
    return "Usage: vclip info CLIP\n"
           "Prints every header field of CLIP (version, frame count, block size, replaceable,\n"
           "width, height, packing, rate, interlacing), its frame slot, data offset and file\n"
           "size, and whether the file really holds the frames its header counts: a frame\n"
           "counts only when its picture is written data in the file (not past the end, not\n"
           "a hole, not space only reserved), so a clip a failed run left shows as\n"
           "\"complete: no, K of N frames present\". A negative frame count is reported as\n"
           "not valid.\n";
}

int commandInfo(const Arguments& args)
{
    if (!oneOperand(args, "info", "one clip"))
        return 1;
    const char* path = args.operands[0].c_str();
    vXfsFile clip;
    if (!openForReading(clip, path))
        return 1;
    double rate = 0;
    int interlacing = 0;
    clip.GetImageRate(rate);
    clip.GetInterlacing(interlacing);
    const int32_t frames = clip.GetNumFrames();
    const int64_t present = framesPresent(clip);

    std::printf("clip:         %s\n", path);
    std::printf("version:      %d\n", clip.Version());
    std::printf("frames:       %d\n", frames);
    std::printf("block size:   %d\n", clip.BlockSize());
    std::printf("replaceable:  %d\n", clip.Replaceable());
    std::printf("width:        %d\n", clip.GetWidth());
    std::printf("height:       %d\n", clip.GetHeight());
    std::printf("packing:      %d%s\n", clip.GetImageFormat(), packingName(clip.GetImageFormat()));
    std::printf("rate:         %g\n", rate);
    if (clip.Version() >= 2)
        std::printf("interlacing:  %d\n", interlacing);
    else
        std::printf("interlacing:  not recorded (version 1 header)\n");
    std::printf("frame slot:   %d\n", clip.ImageSize());
    std::printf("data offset:  %d\n", clip.DataOffset());
    std::printf("file size:    %lld\n", static_cast<long long>(clip.FileSizeBytes()));
    printCompleteness(frames, present);
    clip.Close();
    return 0;
}
