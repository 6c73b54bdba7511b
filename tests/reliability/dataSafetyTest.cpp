// The converter against attempts to make it destroy what it must keep: the
// input clip, a preserved clip, or the truth about what a clip holds. Names
// that only mean something once files are open, a name changed under the
// run, refusals that would come after a change, a disk that fills, a header
// that cannot be written, and runs killed at any moment. Every test checks
// that the input and every preserved clip keep their bytes.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <random>
#include <thread>

#include "clipfile/vXfsFile.h"
#include "tests/reliability/clips.h"

namespace {

namespace fs = std::filesystem;
using tsupport::HashFile;
using tsupport::ReadFile;
using tsupport::RunResult;

constexpr int kFrames = 3;
const std::string kInfo = "PAL file: 3 frames [720x576]\n";

// pal2ntsc with every descriptor above standard error closed, so that the
// clip it opens first, the input, is descriptor 3 and the names below of
// descriptors 3 and up are the files the run itself has open.
RunResult Tool(const std::vector<std::string>& args, const std::string& prelude = "")
{
    std::vector<std::string> argv{
        "sh", "-c", prelude + "for fd in 3 4 5 6 7 8 9; do eval \"exec $fd>&-\"; done; exec \"$0\" \"$@\"",
        PAL2NTSC_BIN};
    argv.insert(argv.end(), args.begin(), args.end());
    return tsupport::RunProgram("/bin/sh", argv);
}

std::string ProcFd(int fd) { return "/proc/self/fd/" + std::to_string(fd); }

class DataSafety : public testing::Test {
protected:
    void SetUp() override
    {
        tsupport::ClipHeader h;
        h.frames = kFrames;
        tsupport::WriteFile(input, rel::MakeClip(h, kFrames));
        inputHash = HashFile(input);
    }
    void TearDown() override { EXPECT_EQ(HashFile(input), inputHash) << "the input clip was changed"; }

    // A clip whose header is h, holding `stored` frames.
    std::string Clip(const std::string& leaf, const tsupport::ClipHeader& h, int stored)
    {
        tsupport::WriteFile(dir / leaf, rel::MakeClip(h, stored));
        return dir / leaf;
    }
    static tsupport::ClipHeader Ntsc(bool preserved)
    {
        tsupport::ClipHeader h;
        h.frames = kFrames, h.height = 486, h.replaceable = preserved ? 0 : 1, h.rate = 0;
        return h;
    }

