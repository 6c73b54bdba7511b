// Control orders on real clips: reservation, block map, header changes in
// place, the file system figures, and the program errors that stop.
#include <sys/stat.h>

#include <functional>

#include "clipTestUtil.h"

// Allocation reserves the whole clip without writing it; the free space
// figures are plausible (other programs write too: some drift allowed).
TEST(ClipControl, SpaceOrders)
{
    ScratchDir dir;
    const std::string path = dir / "alloc.clip";
    vXfsFile clip;
    OpenSmall(clip, path, 200);
    struct stat before, after;
    ASSERT_EQ(stat(path.c_str(), &before), 0);
    ASSERT_EQ(clip.IOCtl(XFS_ALLOCATE_IMAGES, ByValue(200)), 1);
    ASSERT_EQ(stat(path.c_str(), &after), 0);
    EXPECT_GE(int64_t{after.st_blocks} * 512, 201 * kSlot);
    EXPECT_EQ(after.st_size, before.st_size);

    int kb = 0, mb = 0, images = 0, total = 0;
    const std::pair<int, int*> figures[] = {{XFS_GET_FREE_SPACE_KB, &kb},
                                            {XFS_GET_FREE_SPACE_MB, &mb},
                                            {XFS_GET_FREE_IMAGES, &images},
                                            {XFS_GET_FS_SIZE_KB, &total}};
    for (auto [order, value] : figures)
        ASSERT_EQ(clip.IOCtl(order, value), 1);
    EXPECT_GT(kb, 0);
    EXPECT_NEAR(mb, kb >> 10, 1 << 10);  // the two queries are moments apart
    EXPECT_NEAR(images, int64_t{kb} / 4 - 1, 1 << 16);
    EXPECT_GT(total, kb);
}

// Records in order with no gaps, from byte 0 to the end of frame 39, in
// 512-byte units; a hole where frames 10 to 29 were never written.
TEST(ClipControl, BlockMapCoversTheWrittenFrames)
{
    ScratchDir dir;
    vXfsFile clip;
    OpenSmall(clip, dir / "map.clip", 40);
    AlignedBuffer frames(10 * kSlot, 8);
    ASSERT_EQ(clip.PutImagesBlock(0, 9, kSlot, frames.Data()), 1);
    ASSERT_EQ(clip.PutImagesBlock(30, 39, kSlot, frames.Data()), 1);
    std::vector<getbmap> map(kBmapRecords);
    ASSERT_EQ(clip.IOCtl(XFS_GET_BMAP, map.data()), 1);
    ASSERT_GE(map[0].bmv_entries, 3);
    int64_t next = 0, mapped = 0;
    for (int k = 1; k <= map[0].bmv_entries; ++k) {
        EXPECT_EQ(map[k].bmv_offset, next) << "record " << k;
        next = map[k].bmv_offset + map[k].bmv_length;
        mapped += map[k].bmv_block == -1 ? 0 : map[k].bmv_length;
    }
    EXPECT_EQ(next, (clip.DataOffset() + 40 * kSlot) / 512);
    EXPECT_EQ(mapped, (clip.DataOffset() + 20 * kSlot) / 512);
}

// The rate and interlacing differ from what a new clip gets, so a rewrite
// that loses them shows.
TEST(ClipControl, HeaderChangesInPlaceKeepEveryOtherField)
{
    ScratchDir dir;
    const std::string path = dir / "change.clip";
    ClipHeader h;
    h.frames = 10, h.width = 64, h.height = 32, h.rate = 29.97, h.interlacing = 1;
    WriteFile(path, h.Encode());
    vXfsFile clip;
    clip.SetName(path.c_str());
    ASSERT_EQ(clip.IOCtl(XFS_CHANGE_NUM_FRAMES, ByValue(25)), 1);
    EXPECT_EQ(clip.GetNumFrames(), 25);
    ASSERT_EQ(clip.IOCtl(XFS_CHANGE_REPLACEABLE, ByValue(0)), 1);
    h.frames = 25, h.replaceable = 0;
    EXPECT_EQ(ReadBytes(path), h.Encode());

    // On an open clip the clip gets its own descriptor back, still direct.
    ASSERT_EQ(clip.Open("r"), 1);
    const int own = clip.Descriptor();
    ASSERT_EQ(clip.IOCtl(XFS_CHANGE_NUM_FRAMES, ByValue(12)), 1);
    EXPECT_EQ(clip.Descriptor(), own);
    EXPECT_TRUE(IsDirect(own));
    h.frames = 12;
    EXPECT_EQ(ReadBytes(path), h.Encode());
}

// Line 0: operations on a closed clip and unknown orders, whose line is
// incidental.
TEST(ClipControlDeath, ProgramErrorsStopWithTheirLine)
{
    vXfsFile closed;
    int v = 0;
    double rate = 0;
    struct Case {
        std::function<void()> call;
        int line;
    };
    for (const Case& c :
         {Case{[&] { closed.GetImage(0, nullptr, kSlot); }, 0},
          Case{[&] { closed.PutImagesBlock(0, 0, kSlot, nullptr); }, 0},
          Case{[&] { closed.GetImagesVector(0, 0, nullptr); }, 0}, Case{[&] { closed.Open("w"); }, 0},  // no name
          Case{[&] { closed.IOCtl(0, &v); }, 0}, Case{[&] { closed.IOCtl(15, &v); }, 0},
          Case{[&] { closed.IOCtl(-1, &v); }, 0}, Case{[&] { closed.SetAudioRate(48000.0); }, 825},
          Case{[&] { closed.UseAudioTrack(1); }, 853}, Case{[&] { closed.GetAudioRate(rate); }, 1023},
          Case{[&] { closed.GetAudioFrameSize(v); }, 1035}, Case{[&] { closed.GetAudioFrameLenght(); }, 1046}})
        EXPECT_DEATH(c.call(), "Assertion failed: file vXfsFile, line " +
                                   (c.line ? std::to_string(c.line) : std::string("[0-9]+")) + "\n");
}
