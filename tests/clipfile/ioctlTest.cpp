// Control orders on real clips: reservation, block map, header changes in
// place and the file system figures.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>

#include <cstring>

#include "clipTestUtil.h"

namespace {

constexpr int kSlot = 4096;

void* ByValue(uintptr_t v) { return reinterpret_cast<void*>(v); }

}  // namespace

TEST(ClipControl, AllocateReservesTheWholeClip)
{
    ScratchDir dir;
    const std::string path = dir.File("alloc.clip");
    vXfsFile clip;
    DescribeSmall(clip, path, 200);
    EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(clip.IOCtl(XFS_ALLOCATE_IMAGES, ByValue(200)), 0); }),
              "Unable to perform IOCtl operation (ALLOCATE IMAGES), file not opened.\n");
    ASSERT_EQ(clip.Open("w"), 1);
    struct stat before;
    ASSERT_EQ(stat(path.c_str(), &before), 0);
    ASSERT_EQ(clip.IOCtl(XFS_ALLOCATE_IMAGES, ByValue(200)), 1);
    struct stat after;
    ASSERT_EQ(stat(path.c_str(), &after), 0);
    EXPECT_GE(int64_t{after.st_blocks} * 512, 201 * kSlot);
    EXPECT_GT(after.st_blocks, before.st_blocks);
    EXPECT_EQ(after.st_size, before.st_size);  // reserved, not written
}

TEST(ClipControl, ExtendFallbackNeverChangesOrShrinks)
{
    ScratchDir dir;
    const std::string path = dir.File("f");
    std::vector<unsigned char> bytes(10000);
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<unsigned char>(i ^ (i >> 8));
    WriteBytes(path, bytes);
    const int fd = open(path.c_str(), O_RDWR);
    ASSERT_GT(fd, 0);
    ASSERT_EQ(fsExtendFile(fd, 5000), 0);
    EXPECT_EQ(ReadBytes(path), bytes);
    ASSERT_EQ(fsExtendFile(fd, 20000), 0);
    close(fd);
    std::vector<unsigned char> grown = ReadBytes(path);
    ASSERT_EQ(grown.size(), 20000u);
    EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), grown.begin()));
    EXPECT_EQ(grown[15000], 0);
}

TEST(ClipControl, BlockMapCoversTheWrittenFrames)
{
    ScratchDir dir;
    const std::string path = dir.File("map.clip");
    vXfsFile clip;
    DescribeSmall(clip, path, 40);
    std::vector<getbmap> map(kBmapRecords);
    map[0].bmv_entries = -7;
    EXPECT_EQ(clip.IOCtl(XFS_GET_BMAP, map.data()), 1);  // closed: untouched
    EXPECT_EQ(map[0].bmv_entries, -7);

    ASSERT_EQ(clip.Open("w"), 1);
    AlignedBuffer frames(10 * kSlot);
    frames.Fill(8);
    ASSERT_EQ(clip.PutImagesBlock(0, 9, kSlot, frames.Data()), 1);
    ASSERT_EQ(clip.PutImagesBlock(30, 39, kSlot, frames.Data()), 1);  // a hole between
    ASSERT_EQ(clip.IOCtl(XFS_GET_BMAP, map.data()), 1);

    const int entries = map[0].bmv_entries;
    ASSERT_GE(entries, 3);
    const int64_t fileUnits = (clip.DataOffset() + 40 * int64_t{kSlot}) / 512;
    int64_t next = 0;
    int64_t mapped = 0;
    bool sawHole = false;
    for (int k = 1; k <= entries; ++k) {
        EXPECT_EQ(map[k].bmv_offset, next) << "record " << k;  // contiguous, in order
        EXPECT_GT(map[k].bmv_length, 0);
        next = map[k].bmv_offset + map[k].bmv_length;
        if (map[k].bmv_block == -1)
            sawHole = true;
        else
            mapped += map[k].bmv_length;
    }
    EXPECT_EQ(next, fileUnits);
    EXPECT_TRUE(sawHole);
    EXPECT_GE(mapped, 20 * kSlot / 512);
    // The first frame's units are mapped.
    const int64_t frame0 = clip.DataOffset() / 512;
    for (int k = 1; k <= entries; ++k) {
        if (map[k].bmv_offset <= frame0 && frame0 < map[k].bmv_offset + map[k].bmv_length) {
            EXPECT_NE(map[k].bmv_block, -1);
        }
    }
}

