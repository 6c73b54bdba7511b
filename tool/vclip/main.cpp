// vclip: the clip store keeper's companion to pal2ntsc. It shows what a clip
// file holds, makes test clips, and moves pictures in and out of the store.
// Errors go to standard error as "vclip: ..." with exit status 1.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "clipfile/vXfsFile.h"
#include "tool/vclip/clipAccess.h"
#include "tool/vclip/imageFiles.h"
#include "tool/vclip/pictures.h"
#include "tool/vclip/y4m.h"

namespace {

constexpr int kMaxSide = 16384;

const char* const kMainHelp =
    "Usage: vclip COMMAND [ARGUMENTS]\n"
    "Looks after clip files of the store.\n"
    "\n"
    "Commands:\n"
    "  info CLIP                         show the header and how many frames are present\n"
    "  bars OUT [options]                make a PAL test clip of colour bars\n"
    "  import --uyvy RAW --width W --height H OUT\n"
    "  import --y4m IN.y4m OUT           make a 4:2:2 clip from raw UYVY or YUV4MPEG2 4:2:2\n"
    "  export CLIP --y4m OUT.y4m         write a 4:2:2 clip as YUV4MPEG2\n"
    "  export CLIP --frame N --image OUT write one frame as .png, .ppm or .bmp\n"
    "\n"
    "'vclip COMMAND --help' describes a command.\n";

// What every command that writes says about what it writes over, after
// the lines that name its own kind of output.
std::string replaces(const std::string& ownKind)
{
    return ownKind +
           "--force replaces any other regular file too. Never replaced, even with --force:\n"
           "a preserved clip, a file the command reads, a directory, anything that is not\n"
           "a regular file. A symbolic link is written through (its target is replaced and\n"
           "the link kept); a link that leads nowhere is refused.\n";
}

const std::map<std::string, std::string> kHelp = {
    {"info",
     "Usage: vclip info CLIP\n"
     "Prints every header field of CLIP (version, frame count, block size, replaceable,\n"
     "width, height, packing, rate, interlacing), its frame slot, data offset and file\n"
     "size, and whether the file really holds the frames its header counts: a frame\n"
     "counts only when its picture is written data in the file (not past the end, not\n"
     "a hole, not space only reserved), so a clip a failed run left shows as\n"
     "\"complete: no, K of N frames present\". A negative frame count is reported as\n"
     "not valid.\n"},
    {"bars",
     "Usage: vclip bars OUT [--frames N] [--width W] [--height H] [--force]\n"
     "Writes a PAL test clip (YUV 4:2:2, packing 1008, 25 frames a second, top field\n"
     "first): 75% colour bars in studio range, a luma ramp, and a white box that is\n"
     "further right in the odd lines than in the even ones, so that a conversion that\n"
     "mixes the two fields shows a doubled box. Defaults: 25 frames, 720x576.\n" +
         replaces("An existing OUT is replaced only when it is empty or a replaceable clip;\n") +
         "A replaceable clip is replaced in place; any other file only once the new clip\n"
         "is complete.\n"},
    {"import",
     "Usage: vclip import --uyvy RAW --width W --height H [--rate R] [--force] OUT\n"
     "       vclip import --y4m IN.y4m [--force] OUT\n"
     "Makes a YUV 4:2:2 clip (packing 1008). RAW holds whole frames of bytes\n"
     "Cb Y0 Cr Y1, top line first (rate 25 unless given). IN.y4m must be a\n"
     "YUV4MPEG2 stream in C422; its rate and interlacing go into the header\n"
     "(It: 1 top field first, Ib: 2 bottom field first, otherwise 0). The whole\n"
     "stream is checked before OUT is touched: a FRAME line that is malformed,\n"
     "longer than 4096 characters or carries a tag other than X, a cut-off FRAME\n"
     "line and a last frame cut short are errors naming the frame (counted from 0).\n" +
         replaces("An existing OUT is replaced only when it is empty or a replaceable clip;\n")},
    {"export",
     "Usage: vclip export CLIP --y4m OUT.y4m [--force]\n"
     "       vclip export CLIP --frame N --image OUT.png|OUT.ppm|OUT.bmp [--force]\n"
     "Writes a 4:2:2 clip as a YUV4MPEG2 stream (C422, rate from the header or\n"
     "25:1, interlacing from the header), or one frame (N from 0) of a 4:2:2\n"
     "clip or of a reduced 24-bit RGB clip as a picture (BT.601 studio range\n"
     "to full-range RGB for 4:2:2). The kind of picture follows OUT's ending.\n"
     "Frames the file does not hold in full are refused before anything is written.\n"
     "OUT is written beside its place and put there only when complete, so a\n"
     "failed export leaves what was there as it was.\n" +
         replaces("An existing OUT is replaced only when it is empty, a YUV4MPEG2 stream (for\n"
                  "--y4m) or a picture of the kind its ending names (for --image);\n")},
};

int failure(const char* format, const std::string& detail = "")
{
    std::fprintf(stderr, "vclip: ");
    std::fprintf(stderr, format, detail.c_str());
    std::fprintf(stderr, "\n");
    return 1;
}

// Arguments of one command: "--name value" options, "--name" flags and
// plain operands.
struct Arguments {
    std::map<std::string, std::string> options;
    std::set<std::string> flags;
    std::vector<std::string> operands;
    bool help = false;
    std::string error;

