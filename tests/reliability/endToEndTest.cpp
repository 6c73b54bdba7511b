// The whole tool under hostile conditions: writes refused partway, a full
// file system, eight runs at once, odd paths, and a memory check. Every test
// also checks that the input clip keeps its bytes.
#include "reliabilityUtil.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

namespace {

using rel::ClipHeader;

// 720 x 576 frames: input slots of 831488 bytes, five to a transfer, so 12
// frames go as blocks 0-4, 5-9 and the short block 10-11. NTSC slots are
// 700416 bytes.
constexpr int kFrames = 12;
constexpr int64_t kNtscSlot = 700416;

ClipHeader palHeader(int frames = kFrames)
{
    ClipHeader h;
    h.width = 720;
    h.height = 576;
    h.frames = frames;
    return h;
}

// A PAL clip and the outputs of one undisturbed run on it, made once.
class Conversion : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        shared = new rel::ScratchDir;
        const std::string input = shared->File("pal.clip");
        rel::WriteFile(input, rel::MakeClip(palHeader()));
        const rel::RunResult r = rel::RunTool(
            {"-P", input, "-N", shared->File("ntsc.clip"), "-n", shared->File("small.clip")});
        ASSERT_EQ(r.out, "PAL file: 12 frames [720x576]\n");
        referenceNtsc = new std::vector<unsigned char>(rel::ReadFile(shared->File("ntsc.clip")));
        referenceSmall = new std::vector<unsigned char>(rel::ReadFile(shared->File("small.clip")));
    }
    static void TearDownTestSuite()
    {
        delete referenceSmall;
        delete referenceNtsc;
        delete shared;
    }

    void SetUp() override { inputBefore = rel::FingerprintOf(Input()); }
    void TearDown() override
    {
        EXPECT_EQ(rel::FingerprintOf(Input()), inputBefore) << "the input clip was changed";
    }

    static std::string Input() { return shared->File("pal.clip"); }

    // The first `bytes` of a file equal those of the reference.
    static void ExpectPrefixOf(const std::vector<unsigned char>& reference, const std::string& path,
                               int64_t bytes)
    {
        const std::vector<unsigned char> got = rel::ReadFile(path);
        ASSERT_GE(static_cast<int64_t>(got.size()), bytes);
        ASSERT_GE(static_cast<int64_t>(reference.size()), bytes);
        EXPECT_TRUE(std::equal(got.begin(), got.begin() + bytes, reference.begin()))
            << path << " differs from an undisturbed run in its first " << bytes << " bytes";
    }

    static rel::ScratchDir* shared;
    static std::vector<unsigned char>* referenceNtsc;
    static std::vector<unsigned char>* referenceSmall;
    rel::Fingerprint inputBefore;
};

rel::ScratchDir* Conversion::shared = nullptr;
std::vector<unsigned char>* Conversion::referenceNtsc = nullptr;
std::vector<unsigned char>* Conversion::referenceSmall = nullptr;

// ---------------------------------------------------------------------------
// Failing writes

TEST_F(Conversion, WriteRefusedPartwayStopsWithTheMessageAndKeepsEarlierFrames)
{
    rel::ScratchDir dir;
    const std::string ntsc = dir.File("ntsc.clip"), small = dir.File("small.clip");
    // Room for the header slot, the first block of five frames and half of
    // the second block.
    const rlim_t limit = static_cast<rlim_t>(kNtscSlot * 8 + kNtscSlot / 2);
    const rel::RunResult r = rel::RunTool({"-P", Input(), "-N", ntsc, "-n", small}, [limit] {
        signal(SIGXFSZ, SIG_IGN);
        const struct rlimit fsize{limit, limit};
        setrlimit(RLIMIT_FSIZE, &fsize);
    });
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.signal, 0);
    EXPECT_EQ(r.out, "PAL file: 12 frames [720x576]\nUnable to save NTSC images\n");
    EXPECT_NE(r.err.find("Unable to write data [vXfsFile::PutImagesBlock]: File too large"),
              std::string::npos)
        << r.err;
    // The header and frames 0-4 are as an undisturbed run writes them; the
    // reduced clip got the first block before the second failed.
    ExpectPrefixOf(*referenceNtsc, ntsc, kNtscSlot * 6);
    const int64_t smallSlot = 4096 * ((180 * 121 * 3 + 4095) / 4096);
    ExpectPrefixOf(*referenceSmall, small, smallSlot * 6);
}

