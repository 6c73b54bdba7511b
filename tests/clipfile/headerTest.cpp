// The clip header on disk: layout, byte order, versions and refusals.
#include <fcntl.h>
#include <unistd.h>

#include "clipTestUtil.h"

namespace {

const std::vector<unsigned char> kExampleV3 = {
    0x00, 0x06, 0x09, 0xCE, 0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00, 0x64,
    0x00, 0x00, 0x10, 0x00, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x02, 0xD0,
    0x00, 0x00, 0x01, 0xE6, 0x00, 0x00, 0x03, 0xF0, 0x40, 0x39, 0x00, 0x00,
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};

// Writes a header of the given version for 720 x 486 CbYCrY through a clip
// object's WriteHead, on a descriptor the test opens itself.
void WriteHeader(const std::string& path, int version, int32_t blockSize = 4096)
{
    TestClip clip;
    clip.SetName(path.c_str());
    clip.SetSize(720, 486);
    clip.SetImageFormat(DM_IMAGE_PACKING_CbYCrY);
    clip.SetImageLenght(100);
    clip.SetImageRate(25.0);
    clip.SetInterlacing(2);
    clip.header.version = version;
    clip.blockSize = blockSize;
    clip.descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ASSERT_GT(clip.descriptor, 0);
    ASSERT_EQ(clip.WriteHead(clip.descriptor, clip.header), 1);
    close(clip.descriptor);
    clip.descriptor = 0;
}

// Reads the header of `path` into `clip` through ReadHead; returns its result.
int ReadHeader(TestClip& clip, const std::string& path)
{
    clip.SetName(path.c_str());
    clip.descriptor = open(path.c_str(), O_RDONLY);
    EXPECT_GT(clip.descriptor, 0);
    const int result = clip.ReadHead(clip.descriptor, clip.header);
    close(clip.descriptor);
    clip.descriptor = 0;
    return result;
}

}  // namespace

TEST(ClipHeader, Version3ExampleIsByteExact)
{
    ScratchDir dir;
    const std::string path = dir.File("v3.clip");
    TestClip clip;
    clip.SetName(path.c_str());
    clip.SetSize(720, 486);
    clip.SetImageFormat(DM_IMAGE_PACKING_CbYCrY);
    clip.SetImageLenght(100);
    clip.SetImageRate(25.0);
    clip.SetInterlacing(0);
    ASSERT_EQ(clip.Open("w"), 1);
    clip.Close();
    std::vector<unsigned char> bytes = ReadBytes(path);
    bytes.resize(kExampleV3.size());
    EXPECT_EQ(bytes, kExampleV3);
    // 720 x 486 x 2 = 699,840 bytes: 171 blocks, frame 0 right after.
    EXPECT_EQ(clip.DataOffset(), 700416);
}

TEST(ClipHeader, EachVersionReadsBackWhatWasWritten)
{
    ScratchDir dir;
    for (int version = 1; version <= 3; ++version) {
        SCOPED_TRACE(version);
        const std::string path = dir.File("clip");
        WriteHeader(path, version);
        const size_t length = version == 1 ? 40 : 44;
        ASSERT_EQ(ReadBytes(path).size(), length);

        TestClip back;
        back.SetInterlacing(7);  // version 1 carries none: this must survive
        ASSERT_EQ(ReadHeader(back, path), 1);
        EXPECT_EQ(back.Version(), version);
        EXPECT_EQ(back.GetNumFrames(), 100);
        EXPECT_EQ(back.BlockSize(), 4096);
        EXPECT_EQ(back.Replaceable(), 1);
        EXPECT_EQ(back.GetWidth(), 720);
        EXPECT_EQ(back.GetHeight(), 486);
        EXPECT_EQ(back.GetImageFormat(), DM_IMAGE_PACKING_CbYCrY);
        double rate = 0;
        back.GetImageRate(rate);
        EXPECT_EQ(rate, 25.0);
        int interlacing = 0;
        back.GetInterlacing(interlacing);
        EXPECT_EQ(interlacing, version == 1 ? 7 : 2);
        EXPECT_EQ(back.DataOffset(), version == 3 ? 700416 : 4096);
    }
}

TEST(ClipHeader, UnsetRateAndInterlacingAreWrittenAsZero)
{
    ScratchDir dir;
    const std::string path = dir.File("plain.clip");
    vXfsFile clip;
    clip.SetName(path.c_str());
    clip.SetSize(720, 486);
    clip.SetImageFormat(DM_IMAGE_PACKING_CbYCrY);
    ASSERT_EQ(clip.Open("w"), 1);
    clip.Close();
    const std::vector<unsigned char> bytes = ReadBytes(path);
    ASSERT_GE(bytes.size(), 44u);
    EXPECT_EQ(std::vector<unsigned char>(bytes.begin() + 32, bytes.begin() + 44),
              std::vector<unsigned char>(12, 0));
}