    bool Has(const std::string& name) const { return options.count(name) != 0; }
    const std::string& Get(const std::string& name) const { return options.at(name); }
    bool Flag(const std::string& name) const { return flags.count(name) != 0; }
};

struct CommandOptions {
    std::vector<std::string> values;  // options that take a value
    std::vector<std::string> flags;   // options that stand alone
};

bool listed(const std::vector<std::string>& names, const std::string& name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

Arguments parse(int argc, char** argv, int from, const CommandOptions& known)
{
    Arguments args;
    for (int i = from; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--help" || word == "-h") {
            args.help = true;
        } else if (word.size() > 2 && word.compare(0, 2, "--") == 0) {
            const std::string name = word.substr(2);
            if (listed(known.flags, name)) {
                args.flags.insert(name);
                continue;
            }
            if (!listed(known.values, name)) {
                args.error = "unknown option " + word;
                return args;
            }
            if (i + 1 >= argc) {
                args.error = "option " + word + " needs a value";
                return args;
            }
            args.options[name] = argv[++i];
        } else {
            args.operands.push_back(word);
        }
    }
    return args;
}

bool toInt(const std::string& text, int low, int high, int& value)
{
    if (text.empty())
        return false;
    char* end = nullptr;
    errno = 0;
    const long v = std::strtol(text.c_str(), &end, 10);
    if (*end != '\0' || errno != 0 || v < low || v > high)
        return false;
    value = static_cast<int>(v);
    return true;
}

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

int commandInfo(const Arguments& args)
{
    if (args.operands.size() != 1)
        return failure("info takes one clip; see 'vclip info --help'");
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
    if (frames < 0)
        std::printf("complete:     no, the frame count %d is not valid\n", frames);
    else if (present == frames)
        std::printf("complete:     yes, all %d frames present\n", frames);
    else
        std::printf("complete:     no, %lld of %d frames present\n", static_cast<long long>(present),
                    frames);
    clip.Close();
    return 0;
}

OutputRules outputRules(const Arguments& args, const std::vector<FileIdentity>& inputs = {})
{
    OutputRules rules;
    rules.force = args.Flag("force");
    rules.inputs = inputs;
    return rules;
}

int commandBars(const Arguments& args)
{
    if (args.operands.size() != 1)
        return failure("bars takes one output clip; see 'vclip bars --help'");
    ClipFormat format;
    int frames = 25;
    if (args.Has("frames") && !toInt(args.Get("frames"), 0, 1 << 20, frames))
        return failure("bad frame count '%s'", args.Get("frames"));
    if (args.Has("width") &&
        (!toInt(args.Get("width"), 2, kMaxSide, format.width) || format.width % 2 != 0))
        return failure("bad width '%s' (an even number of pixels)", args.Get("width"));
    if (args.Has("height") && !toInt(args.Get("height"), 2, kMaxSide, format.height))
        return failure("bad height '%s'", args.Get("height"));

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

// Frame size of a raw or planar 4:2:2 picture.
int64_t rawFrameBytes(int width, int height) { return int64_t{width} * height * 2; }

int importUyvy(const Arguments& args)
{
    ClipFormat format;
    if (!args.Has("width") || !args.Has("height"))
        return failure("import --uyvy needs --width and --height");
    if (!toInt(args.Get("width"), 2, kMaxSide, format.width) || format.width % 2 != 0)
        return failure("bad width '%s' (an even number of pixels)", args.Get("width"));
    if (!toInt(args.Get("height"), 1, kMaxSide, format.height))
        return failure("bad height '%s'", args.Get("height"));
    if (args.Has("rate")) {
        char* end = nullptr;
        format.rate = std::strtod(args.Get("rate").c_str(), &end);
        if (*end != '\0' || !(format.rate > 0) || !(format.rate < 1e6))
            return failure("bad rate '%s'", args.Get("rate"));
    }
    const std::string& raw = args.Get("uyvy");
    UniqueFd in;
    int64_t size = 0;
    if (!openInput(raw, "a file of raw UYVY frames", in, size))
        return 1;
    const int64_t frameBytes = rawFrameBytes(format.width, format.height);
    if (size % frameBytes != 0)
        return failure("%s", raw + " holds " + std::to_string(size) + " bytes, not whole " +
                                 std::to_string(format.width) + "x" + std::to_string(format.height) +
                                 " frames of " + std::to_string(frameBytes) + " bytes");
    const int64_t frames = size / frameBytes;
    if (frames > INT32_MAX)
        return failure("%s holds too many frames for a clip", raw);

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
                return failure("%s", raw + ": frame " + std::to_string(i) +
                                         ": the file changed while it was read");
            if (!out.WriteFrame(i, frame))
                return 1;
        }
    }
    return out.Finish() ? 0 : 1;
}

