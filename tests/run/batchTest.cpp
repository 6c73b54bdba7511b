// Whole archives: vclip batch over good, damaged and non-clip files, killed
// and resumed, its plan run by GNU parallel; vclip verify against tampered
// outputs; frame checksums against FFmpeg's.
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <set>
#include <sstream>
#include <thread>

#include "tests/run/vclipInProcess.h"

namespace {

using namespace run;
namespace fs = std::filesystem;

// Whether this vclip was built with libcrypto (cross builds are not).
bool HaveMd5() { return VclipInProcess({"framemd5", "/nonexistent"}).err.find("libcrypto") == std::string::npos; }

// What a shell command prints on standard output.
std::string Shell(const std::string& command)
{
    std::string text;
    if (std::FILE* pipe = popen(command.c_str(), "r")) {
        char buffer[4096];
        for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
            text.append(buffer, n);
        pclose(pipe);
    }
    return text;
}

using Records = std::multiset<std::pair<std::string, std::string>>;

size_t Count(const Records& records, const std::string& outcome)
{
    return size_t(std::count_if(records.begin(), records.end(), [&](const auto& r) { return r.first == outcome; }));
}

bool HasPartial(const std::string& dir)
{
    for (const auto& [name, hash] : Snapshot(dir))
        if (name.find(".vclip-partial") != std::string::npos)
            return true;
    return false;
}

// Records of a manifest: (outcome, input leaf).
Records Outcomes(const std::string& manifest)
{
    Records outcomes;
    const std::string text = ReadFile(manifest);
    if (text.empty())
        return outcomes;
    std::istringstream in(text);
    std::string line;
    std::getline(in, line);
    EXPECT_EQ(line, "input\tntsc\treduced\tframes\toutcome\tmessage\tseconds");
    while (std::getline(in, line)) {
        std::vector<std::string> f;
        std::istringstream fields(line);
        for (std::string x; std::getline(fields, x, '\t');)
            f.push_back(x);
        EXPECT_EQ(f.size(), 7u) << line;
        if (f.size() == 7)
            outcomes.emplace(f[4], fs::path(f[0]).filename().string());
    }
    return outcomes;
}

// good1 (5 frames), good2 (3 frames, in a sub-folder), a cut-short clip
// and a text file.
struct Archive {
    ScratchDir dir;
    std::string src = dir / "src", dst = dir / "dst", red = dir / "red";
    explicit Archive(int clips = 2, int frames = 5)
    {
        fs::create_directories(src + "/sub");
        for (int i = 0; i < clips; ++i)
            WriteClip(src + (i % 2 ? "/sub/good" : "/good") + std::to_string(i + 1) + ".clip",
                      Header(frames - 2 * (i % 2), 32, 8), 100u * uint32_t(i + 1));
        WriteClip(src + "/cut.clip", Header(4, 32, 8), 7, 4096 * 3);
        WriteFile(src + "/notes.txt", "not a clip\n");
    }
};

TEST(Batch, ConvertsGoodClipsReportsDamagedLeavesOthersAndResumes)
{
    Archive a;
    // Block size 512: the clip store warns on standard output, then converts.
    ClipHeader odd = Header(2, 32, 8);
    odd.blockSize = 512;
    WriteFile(a.src + "/sub/b512.clip", Encoded(odd).append(512 - 44, '\0') + Random(2 * 512, 9));
    const auto before = Snapshot(a.src);
    const std::string md5 = HaveMd5() ? "--framemd5" : "--jobs=2";
    const RunResult run = Vclip({"batch", a.src, a.dst, "--reduced", a.red, "--jobs", "2", md5});
    EXPECT_EQ(run.status, 1) << run.out << run.err;
    EXPECT_NE(run.out.find("left alone (not a clip): notes.txt\n"), std::string::npos);
    EXPECT_NE(run.out.find("failed: cut.clip: PAL file is truncated: 2 of 4 frames present\n"), std::string::npos);
    EXPECT_NE(run.out.find("batch: 4 clips: 3 converted, 0 already complete, 1 failed; 1 other files"),
              std::string::npos);
    EXPECT_EQ(Snapshot(a.src), before);
    const Records first = {{"converted", "b512.clip"},
                           {"converted", "good1.clip"},
                           {"converted", "good2.clip"},
                           {"failed", "cut.clip"},
                           {"not-a-clip", "notes.txt"}};
    EXPECT_EQ(Outcomes(a.dst + "/vclip-batch.tsv"), first);
    // The outputs are the converter's own, byte for byte; nothing else.
    ScratchDir direct;
    Tool({"-P", a.src + "/sub/good2.clip", "-N", direct / "n.clip", "-n", direct / "r.clip"});
    EXPECT_EQ(HashFile(a.dst + "/sub/good2.clip"), HashFile(direct / "n.clip"));
    EXPECT_EQ(HashFile(a.red + "/sub/good2.clip"), HashFile(direct / "r.clip"));
    const std::set<std::string> made = {
        "good1.clip",     "good1.clip.framemd5",     "sub/b512.clip",   "sub/b512.clip.framemd5",
        "sub/good2.clip", "sub/good2.clip.framemd5", "vclip-batch.tsv", "sub"};
    std::set<std::string> names;
    for (const auto& [name, hash] : Snapshot(a.dst))
        names.insert(name);
    if (md5 != "--framemd5")
        for (const char* name : {"good1.clip", "sub/b512.clip", "sub/good2.clip"})
            names.insert(std::string(name) + ".framemd5");
    EXPECT_EQ(names, made);
    EXPECT_EQ(Vclip({"verify", a.src, a.dst, "--reduced", a.red}).out,
              a.src + "/cut.clip: the input cannot be converted (damaged or not a PAL 4:2:2 clip)\n"
                      "verify: 4 clips, 3 right, 1 wrong\n");

    // A frame changed is found; an output cut short is redone, the rest skipped.
    std::string good1 = ReadFile(a.dst + "/good1.clip");
    good1[size_t(32768 * 3 + 10)] ^= 1;  // frame 2: slots of 32768 bytes after the header's
    WriteFile(a.dst + "/good1.clip", good1);
    const RunResult tampered = Vclip({"verify", a.src, a.dst});
    EXPECT_EQ(tampered.status, 1);
    EXPECT_NE(tampered.out.find(a.dst + "/good1.clip: 1 of 5 frames differ from a fresh conversion (frame 2)\n"),
              std::string::npos)
        << tampered.out;
    ASSERT_EQ(truncate((a.red + "/good1.clip").c_str(), 4096 * 3), 0);
    fs::remove(a.src + "/cut.clip");
    const RunResult again = Vclip({"batch", a.src, a.dst, "--reduced", a.red, md5});
    EXPECT_EQ(again.status, 0) << again.out << again.err;
    EXPECT_NE(again.out.find("batch: 3 clips: 1 converted, 2 already complete, 0 failed"), std::string::npos);
    EXPECT_EQ(Vclip({"verify", a.src, a.dst, "--reduced", a.red}).status, 0);
}

TEST(Batch, KilledMidwayFinishesOnRerunWithoutRedoingFinishedClips)
{
    Archive a(6);
    fs::remove(a.src + "/cut.clip");
    // A converter that lingers after its work, so the kill finds outputs
    // written but not yet given their names.
    const std::string slow = a.dir / "slow-pal2ntsc";
    WriteFile(slow, std::string("#!/bin/sh\n\"") + PAL2NTSC_BIN + "\" \"$@\"\nsleep 0.3\n");
    fs::permissions(slow, fs::perms::owner_all);

    const pid_t pid =
        tsupport::StartProgram(VCLIP_BIN, {VCLIP_BIN, "batch", a.src, a.dst, "--jobs", "2", "--converter", slow}, true);
    ASSERT_GT(pid, 0);
    const std::string manifest = a.dst + "/vclip-batch.tsv";
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while ((Count(Outcomes(manifest), "converted") < 2 || !HasPartial(a.dst)) &&
           std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    kill(-pid, SIGKILL);
    waitpid(pid, nullptr, 0);

    // Whatever has its final name is complete; the rest is under temporary names.
    size_t finished = 0, partial = 0;
    for (const auto& [name, what] : Snapshot(a.dst)) {
        if (name.find(".vclip-partial") != std::string::npos) {
            ++partial;
        } else if (name != "vclip-batch.tsv" && what != "directory") {
            ++finished;
            EXPECT_NE(Vclip({"info", a.dst + "/" + name}).out.find("complete:     yes"), std::string::npos) << name;
        }
    }
    ASSERT_GE(finished, 2u);
    ASSERT_LT(finished, 6u) << "the batch ended before it was killed";
    EXPECT_GE(partial, 1u);

    const RunResult rerun = Vclip({"batch", a.src, a.dst, "--jobs", "2"});
    EXPECT_EQ(rerun.status, 0) << rerun.out << rerun.err;
    EXPECT_NE(rerun.out.find(std::to_string(6 - finished) + " converted, " + std::to_string(finished) +
                             " already complete, 0 failed"),
              std::string::npos)
        << rerun.out;
    EXPECT_EQ(Count(Outcomes(manifest), "skipped"), finished);
    EXPECT_EQ(Vclip({"verify", a.src, a.dst}).out, "verify: 6 clips, 6 right, 0 wrong\n");
    EXPECT_FALSE(HasPartial(a.dst));
}

TEST(Batch, PlanRunThroughGnuParallelGivesTheSameOutputs)
{
    if (Missing("parallel"))
        GTEST_SKIP() << "parallel not installed";
    Archive a;
    Vclip({"batch", a.src, a.dst, "--reduced", a.red});
    const std::string planned = a.dir / "dst2", plannedRed = a.dir / "red2", plan = a.dir / "plan";
    const RunResult p = Vclip({"batch", a.src, planned, "--reduced", plannedRed, "--plan"});
    EXPECT_EQ(p.status, 0);
    EXPECT_EQ(std::count(p.out.begin(), p.out.end(), '\n'), 3);
    WriteFile(plan, p.out);
    const std::string log = a.dir / "joblog";
    EXPECT_EQ(std::system(("parallel --will-cite -j2 --joblog " + log + " < " + plan + " >/dev/null 2>&1").c_str()) >>
                  8,
              1);  // the cut-short clip
    for (const auto& [mine, theirs] : {std::pair{a.dst, planned}, std::pair{a.red, plannedRed}}) {
        auto ours = Snapshot(mine), parallels = Snapshot(theirs);
        ours.erase("vclip-batch.tsv");
        parallels.erase("vclip-batch.tsv");
        EXPECT_EQ(ours, parallels);
    }
    // Only the failed clip is pending still.
    const RunResult rest = Vclip({"batch", a.src, planned, "--reduced", plannedRed, "--plan"});
    EXPECT_EQ(std::count(rest.out.begin(), rest.out.end(), '\n'), 1);
    EXPECT_NE(rest.out.find("--only 'cut.clip'"), std::string::npos);
}

TEST(Batch, RefusesFoldersThatOverlapTheSource)
{
    ScratchDir dir;
    const std::string src = dir / "src";
    fs::create_directories(src + "/inner");
    fs::create_directory_symlink(src, dir / "alias");
    const std::vector<std::vector<std::string>> cases = {
        {src, src},
        {src, src + "/inner"},
        {src, src + "/new/deeper"},
        {src + "/inner", src},
        {src, dir / "alias"},
        {src, dir / "alias/x"},
        {src, dir / "d", "--reduced", dir / "d"},
    };
    for (const auto& c : cases) {
        std::vector<std::string> args = {"batch"};
        args.insert(args.end(), c.begin(), c.end());
        const RunResult r = VclipInProcess(args);
        EXPECT_EQ(r.status, 1) << c[1];
        EXPECT_NE(r.err.find("overlap"), std::string::npos) << r.err;
    }
    // --only cannot lead out of the source folder (its output would follow).
    EXPECT_NE(VclipInProcess({"batch", src, dir / "d", "--only", "../src/x"}).err.find("--only takes a path inside"),
              std::string::npos);
    EXPECT_FALSE(fs::exists(src + "/new"));
    EXPECT_FALSE(fs::exists(dir / "d"));
}

TEST(Framemd5, SameLinesAsFfmpegForTheExportedStreamAndReducedFrames)
{
    if (Missing("ffmpeg"))
        GTEST_SKIP() << "ffmpeg not installed";
    ScratchDir dir;
    WriteClip(dir / "pal.clip", Header(3, 64, 16, 1008, 29.97), 5);
    if (!HaveMd5()) {
        std::printf("skipped: libcrypto not in this build\n");
        GTEST_SKIP() << "libcrypto not in this build";
    }
    Tool({"-P", dir / "pal.clip", "-N", dir / "ntsc.clip", "-n", dir / "red.clip"});
    for (const std::string clip : {"pal.clip", "ntsc.clip"}) {
        ASSERT_EQ(VclipInProcess({"export", dir / clip, "--y4m", dir / "x.y4m", "--force"}).status, 0);
        const std::string ffmpeg =
            Shell("ffmpeg -v error -i " + dir / "x.y4m" + " -f framemd5 - | grep -v '^#software:'");
        const RunResult ours = VclipInProcess({"framemd5", dir / clip});
        EXPECT_EQ(ours.out, ffmpeg) << clip;
        EXPECT_NE(ours.out.find(clip == "pal.clip" ? "#tb 0: 1001/30000\n" : "#tb 0: 1/25\n"), std::string::npos);
    }
    // Reduced frames: the bgr24 picture, top line first.
    const std::string reduced = VclipInProcess({"framemd5", dir / "red.clip"}).out;
    ASSERT_EQ(VclipInProcess({"export", dir / "red.clip", "--frame", "2", "--image", dir / "f.ppm"}).status, 0);
    const std::string hash =
        Shell("ffmpeg -v error -i " + dir / "f.ppm" + " -pix_fmt bgr24 -f framemd5 - | tail -n 1 | sed 's/.*, //'");
    EXPECT_NE(reduced.find("0,          2,          2,        1,     5808, " + hash), std::string::npos) << reduced;
}

}  // namespace
