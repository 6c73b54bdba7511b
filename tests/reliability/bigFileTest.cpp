// Clips past 4 GiB: frames are placed by 64-bit positions. The file is
// sparse; only the frames written take disk space.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "clipfile/vXfsFile.h"
#include "tests/common/testSupport.h"

namespace {

using Aligned = std::unique_ptr<unsigned char[], void (*)(void*)>;

// n bytes on a page boundary, as direct transfers need them, with a pattern
// that differs from seed to seed.
Aligned alignedBytes(size_t n, unsigned seed)
{
    void* p = nullptr;
    if (posix_memalign(&p, 4096, n) != 0)
        std::abort();
    auto* b = static_cast<unsigned char*>(p);
    for (size_t i = 0; i < n; ++i)
        b[i] = static_cast<unsigned char>((i * 31 + (i >> 11) + seed * 97) & 0xFF);
    return Aligned(b, std::free);
}

TEST(BigFile, FramesBeyond4GiBLandAtTheir64BitPositions)
{
    tsupport::ScratchDir dir;
    const std::string path = dir / "big.clip";
    // 720 x 576 4:2:2 frames in 4096-byte blocks: slots of 831488 bytes, so
    // frame x slot no longer fits in 32 bits from frame 5166 on.
    constexpr int kFrames = 5300, kFirst = 5290;
    constexpr size_t kSlot = 831488, kFour = 4 * kSlot;
    const Aligned written = alignedBytes(kFour, 1);
    int64_t at = 0;  // where frame kFirst starts
    {
        vXfsFile clip;
        clip.SetName(path.c_str());
        clip.SetSize(720, 576);
        clip.SetImageFormat(DM_IMAGE_PACKING_CbYCrY);
        clip.SetImageLenght(kFrames);
        ASSERT_TRUE(clip.Open("w"));
        at = clip.DataOffset() + int64_t{kFirst} * int64_t{kSlot};
        ASSERT_GT(at, int64_t{1} << 32);
        if (truncate(path.c_str(), clip.DataOffset() + int64_t{kFrames} * int64_t{kSlot}) != 0)
            GTEST_SKIP() << "this file system cannot hold a clip past 4 GiB";
        // Each transfer works out its own position: one frame, then a block.
        ASSERT_TRUE(clip.PutImage(kFirst, written.get(), int(kSlot)));
        ASSERT_TRUE(clip.PutImagesBlock(kFirst + 1, kFirst + 3, int(kSlot), written.get() + kSlot));
        clip.Close();
    }

    // The four frames lie at their positions (a wrapped position would
    // leave zeros there, the file being sparse).
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    const Aligned got = alignedBytes(kFour, 2);
    EXPECT_EQ(pread(fd, got.get(), kFour, at), ssize_t(kFour));
    close(fd);
    EXPECT_EQ(std::memcmp(got.get(), written.get(), kFour), 0);

    // And the clip store reads them back from there, by every transfer.
    vXfsFile clip;
    clip.SetName(path.c_str());
    ASSERT_TRUE(clip.Open("r"));
    EXPECT_EQ(clip.GetNumFrames(), kFrames);
    const Aligned read = alignedBytes(kFour, 3), a = alignedBytes(kSlot, 4), b = alignedBytes(kSlot, 5);
    ASSERT_TRUE(clip.GetImagesBlock(kFirst, kFirst + 3, int(kSlot), read.get()));
    EXPECT_EQ(std::memcmp(read.get(), written.get(), kFour), 0);
    ASSERT_TRUE(clip.GetImage(kFirst + 3, a.get(), int(kSlot)));
    EXPECT_EQ(std::memcmp(a.get(), written.get() + 3 * kSlot, kSlot), 0);
    void* frames[2] = {a.get(), b.get()};
    ASSERT_TRUE(clip.GetImagesVector(kFirst + 1, kFirst + 2, frames));
    EXPECT_EQ(std::memcmp(a.get(), written.get() + kSlot, kSlot), 0);
    EXPECT_EQ(std::memcmp(b.get(), written.get() + 2 * kSlot, kSlot), 0);
    clip.Close();
}

}  // namespace
