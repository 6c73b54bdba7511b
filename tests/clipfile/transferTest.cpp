// Frame transfers: slot placement, cutting into d_maxiosz pieces, the
// gathering path and its fallbacks, range checks and the end of the file.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <memory>

#include "clipTestUtil.h"
#include "ioSpy.h"

namespace {

constexpr int kSlot = 4096;  // DescribeSmall frames: exactly one block

// Opens a new small clip of `frames` frames for writing.
void OpenSmall(TestClip& clip, const std::string& path, int frames)
{
    DescribeSmall(clip, path, frames);
    ASSERT_EQ(clip.Open("w"), 1);
}

// Frame i of the file as bytes.
std::vector<unsigned char> FrameOnDisk(const std::string& path, int64_t offset, int size)
{
    std::vector<unsigned char> all = ReadBytes(path);
    if (static_cast<int64_t>(all.size()) < offset + size)
        return {};
    return std::vector<unsigned char>(all.begin() + offset, all.begin() + offset + size);
}

}  // namespace

TEST(ClipTransfer, BlockIsCutIntoMaxIoPieces)
{
    ScratchDir dir;
    const std::string path = dir.File("chunks.clip");
    TestClip clip;
    OpenSmall(clip, path, 7);
    clip.dio.d_maxiosz = 3 * kSlot;
    AlignedBuffer out(7 * kSlot);
    out.Fill(1);

    SpyStart(clip.Descriptor());
    ASSERT_EQ(clip.PutImagesBlock(0, 6, kSlot, out.Data()), 1);
    std::vector<IoCall> calls = SpyStop();
    ASSERT_EQ(calls.size(), 3u);
    const int64_t p = clip.DataOffset();
    EXPECT_EQ(calls[0].bytes, 3 * kSlot);
    EXPECT_EQ(calls[0].offset, p);
    EXPECT_EQ(calls[1].bytes, 3 * kSlot);
    EXPECT_EQ(calls[1].offset, p + 3 * kSlot);
    EXPECT_EQ(calls[2].bytes, kSlot);
    EXPECT_EQ(calls[2].offset, p + 6 * kSlot);
    EXPECT_EQ(clip.LastTransferBytes(), 7 * kSlot);

    // Exactly d_maxiosz: one call.
    SpyStart(clip.Descriptor());
    ASSERT_EQ(clip.PutImagesBlock(1, 3, kSlot, out.Data()), 1);
    EXPECT_EQ(SpyStop().size(), 1u);
    clip.Close();

    TestClip back;
    back.SetName(path.c_str());
    ASSERT_EQ(back.Open("r"), 1);
    back.dio.d_maxiosz = 2 * kSlot;
    AlignedBuffer in(5 * kSlot);
    SpyStart(back.Descriptor());
    ASSERT_EQ(back.GetImagesBlock(2, 6, kSlot, in.Data()), 1);
    EXPECT_EQ(SpyStop().size(), 3u);
    // Frames 1..3 were rewritten with frames 0..2 of the buffer.
    EXPECT_EQ(std::memcmp(in.Bytes(), out.Bytes() + kSlot, 2 * kSlot), 0);
    EXPECT_EQ(std::memcmp(in.Bytes() + 2 * kSlot, out.Bytes() + 4 * kSlot, 3 * kSlot), 0);
}

