// vclip set: the header fields a keeper sets by hand (rate, field order,
// replaceable), rewritten in place by the clip store's own header writer.
// The frames are never touched.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tool/vclip/commands.h"
#include "tool/vclip/help.h"
#include "tool/vclip/messages.h"

namespace {

struct HeaderChange {
    bool rate = false, fieldOrder = false, replaceable = false;
    double rateValue = 0;
    int interlacing = 0, replaceableValue = 1;
};

// A clip opened to read, whose header is then written again with new
// fields through a descriptor opened to write the same file.
class HeaderRewrite : public vXfsFile {
public:
    // The clip open (openForReading) is `path`; `fd` is the same file,
    // opened to write. The header goes out in one write.
    bool Rewrite(const char* path, int fd, const HeaderChange& change)
    {
        if (change.rate)
            SetImageRate(change.rateValue);
        if (change.fieldOrder)
            SetInterlacing(change.interlacing);
        if (change.replaceable)
            replaceable = change.replaceableValue;
        const int own = descriptor;
        descriptor = fd;
        const bool written = WriteHead(fd, header) != 0 && fsync(fd) == 0;
        const int error = errno;
        descriptor = own;
        if (!written)
            failure("%s: unable to rewrite the header: %s", path, std::strerror(error));
        return written;
    }
};

int readChange(const Arguments& args, HeaderChange& change)
{
    change.rate = args.Has("rate");
    if (change.rate && !toRate(args.Get("rate"), change.rateValue))
        return failure("bad rate '%s' (frames a second: 25, 29.97 or 30000/1001)", args.Get("rate").c_str());
    change.fieldOrder = args.Has("field-order");
    if (change.fieldOrder && !toFieldOrder(args.Get("field-order"), change.interlacing))
        return failure("bad field order '%s' (tff, bff or progressive)", args.Get("field-order").c_str());
    change.replaceable = args.Has("replaceable");
    if (change.replaceable && !toInt(args.Get("replaceable"), 0, 1, change.replaceableValue))
        return failure("bad replaceable value '%s' (0 or 1)", args.Get("replaceable").c_str());
    if (!change.rate && !change.fieldOrder && !change.replaceable)
        return failure("set needs --rate, --field-order or --replaceable; see 'vclip set --help'");
    return 0;
}

}  // namespace

int commandSet(const Arguments& args)
{
    HeaderChange change;
    if (!oneOperand(args, "set", "one clip") || readChange(args, change) != 0)
        return 1;
    HeaderRewrite clip;
    const char* path = args.operands[0].c_str();
    if (!openForReading(clip, path))
        return 1;
    if (change.fieldOrder && clip.Version() < 2)
        return failure("%s has a version 1 header, which records no field order", path);
    if ((change.rate || change.fieldOrder) && clip.Replaceable() == 0 &&
        !(change.replaceable && change.replaceableValue == 1))
        return failure("%s is a preserved clip; its header is left as it is (--replaceable 1 releases it)", path);
    const UniqueFd fd(open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!fd.IsOpen())
        return failure("%s: %s", path, std::strerror(errno));
    if (!fsSameFile(fsIdentityOf(fd.Get()), clip.Identity()))
        return failure("%s changed while it was examined; it is left as it is", path);
    const bool done = clip.Rewrite(path, fd.Get(), change);
    clip.Close();
    return done ? 0 : 1;
}

std::string setHelp()
{
    return "Usage: vclip set CLIP [--rate R] [--field-order tff|bff|progressive] [--replaceable 0|1]\n"
           "Rewrites header fields of CLIP in place; its frames are not touched.\n"
           "--rate R is frames a second (25, 29.97 or 30000/1001), --field-order the\n"
           "interlacing (tff 1, bff 2, progressive 0; a version 1 header has none),\n"
           "--replaceable 0 preserves the clip (no run writes over it), 1 releases it.\n"
           "The converter writes rate 0 and interlacing 0 into the clips it makes, and\n"
           "their frames are bottom field first at the input's rate; 'vclip set OUT.clip\n"
           "--rate 25 --field-order bff' records that. A preserved clip takes only\n"
           "--replaceable; the rest is refused until it is released.\n";
}