TEST(ClipHeader, OtherBlockSizeWarnsAndWins)
{
    ScratchDir dir;
    const std::string path = dir.File("big.clip");
    WriteHeader(path, 3, 8192);
    TestClip clip;
    const std::string out = StdoutOf([&] { EXPECT_EQ(ReadHeader(clip, path), 1); });
    EXPECT_EQ(out, "WARNING: Diferent block sizes in XFS files\n"
                   "\tFile [" + path + "] block size:  8192\n"
                   "\tConfigured block size: \t4096\n");
    EXPECT_EQ(clip.BlockSize(), 8192);
    // 699,840 bytes in 8192-byte blocks: 86 blocks.
    EXPECT_EQ(clip.ImageSize(), 86 * 8192);
    EXPECT_EQ(clip.DataOffset(), 86 * 8192);
}

TEST(ClipHeader, RefusesWhatIsNoClip)
{
    ScratchDir dir;
    const std::string path = dir.File("junk");
    const std::vector<unsigned char> magic = {0x00, 0x06, 0x09, 0xCE};
    for (size_t n = 0; n <= 3; ++n) {
        SCOPED_TRACE(n);
        WriteBytes(path, std::vector<unsigned char>(magic.begin(), magic.begin() + n));
        TestClip clip;
        EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(ReadHeader(clip, path), 0); }),
                  path + " is not a Vetra xfs file.\n");
    }

    std::vector<unsigned char> v4 = kExampleV3;
    v4[7] = 4;
    WriteBytes(path, v4);
    TestClip clip;
    EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(ReadHeader(clip, path), 0); }),
              "Unrecognized version number [vXfsFile::ReadHead]\n");
}

TEST(ClipHeader, RefusesHeaderCutShort)
{
    ScratchDir dir;
    const std::string path = dir.File("short");
    // Cut inside the rate, and just before version 3's interlacing.
    for (size_t n : {8u, 35u, 40u}) {
        SCOPED_TRACE(n);
        WriteBytes(path, std::vector<unsigned char>(kExampleV3.begin(), kExampleV3.begin() + n));
        TestClip clip;
        EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(ReadHeader(clip, path), 0); }),
                  path + "'s header is cut short [vXfsFile::ReadHead]\n");
    }
}

TEST(ClipHeader, RefusesLayoutsWithoutFrameSlots)
{
    ScratchDir dir;
    const std::string path = dir.File("bad");
    std::vector<unsigned char> bytes = kExampleV3;
    bytes[12] = bytes[13] = bytes[14] = bytes[15] = 0;  // block size 0
    WriteBytes(path, bytes);
    {
        TestClip clip;
        EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(ReadHeader(clip, path), 0); }),
                  "Invalid block size 0 in " + path + " [vXfsFile::ReadHead]\n");
        EXPECT_EQ(clip.BlockSize(), 4096);
    }
    bytes = kExampleV3;
    bytes[30] = 0x55;  // packing 0x55F0: no such packing
    WriteBytes(path, bytes);
    {
        TestClip clip;
        EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(ReadHeader(clip, path), 0); }),
                  "Frame size of " + path +
                      " is not valid (720 x 486, packing 22000) [vXfsFile::ReadHead]\n");
    }
}

TEST(ClipHeader, DebugLines)
{
    vXfsFile clip;
    EXPECT_EQ(StdoutOf([&] { clip.Debug(); }),
              "File name: \nFile mode: \nFile header configuration:\n\tVERSION:\t3\n"
              "\tNUM FRAMES:\t0\n\tSIZES:\t\t0 x 0\n\tRATE:\t\t0.000000\n");
    fileHeader record;
    dmParamsSetInt(record.params, DM_IMAGE_WIDTH, 720);
    dmParamsSetInt(record.params, DM_IMAGE_HEIGHT, 486);
    dmParamsSetFloat(record.params, DM_IMAGE_RATE, 25.0);
    record.numFrames = 100;
    {
        fileHeader copy(record);
        fileHeader other;
        other = copy;
        other = other;
    }  // copies gone: the original list must be intact
    EXPECT_EQ(StdoutOf([&] { record.debug(); }),
              "File header configuration:\n\tVERSION:\t3\n\tNUM FRAMES:\t100\n"
              "\tSIZES:\t\t720 x 486\n\tRATE:\t\t25.000000\n");
}

TEST(ClipHeaderDeath, WritingAnUnknownVersionStops)
{
    ScratchDir dir;
    const std::string path = dir.File("v9");
    TestClip clip;
    DescribeSmall(clip, path, 1);
    clip.header.version = 9;
    clip.descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ASSERT_GT(clip.descriptor, 0);
    EXPECT_DEATH(clip.WriteHead(clip.descriptor, clip.header),
                 "Assertion failed: file vXfsFile, line 488\n");
    close(clip.descriptor);
    clip.descriptor = 0;
}
