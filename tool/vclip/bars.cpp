// vclip bars: a PAL test clip of colour bars, a luma ramp and a box that
// shows whether a conversion kept the two fields apart.
#include "tool/vclip/commands.h"
#include "tool/vclip/messages.h"
#include "tool/vclip/pictures.h"

int commandBars(const Arguments& args)
{
    if (args.operands.size() != 1)
        return failure("bars takes one output clip; see 'vclip bars --help'");
    ClipFormat format;
    int frames = 25;
    if (args.Has("frames") && !toInt(args.Get("frames"), 0, 1 << 20, frames))
        return failure("bad frame count '%s'", args.Get("frames").c_str());
    if (args.Has("width") && (!toInt(args.Get("width"), 2, kMaxSide, format.width) || format.width % 2 != 0))
        return failure("bad width '%s' (an even number of pixels)", args.Get("width").c_str());
    if (args.Has("height") && !toInt(args.Get("height"), 2, kMaxSide, format.height))
        return failure("bad height '%s'", args.Get("height").c_str());

    ClipOutput out;
    if (!out.Create(args.operands[0], format, frames, outputRules(args)))
        return 1;
    vXfsFile& clip = out.Clip();
    if (frames > 0) {
        FrameBuffer frame(clip.ImageSize());
        if (frame.size() == 0)
            return failure("out of memory");
        for (int i = 0; i < frames; ++i) {
            makeBars(frame.data(), format.width, format.height, i);
            if (!out.WriteFrame(i, frame))
                return 1;
        }
    }
    return out.Finish() ? 0 : 1;
}
