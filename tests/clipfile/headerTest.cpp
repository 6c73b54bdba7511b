// The clip header on disk: layout, byte order, versions and refusals.
#include <unistd.h>

#include "clipTestUtil.h"

namespace {

// 100 frames, block size 4096, replaceable, 720 x 486, packing 1008, 25.0, interlacing 0.
const Bytes kExampleV3 = {0x00, 0x06, 0x09, 0xCE, 0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00, 0x64, 0x00, 0x00, 0x10,
                          0x00, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x02, 0xD0, 0x00, 0x00, 0x01, 0xE6, 0x00, 0x00,
                          0x03, 0xF0, 0x40, 0x39, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};

// The example's fields, then `change`; version 2 carries interlacing 2 so
// that its place and byte order show.
ClipHeader Ntsc(
    int version, void (*change)(ClipHeader&) = [](ClipHeader&) {})
{
    ClipHeader h;
    h.version = version, h.frames = 100, h.height = 486, h.interlacing = version == 2 ? 2 : 0;
    change(h);
    return h;
}

// Reads the header of `path` into `clip` through ReadHead and returns what
// it printed; `result` gets its result.
std::string ReadHeader(TestClip& clip, const std::string& path, int& result)
{
    clip.SetName(path.c_str());
    clip.descriptor = open(path.c_str(), O_RDONLY);
    EXPECT_GT(clip.descriptor, 0);
    const std::string out = StdoutOf([&] { result = clip.ReadHead(clip.descriptor, clip.header); });
    close(clip.descriptor);
    clip.descriptor = 0;
    return out;
}

}  // namespace

// Version 3 must come out as the worked example byte for byte.
TEST(ClipHeader, EachVersionWritesAndReadsBack)
{
    ScratchDir dir;
    const std::string path = dir / "clip";
    for (int version = 1; version <= 3; ++version) {
        SCOPED_TRACE(version);
        TestClip clip;
        clip.SetSize(720, 486);
        clip.SetImageFormat(DM_IMAGE_PACKING_CbYCrY);
        clip.SetImageLenght(100);
        clip.SetImageRate(25.0);
        clip.SetInterlacing(Ntsc(version).interlacing);
        clip.header.version = version;
        clip.descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        ASSERT_EQ(clip.WriteHead(clip.descriptor, clip.header), 1);
        close(clip.descriptor);
        clip.descriptor = 0;
        EXPECT_EQ(ReadBytes(path), version == 3 ? kExampleV3 : Ntsc(version).Encode());

        TestClip back;
        back.SetInterlacing(7);  // version 1 carries none: this must survive
        int result = 0;
        EXPECT_EQ(ReadHeader(back, path, result), "");
        ASSERT_EQ(result, 1);
        double rate = 0;
        int interlacing = 0;
        back.GetImageRate(rate), back.GetInterlacing(interlacing);
        // Version 3 keeps a whole frame's blocks for its header: 699,840 bytes, 171 blocks.
        EXPECT_EQ(rate, 25.0);
        const std::vector<int64_t> fields{back.Version(),        back.GetNumFrames(), back.BlockSize(),
                                          back.Replaceable(),    back.GetWidth(),     back.GetHeight(),
                                          back.GetImageFormat(), interlacing,         back.DataOffset()};
        EXPECT_EQ(fields,
                  (std::vector<int64_t>{version, 100, 4096, 1, 720, 486, 1008,
                                        version == 1 ? 7 : Ntsc(version).interlacing, version == 3 ? 700416 : 4096}));
    }
}

// Each case gives the file's bytes, what reading its header prints and the
// offset of frame 0 when the header is taken (0: refused).
TEST(ClipHeader, RefusalsAndTheOtherBlockSizeWarning)
{
    ScratchDir dir;
    const std::string path = dir / "bad";
    const auto prefix = [](size_t n) { return Bytes(kExampleV3.begin(), kExampleV3.begin() + n); };
    const auto changed = [](void (*change)(ClipHeader&)) { return Ntsc(3, change).Encode(); };
    const std::string notClip = path + " is not a Vetra xfs file.\n";
    const std::string cutShort = path + "'s header is cut short [vXfsFile::ReadHead]\n";
    const auto warning = [&](int size) {
        return "WARNING: Diferent block sizes in XFS files\n\tFile [" + path +
               "] block size:  " + std::to_string(size) + "\n\tConfigured block size: \t4096\n";
    };
    struct Case {
        Bytes bytes;
        std::string out;
        int32_t offset;
    };
    for (const Case& c : {
             Case{prefix(0), notClip, 0},
             Case{prefix(1), notClip, 0},
             Case{prefix(2), notClip, 0},
             Case{prefix(3), notClip, 0},
             Case{changed([](ClipHeader& h) { h.version = 4; }), "Unrecognized version number [vXfsFile::ReadHead]\n",
                  0},
             // Cut inside the rate, and just before version 3's interlacing.
             Case{prefix(35), cutShort, 0},
             Case{prefix(40), cutShort, 0},
             Case{changed([](ClipHeader& h) { h.blockSize = 0; }),
                  "Invalid block size 0 in " + path + " [vXfsFile::ReadHead]\n", 0},
             Case{changed([](ClipHeader& h) { h.packing = 22000; }),
                  "Frame size of " + path + " is not valid (720 x 486, packing 22000) [vXfsFile::ReadHead]\n", 0},
             // A 2-byte frame in 16-byte blocks: frame 0 would lie inside the header.
             Case{changed([](ClipHeader& h) {
                      h.version = 2, h.blockSize = 16, h.width = 2, h.height = 1, h.packing = 1005;
                  }),
                  warning(16) + "Frames of " + path +
                      " would overlap its header (frame 0 at byte 16) [vXfsFile::ReadHead]\n",
                  0},
             // The file's own block size wins: 699,840 bytes in 8192-byte blocks are 86 blocks.
             Case{changed([](ClipHeader& h) { h.blockSize = 8192; }), warning(8192), 86 * 8192},
         }) {
        SCOPED_TRACE(c.out);
        WriteFile(path, c.bytes);
        TestClip clip;
        int result = -1;
        EXPECT_EQ(ReadHeader(clip, path, result), c.out);
        EXPECT_EQ(result, c.offset != 0);
        EXPECT_EQ(result == 1 ? clip.DataOffset() : 0, c.offset);
        if (result == 1) {
            EXPECT_EQ(clip.PictureBytes(), 699840);  // the picture, not the slot of whole blocks
        }
        // Whether the file starts as a clip, asked without a word printed.
        const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(vXfsFile::StartsAsClip(fd), c.out != notClip); }), "");
        close(fd);
    }
}