TEST(ClipControl, HeaderChangesInPlaceKeepEveryOtherField)
{
    ScratchDir dir;
    const std::string path = dir.File("change.clip");
    {
        vXfsFile clip;
        DescribeSmall(clip, path, 10);
        clip.SetImageRate(29.97);
        clip.SetInterlacing(1);
        ASSERT_EQ(clip.Open("w"), 1);
        AlignedBuffer frame(kSlot);
        frame.Fill(6);
        ASSERT_EQ(clip.PutImage(0, frame.Data(), kSlot), 1);
    }
    const std::vector<unsigned char> before = ReadBytes(path);

    TestClip clip;
    clip.SetName(path.c_str());
    ASSERT_EQ(clip.IOCtl(XFS_CHANGE_NUM_FRAMES, ByValue(25)), 1);
    EXPECT_EQ(clip.Descriptor(), 0);
    EXPECT_EQ(clip.GetNumFrames(), 25);
    std::vector<unsigned char> after = ReadBytes(path);
    std::vector<unsigned char> expected = before;
    expected[11] = 25;
    EXPECT_EQ(after, expected);

    ASSERT_EQ(clip.IOCtl(XFS_CHANGE_REPLACEABLE, ByValue(0)), 1);
    expected[19] = 0;
    EXPECT_EQ(ReadBytes(path), expected);

    // On an open clip, the clip keeps its own descriptor.
    ASSERT_EQ(clip.Open("r"), 1);
    const int own = clip.Descriptor();
    ASSERT_EQ(clip.IOCtl(XFS_CHANGE_NUM_FRAMES, ByValue(12)), 1);
    EXPECT_EQ(clip.Descriptor(), own);
    EXPECT_TRUE(fsIsDirect(own));
    expected[11] = 12;
    EXPECT_EQ(ReadBytes(path), expected);
    AlignedBuffer frame(kSlot);
    EXPECT_EQ(clip.GetImage(0, frame.Data(), kSlot), 1);
    clip.Close();

    vXfsFile absent;
    absent.SetName(dir.File("none").c_str());
    EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(absent.IOCtl(XFS_CHANGE_NUM_FRAMES, ByValue(3)), 0); }),
              "Unable to locate file " + dir.File("none") + "\n");

    // A file that is no clip is not rewritten, and the object keeps its settings.
    const std::string text = dir.File("text");
    WriteBytes(text, {'a', 'b', 'c', 'd', 'e', 'f'});
    vXfsFile other;
    DescribeSmall(other, text, 4);
    EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(other.IOCtl(XFS_CHANGE_REPLACEABLE, ByValue(1)), 0); }),
              text + " is not a Vetra xfs file.\nUnable to read " + text + "'s header.\n");
    EXPECT_EQ(ReadBytes(text).size(), 6u);
    EXPECT_EQ(other.GetNumFrames(), 4);
}

TEST(ClipControl, FiguresOfTheFileSystem)
{
    ScratchDir dir;
    const std::string path = dir.File("fig.clip");
    vXfsFile clip;
    DescribeSmall(clip, path, 3);
    ASSERT_EQ(clip.Open("w"), 1);

    struct statvfs sv;
    ASSERT_EQ(statvfs(dir.Path().c_str(), &sv), 0);
    const int64_t freeKb = static_cast<int64_t>(sv.f_frsize * sv.f_bavail / 1024);
    int kb = 0, mb = 0, images = 0, total = 0;
    ASSERT_EQ(clip.IOCtl(XFS_GET_FREE_SPACE_KB, &kb), 1);
    ASSERT_EQ(clip.IOCtl(XFS_GET_FREE_SPACE_MB, &mb), 1);
    ASSERT_EQ(clip.IOCtl(XFS_GET_FREE_IMAGES, &images), 1);
    ASSERT_EQ(clip.IOCtl(XFS_GET_FS_SIZE_KB, &total), 1);
    // Other programs write too: allow some drift.
    EXPECT_NEAR(kb, freeKb, 1 << 20);
    EXPECT_EQ(mb, kb >> 10);
    EXPECT_NEAR(images, int64_t{kb} * 1024 / kSlot - 1, (1 << 20) / 4);
    EXPECT_EQ(total, static_cast<int64_t>(sv.f_frsize * sv.f_blocks / 1024));
    EXPECT_GT(total, kb);

    int value = 0;
    ASSERT_EQ(clip.IOCtl(XFS_GET_MAX_IO_SIZE, &value), 1);
    EXPECT_EQ(value, 4194304);
    ASSERT_EQ(clip.IOCtl(XFS_GET_MEM_ALIGNMENT, &value), 1);
    EXPECT_EQ(value, static_cast<int>(clip.DioAttr().d_mem));
    AlignedBuffer frame(kSlot);
    ASSERT_EQ(clip.PutImage(1, frame.Data(), kSlot), 1);
    ASSERT_EQ(clip.IOCtl(XFS_GET_FILE_SIZE_KB, &value), 1);
    EXPECT_EQ(value, 12);  // header slot and two frame slots

    char type[kFsTypeNameSize] = {};
    ASSERT_EQ(clip.IOCtl(XFS_GET_FS_TYPE, type), 1);
    EXPECT_GT(std::strlen(type), 0u);
    EXPECT_LT(std::strlen(type), static_cast<size_t>(kFsTypeNameSize));
    clip.Close();
    EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(clip.IOCtl(XFS_GET_FS_TYPE, type), 0); }),
              "Unable to perform IOCtl operation (GET FS TYPE), file not opened.\n");
    value = -5;
    EXPECT_EQ(clip.IOCtl(XFS_GET_FILE_SIZE_KB, &value), 1);  // closed: untouched
    EXPECT_EQ(value, -5);

    EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(clip.IOCtl(XFS_SET_BLOCK_SIZE, ByValue(0)), 0); }),
              "Invalid block size 0 [vXfsFile::IOCtl]\n");
    EXPECT_EQ(clip.BlockSize(), 4096);

    vXfsFile unnamed;
    EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(unnamed.IOCtl(XFS_GET_FREE_IMAGES, &value), 0); }),
              "No valid frame size for  [vXfsFile::IOCtl]\n");
    DescribeSmall(unnamed, "", 1);
    EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(unnamed.IOCtl(XFS_GET_FREE_IMAGES, &value), 1); }),
              "No path defined [vXfsFile::GetFreeDiskSpace_Kb]\n");
    EXPECT_EQ(value, -1);
}

TEST(ClipControlDeath, UnknownOrdersStop)
{
    vXfsFile clip;
    int v = 0;
    for (int order : {0, 15, -1}) {
        EXPECT_DEATH(clip.IOCtl(order, &v), "Assertion failed: file vXfsFile, line [0-9]+");
    }
}
