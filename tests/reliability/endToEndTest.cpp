// The whole tool under hostile conditions: writes refused partway, a full
// file system, eight runs at once, odd paths, and a memory check. Every test
// also checks that the input clip keeps its bytes.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <thread>
#include <tuple>

#include "clipfile/vXfsFile.h"
#include "tests/reliability/clips.h"

namespace {

namespace fs = std::filesystem;
using tsupport::ReadFile;

// 720 x 576 frames: input slots of 831488 bytes, five to a transfer, so 12
// frames go as blocks 0-4, 5-9 and 10-11. NTSC slots are 700416 bytes, the
// reduced copy's 65536.
constexpr int64_t kNtscSlot = 700416, kSmallSlot = 65536;
const std::string kInfo = "PAL file: 12 frames [720x576]\n";

tsupport::RunResult Tool(std::vector<std::string> args)
{
    args.insert(args.begin(), "pal2ntsc");
    return tsupport::RunProgram(PAL2NTSC_BIN, args);
}

// A PAL clip and the outputs of one undisturbed run on it, made once.
struct Reference {
    tsupport::ScratchDir dir;
    std::string input = dir / "pal.clip", ntsc, small;
    Reference()
    {
        tsupport::ClipHeader h;
        h.frames = 12;
        tsupport::WriteFile(input, rel::MakeClip(h, 12));
        EXPECT_EQ(Tool({"-P", input, "-N", dir / "ntsc.clip", "-n", dir / "small.clip"}).out, kInfo);
        ntsc = ReadFile(dir / "ntsc.clip");
        small = ReadFile(dir / "small.clip");
    }
};

class Conversion : public testing::Test {
protected:
    static const Reference& Ref()
    {
        static const Reference reference;
        return reference;
    }
    static const std::string& Input() { return Ref().input; }
    void SetUp() override { inputHash_ = tsupport::HashFile(Input()); }
    void TearDown() override { EXPECT_EQ(tsupport::HashFile(Input()), inputHash_) << "the input clip was changed"; }

    // A run stopped by a failing write of its second block: the message, the
    // system's reason, and the header slot and frames 0-4 of the NTSC clip
    // (and of the reduced copy, if named) as an undisturbed run wrote them.
    static void ExpectStopped(tsupport::RunResult r, const std::string& reason, const std::string& ntsc,
                              const std::string& small = "")
    {
        // Whether tmpfs takes direct I/O depends on the kernel; where it takes it
        // without telling its limits, the clip store says so and goes on.
        const std::string noLimits = "Unable to get IO information [vXfsFile::OpenForWriting]\n";
        if (r.out.find(noLimits) != std::string::npos)
            r.out.erase(r.out.find(noLimits), noLimits.size());
        EXPECT_EQ(std::make_pair(r.status, r.out), std::make_pair(0, kInfo + "Unable to save NTSC images\n"));
        EXPECT_NE(r.err.find("Unable to write data [vXfsFile::PutImagesBlock]: " + reason), std::string::npos) << r.err;
        for (const auto& [path, reference, bytes] :
             {std::make_tuple(ntsc, Ref().ntsc, kNtscSlot * 6), std::make_tuple(small, Ref().small, kSmallSlot * 6)})
            if (!path.empty()) {
                EXPECT_EQ(ReadFile(path).substr(0, size_t(bytes)), reference.substr(0, size_t(bytes))) << path;
            }
    }

