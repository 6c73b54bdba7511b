// The whole tool under hostile conditions: writes refused partway, a full
// file system, eight runs at once, odd paths, and a memory check. Every test
// also checks that the input clip keeps its bytes.
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <thread>

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

std::vector<std::string> Entries(const std::string& dir)
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
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

    // The file's first `bytes` are those of the undisturbed run.
    static void ExpectPrefix(const std::string& reference, const std::string& path, int64_t bytes)
    {
        const std::string got = ReadFile(path);
        ASSERT_GE(int64_t(got.size()), bytes) << path;
        EXPECT_EQ(got.compare(0, size_t(bytes), reference, 0, size_t(bytes)), 0)
            << path << " differs from an undisturbed run in its first " << bytes << " bytes";
    }

    tsupport::ScratchDir dir;
    uint64_t inputHash_ = 0;
};

TEST_F(Conversion, WriteRefusedPartwayStopsWithTheMessageAndKeepsEarlierFrames)
{
    const std::string ntsc = dir / "ntsc.clip", small = dir / "small.clip";
    // Room for the header slot, the first block of five frames and half of
    // the second. The run inherits the limit and the ignored signal; this
    // process writes only its small capture files meanwhile.
    struct rlimit saved;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
    const struct rlimit limit{rlim_t(kNtscSlot * 8 + kNtscSlot / 2), saved.rlim_max};
    const auto savedHandler = signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    const tsupport::RunResult r = Tool({"-P", Input(), "-N", ntsc, "-n", small});
    setrlimit(RLIMIT_FSIZE, &saved);
    signal(SIGXFSZ, savedHandler);

    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, kInfo + "Unable to save NTSC images\n");
    EXPECT_NE(r.err.find("Unable to write data [vXfsFile::PutImagesBlock]: File too large"), std::string::npos)
        << r.err;
    // The header and frames 0-4 as an undisturbed run writes them; the
    // reduced copy got the first block before the second failed.
    ExpectPrefix(Ref().ntsc, ntsc, kNtscSlot * 6);
    ExpectPrefix(Ref().small, small, kSmallSlot * 6);
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
    const tsupport::RunResult r = tsupport::RunProgram(
        "/usr/bin/unshare", {"unshare", "--map-root-user", "--mount", "sh", "-c", script, "sh", mountPoint,
                             PAL2NTSC_BIN, Input(), copy});
    if (r.status == 77 || r.out.empty())
        GTEST_SKIP() << "cannot mount a tmpfs in a private mount namespace here: " << r.err;
    EXPECT_EQ(r.status, 0);
    // Whether tmpfs takes direct I/O depends on the kernel; where it takes it
    // without telling its limits, the clip store says so and goes on.
    std::string out = r.out;
    const std::string noLimits = "Unable to get IO information [vXfsFile::OpenForWriting]\n";
    if (out.find(noLimits) != std::string::npos)
        out.erase(out.find(noLimits), noLimits.size());
    EXPECT_EQ(out, kInfo + "Unable to save NTSC images\n");
    EXPECT_NE(r.err.find("Unable to write data [vXfsFile::PutImagesBlock]: No space left on device"),
              std::string::npos)
        << r.err;
    ExpectPrefix(Ref().ntsc, copy, kNtscSlot * 6);
}

TEST_F(Conversion, EightRunsAtOnceInOneDirectoryGiveTheSameOutputs)
{
    const std::string input = dir / "pal.clip";
    tsupport::WriteFile(input, ReadFile(Input()));
    constexpr int kRuns = 8;
    std::vector<tsupport::RunResult> results(kRuns);
    std::vector<std::thread> runs;
    for (int i = 0; i < kRuns; ++i)
        runs.emplace_back([&, i] {
            const std::string n = std::to_string(i);
            results[i] = Tool({"-P", input, "-N", dir / ("ntsc" + n), "-n", dir / ("small" + n)});
        });
    for (std::thread& t : runs)
        t.join();

    std::vector<std::string> expectedNames{"pal.clip"};
    for (int i = 0; i < kRuns; ++i) {
        SCOPED_TRACE("run " + std::to_string(i));
        const std::string ntsc = "ntsc" + std::to_string(i), small = "small" + std::to_string(i);
        EXPECT_EQ(results[i].out, kInfo);
        EXPECT_EQ(results[i].err, "");
        EXPECT_TRUE(ReadFile(dir / ntsc) == Ref().ntsc);
        EXPECT_TRUE(ReadFile(dir / small) == Ref().small);
        expectedNames.insert(expectedNames.end(), {ntsc, small});
    }
    std::sort(expectedNames.begin(), expectedNames.end());
    EXPECT_EQ(Entries(dir.Path()), expectedNames) << "scratch files left behind";
    EXPECT_EQ(tsupport::HashFile(input), tsupport::HashFile(Input()));
}