TEST(ClipTransfer, TenMegabyteFrameTakesThreeCalls)
{
    ScratchDir dir;
    const std::string path = dir.File("big.clip");
    TestClip clip;
    clip.SetName(path.c_str());
    clip.SetSize(2560, 2048);  // 10 MiB a frame in 4:2:2
    clip.SetImageFormat(DM_IMAGE_PACKING_CbYCrY);
    clip.SetImageLenght(1);
    ASSERT_EQ(clip.Open("w"), 1);
    ASSERT_EQ(clip.DioAttr().d_maxiosz, 4194304u);
    const int size = clip.ImageSize();
    ASSERT_EQ(size, 10 << 20);
    AlignedBuffer frame(size);
    frame.Fill(3);
    SpyStart(clip.Descriptor());
    ASSERT_EQ(clip.PutImage(0, frame.Data(), size), 1);
    const std::vector<IoCall> calls = SpyStop();
    ASSERT_EQ(calls.size(), 3u);
    const int64_t p = clip.DataOffset();
    EXPECT_EQ(calls[0].offset, p);
    EXPECT_EQ(calls[1].offset, p + (4 << 20));
    EXPECT_EQ(calls[2].offset, p + (8 << 20));
    EXPECT_EQ(calls[2].bytes, 2 << 20);
    clip.Close();
    EXPECT_EQ(FrameOnDisk(path, p, size),
              std::vector<unsigned char>(frame.Bytes(), frame.Bytes() + size));
}

TEST(ClipTransfer, AlignedVectorGoesInOneGatheringCall)
{
    ScratchDir dir;
    const std::string path = dir.File("vec.clip");
    TestClip clip;
    OpenSmall(clip, path, 4);
    std::vector<std::unique_ptr<AlignedBuffer>> frames;
    std::vector<void*> table;
    for (int k = 0; k < 4; ++k) {
        frames.push_back(std::make_unique<AlignedBuffer>(kSlot));
        frames.back()->Fill(10 + k);
        table.push_back(frames.back()->Data());
    }
    SpyStart(clip.Descriptor());
    ASSERT_EQ(clip.PutImagesVector(1, 4, table.data()), 1);
    std::vector<IoCall> calls = SpyStop();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].kind, 'W');
    EXPECT_EQ(calls[0].entries, 4);
    clip.Close();
    for (int k = 0; k < 4; ++k)
        EXPECT_EQ(FrameOnDisk(path, clip.DataOffset() + (k + 1) * kSlot, kSlot),
                  std::vector<unsigned char>(frames[k]->Bytes(), frames[k]->Bytes() + kSlot));

    TestClip back;
    back.SetName(path.c_str());
    ASSERT_EQ(back.Open("r"), 1);
    AlignedBuffer a(kSlot), b(kSlot);
    void* two[] = {a.Data(), b.Data()};
    SpyStart(back.Descriptor());
    ASSERT_EQ(back.GetImagesVector(2, 3, two), 1);
    calls = SpyStop();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].kind, 'R');
    EXPECT_EQ(std::memcmp(a.Bytes(), frames[1]->Bytes(), kSlot), 0);
    EXPECT_EQ(std::memcmp(b.Bytes(), frames[2]->Bytes(), kSlot), 0);

    // Gathering past the end of the file falls short: a read error.
    void* beyond[] = {a.Data(), b.Data()};
    EXPECT_EQ(back.GetImagesVector(4, 5, beyond), 0);
}

