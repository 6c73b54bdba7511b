// Clips past 4 GiB: frames placed by 64-bit positions. The file is sparse;
// only the few frames written take disk space.
#include "reliabilityUtil.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "clipfile/vXfsFile.h"

namespace {

constexpr int64_t k4GiB = int64_t{1} << 32;

struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};
using Aligned = std::unique_ptr<unsigned char, FreeDeleter>;

Aligned alignedBytes(size_t n, unsigned seed)
{
    void* p = nullptr;
    if (posix_memalign(&p, 4096, n) != 0)
        return Aligned();
    auto* b = static_cast<unsigned char*>(p);
    for (size_t i = 0; i < n; ++i)
        b[i] = static_cast<unsigned char>((i * 31 + (i >> 11) + seed * 97) & 0xFF);
    return Aligned(b);
}

std::vector<unsigned char> preadAt(int fd, int64_t pos, size_t n)
{
    std::vector<unsigned char> out(n);
    size_t done = 0;
    while (done < n) {
        const ssize_t r = pread(fd, out.data() + done, n - done, pos + static_cast<int64_t>(done));
        if (r <= 0)
            break;
        done += static_cast<size_t>(r);
    }
    out.resize(done);
    return out;
}

bool sameBytes(const std::vector<unsigned char>& a, const unsigned char* b, size_t n)
{
    return a.size() == n && std::memcmp(a.data(), b, n) == 0;
}

TEST(BigFile, FramesBeyond4GiBLandAtTheir64BitPositions)
{
    rel::ScratchDir dir;
    const std::string path = dir.File("big.clip");

    // 720 x 576 4:2:2 frames in 4096-byte blocks: slots of 831488 bytes.
    // Frame 5200 starts past 4 GiB; frame x slot no longer fits in 32 bits.
    constexpr int kFrames = 5300;
    constexpr int kFirst = 5290;
    int slot = 0;
    int64_t dataOffset = 0;
    {
        vXfsFile clip;
        clip.SetName(path.c_str());
        clip.SetSize(720, 576);
        clip.SetImageFormat(DM_IMAGE_PACKING_CbYCrY);
        clip.SetImageLenght(kFrames);
        ASSERT_TRUE(clip.Open("w"));
        ASSERT_TRUE(clip.GetImageSize(0, slot));
        ASSERT_EQ(slot, 831488);
        dataOffset = clip.DataOffset();
        const int64_t end = dataOffset + int64_t{kFrames} * slot;
        ASSERT_GT(dataOffset + int64_t{kFirst} * slot, k4GiB);
        // Sparse: the length without the space.
        const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
        ASSERT_GE(fd, 0);
        if (ftruncate(fd, end) != 0) {
            close(fd);
            GTEST_SKIP() << "this file system cannot hold a file of " << end << " bytes";
        }
        close(fd);

        Aligned one = alignedBytes(static_cast<size_t>(slot), 1);
        Aligned three = alignedBytes(3 * static_cast<size_t>(slot), 2);
        ASSERT_TRUE(clip.PutImage(kFirst, one.get(), slot));
        ASSERT_TRUE(clip.PutImagesBlock(kFirst + 1, kFirst + 3, slot, three.get()));
        ASSERT_TRUE(clip.PutImage(kFrames - 1, one.get(), slot));
        clip.Close();

        // Every byte where it belongs, read back with plain positioned reads.
        const int rd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        ASSERT_GE(rd, 0);
        EXPECT_TRUE(sameBytes(preadAt(rd, dataOffset + int64_t{kFirst} * slot, slot), one.get(), slot));
        EXPECT_TRUE(sameBytes(preadAt(rd, dataOffset + int64_t{kFirst + 1} * slot, 3 * size_t(slot)),
                              three.get(), 3 * size_t(slot)));
        EXPECT_TRUE(sameBytes(preadAt(rd, dataOffset + int64_t{kFrames - 1} * slot, slot), one.get(), slot));
        // Nothing where a 32-bit position would have put the frames.
        const std::vector<unsigned char> wrapped =
            preadAt(rd, (dataOffset + int64_t{kFirst} * slot) % k4GiB, 4 * size_t(slot));
        EXPECT_EQ(std::vector<unsigned char>(wrapped.size(), 0), wrapped);
        struct stat st;
        ASSERT_EQ(fstat(rd, &st), 0);
        EXPECT_EQ(st.st_size, dataOffset + int64_t{kFrames} * slot);
        EXPECT_LT(int64_t{st.st_blocks} * 512, 16 << 20) << "written somewhere else as well";
        close(rd);
    }

    // And the clip store reads them back from there.
    vXfsFile clip;
    clip.SetName(path.c_str());
    ASSERT_TRUE(clip.Open("r"));
    EXPECT_EQ(clip.GetNumFrames(), kFrames);
    Aligned expectOne = alignedBytes(static_cast<size_t>(slot), 1);
    Aligned expectThree = alignedBytes(3 * static_cast<size_t>(slot), 2);
    Aligned got = alignedBytes(3 * static_cast<size_t>(slot), 9);
    ASSERT_TRUE(clip.GetImage(kFirst, got.get(), slot));
    EXPECT_EQ(std::memcmp(got.get(), expectOne.get(), size_t(slot)), 0);
    ASSERT_TRUE(clip.GetImagesBlock(kFirst + 1, kFirst + 3, slot, got.get()));
    EXPECT_EQ(clip.LastTransferBytes(), 3 * int64_t{slot});
    EXPECT_EQ(std::memcmp(got.get(), expectThree.get(), 3 * size_t(slot)), 0);
    ASSERT_TRUE(clip.GetImage(kFrames - 1, got.get(), slot));
    EXPECT_EQ(std::memcmp(got.get(), expectOne.get(), size_t(slot)), 0);

    // The vector transfer places its frames by the same positions.
    Aligned a = alignedBytes(static_cast<size_t>(slot), 5);
    Aligned b = alignedBytes(static_cast<size_t>(slot), 6);
    void* frames[2] = {a.get(), b.get()};
    ASSERT_TRUE(clip.GetImagesVector(kFirst, kFirst + 1, frames));
    EXPECT_EQ(std::memcmp(a.get(), expectOne.get(), size_t(slot)), 0);
    EXPECT_EQ(std::memcmp(b.get(), expectThree.get(), size_t(slot)), 0);
    clip.Close();
}

}  // namespace