// Runs the tool with its NTSC clip on a tmpfs of `size` in a private mount
// namespace, then copies the NTSC clip out. Returns false (with the reason)
// when this machine does not let the test mount one.
bool runOnSmallFileSystem(const rel::ScratchDir& dir, const std::string& input, const char* size,
                          rel::RunResult& result, std::string& whyNot)
{
    const std::string mountPoint = dir.File("mnt");
    const std::string copied = dir.File("ntsc.copy");
    mkdir(mountPoint.c_str(), 0755);
    const std::string outName = dir.File("stdout"), errName = dir.File("stderr");
    std::fflush(nullptr);
    const pid_t helper = fork();
    if (helper == 0) {
        if (unshare(CLONE_NEWNS) != 0)
            _exit(77);
        if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            _exit(77);
        const std::string options = std::string("size=") + size;
        if (mount("tmpfs", mountPoint.c_str(), "tmpfs", 0, options.c_str()) != 0)
            _exit(77);
        const std::string ntsc = mountPoint + "/ntsc.clip";
        const pid_t tool = fork();
        if (tool == 0) {
            const int out = open(outName.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            const int err = open(errName.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            dup2(out, 1);
            dup2(err, 2);
            const std::string bin = rel::ToolPath();
            execl(bin.c_str(), bin.c_str(), "-P", input.c_str(), "-N", ntsc.c_str(),
                  static_cast<char*>(nullptr));
            _exit(127);
        }
        int status = 0;
        waitpid(tool, &status, 0);
        std::error_code ec;
        std::filesystem::copy_file(ntsc, copied, ec);
        umount(mountPoint.c_str());
        _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 128);
    }
    int status = 0;
    waitpid(helper, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 77) {
        whyNot = "cannot mount a tmpfs in a private mount namespace here (needs CAP_SYS_ADMIN)";
        return false;
    }
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.out = std::string(reinterpret_cast<const char*>(rel::ReadFile(outName).data()),
                             rel::ReadFile(outName).size());
    const std::vector<unsigned char> err = rel::ReadFile(errName);
    result.err.assign(err.begin(), err.end());
    return true;
}

TEST_F(Conversion, FullFileSystemStopsWithTheMessageAndKeepsEarlierFrames)
{
    rel::ScratchDir dir;
    rel::RunResult r;
    std::string whyNot;
    // 6 MiB: the header slot and the first block fit, the second does not.
    if (!runOnSmallFileSystem(dir, Input(), "6m", r, whyNot))
        GTEST_SKIP() << whyNot;
    EXPECT_EQ(r.status, 0);
    // Whether tmpfs takes direct I/O depends on the kernel; where it takes
    // it without telling its limits, the clip store says so and goes on.
    std::string out = r.out;
    const std::string noLimits = "Unable to get IO information [vXfsFile::OpenForWriting]\n";
    if (out.find(noLimits) != std::string::npos)
        out.erase(out.find(noLimits), noLimits.size());
    EXPECT_EQ(out, "PAL file: 12 frames [720x576]\nUnable to save NTSC images\n");
    EXPECT_NE(r.err.find("Unable to write data [vXfsFile::PutImagesBlock]: No space left on device"),
              std::string::npos)
        << r.err;
    ExpectPrefixOf(*referenceNtsc, dir.File("ntsc.copy"), kNtscSlot * 6);
}

// ---------------------------------------------------------------------------
// Parallel runs

TEST_F(Conversion, EightRunsAtOnceInOneDirectoryGiveTheSameOutputs)
{
    rel::ScratchDir dir;
    const std::string input = dir.File("pal.clip");
    rel::WriteFile(input, rel::ReadFile(Input()));
    constexpr int kRuns = 8;
    std::vector<rel::RunResult> results(kRuns);
    std::vector<std::thread> runs;
    for (int i = 0; i < kRuns; ++i)
        runs.emplace_back([&, i] {
            const std::string n = std::to_string(i);
            results[i] = rel::RunTool({"-P", input, "-N", dir.File("ntsc" + n), "-n", dir.File("small" + n)});
        });
    for (std::thread& t : runs)
        t.join();

    std::vector<std::string> expectedNames{"pal.clip"};
    for (int i = 0; i < kRuns; ++i) {
        SCOPED_TRACE("run " + std::to_string(i));
        const std::string n = std::to_string(i);
        EXPECT_EQ(results[i].out, "PAL file: 12 frames [720x576]\n");
        EXPECT_EQ(results[i].err, "");
        EXPECT_TRUE(rel::ReadFile(dir.File("ntsc" + n)) == *referenceNtsc);
        EXPECT_TRUE(rel::ReadFile(dir.File("small" + n)) == *referenceSmall);
        expectedNames.push_back("ntsc" + n);
        expectedNames.push_back("small" + n);
    }
    std::sort(expectedNames.begin(), expectedNames.end());
    EXPECT_EQ(dir.List(), expectedNames) << "scratch files left behind";
    EXPECT_EQ(rel::FingerprintOf(input), rel::FingerprintOf(Input()));
}

// ---------------------------------------------------------------------------
// Symbolic links and odd paths

TEST_F(Conversion, OutputsThatLeadBackToTheInputAreRefused)
{
    rel::ScratchDir dir;
    const std::string toInput = dir.File("to-input");
    const std::string hardLink = dir.File("hard-link");
    ASSERT_EQ(symlink(Input().c_str(), toInput.c_str()), 0);
    ASSERT_EQ(link(Input().c_str(), hardLink.c_str()), 0);

    struct Case {
        std::vector<std::string> args;
        std::string expected;
    };
    const std::string ntsc = dir.File("ntsc.clip");
    for (const Case& c : {
             Case{{"-P", Input(), "-N", toInput}, "PAL file and NTSC file are the same\n"},
             Case{{"-P", Input(), "-N", hardLink}, "PAL file and NTSC file are the same\n"},
             Case{{"-P", toInput, "-N", Input()}, "PAL file and NTSC file are the same\n"},
             Case{{"-P", Input(), "-N", ntsc, "-n", toInput}, "PAL file and scaled file are the same\n"},
             Case{{"-P", Input(), "-N", ntsc, "-n", hardLink}, "PAL file and scaled file are the same\n"},
         }) {
        SCOPED_TRACE(c.args[3] + (c.args.size() > 4 ? " " + c.args[5] : ""));
        const rel::RunResult r = rel::RunTool(c.args);
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.out, c.expected);
        EXPECT_FALSE(rel::LinkExists(ntsc));
    }
}

