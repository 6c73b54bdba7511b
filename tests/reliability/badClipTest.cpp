// Damaged and foreign input clips: each is refused with its message, the
// input keeps its bytes, and no output is created or changed.
#include "reliabilityUtil.h"

#include <climits>
#include <cstdio>

#include "clipfile/vXfsFile.h"

namespace {

using rel::ClipHeader;

std::string notAClip(const std::string& path)
{
    return path + " is not a Vetra xfs file.\n";
}

std::string openForReadingFailed(const std::string& path)
{
    return "Unable to read " + path +
           "'s header, or it is not a Vetra file [vXfsFile::OpenForReading]\n";
}

std::string cutShort(const std::string& path)
{
    return path + "'s header is cut short [vXfsFile::ReadHead]\n";
}

std::string badFrameSize(const std::string& path, const ClipHeader& h)
{
    char line[512];
    std::snprintf(line, sizeof line,
                  "%s is not valid (%d x %d, packing %d) [vXfsFile::ReadHead]\n", path.c_str(),
                  h.width, h.height, h.packing);
    return "Frame size of " + std::string(line);
}

// A file the clip store must refuse when opening it for reading, and the
// lines it prints doing so (the path filled in by `expected`).
struct BadHeader {
    std::string name;
    std::vector<unsigned char> bytes;
    std::function<std::string(const std::string&)> expected;
};

std::vector<BadHeader> badHeaders()
{
    std::vector<BadHeader> cases;
    auto refusedAsNoClip = [](const std::string& p) { return notAClip(p) + openForReadingFailed(p); };
    cases.push_back({"empty", {}, refusedAsNoClip});
    for (size_t n = 1; n <= 3; ++n)
        cases.push_back({std::to_string(n) + " bytes", std::vector<unsigned char>(n, 0x00),
                         refusedAsNoClip});
    {
        ClipHeader h;
        h.magic = 0x000609CF;
        cases.push_back({"wrong magic", rel::MakeClip(h), refusedAsNoClip});
        h.magic = 0xCE090600;  // the magic in the wrong byte order
        cases.push_back({"little-endian magic", rel::MakeClip(h), refusedAsNoClip});
    }
    for (int32_t version : {0, 4, -1}) {
        ClipHeader h;
        h.version = version;
        cases.push_back({"version " + std::to_string(version), rel::MakeClip(h),
                         [](const std::string& p) {
                             return "Unrecognized version number [vXfsFile::ReadHead]\n" +
                                    openForReadingFailed(p);
                         }});
    }
    // A header cut short anywhere after the magic, in every version.
    for (int32_t version : {1, 2, 3}) {
        ClipHeader h;
        h.version = version;
        const std::vector<unsigned char> whole = h.Bytes();
        for (size_t cut = 5; cut < whole.size(); ++cut) {
            // A cut inside the version field leaves a version we cannot read
            // in full: it is a cut header too.
            cases.push_back({"v" + std::to_string(version) + " cut at " + std::to_string(cut),
                             std::vector<unsigned char>(whole.begin(), whole.begin() + cut),
                             [](const std::string& p) { return cutShort(p) + openForReadingFailed(p); }});
        }
    }
    for (int32_t block : {0, -4096, INT_MIN}) {
        ClipHeader h;
        h.blockSize = block;
        cases.push_back({"block size " + std::to_string(block), rel::MakeClip(h, 0),
                         [block](const std::string& p) {
                             return "Invalid block size " + std::to_string(block) + " in " + p +
                                    " [vXfsFile::ReadHead]\n" + openForReadingFailed(p);
                         }});
    }
    struct Dims {
        const char* what;
        int32_t width, height, packing;
    };
    for (const Dims d : {Dims{"width 0", 0, 576, rel::kYuv422},
                         Dims{"height 0", 720, 0, rel::kYuv422},
                         Dims{"negative width", -720, 576, rel::kYuv422},
                         Dims{"negative height", 720, -576, rel::kYuv422},
                         Dims{"both negative", -720, -576, rel::kYuv422},
                         Dims{"frame size past 2^31", 65536, 16384, rel::kYuv422},
                         Dims{"frame size past 2^32", 65536, 32768, rel::kYuv422},
                         Dims{"frame size wraps to small", 65536, 32769, rel::kYuv422},
                         Dims{"slot rounds past 2^31", 1073741823, 1, rel::kYuv422},
                         Dims{"unknown packing", 720, 576, 1234},
                         Dims{"packing 0", 720, 576, 0},
                         Dims{"negative packing", 720, 576, -1008}}) {
        ClipHeader h;
        h.width = d.width;
        h.height = d.height;
        h.packing = d.packing;
        h.frames = 0;
        std::vector<unsigned char> bytes = h.Bytes();
        bytes.resize(8192, 0);
        cases.push_back({d.what, bytes,
                         [h](const std::string& p) { return badFrameSize(p, h) + openForReadingFailed(p); }});
    }
    return cases;
}

std::string openForReadingOutput(const std::string& path)
{
    vXfsFile clip;
    clip.SetName(path.c_str());
    std::fflush(stdout);
    testing::internal::CaptureStdout();
    const int opened = clip.Open("r");
    std::fflush(stdout);
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(opened, 0);
    EXPECT_EQ(clip.Descriptor(), 0) << "a refused clip keeps no descriptor";
    EXPECT_FALSE(clip.IsInUse());
    return out;
}

TEST(BadClip, ClipStoreRefusesEveryDamagedHeader)
{
    rel::ScratchDir dir;
    for (const BadHeader& c : badHeaders()) {
        SCOPED_TRACE(c.name);
        const std::string path = dir.File("bad.clip");
        rel::WriteFile(path, c.bytes);
        const rel::Fingerprint before = rel::FingerprintOf(path);
        EXPECT_EQ(openForReadingOutput(path), c.expected(path));
        EXPECT_EQ(rel::FingerprintOf(path), before);
        EXPECT_EQ(dir.List(), std::vector<std::string>{"bad.clip"}) << "probe file left behind";
    }
}

// The same files given to the tool: the store's lines, then the run's; the
// input unchanged; no output made, and one already there left as it was.
TEST(BadClip, ToolRefusesEveryDamagedHeaderAndWritesNothing)
{
    rel::ScratchDir dir;
    const std::string input = dir.File("bad.clip");
    const std::string output = dir.File("out.clip");
    const std::string scaled = dir.File("small.clip");
    const std::vector<unsigned char> oldOutput(5000, 0x5A);
    for (const BadHeader& c : badHeaders()) {
        SCOPED_TRACE(c.name);
        rel::WriteFile(input, c.bytes);
        const rel::Fingerprint before = rel::FingerprintOf(input);
        const std::string expected = c.expected(input) + "Unable to open PAL file\n";

        rel::RunResult r = rel::RunTool({"-P", input, "-N", output, "-n", scaled});
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.out, expected);
        EXPECT_EQ(r.err, "");
        EXPECT_FALSE(rel::LinkExists(output));
        EXPECT_FALSE(rel::LinkExists(scaled));

        rel::WriteFile(output, oldOutput);
        const rel::Fingerprint outputBefore = rel::FingerprintOf(output);
        r = rel::RunTool({"-P", input, "-N", output});
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.out, expected);
        EXPECT_EQ(rel::FingerprintOf(output), outputBefore);
        std::remove(output.c_str());