    tsupport::ScratchDir dir;
    const std::string input = dir / "pal.clip";
    uint64_t inputHash = 0;
};

// Names of files the run has open: /proc/self/fd and /dev/fd entries and
// links to them, for either output, for every descriptor the run may hold.
// A run either refuses or writes two distinct, complete outputs; the one
// name that is the input is refused as such.
TEST_F(DataSafety, NamesOfOpenDescriptorsNeverLeadAnOutputOntoTheInputOrTheOtherOutput)
{
    const std::string ntsc = dir / "ntsc.clip", small = dir / "small.clip", link = dir / "l.clip";
    ASSERT_EQ(symlink(ProcFd(3).c_str(), link.c_str()), 0);
    const RunResult plain = Tool({"-P", input, "-N", ntsc, "-n", small});
    ASSERT_EQ(plain.out, kInfo);
    const std::string ntscRef = ReadFile(ntsc), smallRef = ReadFile(small);
    fs::remove(ntsc), fs::remove(small);

    for (const std::string& name : std::vector<std::string>{ProcFd(3), "/dev/fd/3", link}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(Tool({"-P", input, "-N", name}).out, kInfo + "PAL file and NTSC file are the same\n");
        EXPECT_EQ(Tool({"-P", input, "-N", ntsc, "-n", name}).out, kInfo + "PAL file and scaled file are the same\n");
    }
    EXPECT_FALSE(fs::exists(ntsc)) << "an output was changed before the refusal";

    // An existing replaceable NTSC clip, and the reduced clip named by every
    // descriptor the run could hold it on: one of them is the NTSC clip.
    bool refusedAsSame = false;
    for (int fd = 3; fd <= 9; ++fd) {
        SCOPED_TRACE("-n " + ProcFd(fd));
        Clip("ntsc.clip", Ntsc(false), kFrames);
        const RunResult r = Tool({"-P", input, "-N", ntsc, "-n", ProcFd(fd)});
        refusedAsSame |= r.out == kInfo + "NTSC file and scaled file are the same\n";
        if (r.out == kInfo) {
            EXPECT_TRUE(ReadFile(ntsc) == ntscRef) << "both outputs went into one file";
            EXPECT_TRUE(smallRef.size() < ntscRef.size());
        }
    }
    EXPECT_TRUE(refusedAsSame) << "no descriptor of the run named the NTSC clip";
}

// A preserved input is opened in place when it is named as an output: the
// same name check holds for it.
TEST_F(DataSafety, PreservedInputNamedThroughItsDescriptorIsRefused)
{
    const std::string preserved = Clip("keep.clip", Ntsc(true), kFrames);
    const uint64_t before = HashFile(preserved);
    EXPECT_EQ(Tool({"-P", preserved, "-N", ProcFd(3)}).out,
              "PAL file: 3 frames [720x486]\nPAL file and NTSC file are the same\n");
    EXPECT_EQ(HashFile(preserved), before);
}

// The output's name is switched back and forth between a replaceable clip and
// a link to the input while runs start one after another. A check of the
// name followed by an open by name loses this race within a few runs; the
// run must write only what it examined.
TEST_F(DataSafety, OutputNameSwitchedToTheInputDuringTheRunNeverReachesIt)
{
    const std::string out = dir / "out.clip", other = dir / "other";
    Clip("out.clip", Ntsc(false), 0);
    ASSERT_EQ(symlink(input.c_str(), other.c_str()), 0);
    std::atomic<bool> stop{false};
    std::thread switcher([&] {
        while (!stop)
            renameat2(AT_FDCWD, out.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE);
    });
    constexpr int kRuns = 60;
    int converted = 0, refused = 0;
    for (int run = 0; run < kRuns && HashFile(input) == inputHash; ++run) {
        const std::string said = Tool({"-P", input, "-N", out}).out;
        converted += said == kInfo;
        refused += said != kInfo;
    }
    stop = true;
    switcher.join();
    EXPECT_EQ(converted + refused, kRuns) << "the input was written in run " << converted + refused;
    RecordProperty("converted", converted);
}

// Everything that decides whether the run can go ahead is known before the
// first output changes: a preserved clip whose slots are too large for any
// buffer gets no space reserved, and a replaceable NTSC clip is not emptied
// when the reduced clip turns out to be a preserved clip of another format.
TEST_F(DataSafety, RefusalsComeBeforeAnyOutputChanges)
{
    tsupport::ClipHeader huge = Ntsc(true);
    huge.blockSize = 1 << 30;
    const std::string hugeClip = dir / "huge.clip";
    tsupport::WriteFile(hugeClip, huge.Encode());
    struct stat before {};
    ASSERT_EQ(stat(hugeClip.c_str(), &before), 0);
    const RunResult r = Tool({"-P", input, "-N", hugeClip});
    EXPECT_NE(r.out.find("Unable to allocate block buffers (3221225472 bytes aligned to 4096)\n"), std::string::npos)
        << r.out;
    struct stat after {};
    ASSERT_EQ(stat(hugeClip.c_str(), &after), 0);
    EXPECT_EQ(std::make_pair(after.st_size, after.st_blocks), std::make_pair(before.st_size, before.st_blocks))
        << "space was reserved for a run that was refused";

    const std::string ntsc = Clip("ntsc.clip", Ntsc(false), kFrames);
    tsupport::ClipHeader other = Ntsc(true);
    other.width = 360, other.height = 243, other.packing = 1000;
    const std::string small = Clip("small.clip", other, 1);
    const uint64_t ntscHash = HashFile(ntsc), smallHash = HashFile(small);
    EXPECT_EQ(Tool({"-P", input, "-N", ntsc, "-n", small}).out,
              kInfo + "Scaled file is a preserved clip of another format\n");
    EXPECT_EQ(HashFile(ntsc), ntscHash);
    EXPECT_EQ(HashFile(small), smallHash);
}

// A run stopped by the file size limit leaves a clip as long as what was
// written, and the clip store counts only the frames really there.
TEST_F(DataSafety, StoppedRunLeavesAClipThatShowsHowFarItGot)
{
    constexpr int64_t kSlot = 700416;
    const std::string ntsc = dir / "ntsc.clip";
    // Room for the header slot and one frame and a half.
    const std::string limit = "trap '' XFSZ; ulimit -f " + std::to_string(kSlot * 5 / 2 / 512) + "; ";
    const RunResult r = Tool({"-P", input, "-N", ntsc}, limit);
    EXPECT_EQ(r.out, kInfo + "Unable to save NTSC images\n");
    vXfsFile clip;
    clip.SetName(ntsc.c_str());
    ASSERT_TRUE(clip.Open("r"));
    EXPECT_EQ(clip.GetNumFrames(), kFrames);
    EXPECT_LT(clip.FileSizeBytes(), kSlot * (1 + kFrames));
    EXPECT_EQ(clip.FramesPresent(), 1);
    clip.Close();
}

// With no room for even a header: a new output leaves nothing behind, and an
// existing replaceable clip stays a clip that the next run replaces.
TEST_F(DataSafety, HeaderThatCannotBeWrittenLeavesNoEmptyFile)
{
    const std::string fresh = dir / "fresh.clip";
    // No file may grow at all, but what the run prints still goes through
    // pipes to the files that collect it.
    const auto noRoom = [&](const std::string& output) {
        return tsupport::RunProgram(
            "/bin/sh",
            {"sh", "-c", "{ (trap '' XFSZ; ulimit -f 0; exec \"$0\" \"$@\" 3>&-) 2>&1 >&3 | cat >&2; } 3>&1 | cat",
             PAL2NTSC_BIN, "-P", input, "-N", output});
    };
    const RunResult r = noRoom(fresh);
    EXPECT_EQ(r.out,
              kInfo + "Unable to write " + fresh + "'s header. [vXfsFile::OpenForWriting]\nUnable to open NTSC file\n");
    EXPECT_EQ(r.err, "vXfsFile::WriteHead: File too large\n");
    EXPECT_FALSE(fs::exists(fs::symlink_status(fresh)));

    const std::string old = Clip("old.clip", Ntsc(false), kFrames);
    noRoom(old);
    vXfsFile clip;
    clip.SetName(old.c_str());
    EXPECT_EQ(tsupport::StdoutOf([&] { EXPECT_TRUE(clip.Open("r")); }), "");
    clip.Close();
    EXPECT_EQ(Tool({"-P", input, "-N", old}).out, kInfo);
}

// Runs killed at random moments, most of them while opening their clips,
// leave no scratch or half-made file in the directory.
TEST_F(DataSafety, KilledRunsLeaveNoScratchFiles)
{
    const std::string ntsc = dir / "ntsc.clip", small = dir / "small.clip";
    std::mt19937 random(12345);
    for (int round = 0; round < 300; ++round) {
        const pid_t pid = tsupport::StartProgram(PAL2NTSC_BIN, {"pal2ntsc", "-P", input, "-N", ntsc, "-n", small});
        ASSERT_GT(pid, 0);
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 1500));
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir.Path()))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    const std::vector<std::string> allowed{"ntsc.clip", "pal.clip", "small.clip"};
    for (const std::string& name : names)
        EXPECT_TRUE(std::binary_search(allowed.begin(), allowed.end(), name)) << "left behind: " << name;
    // What a killed run left is a clip or nothing: never an empty file.
    for (const std::string& output : {ntsc, small})
        if (fs::exists(output)) {
            EXPECT_GE(fs::file_size(output), 44u) << output;
        }
}

}  // namespace