TEST_F(Conversion, DanglingLinksDirectoriesAndFifosAreRefusedWithAMessage)
{
    rel::ScratchDir dir;
    const std::string dangling = dir.File("dangling");
    const std::string target = dir.File("nowhere.clip");
    ASSERT_EQ(symlink(target.c_str(), dangling.c_str()), 0);
    const std::string subdir = dir.File("a directory");
    ASSERT_EQ(mkdir(subdir.c_str(), 0755), 0);
    const std::string fifo = dir.File("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
    const std::string ntsc = dir.File("ntsc.clip");
    const std::string info = "PAL file: 12 frames [720x576]\n";

    struct Case {
        const char* name;
        std::vector<std::string> args;
        std::string expected;
    };
    for (const Case& c : {
             Case{"dangling NTSC link", {"-P", Input(), "-N", dangling},
                  info + "NTSC file " + dangling + " is a broken symbolic link\n"},
             Case{"dangling scaled link", {"-P", Input(), "-N", ntsc, "-n", dangling},
                  info + "Scaled file " + dangling + " is a broken symbolic link\n"},
             Case{"directory as input", {"-P", subdir, "-N", ntsc},
                  subdir + " is a directory [vXfsFile::OpenForReading]\nUnable to open PAL file\n"},
             Case{"FIFO as input", {"-P", fifo, "-N", ntsc},
                  fifo + " is not a regular file [vXfsFile::OpenForReading]\nUnable to open PAL file\n"},
             Case{"directory as output", {"-P", Input(), "-N", subdir},
                  info + subdir + " is a directory [vXfsFile::OpenForReading]\n"
                         "Unable to check existing file for writting [vXfsFile::OpenForWriting]\n"
                         "Unable to open NTSC file\n"},
             Case{"FIFO as output", {"-P", Input(), "-N", fifo},
                  info + fifo + " is not a regular file [vXfsFile::OpenForReading]\n"
                         "Unable to check existing file for writting [vXfsFile::OpenForWriting]\n"
                         "Unable to open NTSC file\n"},
         }) {
        SCOPED_TRACE(c.name);
        const rel::RunResult r = rel::RunTool(c.args, {}, 30);
        EXPECT_FALSE(r.timedOut);
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.out, c.expected);
        EXPECT_FALSE(rel::LinkExists(target)) << "written through a dangling link";
        EXPECT_FALSE(rel::LinkExists(ntsc));
        EXPECT_TRUE(std::filesystem::is_empty(subdir));
    }
}