        EXPECT_EQ(rel::FingerprintOf(input), before);
    }
}

// Headers the clip store accepts but that the run cannot convert: refused by
// the run after its information line, before any output exists.
TEST(BadClip, ToolRefusesUnconvertibleClipsBeforeOpeningOutputs)
{
    rel::ScratchDir dir;
    const std::string input = dir.File("in.clip");
    const std::string output = dir.File("out.clip");

    struct Case {
        const char* name;
        std::vector<unsigned char> bytes;
        std::string expected;
    };
    std::vector<Case> cases;
    {
        ClipHeader h;
        h.frames = -5;
        cases.push_back({"negative frame count", rel::MakeClip(h, 1),
                         "PAL file: -5 frames [32x576]\nPAL file has a negative frame count (-5)\n"});
    }
    {
        ClipHeader h;
        h.frames = 3;
        cases.push_back({"shorter than its frame count", rel::MakeClip(h, 1),
                         "PAL file: 3 frames [32x576]\nPAL file is truncated: 1 of 3 frames present\n"});
        std::vector<unsigned char> halfFrame = rel::MakeClip(h, 3);
        halfFrame.resize(halfFrame.size() - static_cast<size_t>(h.Slot()) / 2);
        cases.push_back({"last frame cut in half", halfFrame,
                         "PAL file: 3 frames [32x576]\nPAL file is truncated: 2 of 3 frames present\n"});
        cases.push_back({"header only", h.Bytes(),
                         "PAL file: 3 frames [32x576]\nPAL file is truncated: 0 of 3 frames present\n"});
    }
    {
        ClipHeader h;
        h.height = 1;
        h.frames = 1;
        cases.push_back({"one line", rel::MakeClip(h),
                         "PAL file: 1 frames [32x1]\nPAL file has 1 lines: at least 2 are needed\n"});
    }
    {
        // A slot that the clip store accepts (just under 2 GiB) but that no
        // transfer can carry.
        ClipHeader h;
        h.width = 32768;
        h.height = 32767;
        h.frames = 1;
        std::vector<unsigned char> bytes = h.Bytes();
        bytes.resize(4096, 0);
        cases.push_back({"frame larger than a transfer", bytes,
                         "PAL file: 1 frames [32768x32767]\nPAL frames of 2147418112 bytes do not fit "
                         "in one transfer of 4194304 bytes\n"});
    }
    {
        // Luminance frames: the slot is too small for the 4:2:2 pictures
        // the line converter reads from it.
        ClipHeader h;
        h.packing = 1005;
        h.frames = 1;
        cases.push_back({"slot smaller than a 4:2:2 picture", rel::MakeClip(h),
                         "PAL file: 1 frames [32x576]\nPAL file frames of 20480 bytes cannot "
                         "hold 32x576 4:2:2 pictures\n"});
    }

    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        rel::WriteFile(input, c.bytes);
        const rel::Fingerprint before = rel::FingerprintOf(input);
        const rel::RunResult r = rel::RunTool({"-P", input, "-N", output, "-n", dir.File("s.clip")});
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.out, c.expected);
        EXPECT_FALSE(rel::LinkExists(output));
        EXPECT_FALSE(rel::LinkExists(dir.File("s.clip")));
        EXPECT_EQ(rel::FingerprintOf(input), before);
        EXPECT_EQ(dir.List(), std::vector<std::string>{"in.clip"});
    }
}

}  // namespace