int importY4m(const Arguments& args)
{
    const std::string& path = args.Get("y4m");
    UniqueFd in;
    int64_t size = 0;
    if (!openInput(path, "a YUV4MPEG2 stream", in, size))
        return 1;

    // The whole stream is checked before the clip is made: its header, and
    // every frame's line and planes, to the last byte of the file.
    Y4mReader reader(in.Get(), size);
    Y4mHeader header;
    std::string error;
    if (!reader.ReadHeader(header, error))
        return failure("%s", path + ": " + error);
    if (header.colour != "422")
        return failure("%s", path + ": colour space C" + header.colour + " (only C422 is taken)");
    if (header.width % 2 != 0 || header.width > kMaxSide || header.height > kMaxSide)
        return failure("%s", path + ": unsupported picture size " + std::to_string(header.width) + "x" +
                                 std::to_string(header.height) + " (even widths up to " +
                                 std::to_string(kMaxSide) + ", heights up to " +
                                 std::to_string(kMaxSide) + ")");
    const int64_t frameBytes = rawFrameBytes(header.width, header.height);
    int64_t frames = 0;
    if (!reader.CountFrames(frameBytes, INT32_MAX, frames, error))
        return failure("%s", path + ": " + error);

    ClipFormat format;
    format.width = header.width;
    format.height = header.height;
    format.rate = header.rateDen > 0 ? double(header.rateNum) / header.rateDen : 25.0;
    format.interlacing = interlacingFromTag(header.interlacing);
    ClipOutput out;
    if (!out.Create(args.operands[0], format, static_cast<int32_t>(frames),
                    outputRules(args, {fsIdentityOf(in.Get())})))
        return 1;
    if (frames > 0) {
        // Every frame was found whole in the file: the buffers are no larger
        // than what it holds.
        FrameBuffer frame(out.Clip().ImageSize());
        std::vector<uint8_t> planes(static_cast<size_t>(frameBytes));
        if (frame.size() == 0)
            return failure("out of memory");
        for (int i = 0; i < frames; ++i) {
            if (!reader.ReadFrame(i, frameBytes, planes.data(), error))
                return failure("%s", path + ": " + error);
            planarToPacked(planes.data(), header.width, header.height, frame.data());
            if (!out.WriteFrame(i, frame))
                return 1;
        }
    }
    return out.Finish() ? 0 : 1;
}

