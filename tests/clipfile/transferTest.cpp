// Frame transfers: cutting into d_maxiosz pieces, the gathering path and its
// fallbacks, range checks and the end of the file.
#include <sys/syscall.h>
#include <unistd.h>

#include <functional>
#include <sstream>
#include <tuple>

#include "clipTestUtil.h"

namespace {

// A transfer seen on the watched descriptor: kind ('r' pread, 'w' pwrite,
// 'R' readv, 'W' writev), size (bytes for pread and pwrite, entries for
// readv and writev), file position (-1 for readv and writev). Nothing about
// the file system is faked: the calls still go to the kernel, the tests only
// learn how a transfer was cut into calls.
using IoCall = std::tuple<char, int64_t, int64_t>;
int watched = -1;
std::vector<IoCall> calls;

void Note(int fd, char kind, int64_t size, int64_t offset)
{
    if (fd == watched)
        calls.emplace_back(kind, size, offset);
}

// The transfers that `run` makes on descriptor fd.
template <class F>
std::vector<IoCall> CallsOn(int fd, F&& run)
{
    calls.clear();
    watched = fd;
    run();
    watched = -1;
    return std::move(calls);
}

}  // namespace

// These take the place of the C library's entry points in the test program.
extern "C" ssize_t pread64(int fd, void* buf, size_t n, off64_t offset)
{
    Note(fd, 'r', static_cast<int64_t>(n), offset);
    return syscall(SYS_pread64, fd, buf, n, offset);
}

extern "C" ssize_t pwrite64(int fd, const void* buf, size_t n, off64_t offset)
{
    Note(fd, 'w', static_cast<int64_t>(n), offset);
    return syscall(SYS_pwrite64, fd, buf, n, offset);
}

extern "C" ssize_t readv(int fd, const struct iovec* v, int n)
{
    Note(fd, 'R', n, -1);
    return syscall(SYS_readv, fd, v, n);
}

extern "C" ssize_t writev(int fd, const struct iovec* v, int n)
{
    Note(fd, 'W', n, -1);
    return syscall(SYS_writev, fd, v, n);
}

TEST(ClipTransfer, TenMegabyteFrameTakesThreeCallsEachWay)
{
    ScratchDir dir;
    vXfsFile clip;
    DescribeSmall(clip, dir / "big.clip", 1);
    clip.SetSize(2560, 2048);  // 10 MiB a frame in 4:2:2
    ASSERT_EQ(clip.Open("w"), 1);
    const int64_t p = clip.DataOffset(), m4 = 4 << 20;
    AlignedBuffer out(10 << 20, 3), in(10 << 20);
    EXPECT_EQ(CallsOn(clip.Descriptor(), [&] { ASSERT_EQ(clip.PutImage(0, out.Data(), 10 << 20), 1); }),
              (std::vector<IoCall>{{'w', m4, p}, {'w', m4, p + m4}, {'w', m4 / 2, p + 2 * m4}}));
    Reopen(clip);
    EXPECT_EQ(CallsOn(clip.Descriptor(), [&] { ASSERT_EQ(clip.GetImage(0, in.Data(), 10 << 20), 1); }),
              (std::vector<IoCall>{{'r', m4, p}, {'r', m4, p + m4}, {'r', m4 / 2, p + 2 * m4}}));
    EXPECT_TRUE(std::memcmp(in.Data(), out.Data(), 10 << 20) == 0);
}

TEST(ClipTransfer, VectorsGatherOrFallBackToFrameByFrame)
{
    ScratchDir dir;
    vXfsFile clip;
    OpenSmall(clip, dir / "vec.clip", 300);
    AlignedBuffer pool(260 * kSlot, 7);
    std::vector<void*> table;
    for (int k = 0; k < 260; ++k)
        table.push_back(pool.Data() + k * kSlot);

    // Aligned and below d_maxiosz: one gathering call.
    EXPECT_EQ(CallsOn(clip.Descriptor(), [&] { ASSERT_EQ(clip.PutImagesVector(1, 4, table.data()), 1); }),
              (std::vector<IoCall>{{'W', 4, -1}}));
    EXPECT_EQ(FileBytes(clip.GetName().c_str(), clip.DataOffset() + kSlot, 4 * kSlot), pool.Copy(0, 4 * kSlot));
    // 257 frames: more than one gathering call takes.
    EXPECT_EQ(CallsOn(clip.Descriptor(), [&] { ASSERT_EQ(clip.PutImagesVector(10, 266, table.data()), 1); }).size(),
              257u);

    // Buffers off the block alignment: one line each, then frame by frame.
    table[1] = pool.Data() + kSlot + 512, table[2] = pool.Data() + 2 * kSlot + 512;
    std::ostringstream expected;
    expected << std::hex << "insufficient block alignment: " << reinterpret_cast<uintptr_t>(table[1])
             << "\ninsufficient block alignment: " << reinterpret_cast<uintptr_t>(table[2]) << "\n";
    std::string printed;
    EXPECT_EQ(CallsOn(clip.Descriptor(),
                      [&] { printed = StdoutOf([&] { ASSERT_EQ(clip.PutImagesVector(20, 23, table.data()), 1); }); })
                  .size(),
              4u);
    EXPECT_EQ(printed, expected.str());

    Reopen(clip);
    EXPECT_EQ(CallsOn(clip.Descriptor(), [&] { ASSERT_EQ(clip.GetImagesVector(20, 23, &table[256]), 1); }),
              (std::vector<IoCall>{{'R', 4, -1}}));
    for (int k = 0; k < 4; ++k)
        EXPECT_TRUE(std::memcmp(table[256 + k], table[k], kSlot) == 0) << k;
    // Frame by frame checks the range and stops at the first miss.
    EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(clip.GetImagesVector(299, 301, table.data()), 0); }),
              "Asking for a non-existing frame [vXfsFile::GetImage]\n");
}

