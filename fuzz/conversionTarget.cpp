// Fuzz target: the whole tool, in process, on a tiny clip.
//
// Input layout: byte 0 holds the options, the rest is the PAL clip file.
//   bit 0     make a reduced clip (-n)
//   bit 1     -s 2 instead of the default 4
//   bit 2     -s taken from a set of unsupported scales instead
//   bits 3-4  -a: 128, 4096, 0 or 24
//   bit 5     an NTSC file is already there and is no clip
//
// The run gives back the line it ends with, so every input runs in this
// process: an empty line is a run that went to its end.
//
// Properties checked: no fault (the sanitizers watch); the input clip keeps
// its bytes; nothing but the named files is left in the directory; an
// existing file that is no clip is never overwritten; and a run that ends
// normally leaves complete outputs whose headers say what the input said.
#include "fuzz/fuzzScratch.h"
#include "fuzz/fuzzTargets.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "tool/commandLine.h"

namespace {

struct ClipFields {
    bool ok = false;
    int32_t version = 0, frames = 0, blockSize = 0, width = 0, height = 0, packing = 0;
};

int32_t be32(const std::vector<unsigned char>& b, size_t at)
{
    return static_cast<int32_t>((uint32_t{b[at]} << 24) | (uint32_t{b[at + 1]} << 16) | (uint32_t{b[at + 2]} << 8) |
                                b[at + 3]);
}

ClipFields fieldsOf(const std::vector<unsigned char>& b)
{
    ClipFields f;
    if (b.size() < 40 || be32(b, 0) != 0x000609CE)
        return f;
    f.ok = true;
    f.version = be32(b, 4);
    f.frames = be32(b, 8);
    f.blockSize = be32(b, 12);
    f.width = be32(b, 20);
    f.height = be32(b, 24);
    f.packing = be32(b, 28);
    return f;
}

int64_t slotOf(const ClipFields& f, int bytesPerPixel)
{
    const int64_t frame = int64_t{f.width} * f.height * bytesPerPixel;
    return (frame + f.blockSize - 1) / f.blockSize * f.blockSize;
}

// A finished output clip: our header, and room for every frame.
void checkOutput(const std::string& path, int32_t frames, int32_t width, int32_t height, int32_t packing,
                 int bytesPerPixel)
{
    const std::vector<unsigned char> bytes = fuzzReadFile(path);
    const ClipFields f = fieldsOf(bytes);
    fuzzCheck(f.ok && f.version == 3, "finished output has no clip header");
    fuzzCheck(f.frames == frames, "output frame count differs from the input's");
    fuzzCheck(f.width == width && f.height == height && f.packing == packing, "output header describes other pictures");
    fuzzCheck(f.blockSize > 0, "output block size is not positive");
    const int64_t slot = slotOf(f, bytesPerPixel);
    // Frame 0 begins one slot in; a clip of no frames may end with its header.
    if (frames > 0)
        fuzzCheck(static_cast<int64_t>(bytes.size()) >= slot + frames * slot,
                  "finished output is shorter than its frames");
}

}  // namespace

int fuzzConversion(const uint8_t* data, size_t size)
{
    if (size < 1)
        return 0;
    const unsigned options = data[0];
    const std::string dir = fuzzScratchDir();
    const std::string pal = dir + "/in", ntsc = dir + "/out", small = dir + "/small";
    std::remove(ntsc.c_str());
    std::remove(small.c_str());
    fuzzCheck(fuzzWriteFile(pal, data + 1, size - 1), "input file cannot be written");
    const std::vector<unsigned char> input(data + 1, data + size);

    const std::vector<unsigned char> junk(300, 0x42);
    const bool junkThere = options & 32;
    if (junkThere)
        fuzzCheck(fuzzWriteFile(ntsc, junk.data(), junk.size()), "junk file cannot be written");

    static const char* const kOddScales[] = {"0", "3", "8", "-4"};
    static const char* const kAlignments[] = {"128", "4096", "0", "24"};
    const bool reducing = options & 1;
    const char* scale = options & 4 ? kOddScales[(options >> 6) & 3] : options & 2 ? "2" : "4";
    std::vector<std::string> args{
        "pal2ntsc", "-P", pal, "-N", ntsc, "-s", scale, "-a", kAlignments[(options >> 3) & 3]};
    if (reducing) {
        args.push_back("-n");
        args.push_back(small);
    }
    std::vector<char*> argv;
    for (std::string& a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);

    optind = 0;  // getopt starts afresh for every run
    const bool finished = runPal2ntsc(static_cast<int>(args.size()), argv.data()).empty();
    std::fflush(stdout);

    fuzzCheck(fuzzReadFile(pal) == input, "the input clip was changed");
    if (junkThere)
        fuzzCheck(fuzzReadFile(ntsc) == junk, "an existing file that is no clip was overwritten");
    fuzzCheck(fuzzStrayFiles({"in", "out", "small"}).empty(), "a scratch file was left behind");

    // A reduced clip at an unsupported scale is refused, so a finished run
    // never has one.
    const ClipFields in = fieldsOf(input);
    if (finished) {
        fuzzCheck(!(reducing && (options & 4)), "a run with an unsupported scale ended normally");
        fuzzCheck(in.ok && !junkThere, "a run on a bad input ended normally");
        checkOutput(ntsc, in.frames, in.width, 486, 1008, 2);
        if (reducing) {
            const int s = std::atoi(scale);
            checkOutput(small, in.frames, in.width / s, 486 / s, 1000, 3);
        }
    }
    for (const std::string* name : {&pal, &ntsc, &small})
        std::remove(name->c_str());
    return 0;
}
