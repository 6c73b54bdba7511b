// Control orders on real clips: reservation, block map, header changes in
// place, the file system figures, and the program errors that stop.
#include <fcntl.h>
#include <sys/stat.h>

#include <functional>

#include "clipTestUtil.h"

TEST(ClipControl, AllocateReservesTheWholeClip)
{
    ScratchDir dir;
    const std::string path = dir / "alloc.clip";
    vXfsFile clip;
    DescribeSmall(clip, path, 200);
    ASSERT_EQ(clip.Open("w"), 1);
    struct stat before, after;
    ASSERT_EQ(stat(path.c_str(), &before), 0);
    ASSERT_EQ(clip.IOCtl(XFS_ALLOCATE_IMAGES, ByValue(200)), 1);
    ASSERT_EQ(stat(path.c_str(), &after), 0);
    EXPECT_GE(int64_t{after.st_blocks} * 512, 201 * kSlot);
    EXPECT_EQ(after.st_size, before.st_size);  // reserved, not written
}

TEST(ClipControl, BlockMapCoversTheWrittenFrames)
{
    ScratchDir dir;
    vXfsFile clip;
    DescribeSmall(clip, dir / "map.clip", 40);
    ASSERT_EQ(clip.Open("w"), 1);
    AlignedBuffer frames(10 * kSlot, 8);
    ASSERT_EQ(clip.PutImagesBlock(0, 9, kSlot, frames.Data()), 1);
    ASSERT_EQ(clip.PutImagesBlock(30, 39, kSlot, frames.Data()), 1);  // a hole between
    std::vector<getbmap> map(kBmapRecords);
    ASSERT_EQ(clip.IOCtl(XFS_GET_BMAP, map.data()), 1);
    ASSERT_GE(map[0].bmv_entries, 3);
    // Records in order with no gaps, from byte 0 to the end of frame 39,
    // in 512-byte units; a hole where frames 10 to 29 were never written.
    int64_t next = 0, mapped = 0;
    for (int k = 1; k <= map[0].bmv_entries; ++k) {
        EXPECT_EQ(map[k].bmv_offset, next) << "record " << k;
        next = map[k].bmv_offset + map[k].bmv_length;
        mapped += map[k].bmv_block == -1 ? 0 : map[k].bmv_length;
    }
    EXPECT_EQ(next, (clip.DataOffset() + 40 * kSlot) / 512);
    EXPECT_EQ(mapped, (clip.DataOffset() + 40 * kSlot) / 512 - 20 * kSlot / 512);
}

TEST(ClipControl, HeaderChangesInPlaceKeepEveryOtherField)
{
    ScratchDir dir;
    const std::string path = dir / "change.clip";
    {
        vXfsFile clip;
        DescribeSmall(clip, path, 10);
        clip.SetImageRate(29.97);
        clip.SetInterlacing(1);
        ASSERT_EQ(clip.Open("w"), 1);
        AlignedBuffer frame(kSlot, 6);
        ASSERT_EQ(clip.PutImage(0, frame.Data(), kSlot), 1);
    }
    Bytes expected = ReadBytes(path);
    TestClip clip;
    clip.SetName(path.c_str());
    ASSERT_EQ(clip.IOCtl(XFS_CHANGE_NUM_FRAMES, ByValue(25)), 1);
    EXPECT_EQ(clip.GetNumFrames(), 25);
    expected[11] = 25;
    EXPECT_EQ(ReadBytes(path), expected);
    ASSERT_EQ(clip.IOCtl(XFS_CHANGE_REPLACEABLE, ByValue(0)), 1);
    expected[19] = 0;
    EXPECT_EQ(ReadBytes(path), expected);

    // On an open clip the clip gets its own descriptor back, still direct.
    ASSERT_EQ(clip.Open("r"), 1);
    const int own = clip.Descriptor();
    ASSERT_EQ(clip.IOCtl(XFS_CHANGE_NUM_FRAMES, ByValue(12)), 1);
    EXPECT_EQ(clip.Descriptor(), own);
    EXPECT_NE(fcntl(own, F_GETFL) & O_DIRECT, 0);
    expected[11] = 12;
    EXPECT_EQ(ReadBytes(path), expected);
    AlignedBuffer frame(kSlot);
    EXPECT_EQ(clip.GetImage(0, frame.Data(), kSlot), 1);
}

TEST(ClipControl, FiguresOfTheFileSystem)
{
    ScratchDir dir;
    vXfsFile clip;
    DescribeSmall(clip, dir / "fig.clip", 3);
    ASSERT_EQ(clip.Open("w"), 1);
    int kb = 0, mb = 0, images = 0, total = 0;
    ASSERT_EQ(clip.IOCtl(XFS_GET_FREE_SPACE_KB, &kb), 1);
    ASSERT_EQ(clip.IOCtl(XFS_GET_FREE_SPACE_MB, &mb), 1);
    ASSERT_EQ(clip.IOCtl(XFS_GET_FREE_IMAGES, &images), 1);
    ASSERT_EQ(clip.IOCtl(XFS_GET_FS_SIZE_KB, &total), 1);
    EXPECT_GT(kb, 0);
    EXPECT_EQ(mb, kb >> 10);
    // Other programs write too: allow some drift.
    EXPECT_NEAR(images, int64_t{kb} / 4 - 1, 1 << 16);
    EXPECT_GT(total, kb);
}

TEST(ClipControlDeath, ProgramErrorsStopWithTheirLine)
{
    vXfsFile closed;
    AlignedBuffer frame(kSlot);
    void* one[] = {frame.Data()};
    int v = 0;
    double rate = 0;
    const char* anyLine = "Assertion failed: file vXfsFile, line [0-9]+\n";
    EXPECT_DEATH(closed.GetImage(0, frame.Data(), kSlot), anyLine);
    EXPECT_DEATH(closed.PutImagesBlock(0, 0, kSlot, frame.Data()), anyLine);
    EXPECT_DEATH(closed.GetImagesVector(0, 0, one), anyLine);
    EXPECT_DEATH(closed.Open("w"), anyLine);  // no name
    for (int order : {0, 15, -1})
        EXPECT_DEATH(closed.IOCtl(order, &v), anyLine);
    struct Case { std::function<void()> call; int line; };
    for (const Case& c : {Case{[&] { closed.SetAudioRate(48000.0); }, 825},
                          Case{[&] { closed.UseAudioTrack(1); }, 853},
                          Case{[&] { closed.GetAudioRate(rate); }, 1023},
                          Case{[&] { closed.GetAudioFrameSize(v); }, 1035},
                          Case{[&] { closed.GetAudioFrameLenght(); }, 1046}})
        EXPECT_DEATH(c.call(), "Assertion failed: file vXfsFile, line " + std::to_string(c.line) + "\n");
}
