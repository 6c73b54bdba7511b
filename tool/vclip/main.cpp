// vclip: the clip store keeper's companion to pal2ntsc. It shows what a clip
// file holds, makes test clips, and moves pictures in and out of the store.
// Errors go to standard error as "vclip: ..." with exit status 1.
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
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
    "  info CLIP                         show the header and whether all frames are present\n"
    "  bars OUT [options]                make a PAL test clip of colour bars\n"
    "  import --uyvy RAW --width W --height H OUT\n"
    "  import --y4m IN.y4m OUT           make a 4:2:2 clip from raw UYVY or YUV4MPEG2 4:2:2\n"
    "  export CLIP --y4m OUT.y4m         write a 4:2:2 clip as YUV4MPEG2\n"
    "  export CLIP --frame N --image OUT write one frame as .png, .ppm or .bmp\n"
    "\n"
    "'vclip COMMAND --help' describes a command.\n";

const std::map<std::string, const char*> kHelp = {
    {"info",
     "Usage: vclip info CLIP\n"
     "Prints every header field of CLIP (version, frame count, block size, replaceable,\n"
     "width, height, packing, rate, interlacing), its frame slot, data offset and file\n"
     "size, and whether the file really holds all the frames its header counts.\n"},
    {"bars",
     "Usage: vclip bars OUT [--frames N] [--width W] [--height H]\n"
     "Writes a PAL test clip (YUV 4:2:2, packing 1008, 25 frames a second, top field\n"
     "first): 75% colour bars in studio range, a luma ramp, and a white box that is\n"
     "further right in the odd lines than in the even ones, so that a conversion that\n"
     "mixes the two fields shows a doubled box. Defaults: 25 frames, 720x576.\n"
     "An existing OUT is replaced only when it is a replaceable clip.\n"},
    {"import",
     "Usage: vclip import --uyvy RAW --width W --height H [--rate R] OUT\n"
     "       vclip import --y4m IN.y4m OUT\n"
     "Makes a YUV 4:2:2 clip (packing 1008). RAW holds whole frames of bytes\n"
     "Cb Y0 Cr Y1, top line first (rate 25 unless given). IN.y4m must be a\n"
     "YUV4MPEG2 stream in C422; its rate and interlacing go into the header\n"
     "(It: 1 top field first, Ib: 2 bottom field first, otherwise 0).\n"
     "An existing OUT is replaced only when it is a replaceable clip.\n"},
    {"export",
     "Usage: vclip export CLIP --y4m OUT.y4m\n"
     "       vclip export CLIP --frame N --image OUT.png|OUT.ppm|OUT.bmp\n"
     "Writes a 4:2:2 clip as a YUV4MPEG2 stream (C422, rate from the header or\n"
     "25:1, interlacing from the header), or one frame (N from 0) of a 4:2:2\n"
     "clip or of a reduced 24-bit RGB clip as a picture (BT.601 studio range\n"
     "to full-range RGB for 4:2:2). The kind of picture follows OUT's ending.\n"},
};

int failure(const char* format, const std::string& detail = "")
{
    std::fprintf(stderr, "vclip: ");
    std::fprintf(stderr, format, detail.c_str());
    std::fprintf(stderr, "\n");
    return 1;
}

// Arguments of one command: "--name value" options and plain operands.
struct Arguments {
    std::map<std::string, std::string> options;
    std::vector<std::string> operands;
    bool help = false;
    std::string error;

    bool Has(const std::string& name) const { return options.count(name) != 0; }
    const std::string& Get(const std::string& name) const { return options.at(name); }
};