TEST(ClipTransfer, VectorFallsBackToFrameByFrame)
{
    ScratchDir dir;
    TestClip clip;
    OpenSmall(clip, dir.File("many.clip"), 300);
    AlignedBuffer pool(258 * kSlot);
    pool.Fill(5);
    std::vector<void*> table;
    for (int k = 0; k < 257; ++k)
        table.push_back(pool.Bytes() + k * kSlot);

    // 257 frames: more than the gathering table holds.
    SpyStart(clip.Descriptor());
    ASSERT_EQ(clip.PutImagesVector(0, 256, table.data()), 1);
    std::vector<IoCall> calls = SpyStop();
    EXPECT_EQ(calls.size(), 257u);
    EXPECT_EQ(calls[256].kind, 'w');

    // A total of exactly d_maxiosz is not "below" it.
    clip.dio.d_maxiosz = 4 * kSlot;
    SpyStart(clip.Descriptor());
    ASSERT_EQ(clip.PutImagesVector(0, 3, table.data()), 1);
    EXPECT_EQ(SpyStop().size(), 4u);
    clip.dio.d_maxiosz = kDefaultDioattr.d_maxiosz;

    // Two buffers off the block alignment: one line each, then frame by frame.
    // They stay on d_mem alignment, so the frames still move directly.
    table[1] = pool.Bytes() + kSlot + 512;
    table[2] = pool.Bytes() + 2 * kSlot + 512;
    char expected[200];
    std::snprintf(expected, sizeof expected,
                  "insufficient block alignment: %lx\ninsufficient block alignment: %lx\n",
                  static_cast<unsigned long>(reinterpret_cast<uintptr_t>(table[1])),
                  static_cast<unsigned long>(reinterpret_cast<uintptr_t>(table[2])));
    SpyStart(clip.Descriptor());
    EXPECT_EQ(StdoutOf([&] { ASSERT_EQ(clip.PutImagesVector(10, 13, table.data()), 1); }),
              expected);
    EXPECT_EQ(SpyStop().size(), 4u);
    clip.Close();

    TestClip back;
    back.SetName(clip.GetName().c_str());
    ASSERT_EQ(back.Open("r"), 1);
    std::vector<unsigned char> check(kSlot);
    SpyStart(back.Descriptor());
    EXPECT_EQ(StdoutOf([&] { ASSERT_EQ(back.GetImagesVector(10, 13, table.data()), 1); }), "");
    EXPECT_EQ(SpyStop().size(), 4u);
    // Frame by frame applies the range check and stops at the first miss.
    EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(back.GetImagesVector(299, 301, table.data()), 0); }),
              "Asking for a non-existing frame [vXfsFile::GetImage]\n");
}

TEST(ClipTransfer, RangeChecks)
{
    ScratchDir dir;
    const std::string path = dir.File("range.clip");
    TestClip clip;
    DescribeSmall(clip, path, 3);
    int size = -1;
    EXPECT_EQ(clip.GetImageSize(0, size), 0);  // not open, size still given
    EXPECT_EQ(size, kSlot);
    ASSERT_EQ(clip.Open("w"), 1);
    EXPECT_NE(clip.GetImageSize(3, size), 0);
    EXPECT_EQ(size, kSlot);
    EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(clip.GetImageSize(4, size), 0); }),
              "Asking for a non-existing frame [vXfsFile::GetImageSize]\n");
    EXPECT_EQ(size, 0);

    AlignedBuffer frame(kSlot);
    frame.Fill(9);
    const std::vector<unsigned char> headBefore = FrameOnDisk(path, 0, 44);
    EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(clip.PutImage(-1, frame.Data(), kSlot), 0); }),
              "Asking for a negative frame [vXfsFile::PutImage]\n");
    EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(clip.PutImagesBlock(-1, 0, kSlot, frame.Data()), 0); }),
              "Asking for a negative frame [vXfsFile::PutImagesBlock]\n");
    void* one[] = {frame.Data()};
    EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(clip.PutImagesVector(-1, -1, one), 0); }),
              "Asking for a negative frame [vXfsFile::PutImagesVector]\n");
    EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(clip.PutDummyImage(-2), 0); }),
              "Asking for a non-existing frame [vXfsFile::GetImageSize]\n");
    EXPECT_EQ(clip.PutImagesVector(2, 1, one), 0);  // empty range: nothing, silently
    EXPECT_EQ(FrameOnDisk(path, 0, 44), headBefore);

    // Writing beyond the count is allowed and leaves the count alone.
    ASSERT_EQ(clip.PutImage(10, frame.Data(), kSlot), 1);
    EXPECT_EQ(clip.GetNumFrames(), 3);
    clip.Close();

    TestClip back;
    back.SetName(path.c_str());
    ASSERT_EQ(back.Open("r"), 1);
    EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(back.GetImage(4, frame.Data(), kSlot), 0); }),
              "Asking for a non-existing frame [vXfsFile::GetImage]\n");
    EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(back.GetImage(-1, frame.Data(), kSlot), 0); }),
              "Asking for a non-existing frame [vXfsFile::GetImage]\n");
    EXPECT_EQ(back.GetNumFrames(), 3);
}

