// Frame transfers: cutting into d_maxiosz pieces, the gathering path and its
// fallbacks, range checks and the end of the file.
#include <functional>

#include "clipTestUtil.h"
#include "ioSpy.h"

namespace {

// Opens a new small clip of `frames` frames for writing.
void OpenSmall(TestClip& clip, const std::string& path, int frames)
{
    DescribeSmall(clip, path, frames);
    ASSERT_EQ(clip.Open("w"), 1);
}

void Reopen(TestClip& clip)
{
    clip.Close();
    ASSERT_EQ(clip.Open("r"), 1);
}

}  // namespace

TEST(ClipTransfer, TenMegabyteFrameTakesThreeCallsEachWay)
{
    ScratchDir dir;
    TestClip clip;
    DescribeSmall(clip, dir / "big.clip", 1);
    clip.SetSize(2560, 2048);  // 10 MiB a frame in 4:2:2
    ASSERT_EQ(clip.Open("w"), 1);
    ASSERT_EQ(clip.ImageSize(), 10 << 20);
    AlignedBuffer out(10 << 20, 3), in(10 << 20);
    const int64_t p = clip.DataOffset();
    for (bool writing : {true, false}) {
        SpyStart(clip.Descriptor());
        ASSERT_EQ(writing ? clip.PutImage(0, out.Data(), 10 << 20) : clip.GetImage(0, in.Data(), 10 << 20), 1);
        const std::vector<IoCall> calls = SpyStop();
        ASSERT_EQ(calls.size(), 3u);
        for (int k = 0; k < 3; ++k) {
            EXPECT_EQ(calls[k].kind, writing ? 'w' : 'r');
            EXPECT_EQ(calls[k].offset, p + k * (4 << 20));
            EXPECT_EQ(calls[k].bytes, k < 2 ? 4 << 20 : 2 << 20);
        }
        if (writing)
            Reopen(clip);
    }
    EXPECT_TRUE(std::memcmp(in.Data(), out.Data(), 10 << 20) == 0);
}

TEST(ClipTransfer, VectorsGatherOrFallBackToFrameByFrame)
{
    ScratchDir dir;
    TestClip clip;
    OpenSmall(clip, dir / "vec.clip", 300);
    AlignedBuffer pool(258 * kSlot, 7), in(4 * kSlot);
    std::vector<void*> table, back;
    for (int k = 0; k < 257; ++k)
        table.push_back(pool.Data() + k * kSlot);
    for (int k = 0; k < 4; ++k)
        back.push_back(in.Data() + k * kSlot);

    // Aligned and below d_maxiosz: one gathering call.
    SpyStart(clip.Descriptor());
    ASSERT_EQ(clip.PutImagesVector(1, 4, table.data()), 1);
    std::vector<IoCall> calls = SpyStop();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].kind, 'W');
    EXPECT_EQ(calls[0].entries, 4);
    EXPECT_EQ(FileBytes(clip.GetName().c_str(), clip.DataOffset() + kSlot, 4 * kSlot), pool.Copy(0, 4 * kSlot));

    // 257 frames: more than one gathering call takes.
    SpyStart(clip.Descriptor());
    ASSERT_EQ(clip.PutImagesVector(10, 266, table.data()), 1);
    EXPECT_EQ(SpyStop().size(), 257u);

    // Buffers off the block alignment: one line each, then frame by frame.
    table[1] = pool.Data() + kSlot + 512;
    table[2] = pool.Data() + 2 * kSlot + 512;
    char expected[200];
    std::snprintf(expected, sizeof expected,
                  "insufficient block alignment: %lx\ninsufficient block alignment: %lx\n",
                  static_cast<unsigned long>(reinterpret_cast<uintptr_t>(table[1])),
                  static_cast<unsigned long>(reinterpret_cast<uintptr_t>(table[2])));
    SpyStart(clip.Descriptor());
    EXPECT_EQ(StdoutOf([&] { ASSERT_EQ(clip.PutImagesVector(20, 23, table.data()), 1); }), expected);
    EXPECT_EQ(SpyStop().size(), 4u);
    Reopen(clip);

    SpyStart(clip.Descriptor());
    ASSERT_EQ(clip.GetImagesVector(20, 23, back.data()), 1);
    calls = SpyStop();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].kind, 'R');
    for (int k = 0; k < 4; ++k)
        EXPECT_TRUE(std::memcmp(back[k], table[k], kSlot) == 0) << k;
    // Frame by frame checks the range and stops at the first miss.
    EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(clip.GetImagesVector(299, 301, table.data()), 0); }),
              "Asking for a non-existing frame [vXfsFile::GetImage]\n");
}

TEST(ClipTransfer, RangeChecksAndNegativeFrames)
{
    ScratchDir dir;
    const std::string path = dir / "range.clip";
    TestClip clip;
    OpenSmall(clip, path, 3);
    AlignedBuffer frame(kSlot, 9);
    void* one[] = {frame.Data()};
    int size = -1;
    EXPECT_NE(clip.GetImageSize(3, size), 0);
    EXPECT_EQ(size, kSlot);
    const Bytes head = ReadBytes(path);
    struct Case { std::function<int()> call; std::string out; };
    for (const Case& c : {
             Case{[&] { return clip.GetImageSize(4, size); }, "Asking for a non-existing frame [vXfsFile::GetImageSize]\n"},
             Case{[&] { return clip.PutImage(-1, frame.Data(), kSlot); }, "Asking for a negative frame [vXfsFile::PutImage]\n"},
             Case{[&] { return clip.PutImagesBlock(-1, 0, kSlot, frame.Data()); }, "Asking for a negative frame [vXfsFile::PutImagesBlock]\n"},
             Case{[&] { return clip.GetImagesBlock(-1, 0, kSlot, frame.Data()); }, "Asking for a negative frame [vXfsFile::GetImagesBlock]\n"},
             Case{[&] { return clip.PutImagesVector(-1, -1, one); }, "Asking for a negative frame [vXfsFile::PutImagesVector]\n"},
             Case{[&] { return clip.GetImage(4, frame.Data(), kSlot); }, "Asking for a non-existing frame [vXfsFile::GetImage]\n"},
             Case{[&] { return clip.GetImage(-1, frame.Data(), kSlot); }, "Asking for a non-existing frame [vXfsFile::GetImage]\n"},
         }) {
        EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(c.call(), 0); }), c.out);
    }
    EXPECT_EQ(size, 0);
    EXPECT_EQ(ReadBytes(path), head);
}

TEST(ClipTransfer, ReadsAtTheEndOfTheFile)
{
    ScratchDir dir;
    TestClip clip;
    OpenSmall(clip, dir / "end.clip", 5);
    AlignedBuffer frames(2 * kSlot, 2), in(4 * kSlot);
    ASSERT_EQ(clip.PutImagesBlock(0, 1, kSlot, frames.Data()), 1);
    Reopen(clip);
    std::memset(in.Data(), 0xEE, in.size);
    // Four frames asked, two there: success, the tail untouched, and the
    // short count visible to the caller.
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
    ASSERT_EQ(clip.PutImage(0, in.Data(), kSlot), 1);
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
