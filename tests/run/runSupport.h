// The built executables and generated clips for the end-to-end suite. Clip
// files are made byte by byte, so the tests do not trust the code they check
// to write their input.
#pragma once

#include <unistd.h>

#include <map>
#include <random>

#include "tests/common/testSupport.h"
#include "tool/commandLine.h"

namespace run {

using namespace tsupport;

inline RunResult Run(const char* program, std::vector<std::string> args)
{
    args.insert(args.begin(), program);
    return RunProgram(program, args);
}
inline RunResult Tool(std::vector<std::string> args) { return Run(PAL2NTSC_BIN, std::move(args)); }
inline RunResult Vclip(std::vector<std::string> args) { return Run(VCLIP_BIN, std::move(args)); }

// A program's entry run in this process, with what it prints captured: the
// same entry as the executable's, so the same lines in the same order.
inline RunResult InProcess(const char* program, int (*entry)(int, char**), std::vector<std::string> args)
{
    args.insert(args.begin(), program);
    std::vector<char*> argv;
    for (std::string& a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    RunResult result;
    optind = 0;  // getopt starts afresh
    result.err = StderrOf(
        [&] { result.out = StdoutOf([&] { result.status = entry(static_cast<int>(args.size()), argv.data()); }); });
    return result;
}

inline RunResult ToolInProcess(std::vector<std::string> args)
{
    return InProcess("pal2ntsc", pal2ntscMain, std::move(args));
}

inline ClipHeader Header(int32_t frames, int32_t width, int32_t height, int32_t packing = 1008, double rate = 25.0,
                         int32_t interlacing = 1, int32_t replaceable = 1)
{
    return ClipHeader{0x000609CE, 3, frames, 4096, replaceable, width, height, packing, rate, interlacing};
}

inline std::string Encoded(const ClipHeader& h)
{
    const Bytes b = h.Encode();
    return {b.begin(), b.end()};
}

inline int64_t Picture(const ClipHeader& h)
{
    return int64_t{h.width} * h.height * (h.packing == 1000 ? 3 : h.packing == 1005 ? 1 : 2);
}

// Frame slots, version 3: whole 4096-byte blocks, frame 0 one slot in.
inline int64_t Slot(const ClipHeader& h) { return (Picture(h) + 4095) / 4096 * 4096; }

inline std::string Random(int64_t bytes, uint32_t seed)
{
    std::mt19937 random(seed);
    std::string text(size_t(bytes), '\0');
    for (char& c : text)
        c = char(random());
    return text;
}

// A YUV4MPEG2 stream of 4:2:2 pictures: the header line, then `frames`
// frames, frame f holding Random(2 * width * height, seed + f).
inline std::string Y4mStream(const std::string& header, int frames, int width, int height, uint32_t seed)
{
    std::string stream = header;
    for (int f = 0; f < frames; ++f)
        stream += "FRAME\n" + Random(int64_t{2} * width * height, seed + uint32_t(f));
    return stream;
}

// A clip whose frame i holds Random(picture, seed + i) and zero padding;
// keepBytes >= 0 cuts the file to that length.
inline void WriteClip(const std::string& path, const ClipHeader& h, uint32_t seed, int64_t keepBytes = -1)
{
    const size_t slot = size_t(Slot(h));
    std::string file = Encoded(h);
    file.resize(slot, '\0');
    for (int i = 0; i < h.frames; ++i)
        file += Random(Picture(h), seed + i).append(slot - size_t(Picture(h)), '\0');
    WriteFile(path, keepBytes >= 0 ? file.substr(0, size_t(keepBytes)) : file);
}

// Every entry under a directory, by its path there: a hash for a file, the
// target for a link. Two snapshots are equal when no file changed and none
// came or went.
inline std::map<std::string, std::string> Snapshot(const std::string& dir)
{
    std::map<std::string, std::string> entries;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir)) {
        const std::string name = entry.path().lexically_relative(dir);
        if (entry.is_symlink())
            entries[name] = "link to " + std::filesystem::read_symlink(entry.path()).string();
        else if (entry.is_regular_file())
            entries[name] = std::to_string(HashFile(entry.path()));
        else
            entries[name] = entry.is_directory() ? "directory" : "special file";
    }
    return entries;
}

// Whether a program is on the PATH; when it is not, says that the test
// calling this is skipped.
inline bool Missing(const std::string& tool)
{
    if (std::system(("command -v " + tool + " >/dev/null").c_str()) == 0)
        return false;
    std::printf("skipped: %s not installed\n", tool.c_str());
    return true;
}

// The slot of frame i in a clip file's bytes; empty when the file is short.
inline std::string SlotOf(const std::string& file, int64_t slot, int i)
{
    return file.size() >= size_t(slot * (i + 2)) ? file.substr(size_t(slot * (i + 1)), size_t(slot)) : "";
}

}  // namespace run
