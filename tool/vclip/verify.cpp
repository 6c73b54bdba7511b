// vclip verify: proves a converted archive. Every clip under the source
// folder must have its output under the destination folder (and its reduced
// copy, when a folder of them is named) with the converter's header, every
// frame present, and each frame equal to what the converter's own code makes
// of the input frame now, in memory.
#include <algorithm>
#include <cstdio>
#include <string>
#include <tuple>
#include <vector>

#include "tool/blockConvert.h"
#include "tool/vclip/batch.h"
#include "tool/vclip/clipAccess.h"
#include "tool/vclip/commands.h"
#include "tool/vclip/messages.h"
#include "tool/vclip/pictures.h"

namespace {

constexpr size_t kFramesNamed = 10;

// One output being checked: the clip, a frame read from it, a frame made
// fresh.
struct Checked {
    std::string path;
    vXfsFile clip;
    int scale = 4;
    int64_t picture = 0;
    std::vector<int> differing;
};

// The reduced copy's scale, from its size.
bool scaleOf(const std::string& path, int inputWidth, int& scale)
{
    vXfsFile clip;
    if (!openInputClip(clip, path))
        return false;
    for (int s : {4, 2}) {
        const OutputShape shape = reducedShape(inputWidth, s);
        if (clip.GetWidth() == shape.width && clip.GetHeight() == shape.height)
            scale = s;
    }
    return true;
}

// Header and frames present of an output, then open for reading.
std::string openOutput(Checked& out, const OutputShape& shape, int32_t frames)
{
    std::string problem = outputProblem(out.path, shape, frames);
    if (problem.empty() && !openInputClip(out.clip, out.path))
        problem = "not a readable clip";
    out.picture = pictureBytes(out.clip);
    return problem.empty() ? problem : out.path + ": " + problem;
}

// Converts every input frame afresh and compares it with the outputs.
std::string compareFrames(vXfsFile& input, const std::string& inputPath, Checked& ntsc, Checked* reduced)
{
    const int width = input.GetWidth(), height = input.GetHeight();
    FrameBuffer inFrame(input.ImageSize()), fresh(ntsc.clip.ImageSize()), read(ntsc.clip.ImageSize());
    FrameBuffer freshReduced(reduced ? reduced->clip.ImageSize() : 0), readReduced(freshReduced.size());
    if (inFrame.size() == 0 || fresh.size() == 0 || read.size() == 0 ||
        (reduced && (freshReduced.size() == 0 || readReduced.size() == 0)))
        return "out of memory";
    for (int i = 0; i < input.GetNumFrames(); ++i) {
        if (!readFrame(input, inputPath.c_str(), i, inFrame))
            return inputPath + ": frame " + std::to_string(i) + " cannot be read";
        convert(inFrame.data(), fresh.data(), reduced ? freshReduced.data() : nullptr, 1, width, height,
                ntscShape(width).height, reduced ? reduced->scale : 4, inFrame.size(), fresh.size(),
                freshReduced.size());
        for (auto [out, made, got] :
             {std::tuple{&ntsc, &fresh, &read}, std::tuple{reduced, &freshReduced, &readReduced}}) {
            if (out == nullptr)
                continue;
            if (!readFrame(out->clip, out->path.c_str(), i, *got))
                return out->path + ": frame " + std::to_string(i) + " cannot be read";
            if (!std::equal(made->data(), made->data() + out->picture, got->data()))
                out->differing.push_back(i);
        }
    }
    return {};
}

std::string differences(const Checked& out, int32_t frames)
{
    std::string text = out.path + ": " + std::to_string(out.differing.size()) + " of " + std::to_string(frames) +
                       " frames differ from a fresh conversion (frame";
    for (size_t k = 0; k < out.differing.size() && k < kFramesNamed; ++k)
        text += (k == 0 ? " " : ", ") + std::to_string(out.differing[k]);
    return text + (out.differing.size() > kFramesNamed ? ", ...)" : ")");
}

// The problems of one clip's outputs, one line each; none when it is right.
std::vector<std::string> verifyClip(const BatchClip& clip)
{
    vXfsFile input;
    if (!openInputClip(input, clip.input))
        return {clip.input + ": the input cannot be read as a clip"};
    const int32_t frames = input.GetNumFrames();
    const int width = input.GetWidth(), height = input.GetHeight();
    if (frames < 0 || height < 2 || input.ImageSize() < yuv422Bytes(width, height) || framesPresent(input) < frames)
        return {clip.input + ": the input cannot be converted (damaged or not a PAL 4:2:2 clip)"};

    std::vector<std::string> problems;
    Checked ntsc, reduced;
    ntsc.path = clip.ntsc;
    reduced.path = clip.reduced;
    if (std::string p = openOutput(ntsc, ntscShape(width), frames); !p.empty())
        problems.push_back(p);
    if (!clip.reduced.empty()) {
        std::string p = scaleOf(clip.reduced, width, reduced.scale) ? "" : clip.reduced + ": not a readable clip";
        if (p.empty())
            p = openOutput(reduced, reducedShape(width, reduced.scale), frames);
        if (!p.empty())
            problems.push_back(p);
    }
    if (!problems.empty())
        return problems;
    if (std::string p = compareFrames(input, clip.input, ntsc, clip.reduced.empty() ? nullptr : &reduced); !p.empty())
        return {p};
    for (const Checked* out : {&ntsc, &reduced})
        if (!out->differing.empty())
            problems.push_back(differences(*out, frames));
    return problems;
}

}  // namespace

int commandVerify(const Arguments& args)
{
    if (args.operands.size() != 2)
        return failure("verify takes a source and a destination folder; see 'vclip verify --help'");
    BatchSettings settings;
    settings.source = args.operands[0];
    settings.destination = args.operands[1];
    settings.reduced = args.Has("reduced") ? args.Get("reduced") : "";
    std::vector<ArchiveEntry> entries;
    if (!walkArchive(settings.source, entries))
        return 1;
    size_t clips = 0, wrong = 0;
    for (const ArchiveEntry& entry : entries) {
        if (!entry.clip)
            continue;
        ++clips;
        const std::vector<std::string> problems = verifyClip(batchClipOf(settings, entry.relative));
        for (const std::string& problem : problems)
            std::printf("%s\n", problem.c_str());
        wrong += !problems.empty();
        std::fflush(stdout);
    }
    std::printf("verify: %zu clips, %zu right, %zu wrong\n", clips, clips - wrong, wrong);
    return wrong == 0 ? 0 : 1;
}

std::string verifyHelp()
{
    return "Usage: vclip verify SRC DST [--reduced RDIR]\n"
           "Checks what 'vclip batch SRC DST [--reduced RDIR]' made: for every clip under\n"
           "SRC, the clip of the same relative path under DST (and RDIR) must have the\n"
           "converter's header for that input (720x576 in gives 720x486, packing 1008;\n"
           "reduced copies 180x121 or 360x243, packing 1000), hold every frame, and each\n"
           "frame must equal a fresh conversion of the input frame in memory, by the\n"
           "converter's own code. Prints a line for each output that is missing, damaged\n"
           "or different (naming the frames that differ), then a summary; exits 1 when\n"
           "any clip is not right, inputs that cannot be converted included. Files that\n"
           "are not clips are left out.\n";
}