// Refusals leave the file as it was. Reads past the end succeed: four frames
// asked, two there, the tail untouched and the short count visible.
TEST(ClipTransfer, RangeChecksAndReadsAtTheEnd)
{
    ScratchDir dir;
    const std::string path = dir / "range.clip";
    vXfsFile clip;
    OpenSmall(clip, path, 5);
    AlignedBuffer frames(2 * kSlot, 2), in(4 * kSlot);
    void* one[] = {in.Data()};
    ASSERT_EQ(clip.PutImagesBlock(0, 1, kSlot, frames.Data()), 1);
    int size = -1;
    EXPECT_NE(clip.GetImageSize(5, size), 0);
    EXPECT_EQ(size, kSlot);
    const Bytes written = ReadBytes(path);
    struct Case {
        std::function<int()> call;
        std::string out;
    };
    for (const Case& c : {
             Case{[&] { return clip.GetImageSize(6, size); },
                  "Asking for a non-existing frame [vXfsFile::GetImageSize]\n"},
             Case{[&] { return clip.PutImage(-1, in.Data(), kSlot); },
                  "Asking for a negative frame [vXfsFile::PutImage]\n"},
             Case{[&] { return clip.PutImagesBlock(-1, 0, kSlot, in.Data()); },
                  "Asking for a negative frame [vXfsFile::PutImagesBlock]\n"},
             Case{[&] { return clip.GetImagesBlock(-1, 0, kSlot, in.Data()); },
                  "Asking for a negative frame [vXfsFile::GetImagesBlock]\n"},
             Case{[&] { return clip.PutImagesVector(-1, -1, one); },
                  "Asking for a negative frame [vXfsFile::PutImagesVector]\n"},
             Case{[&] { return clip.GetImage(6, in.Data(), kSlot); },
                  "Asking for a non-existing frame [vXfsFile::GetImage]\n"},
             Case{[&] { return clip.GetImage(-1, in.Data(), kSlot); },
                  "Asking for a non-existing frame [vXfsFile::GetImage]\n"},
         }) {
        EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(c.call(), 0); }), c.out);
    }
    EXPECT_EQ(size, 0);
    EXPECT_EQ(ReadBytes(path), written);
    // Frame numFrames, one past the last, passes the range check on purpose:
    // the store's check refuses only frames beyond it. Nothing is there to read.
    EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(clip.GetImage(5, in.Data(), kSlot), 1); }), "");
    EXPECT_EQ(clip.LastTransferBytes(), 0);

    Reopen(clip);
    std::memset(in.Data(), 0xEE, in.size);
    ASSERT_EQ(clip.GetImagesBlock(0, 3, kSlot, in.Data()), 1);
    EXPECT_EQ(clip.LastTransferBytes(), 2 * kSlot);
    EXPECT_EQ(in.Copy(0, 2 * kSlot), frames.Copy(0, 2 * kSlot));
    EXPECT_EQ(in.Copy(2 * kSlot, 2 * kSlot), Bytes(2 * kSlot, 0xEE));
    ASSERT_EQ(clip.GetImage(4, in.Data(), kSlot), 1);
    EXPECT_EQ(clip.LastTransferBytes(), 0);
}

// A reader that works ahead holds the store's line about a failed read and
// shows it later, word for word as it would have come.
TEST(ClipTransfer, HeldReportsComeOutWhenReleased)
{
    ScratchDir dir;
    TestClip clip;
    OpenSmall(clip, dir / "held.clip", 2);
    AlignedBuffer in(kSlot);
    ASSERT_EQ(clip.PutImage(0, in.Data(), kSlot), 1);  // something to read
    const int readable = clip.descriptor;
    clip.descriptor = open((dir / "held.clip").c_str(), O_WRONLY);  // reads fail: EBADF
    ASSERT_GT(clip.descriptor, 0);
    clip.HoldReports(true);
    EXPECT_EQ(StderrOf([&] { EXPECT_EQ(clip.GetImagesBlock(0, 0, kSlot, in.Data()), 0); }), "");
    EXPECT_EQ(StderrOf([&] { clip.ReleaseReports(); }),
              "Unable to read data [vXfsFile::GetImagesBlock]: Bad file descriptor\n");
    EXPECT_EQ(StderrOf([&] { clip.ReleaseReports(); }), "");  // shown once
    clip.HoldReports(false);
    EXPECT_EQ(StderrOf([&] { clip.GetImagesBlock(0, 0, kSlot, in.Data()); }),
              "Unable to read data [vXfsFile::GetImagesBlock]: Bad file descriptor\n");
    close(clip.descriptor);
    clip.descriptor = readable;
}