TEST_F(Conversion, OutputInAMissingDirectoryIsRefusedWithTheSystemsReason)
{
    rel::ScratchDir dir;
    const std::string ntsc = dir.File("no such dir/ntsc.clip");
    const rel::RunResult r = rel::RunTool({"-P", Input(), "-N", ntsc});
    EXPECT_EQ(r.out, "PAL file: 12 frames [720x576]\nUnable to open NTSC file\n");
    EXPECT_EQ(r.err, ntsc + ": No such file or directory\n");
}

TEST_F(Conversion, NamesWithSpacesAndNonAsciiBytesAreUsedAsGiven)
{
    rel::ScratchDir dir;
    // Latin-1 and UTF-8 bytes, a space, a leading dash inside the name.
    const std::string input = dir.File("pal clip \xE9t\xE9.clip");
    const std::string ntsc = dir.File("ntsc -\xC3\xA9 \xFF.clip");
    const std::string small = dir.File("  small\t.clip");
    rel::WriteFile(input, rel::ReadFile(Input()));
    const rel::RunResult r = rel::RunTool({"-P", input, "-N", ntsc, "-n", small});
    EXPECT_EQ(r.out, "PAL file: 12 frames [720x576]\n");
    EXPECT_TRUE(rel::ReadFile(ntsc) == *referenceNtsc);
    EXPECT_TRUE(rel::ReadFile(small) == *referenceSmall);
    EXPECT_EQ(dir.List().size(), 3u);
    EXPECT_EQ(rel::FingerprintOf(input), rel::FingerprintOf(Input()));
}

// ---------------------------------------------------------------------------
// Memory

#ifndef PAL2NTSC_SANITIZED
TEST(Memory, WholeRunIsCleanUnderValgrind)
{
    if (system("valgrind --version >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "valgrind is not installed";
    rel::ScratchDir dir;
    ClipHeader h;
    h.width = 64;
    h.frames = 3;
    const std::string input = dir.File("pal.clip");
    rel::WriteFile(input, rel::MakeClip(h));
    const rel::Fingerprint before = rel::FingerprintOf(input);
    const std::string command = "valgrind --quiet --error-exitcode=1 --leak-check=full "
                                "--errors-for-leak-kinds=definite,indirect " +
                                rel::ToolPath() + " -P " + input + " -N " + dir.File("ntsc.clip") +
                                " -n " + dir.File("small.clip") + " -s 2 >" + dir.File("log") + " 2>&1";
    const int status = system(command.c_str());
    const std::vector<unsigned char> log = rel::ReadFile(dir.File("log"));
    const std::string text(log.begin(), log.end());
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << text;
    EXPECT_EQ(text, "PAL file: 3 frames [64x576]\n");
    EXPECT_EQ(rel::FingerprintOf(input), before);
}
#endif

}  // namespace
