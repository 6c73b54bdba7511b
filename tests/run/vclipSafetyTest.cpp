// vclip and the files around it: what it may write over, what a failed run
// leaves, what it takes from a y4m stream, which frames it counts as there,
// and what an input can make it allocate or wait for. Every case checks
// that no file it was not asked to write changed, and that nothing of its
// own is left in the directory.
#include <sys/stat.h>

#include <chrono>
#include <sstream>

#include "clipfile/vXfsFile.h"
#include "tests/run/vclipInProcess.h"

namespace {

using namespace run;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
#else
constexpr bool kSanitized = false;
#endif

const std::string kClipMark("\0\x06\x09\xCE", 4);
const std::string kPngMark("\x89PNG\r\n\x1A\n", 8);

// Drops the file's clean pages from the page cache. Reading space that is
// only reserved (as hashing a file does) leaves zero pages over it, and the
// file system then reports that space as data until the pages go.
void ForgetCachedPages(const std::string& path)
{
    const int fd = open(path.c_str(), O_RDONLY);
    posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
    close(fd);
}

mode_t ModeOf(const std::string& path)
{
    struct stat st {};
    return stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

// vclip started by a shell that first sets `limit` (a ulimit option, or
// none), and killed after 20 seconds, so that a run that blocks or crawls
// fails its test instead of holding up the suite. Descriptors the test
// runner left open are closed, so that vclip's first file is its
// descriptor 3.
RunResult LimitedVclip(const std::string& limit, std::vector<std::string> args)
{
    std::string script = "exec 3<&- 4<&- 5<&- 6<&- 7<&- 8<&- 9<&- && ";
    if (!limit.empty())
        script += "ulimit " + limit + " && ";
    script += "exec timeout -s KILL 20 \"$0\" \"$@\"";
    args.insert(args.begin(), {"-c", script, VCLIP_BIN});
    return Run("/bin/sh", args);
}

// Whether a case depends on the process it runs in: a descriptor number,
// or a FIFO that a faulty open would wait on for ever.
bool NeedsOwnProcess(const std::string& line)
{
    return line.find("@fifo") != std::string::npos || line.find("/proc/self/fd/") != std::string::npos;
}

// A small store: 16x4 clips (128-byte pictures in 4096-byte slots), one cut
// short and one larger, clips whose headers claim more than the file holds,
// files of other kinds, and links to several of them.
void MakeStore(const ScratchDir& d)
{
    WriteClip(d / "in.clip", Header(2, 16, 4), 1);
    WriteClip(d / "keep.clip", Header(1, 16, 4, 1008, 25.0, 1, 0), 2);
    WriteClip(d / "other.clip", Header(1, 16, 4), 3);
    WriteClip(d / "cut.clip", Header(3, 16, 4), 7, 2 * 4096 + 100);
    WriteClip(d / "wide.clip", Header(4, 64, 32), 8);
    WriteFile(d / "neg.clip", Encoded(Header(-1, 16, 4)) + std::string(3 * 4096 - 44, '\x10'));
    // 44 bytes, claiming one frame in a slot of 2147483647 bytes.
    ClipHeader huge = Header(1, 16, 4);
    huge.blockSize = 2147483647;
    WriteFile(d / "huge.clip", huge.Encode());
    // A replaceable clip laid out in 1 GB blocks, which a replacement keeps.
    ClipHeader blocks = Header(0, 16, 4);
    blocks.blockSize = 1 << 30;
    WriteFile(d / "blocks.clip", blocks.Encode());
    WriteFile(d / "notes.txt", "notes, not a clip\n");
    chmod((d / "notes.txt").c_str(), 0640);
    const std::string head = "YUV4MPEG2 W16 H4 F25:1 It A0:0 C422\n";
    WriteFile(d / "good.y4m", Y4mStream(head, 1, 16, 4, 4));
    WriteFile(d / "in.y4m", Y4mStream(head, 2, 16, 4, 6));
    WriteFile(d / "wide.y4m", Y4mStream("YUV4MPEG2 W64 H32 C422\n", 4, 64, 32, 20));
    WriteFile(d / "side.y4m", "YUV4MPEG2 W16384 H16384 C422\n");
    WriteFile(d / "side1.y4m", "YUV4MPEG2 W16384 H16384 C422\nFRAME\n" + std::string(1000, '\x10'));
    WriteFile(d / "good.png", kPngMark + "rest of a picture");
    WriteFile(d / "png.bmp", kPngMark + "a PNG under another name");
    WriteFile(d / "empty.y4m", "");
    WriteFile(d / "raw.uyvy", Random(256, 5));
    std::filesystem::create_directory(d / "dir");
    mkfifo((d / "fifo").c_str(), 0644);
    for (auto [link, target] : {std::pair<const char*, const char*>{"toKeep.y4m", "keep.clip"},
                                {"toIn.y4m", "in.clip"},
                                {"toGood.y4m", "good.y4m"},
                                {"dangling.y4m", "nowhere"}})
        std::filesystem::create_symlink(target, d / link);
}

struct Row {
    std::string limit;  // a ulimit option: the run gets a process of its own
    std::string line;   // vclip's arguments; "@name" is a file of the store
    int status;
    std::string message;  // part of standard error, "" for none
    std::string changes;  // the one file that may change, or ""
    std::string startsWith;
};

// Runs a row in a fresh store: a process of its own where it has a limit
// or needs one (see NeedsOwnProcess), killed after 20 seconds; this one
// otherwise. Nothing but the file it names may change, and that keeps its
// permissions.
void Check(const Row& c)
{
    SCOPED_TRACE("vclip " + c.line + (c.limit.empty() ? "" : " under ulimit " + c.limit));
    ScratchDir d;
    MakeStore(d);
    std::vector<std::string> args;
    std::istringstream words(c.line);
    for (std::string a; words >> a;)
        args.push_back(a[0] == '@' ? d / a.substr(1) : a);
    const mode_t mode = ModeOf(d / c.changes);
    auto before = Snapshot(d.Path());
    const auto start = std::chrono::steady_clock::now();
    const RunResult r =
        !c.limit.empty() || NeedsOwnProcess(c.line) ? LimitedVclip(c.limit, args) : VclipInProcess(args);
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 5.0);
    auto after = Snapshot(d.Path());
    EXPECT_EQ(r.status, c.status) << r.err;
    EXPECT_EQ(r.err.rfind(c.status == 0 ? "" : "vclip: ", 0), 0u) << r.err;
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
    if (!c.changes.empty()) {
        EXPECT_EQ(ReadFile(d / c.changes).substr(0, c.startsWith.size()), c.startsWith);
        if (before.count(c.changes)) {
            EXPECT_EQ(ModeOf(d / c.changes), mode) << "a replacement keeps the permissions";
        }
        before.erase(c.changes);
        after.erase(c.changes);
    }
    EXPECT_EQ(after, before) << "only " << c.changes << " may change, and nothing be left behind";
}

TEST(VclipSafety, WhatEachRunMayWriteAndWhatAFailedOneLeaves)
{
    const std::string bars = " --frames 1 --width 16 --height 4", raw = " --uyvy @raw.uyvy --width 16 --height 4";
    const std::string preserved = "is a preserved clip; it is left as it is";
    const std::string input = "is the input file; it is left as it is";
    const std::string notRegular = "is not a regular file; ", tooLarge = "unable to write frame 0: File too large";
    const std::string cut = "cut.clip: frame 1 is missing: the file holds only 1 of its 3 frames";
    const std::string missing = "frame 0 is missing: the file holds only 0 of its 1 frames";
    const std::string cutShort = "frame 0: cut short: 1000 of its 536870912 bytes";
    // An address-space limit far below the 2 GB a frame buffer sized by a
    // damaged header would take. Sanitizers reserve more than that for
    // themselves, so under them only core files are limited (the run still
    // gets a process of its own, and its time and messages are checked).
    const std::string memory = kSanitized ? "-c 0" : "-v 262144";
    const std::string emptyClip("\0\x06\x09\xCE\0\0\0\x03\0\0\0\0", 12);  // version 3, 0 frames
    const std::vector<Row> rows = {
        // Never a preserved clip, directly or through a link, even forced.
        {"", "export @in.clip --force --y4m @keep.clip", 1, preserved, "", ""},
        {"", "export @in.clip --y4m @toKeep.y4m --force", 1, preserved, "", ""},
        {"", "bars @keep.clip --force" + bars, 1, preserved, "", ""},
        {"", "bars @toKeep.y4m --force" + bars, 1, preserved, "", ""},
        // Never the input, by its name, a link or the descriptor vclip reads it by.
        {"", "export @in.clip --y4m @in.clip --force", 1, input, "", ""},
        {"", "export @in.clip --y4m @toIn.y4m --force", 1, input, "", ""},
        {"", "export @in.clip --y4m /proc/self/fd/3", 1, input, "", ""},
        {"", "import --y4m @in.y4m @in.y4m --force", 1, input, "", ""},
        {"", "import" + raw + " @raw.uyvy --force", 1, input, "", ""},
        // Never a directory, a FIFO or a dangling link, even forced.
        {"", "export @in.clip --y4m @dir --force", 1, "is a directory", "", ""},
        {"", "export @in.clip --y4m @fifo --force", 1, notRegular + "it is left as it is", "", ""},
        {"", "export @in.clip --y4m @dangling.y4m --force", 1, "leads nowhere", "", ""},
        {"", "bars @fifo --force" + bars, 1, notRegular, "", ""},
        // Another kind of file only with --force; its own kind, and an empty file, freely.
        {"", "export @in.clip --y4m @notes.txt", 1, "is not a YUV4MPEG2 stream", "", ""},
        {"", "export @in.clip --y4m @notes.txt --force", 0, "", "notes.txt", "YUV4MPEG2 "},
        {"", "export @in.clip --y4m @good.y4m", 0, "", "good.y4m", "YUV4MPEG2 "},
        {"", "export @in.clip --y4m @toGood.y4m", 0, "", "good.y4m", "YUV4MPEG2 "},
        {"", "export @in.clip --y4m @empty.y4m", 0, "", "empty.y4m", "YUV4MPEG2 "},
        {"", "export @in.clip --y4m @new.y4m", 0, "", "new.y4m", "YUV4MPEG2 "},
        {"", "export @in.clip --frame 1 --image @good.png", 0, "", "good.png", kPngMark},
        {"", "export @in.clip --frame 1 --image @png.bmp", 1, "is not a BMP picture", "", ""},
        {"", "bars @notes.txt" + bars, 1,
         "notes.txt is not a replaceable clip; it is left as it is (--force replaces it)", "", ""},
        {"", "bars --force @notes.txt" + bars, 0, "", "notes.txt", kClipMark},
        {"", "bars @other.clip" + bars, 0, "", "other.clip", kClipMark},
        {"", "bars @empty.y4m" + bars, 0, "", "empty.y4m", kClipMark},
        {"", "import --y4m @in.y4m @other.clip", 0, "", "other.clip", kClipMark},
        // A failed run leaves what was at its destination as it was, and
        // nothing of its own: the clip is missing a frame or has a frame
        // count that is not valid, or the run reaches its file size limit
        // half way.
        {"", "export @cut.clip --y4m @good.y4m", 1, cut, "", ""},
        {"", "export @cut.clip --frame 1 --image @good.png", 1, cut, "", ""},
        {"", "export @neg.clip --y4m @good.y4m", 1, "neg.clip has an invalid frame count (-1)", "", ""},
        {"", "export @neg.clip --frame 0 --image @new.png", 1, "neg.clip has an invalid frame count (-1)", "", ""},
        {"-f 8", "export @wide.clip --y4m @good.y4m", 1, "good.y4m: File too large", "", ""},
        {"-f 4", "export @wide.clip --frame 2 --image @good.png", 1, "good.png: File too large", "", ""},
        {"-f 8", "bars @notes.txt --force --frames 4 --width 64 --height 32", 1, tooLarge, "", ""},
        {"-f 8", "bars @new.clip --frames 4 --width 64 --height 32", 1, tooLarge, "", ""},
        {"-f 8", "import --y4m @wide.y4m @new.clip", 1, tooLarge, "", ""},
        // What a header claims is believed only as far as the file bears it
        // out: nothing is allocated for a frame the file does not hold, and
        // no input makes vclip wait.
        {memory, "export @huge.clip --y4m @huge.y4m", 1, missing, "", ""},
        {memory, "export @huge.clip --frame 0 --image @huge.ppm", 1, missing, "", ""},
        {memory, "bars @blocks.clip" + bars, 1, "is laid out in blocks of 1073741824 bytes", "", ""},
        {memory, "import --y4m @side1.y4m @side1.clip", 1, cutShort, "", ""},
        {memory, "import --y4m @side.y4m @side.clip", 0, "", "side.clip", emptyClip},
        {memory, "ntsc @side1.y4m @side1.ntsc", 1, cutShort, "", ""},
        {memory, "import --uyvy @fifo --width 16 --height 4 @f.clip", 1,
         "fifo is not a regular file; a file of raw UYVY frames was expected", "", ""},
        {memory, "import --y4m @fifo @f.clip", 1, "fifo is not a regular file; a YUV4MPEG2 stream was expected", "",
         ""},
        {memory, "info @fifo", 1, "fifo is not a regular file; a clip file was expected", "", ""},
    };
    for (const Row& row : rows)
        Check(row);
}

TEST(VclipSafety, Y4mImportTakesWholeStreamsOrNothing)
{
    const std::string frame = Random(128, 11), head = "YUV4MPEG2 W16 H4 C422\n";
    const std::string good = "FRAME\n" + frame;
    const std::vector<std::pair<std::string, std::string>> cases = {
        {head + good + "FRAME X" + std::string(5000, 'x') + "\n" + frame + good,
         "frame 1: its FRAME line is longer than 4096 characters"},
        {head + good + "FRA", "frame 1: the stream ends inside its FRAME line ('FRA' with no line end)"},
        {head + good + good + "FRAME\n" + frame.substr(0, 100), "frame 2: cut short: 100 of its 128 bytes are there"},
        {head + good + "FRAME Ib\n" + frame, "frame 1: frame tag Ib cannot be honoured"},
        {head + good + "FRAME  X\n" + frame, "frame 1: malformed FRAME line"},
        {head + good + frame + good, "frame 1: no FRAME line where the frame should start"},
        {"YUV4MPEG2 W16 H4 C422", "the header line has no line end"},
        {"YUV4MPEG2 W16 H4 C422 X" + std::string(5000, 'x') + "\n" + good, "the header line is longer than 4096"},
        {"YUV4MPEG2 W16 H4 F25:0 C422\n" + good, "bad frame rate tag F25:0"},
        {"YUV4MPEG2 W16 H4 Ix C422\n" + good, "bad interlacing tag Ix"},
        {"YUV4MPEG2 W16 H4 A1:0 C422\n" + good, "bad pixel aspect tag A1:0"},
        {"YUV4MPEG2 W16 H4 C420jpeg\n" + good, "colour space C420jpeg"},
        {"YUV4MPEG2 W15 H4 C422\n" + good, "unsupported picture size 15x4"},
        {"YUV4MPEG W16 H4 C422\n" + good, "not a YUV4MPEG2 stream"},
    };
    for (const auto& [stream, message] : cases) {
        SCOPED_TRACE(message);
        ScratchDir d;
        WriteFile(d / "in.y4m", stream);
        WriteClip(d / "old.clip", Header(1, 16, 4), 12);
        const auto before = Snapshot(d.Path());
        for (const char* out : {"new.clip", "old.clip"}) {
            const RunResult r = VclipInProcess({"import", "--y4m", d / "in.y4m", d / out});
            EXPECT_EQ(r.status, 1);
            EXPECT_EQ(r.err.rfind("vclip: " + d / "in.y4m: " + message, 0), 0u) << r.err;
            EXPECT_EQ(Snapshot(d.Path()), before) << out;
        }
    }

    // X tags carry nothing to honour: every frame comes in.
    ScratchDir d;
    WriteFile(d / "in.y4m", head + "FRAME XA=1\n" + frame + good + "FRAME XB=2 XC=3\n" + frame);
    ASSERT_EQ(VclipInProcess({"import", "--y4m", d / "in.y4m", d / "x.clip"}).status, 0);
    EXPECT_NE(VclipInProcess({"info", d / "x.clip"}).out.find("complete:     yes, all 3 frames present"),
              std::string::npos);
}

// Frames count only where their pictures are written data: a run that
// stopped leaves a clip whose header counts more frames than it holds, in a
// file that is too short, has holes, or has space only reserved.
TEST(VclipSafety, OnlyWrittenFramesArePresent)
{
    const int64_t slot = 4096;
    using Maker = void (*)(const std::string&);
    const std::vector<std::pair<std::string, Maker>> clips = {
        {"cut inside frame 1", [](const std::string& p) { WriteClip(p, Header(3, 16, 4), 1, 2 * slot + 100); }},
        {"frame 1 a hole",
         [](const std::string& p) {
             WriteClip(p, Header(3, 16, 4), 1);
             const int fd = open(p.c_str(), O_RDWR);
             EXPECT_EQ(fallocate(fd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 2 * slot, slot), 0);
             close(fd);
         }},
        {"frames 1 and 2 reserved",
         [](const std::string& p) {
             WriteClip(p, Header(3, 16, 4), 1, 2 * slot);
             const int fd = open(p.c_str(), O_RDWR);
             EXPECT_EQ(fallocate(fd, 0, 2 * slot, 2 * slot), 0);
             close(fd);
         }},
        {"written by the store: space reserved for 3, frame 0 written",
         [](const std::string& p) {
             StdoutOf([&] {
                 vXfsFile clip;
                 clip.SetName(p.c_str());
                 clip.SetSize(16, 4);
                 clip.SetImageFormat(DM_IMAGE_PACKING_CbYCrY);
                 clip.SetImageLenght(3);
                 ASSERT_TRUE(clip.Open("w"));
                 clip.IOCtl(XFS_ALLOCATE_IMAGES, reinterpret_cast<void*>(uintptr_t{3}));
                 void* frame = nullptr;
                 ASSERT_EQ(posix_memalign(&frame, 4096, size_t(slot)), 0);
                 std::memset(frame, 0x80, size_t(slot));
                 EXPECT_TRUE(clip.PutImage(0, frame, int(slot)));
                 std::free(frame);
                 clip.Close();
             });
         }},
    };
    for (const auto& [what, make] : clips) {
        SCOPED_TRACE(what);
        ScratchDir d;
        const std::string clip = d / "part.clip";
        make(clip);
        const auto before = Snapshot(d.Path());
        ForgetCachedPages(clip);
        const std::string info = VclipInProcess({"info", clip}).out;
        EXPECT_NE(info.find("complete:     no, 1 of 3 frames present\n"), std::string::npos) << info;
        const RunResult missing = VclipInProcess({"export", clip, "--frame", "1", "--image", d / "f.png"});
        const RunResult whole = VclipInProcess({"export", clip, "--y4m", d / "all.y4m"});
        for (const RunResult& r : {missing, whole}) {
            EXPECT_EQ(r.status, 1);
            EXPECT_EQ(r.err, "vclip: " + clip + ": frame 1 is missing: the file holds only 1 of its 3 frames\n");
        }
        EXPECT_EQ(Snapshot(d.Path()), before);
        EXPECT_EQ(VclipInProcess({"export", clip, "--frame", "0", "--image", d / "f.png"}).status, 0);
    }

    // A frame count that is not valid is said to be so, never "complete"
    // (the first test has the store's neg.clip refused for export).
    ScratchDir d;
    MakeStore(d);
    EXPECT_NE(VclipInProcess({"info", d / "neg.clip"}).out.find("complete:     no, the frame count -1 is not valid\n"),
              std::string::npos);
}

}  // namespace
