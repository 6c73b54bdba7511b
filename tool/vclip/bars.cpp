// vclip bars: a PAL test clip of colour bars, a luma ramp and a box that
// shows whether a conversion kept the two fields apart.
#include "tool/vclip/commands.h"
#include "tool/vclip/help.h"
#include "tool/vclip/messages.h"
#include "tool/vclip/pictures.h"

std::string barsHelp()
{
    return "Usage: vclip bars OUT [--frames N] [--width W] [--height H] [--force]\n"
           "Writes a PAL test clip (YUV 4:2:2, packing 1008, 25 frames a second, top field\n"
           "first): 75% colour bars in studio range, a luma ramp, and a white box that is\n"
           "further right in the odd lines than in the even ones, so that a conversion that\n"
           "mixes the two fields shows a doubled box. Defaults: 25 frames, 720x576.\n" +
           replacesText("An existing OUT is replaced only when it is empty or a replaceable clip;\n") +
           "A replaceable clip is replaced in place; any other file only once the new clip\n"
           "is complete.\n";
}

int commandBars(const Arguments& args)
{
    if (!oneOperand(args, "bars", "one output clip"))
        return 1;
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