Arguments parse(int argc, char** argv, int from, const std::vector<std::string>& known)
{
    Arguments args;
    for (int i = from; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--help" || word == "-h") {
            args.help = true;
        } else if (word.size() > 2 && word.compare(0, 2, "--") == 0) {
            const std::string name = word.substr(2);
            bool isKnown = false;
            for (const auto& k : known)
                isKnown = isKnown || k == name;
            if (!isKnown) {
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
    if (present >= frames)
        std::printf("complete:     yes, all %d frames present\n", frames);
    else
        std::printf("complete:     no, %lld of %d frames present\n", static_cast<long long>(present),
                    frames);
    clip.Close();
    return 0;
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

    vXfsFile clip;
    if (!createClip(clip, args.operands[0].c_str(), format, frames, nullptr))
        return 1;
    FrameBuffer frame(clip.ImageSize());
    if (frame.size() == 0)
        return failure("out of memory");
    for (int i = 0; i < frames; ++i) {
        makeBars(frame.data(), format.width, format.height, i);
        if (!writeFrame(clip, i, frame))
            return 1;
    }
    clip.Close();
    return 0;
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
        if (*end != '\0' || !(format.rate > 0))
            return failure("bad rate '%s'", args.Get("rate"));
    }
    const std::string& raw = args.Get("uyvy");
    const std::string& out = args.operands[0];
    struct stat st;
    if (stat(raw.c_str(), &st) != 0)
        return failure("%s", raw + ": " + std::strerror(errno));
    const int64_t frameBytes = rawFrameBytes(format.width, format.height);
    if (st.st_size % frameBytes != 0)
        return failure("%s does not hold whole frames of the given size", raw);
    const int64_t frames = st.st_size / frameBytes;
    if (frames > INT32_MAX)
        return failure("%s holds too many frames", raw);

    std::FILE* in = std::fopen(raw.c_str(), "rb");
    if (!in)
        return failure("%s", raw + ": " + std::strerror(errno));
    vXfsFile clip;
    if (!createClip(clip, out.c_str(), format, static_cast<int32_t>(frames), raw.c_str())) {
        std::fclose(in);
        return 1;
    }
    FrameBuffer frame(clip.ImageSize());
    int result = frame.size() == 0 ? failure("out of memory") : 0;
    for (int i = 0; result == 0 && i < frames; ++i) {
        if (std::fread(frame.data(), 1, frameBytes, in) != static_cast<size_t>(frameBytes))
            result = failure("%s ended early", raw);
        else if (!writeFrame(clip, i, frame))
            result = 1;
    }
    std::fclose(in);
    clip.Close();
    return result;
}

// Reads one line of at most `limit` characters, without its line end.
bool readLine(std::FILE* in, std::string& line, size_t limit)
{
    line.clear();
    for (int c; (c = std::fgetc(in)) != EOF;) {
        if (c == '\n')
            return true;
        if (line.size() >= limit)
            return false;
        line.push_back(static_cast<char>(c));
    }
    return false;
}

int importY4m(const Arguments& args)
{
    const std::string& path = args.Get("y4m");
    const std::string& out = args.operands[0];
    std::FILE* in = std::fopen(path.c_str(), "rb");
    if (!in)
        return failure("%s", path + ": " + std::strerror(errno));
    struct Closer {
        std::FILE* f;
        ~Closer() { std::fclose(f); }
    } closer{in};

    std::string line, error;
    Y4mHeader header;
    if (!readLine(in, line, 4096) || !parseY4mHeader(line, header, error))
        return failure("%s", path + ": " + (error.empty() ? "not a YUV4MPEG2 stream" : error));
    if (header.colour != "422")
        return failure("%s", path + ": colour space C" + header.colour + " (only C422 is taken)");
    if (header.width % 2 != 0 || header.width > kMaxSide || header.height > kMaxSide)
        return failure("%s", path + ": unsupported picture size");
    const int64_t frameBytes = rawFrameBytes(header.width, header.height);
    const long dataStart = std::ftell(in);

    // First pass: count the frames, so that the clip's header is right
    // from the start, and refuse a stream that ends inside a frame.
    int32_t frames = 0;
    while (readLine(in, line, 4096)) {
        if (line.compare(0, 5, "FRAME") != 0)
            return failure("%s", path + ": frame " + std::to_string(frames) + " has no FRAME mark");
        if (std::fseek(in, static_cast<long>(frameBytes), SEEK_CUR) != 0)
            return failure("%s", path + ": cannot seek");
        ++frames;
    }
    struct stat st;
    if (fstat(fileno(in), &st) != 0 || std::ftell(in) > st.st_size)
        return failure("%s", path + ": the last frame is cut short");

    ClipFormat format;
    format.width = header.width;
    format.height = header.height;
    format.rate = header.rateDen > 0 ? double(header.rateNum) / header.rateDen : 25.0;
    format.interlacing = interlacingFromTag(header.interlacing);
    vXfsFile clip;
    if (!createClip(clip, out.c_str(), format, frames, path.c_str()))
        return 1;
    FrameBuffer frame(clip.ImageSize());
    std::vector<uint8_t> planes(static_cast<size_t>(frameBytes));
    int result = frame.size() == 0 ? failure("out of memory") : 0;
    std::fseek(in, dataStart, SEEK_SET);
    for (int i = 0; result == 0 && i < frames; ++i) {
        if (!readLine(in, line, 4096) ||
            std::fread(planes.data(), 1, planes.size(), in) != planes.size()) {
            result = failure("%s", path + ": read error");
            break;
        }
        planarToPacked(planes.data(), header.width, header.height, frame.data());
        if (!writeFrame(clip, i, frame))
            result = 1;
    }
    clip.Close();
    return result;
}

int commandImport(const Arguments& args)
{
    if (args.operands.size() != 1)
        return failure("import takes one output clip; see 'vclip import --help'");
    if (args.Has("uyvy") == args.Has("y4m"))
        return failure("import needs one of --uyvy RAW and --y4m IN.y4m");
    return args.Has("uyvy") ? importUyvy(args) : importY4m(args);
}

int exportY4m(vXfsFile& clip, const char* clipPath, const std::string& out)
{
    if (clip.GetImageFormat() != DM_IMAGE_PACKING_CbYCrY)
        return failure("%s is not a YUV 4:2:2 clip", clipPath);
    if (clip.GetWidth() % 2 != 0)
        return failure("%s has an odd width", clipPath);
    if (sameFile(out.c_str(), clipPath))
        return failure("%s is the clip itself; it is left as it is", out);
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

    std::FILE* f = std::fopen(out.c_str(), "wb");
    if (!f)
        return failure("%s", out + ": " + std::strerror(errno));
    const std::string head = formatY4mHeader(header);
    bool ok = std::fwrite(head.data(), 1, head.size(), f) == head.size();
    FrameBuffer frame(clip.ImageSize());
    std::vector<uint8_t> planes(static_cast<size_t>(rawFrameBytes(header.width, header.height)));
    for (int i = 0; ok && i < clip.GetNumFrames(); ++i) {
        if (!readFrame(clip, i, frame)) {
            std::fclose(f);
            return 1;
        }
        packedToPlanar(frame.data(), header.width, header.height, planes.data());
        ok = std::fwrite("FRAME\n", 1, 6, f) == 6 &&
             std::fwrite(planes.data(), 1, planes.size(), f) == planes.size();
    }
    if (std::fclose(f) != 0 || !ok)
        return failure("%s", out + ": " + std::strerror(errno));
    return 0;
}

int exportImage(vXfsFile& clip, const char* clipPath, const std::string& out, int frameNumber)
{
    const DMimagepacking packing = clip.GetImageFormat();
    if (packing != DM_IMAGE_PACKING_CbYCrY && packing != DM_IMAGE_PACKING_BGR)
        return failure("%s holds neither YUV 4:2:2 nor 24-bit RGB frames", clipPath);
    if (sameFile(out.c_str(), clipPath))
        return failure("%s is the clip itself; it is left as it is", out);
    FrameBuffer frame(clip.ImageSize());
    if (frame.size() == 0)
        return failure("out of memory");
    if (!readFrame(clip, frameNumber, frame))
        return 1;
    RgbImage image;
    if (packing == DM_IMAGE_PACKING_CbYCrY)
        yuv422ToRgb(frame.data(), clip.GetWidth(), clip.GetHeight(), image);
    else
        bgrBottomUpToRgb(frame.data(), clip.GetWidth(), clip.GetHeight(), image);
    if (!writeImage(out, image))
        return errno == EINVAL ? failure("%s: the picture must end in .png, .ppm or .bmp", out)
                               : failure("%s", out + ": " + std::strerror(errno));
    return 0;
}

int commandExport(const Arguments& args)
{
    if (args.operands.size() != 1)
        return failure("export takes one clip; see 'vclip export --help'");
    if (args.Has("y4m") == args.Has("image"))
        return failure("export needs one of --y4m OUT.y4m and --image OUT");
    int frameNumber = 0;
    if (args.Has("frame") && !toInt(args.Get("frame"), 0, INT32_MAX, frameNumber))
        return failure("bad frame number '%s'", args.Get("frame"));
    const char* path = args.operands[0].c_str();
    vXfsFile clip;
    if (!openForReading(clip, path))
        return 1;
    const int result = args.Has("y4m") ? exportY4m(clip, path, args.Get("y4m"))
                                       : exportImage(clip, path, args.Get("image"), frameNumber);
    clip.Close();
    return result;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
        return std::fprintf(stderr, "%s", kMainHelp), 1;
    const std::string command = argv[1];
    if (command == "--help" || command == "-h" || command == "help") {
        std::printf("%s", kMainHelp);
        return 0;
    }
    static const std::map<std::string, std::vector<std::string>> kOptions = {
        {"info", {}},
        {"bars", {"frames", "width", "height"}},
        {"import", {"uyvy", "y4m", "width", "height", "rate"}},
        {"export", {"y4m", "frame", "image"}},
    };
    const auto options = kOptions.find(command);
    if (options == kOptions.end())
        return failure("unknown command '%s'; see 'vclip --help'", command);
    const Arguments args = parse(argc, argv, 2, options->second);
    if (args.help) {
        std::printf("%s", kHelp.at(command));
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