TEST(ClipTransfer, ReadsAtTheEndOfTheFile)
{
    ScratchDir dir;
    const std::string path = dir.File("end.clip");
    TestClip clip;
    OpenSmall(clip, path, 5);
    AlignedBuffer frames(2 * kSlot);
    frames.Fill(2);
    ASSERT_EQ(clip.PutImagesBlock(0, 1, kSlot, frames.Data()), 1);
    clip.Close();

    TestClip back;
    back.SetName(path.c_str());
    ASSERT_EQ(back.Open("r"), 1);
    EXPECT_EQ(back.FileSizeBytes(), 3 * kSlot);
    AlignedBuffer in(4 * kSlot);
    std::memset(in.Data(), 0xEE, in.Size());
    // Four frames asked, two there: success, the tail untouched, and the
    // short count visible to the caller.
    ASSERT_EQ(back.GetImagesBlock(0, 3, kSlot, in.Data()), 1);
    EXPECT_EQ(back.LastTransferBytes(), 2 * kSlot);
    EXPECT_EQ(std::memcmp(in.Bytes(), frames.Bytes(), 2 * kSlot), 0);
    EXPECT_EQ(in.Bytes()[2 * kSlot], 0xEE);
    EXPECT_EQ(in.Bytes()[4 * kSlot - 1], 0xEE);
    ASSERT_EQ(back.GetImage(4, in.Data(), kSlot), 1);
    EXPECT_EQ(back.LastTransferBytes(), 0);
}

TEST(ClipTransfer, DummyFrameIsASlotOfZeros)
{
    ScratchDir dir;
    const std::string path = dir.File("dummy.clip");
    TestClip clip;
    OpenSmall(clip, path, 3);
    AlignedBuffer frame(kSlot);
    std::memset(frame.Data(), 0x77, kSlot);
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(clip.PutImage(i, frame.Data(), kSlot), 1);
    ASSERT_EQ(clip.PutDummyImage(1), 1);
    EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(clip.PutDummyImage(4), 0); }),
              "Asking for a non-existing frame [vXfsFile::GetImageSize]\n");
    clip.Close();
    EXPECT_EQ(FrameOnDisk(path, clip.DataOffset() + kSlot, kSlot), std::vector<unsigned char>(kSlot, 0));
    EXPECT_EQ(FrameOnDisk(path, clip.DataOffset() + 2 * kSlot, kSlot),
              std::vector<unsigned char>(kSlot, 0x77));
    EXPECT_EQ(ReadBytes(path).size(), 4u * kSlot);
}

TEST(ClipTransfer, PositionsBeyondFourGigabytes)
{
    ScratchDir dir;
    const std::string path = dir.File("far.clip");
    TestClip clip;
    OpenSmall(clip, path, 2000000);
    AlignedBuffer frame(kSlot);
    frame.Fill(4);
    const int far = 1200000;  // 4.9 GB in: the file stays sparse
    ASSERT_EQ(clip.PutImage(far, frame.Data(), kSlot), 1);
    EXPECT_EQ(clip.FileSizeBytes(), clip.DataOffset() + int64_t{far + 1} * kSlot);
    AlignedBuffer back(kSlot);
    clip.Close();
    ASSERT_EQ(clip.Open("r"), 1);
    ASSERT_EQ(clip.GetImage(far, back.Data(), kSlot), 1);
    EXPECT_EQ(std::memcmp(back.Data(), frame.Data(), kSlot), 0);
    AlignedBuffer pair(2 * kSlot);
    ASSERT_EQ(clip.GetImagesBlock(far - 1, far, kSlot, pair.Data()), 1);
    EXPECT_EQ(std::memcmp(pair.Bytes() + kSlot, frame.Data(), kSlot), 0);
}