int commandImport(const Arguments& args)
{
    if (args.operands.size() != 1)
        return failure("import takes one output clip; see 'vclip import --help'");
    if (args.Has("uyvy") == args.Has("y4m"))
        return failure("import needs one of --uyvy RAW and --y4m IN.y4m");
    return args.Has("uyvy") ? importUyvy(args) : importY4m(args);
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

    FileOutput out;
    if (!out.Begin(outPath, OutputKind::Y4m, rules))
        return 1;
    const std::string head = formatY4mHeader(header);
    if (!out.Write(head.data(), head.size()))
        return 1;
    if (frames > 0) {
        // Every frame is in the file, so the buffers are no larger than it.
        FrameBuffer frame(clip.ImageSize());
        if (frame.size() == 0)
            return failure("out of memory");
        // Each frame goes out in one write: its FRAME line, then its planes.
        const std::string mark = "FRAME\n";
        const auto planeBytes = static_cast<size_t>(rawFrameBytes(header.width, header.height));
        std::vector<uint8_t> chunk(mark.size() + planeBytes);
        std::copy(mark.begin(), mark.end(), chunk.begin());
        for (int i = 0; i < frames; ++i) {
            if (!readFrame(clip, clipPath, i, frame))
                return 1;
            packedToPlanar(frame.data(), header.width, header.height, chunk.data() + mark.size());
            if (!out.Write(chunk.data(), chunk.size()))
                return 1;
        }
    }
    return out.Finish() ? 0 : 1;
}

int exportImage(vXfsFile& clip, const char* clipPath, const std::string& outPath, int frameNumber,
                const OutputRules& rules)
{
    const ImageKind kind = imageKindOf(outPath);
    if (kind == ImageKind::None)
        return failure("%s: the picture must end in .png, .ppm or .bmp", outPath);
    const DMimagepacking packing = clip.GetImageFormat();
    if (packing != DM_IMAGE_PACKING_CbYCrY && packing != DM_IMAGE_PACKING_BGR)
        return failure("%s holds neither YUV 4:2:2 nor 24-bit RGB frames", clipPath);
    if (!frameIsPresent(clip, clipPath, frameNumber, framesPresent(clip)))
        return 1;
    const OutputKind outputKind = kind == ImageKind::Png   ? OutputKind::Png
                                  : kind == ImageKind::Ppm ? OutputKind::Ppm
                                                           : OutputKind::Bmp;
    FileOutput out;
    if (!out.Begin(outPath, outputKind, rules))
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
        return failure("bad frame number '%s'", args.Get("frame"));
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

}  // namespace

int main(int argc, char** argv)
{
    // A file grown past the size limit fails its write with EFBIG, which is
    // reported, rather than ending the process half way.
    std::signal(SIGXFSZ, SIG_IGN);
    if (argc < 2)
        return std::fprintf(stderr, "%s", kMainHelp), 1;
    const std::string command = argv[1];
    if (command == "--help" || command == "-h" || command == "help") {
        std::printf("%s", kMainHelp);
        return 0;
    }
    static const std::map<std::string, CommandOptions> kOptions = {
        {"info", {}},
        {"bars", {{"frames", "width", "height"}, {"force"}}},
        {"import", {{"uyvy", "y4m", "width", "height", "rate"}, {"force"}}},
        {"export", {{"y4m", "frame", "image"}, {"force"}}},
    };
    const auto options = kOptions.find(command);
    if (options == kOptions.end())
        return failure("unknown command '%s'; see 'vclip --help'", command);
    const Arguments args = parse(argc, argv, 2, options->second);
    if (args.help) {
        std::printf("%s", kHelp.at(command).c_str());
        return 0;
    }
    if (!args.error.empty())
        return failure("%s", args.error);

    int result = 1;
    if (command == "info")
        result = commandInfo(args);
    else if (command == "bars")
        result = commandBars(args);
    else if (command == "import")
        result = commandImport(args);
    else
        result = commandExport(args);
    std::fflush(stdout);
    return result;
}