    tsupport::ScratchDir dir;
    uint64_t inputHash_ = 0;
};

TEST_F(Conversion, WriteRefusedPartwayStopsWithTheMessageAndKeepsEarlierFrames)
{
    // Room for the header slot, the first block of five frames and half of
    // the second, in the 512-byte units of ulimit; the run inherits the limit
    // and the ignored signal.
    const std::string ntsc = dir / "ntsc.clip", small = dir / "small.clip";
    const std::string limit =
        "trap '' XFSZ; ulimit -f " + std::to_string(kNtscSlot * 17 / 2 / 512) + "; exec \"$0\" \"$@\"";
    ExpectStopped(
        tsupport::RunProgram("/bin/sh", {"sh", "-c", limit, PAL2NTSC_BIN, "-P", Input(), "-N", ntsc, "-n", small}),
        "File too large", ntsc, small);
}

TEST_F(Conversion, FullFileSystemStopsWithTheMessageAndKeepsEarlierFrames)
{
    // The NTSC clip goes to a 6 MiB tmpfs in a mount namespace of the run's
    // own: the header slot and the first block fit, the second does not.
    const std::string mountPoint = dir / "mnt", copy = dir / "ntsc.copy";
    fs::create_directory(mountPoint);
    const char* script = "mount -t tmpfs -o size=6m tmpfs \"$1\" || exit 77\n"
                         "\"$2\" -P \"$3\" -N \"$1/ntsc.clip\"; status=$?\n"
                         "cp \"$1/ntsc.clip\" \"$4\"; exit $status";
    const tsupport::RunResult r =
        tsupport::RunProgram("/usr/bin/unshare", {"unshare", "--map-root-user", "--mount", "sh", "-c", script, "sh",
                                                  mountPoint, PAL2NTSC_BIN, Input(), copy});
    if (r.status == 77 || r.out.empty())
        GTEST_SKIP() << "cannot mount a tmpfs in a private mount namespace here: " << r.err;
    ExpectStopped(r, "No space left on device", copy);
    // Space that could not be reserved is not made up for by lengthening the
    // file: the clip is as long as what was written, and the clip store
    // counts the frames that were written, not the twelve of the header.
    vXfsFile clip;
    clip.SetName(copy.c_str());
    ASSERT_TRUE(clip.Open("r"));
    EXPECT_EQ(clip.GetNumFrames(), 12);
    const int64_t size = clip.FileSizeBytes();
    EXPECT_LT(size, kNtscSlot * 13);
    EXPECT_EQ(clip.FramesPresent(), (size - kNtscSlot - 699840) / kNtscSlot + 1);
    EXPECT_GE(clip.FramesPresent(), 5);
}

// Eight runs at once in one directory, with spaces, a tab, a dash and
// Latin-1 and UTF-8 bytes in every name: each output is the undisturbed
// run's, and nothing else is left behind.
TEST_F(Conversion, EightRunsAtOnceWithOddNamesGiveTheSameOutputs)
{
    const std::string input = dir / "pal clip \xE9t\xE9.clip";
    tsupport::WriteFile(input, ReadFile(Input()));
    constexpr int kRuns = 8;
    std::vector<tsupport::RunResult> results(kRuns);
    std::vector<std::thread> runs;
    const auto ntsc = [](int i) { return "ntsc -\xC3\xA9 \xFF" + std::to_string(i); };
    const auto small = [](int i) { return "  small\t" + std::to_string(i); };
    for (int i = 0; i < kRuns; ++i)
        runs.emplace_back([&, i] { results[i] = Tool({"-P", input, "-N", dir / ntsc(i), "-n", dir / small(i)}); });
    for (std::thread& t : runs)
        t.join();

    std::vector<std::string> expectedNames{fs::path(input).filename()};
    for (int i = 0; i < kRuns; ++i) {
        SCOPED_TRACE("run " + std::to_string(i));
        EXPECT_EQ(results[i].out + results[i].err, kInfo);
        EXPECT_TRUE(ReadFile(dir / ntsc(i)) == Ref().ntsc);
        EXPECT_TRUE(ReadFile(dir / small(i)) == Ref().small);
        expectedNames.insert(expectedNames.end(), {ntsc(i), small(i)});
    }
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir.Path()))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    std::sort(expectedNames.begin(), expectedNames.end());
    EXPECT_EQ(names, expectedNames) << "scratch files left behind";
    EXPECT_EQ(tsupport::HashFile(input), tsupport::HashFile(Input()));
}

#ifndef PAL2NTSC_SANITIZED
TEST_F(Conversion, WholeRunIsCleanUnderValgrind)
{
    const tsupport::RunResult r =
        tsupport::RunProgram("/usr/bin/env", {"env", "valgrind", "--quiet", "--error-exitcode=1", "--leak-check=full",
                                              "--errors-for-leak-kinds=definite,indirect", PAL2NTSC_BIN, "-P", Input(),
                                              "-N", dir / "ntsc.clip", "-n", dir / "small.clip", "-s", "2"});
    if (r.status == 127)
        GTEST_SKIP() << "valgrind is not installed";
    EXPECT_EQ(std::make_tuple(r.status, r.out, r.err), std::make_tuple(0, kInfo, ""));
}
#endif

}  // namespace