TEST_F(Conversion, LinksDirectoriesAndFifosAreRefusedWithAMessage)
{
    const std::string toInput = dir / "to-input", hardLink = dir / "hard-link", dangling = dir / "dangling",
                      nowhere = dir / "nowhere.clip", subdir = dir / "a directory", fifo = dir / "fifo",
                      ntsc = dir / "ntsc.clip", missing = dir / "no such dir/ntsc.clip";
    ASSERT_EQ(symlink(Input().c_str(), toInput.c_str()), 0);
    ASSERT_EQ(link(Input().c_str(), hardLink.c_str()), 0);
    ASSERT_EQ(symlink(nowhere.c_str(), dangling.c_str()), 0);
    ASSERT_EQ(mkdir(subdir.c_str(), 0755), 0);
    ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
    const std::string sameNtsc = "PAL file and NTSC file are the same\n";
    const std::string cannotReplace = " [vXfsFile::OpenForReading]\nUnable to check existing file for writting "
                                      "[vXfsFile::OpenForWriting]\nUnable to open NTSC file\n";
    struct Case {
        std::vector<std::string> args;
        std::string out, err = "";
    };
    for (const Case& c : std::vector<Case>{
             {{"-P", Input(), "-N", toInput}, sameNtsc},
             {{"-P", Input(), "-N", hardLink}, sameNtsc},
             {{"-P", toInput, "-N", Input()}, sameNtsc},
             {{"-P", Input(), "-N", ntsc, "-n", hardLink}, "PAL file and scaled file are the same\n"},
             {{"-P", Input(), "-N", dangling}, kInfo + "NTSC file " + dangling + " is a broken symbolic link\n"},
             {{"-P", Input(), "-N", ntsc, "-n", dangling},
              kInfo + "Scaled file " + dangling + " is a broken symbolic link\n"},
             {{"-P", subdir, "-N", ntsc}, subdir + " is a directory [vXfsFile::OpenForReading]\nUnable to open PAL file\n"},
             {{"-P", fifo, "-N", ntsc},
              fifo + " is not a regular file [vXfsFile::OpenForReading]\nUnable to open PAL file\n"},
             {{"-P", Input(), "-N", subdir}, kInfo + subdir + " is a directory" + cannotReplace},
             {{"-P", Input(), "-N", fifo}, kInfo + fifo + " is not a regular file" + cannotReplace},
             {{"-P", Input(), "-N", missing}, kInfo + "Unable to open NTSC file\n", missing + ": No such file or directory\n"},
         }) {
        SCOPED_TRACE(c.args[1] + " -> " + c.args.back());
        const tsupport::RunResult r = Tool(c.args);
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.out, c.out);
        EXPECT_EQ(r.err, c.err);
        EXPECT_FALSE(fs::exists(fs::symlink_status(nowhere))) << "written through a dangling link";
        EXPECT_FALSE(fs::exists(fs::symlink_status(ntsc)));
        EXPECT_TRUE(fs::is_empty(subdir));
    }
}

TEST_F(Conversion, NamesWithSpacesAndNonAsciiBytesAreUsedAsGiven)
{
    // Latin-1 and UTF-8 bytes, spaces, a tab and a dash inside the names.
    const std::string input = dir / "pal clip \xE9t\xE9.clip", ntsc = dir / "ntsc -\xC3\xA9 \xFF.clip",
                      small = dir / "  small\t.clip";
    tsupport::WriteFile(input, ReadFile(Input()));
    EXPECT_EQ(Tool({"-P", input, "-N", ntsc, "-n", small}).out, kInfo);
    EXPECT_TRUE(ReadFile(ntsc) == Ref().ntsc);
    EXPECT_TRUE(ReadFile(small) == Ref().small);
    EXPECT_EQ(Entries(dir.Path()).size(), 3u);
    EXPECT_EQ(tsupport::HashFile(input), tsupport::HashFile(Input()));
}

#ifndef PAL2NTSC_SANITIZED
TEST(Memory, WholeRunIsCleanUnderValgrind)
{
    tsupport::ScratchDir dir;
    tsupport::ClipHeader h;
    h.width = 64;
    h.frames = 3;
    const tsupport::Bytes clip = rel::MakeClip(h, 3);
    tsupport::WriteFile(dir / "pal.clip", clip);
    const tsupport::RunResult r = tsupport::RunProgram(
        "/usr/bin/env", {"env", "valgrind", "--quiet", "--error-exitcode=1", "--leak-check=full",
                         "--errors-for-leak-kinds=definite,indirect", PAL2NTSC_BIN, "-P", dir / "pal.clip", "-N",
                         dir / "ntsc.clip", "-n", dir / "small.clip", "-s", "2"});
    if (r.status == 127)
        GTEST_SKIP() << "valgrind is not installed";
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "PAL file: 3 frames [64x576]\n");
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(tsupport::HashFile(dir / "pal.clip"), tsupport::Hash(clip.data(), clip.size()));
}
#endif

}  // namespace