TEST(ClipTransfer, UnalignedBufferStillMovesOnADirectClip)
{
    ScratchDir dir;
    const std::string path = dir.File("odd.clip");
    TestClip clip;
    OpenSmall(clip, path, 2);
    ASSERT_TRUE(fsIsDirect(clip.Descriptor()));
    std::vector<unsigned char> raw(2 * kSlot + 64);
    unsigned char* odd = raw.data() + 3;
    for (int i = 0; i < 2 * kSlot; ++i)
        odd[i] = static_cast<unsigned char>(i * 7);
    ASSERT_EQ(clip.PutImagesBlock(0, 1, kSlot, odd), 1);
    EXPECT_TRUE(fsIsDirect(clip.Descriptor()));  // back to direct afterwards
    clip.Close();
    ASSERT_EQ(clip.Open("r"), 1);
    std::vector<unsigned char> in(2 * kSlot + 64);
    ASSERT_EQ(clip.GetImagesBlock(0, 1, kSlot, in.data() + 5), 1);
    EXPECT_EQ(std::memcmp(in.data() + 5, odd, 2 * kSlot), 0);
}

TEST(ClipTransfer, FailedWriteIsReported)
{
    ScratchDir dir;
    const std::string path = dir.File("ro.clip");
    {
        TestClip clip;
        OpenSmall(clip, path, 1);
    }
    TestClip clip;
    clip.SetName(path.c_str());
    ASSERT_EQ(clip.Open("r"), 1);  // read-only descriptor: writes must fail
    AlignedBuffer frame(kSlot);
    testing::internal::CaptureStderr();
    EXPECT_EQ(clip.PutImage(0, frame.Data(), kSlot), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Unable to write data [vXfsFile::PutImage]: Bad file descriptor\n");
    EXPECT_EQ(clip.IsInUse(), 1);
}

TEST(ClipTransferDeath, ProgramErrorsStop)
{
    vXfsFile closed;
    AlignedBuffer frame(kSlot);
    const char* stop = "Assertion failed: file vXfsFile, line [0-9]+";
    EXPECT_DEATH(closed.GetImage(0, frame.Data(), kSlot), stop);
    EXPECT_DEATH(closed.PutImage(0, frame.Data(), kSlot), stop);
    EXPECT_DEATH(closed.PutImagesBlock(0, 0, kSlot, frame.Data()), stop);
    void* one[] = {frame.Data()};
    EXPECT_DEATH(closed.GetImagesVector(0, 0, one), stop);

    ScratchDir dir;
    vXfsFile clip;
    DescribeSmall(clip, dir.File("a"), 1);
    ASSERT_EQ(clip.Open("w"), 1);
    EXPECT_DEATH(clip.PutImagesBlock(0, 0, kSlot, nullptr), stop);
    EXPECT_DEATH(clip.GetImagesBlock(1, 0, kSlot, frame.Data()), stop);
    EXPECT_DEATH(clip.PutImagesBlock(0, 0, 0, frame.Data()), stop);
    EXPECT_DEATH(clip.PutAudioFrame(0, frame.Data()), stop);
    EXPECT_DEATH(clip.GetAudioFrame(0, frame.Data(), 1), stop);
}

TEST(ClipTransferDeath, AudioStopsAtItsLines)
{
    vXfsFile clip;
    double rate = 0;
    int size = 0;
    EXPECT_DEATH(clip.SetAudioRate(48000.0), "Assertion failed: file vXfsFile, line 825\n");
    EXPECT_DEATH(clip.UseAudioTrack(1), "Assertion failed: file vXfsFile, line 853\n");
    EXPECT_DEATH(clip.GetAudioRate(rate), "Assertion failed: file vXfsFile, line 1023\n");
    EXPECT_DEATH(clip.GetAudioFrameSize(size), "Assertion failed: file vXfsFile, line 1035\n");
    EXPECT_DEATH(clip.GetAudioFrameLenght(), "Assertion failed: file vXfsFile, line 1046\n");
}
