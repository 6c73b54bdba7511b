#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "convert/Convert.h"
#include "image/quart.h"
#include "pixelTestUtil.h"
#include "tool/blockConvert.h"

namespace {

constexpr int palSlot = 831488, ntscSlot = 700416, quarterSlot = 65536;
constexpr int palPicture = 829440, ntscPicture = 699840, quarterPicture = 65340;
constexpr unsigned char sentinel = 0x5C;

struct Blocks {
    explicit Blocks(int frames)
        : pal(static_cast<std::size_t>(frames) * palSlot / 4), ntsc(static_cast<std::size_t>(frames) * ntscSlot, sentinel),
          reduced(static_cast<std::size_t>(frames) * quarterSlot, sentinel)
    {
        std::mt19937 rng(frames);
        pal = randomWords(rng, pal.size());
    }
    void run(int frames, int scale, bool withReduced = true)
    {
        convert(pal.data(), ntsc.data(), withReduced ? reduced.data() : nullptr, frames, 720, 576, 486, scale, palSlot,
                ntscSlot, withReduced ? quarterSlot : 0);
    }
    std::vector<uint32_t> pal;
    std::vector<unsigned char> ntsc, reduced;
};

bool untouched(const std::vector<unsigned char>& block, std::size_t from, std::size_t to)
{
    for (std::size_t i = from; i < to; ++i)
        if (block[i] != sentinel)
            return false;
    return true;
}

TEST(BlockConvert, PicturesSitAtTheStartOfTheirSlots)
{
    Blocks b(3);
    b.run(3, 4);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_FALSE(untouched(b.ntsc, i * ntscSlot, i * ntscSlot + ntscPicture));
        EXPECT_TRUE(untouched(b.ntsc, i * ntscSlot + ntscPicture, (i + 1) * ntscSlot)) << "frame " << i;
        EXPECT_TRUE(untouched(b.reduced, i * quarterSlot + quarterPicture, (i + 1) * quarterSlot)) << "frame " << i;
    }
    // Output line 0 of the second frame copies line 1 of the second PAL frame.
    EXPECT_EQ(std::memcmp(b.ntsc.data() + ntscSlot, reinterpret_cast<unsigned char*>(b.pal.data()) + palSlot + 1440, 1440), 0);
}

TEST(BlockConvert, FramesAreIndependent)
{
    Blocks whole(3);
    whole.run(3, 4);
    Blocks single(3);
    std::memcpy(single.pal.data(), whole.pal.data() + palSlot / 4, palPicture);
    single.run(1, 4);
    EXPECT_EQ(std::memcmp(single.ntsc.data(), whole.ntsc.data() + ntscSlot, ntscPicture), 0);
    EXPECT_EQ(std::memcmp(single.reduced.data(), whole.reduced.data() + quarterSlot, quarterPicture), 0);
}

TEST(BlockConvert, NothingOrOnlyNtscWhenAsked)
{
    Blocks b(2);
    b.run(0, 4);
    b.run(-1, 4);
    EXPECT_TRUE(untouched(b.ntsc, 0, b.ntsc.size()));
    EXPECT_TRUE(untouched(b.reduced, 0, b.reduced.size()));
    b.run(2, 3);
    EXPECT_FALSE(untouched(b.ntsc, ntscSlot, ntscSlot + ntscPicture));
    EXPECT_TRUE(untouched(b.reduced, 0, b.reduced.size()));
    b.run(2, 4, false);
    EXPECT_TRUE(untouched(b.reduced, 0, b.reduced.size()));
}

// The block converter reduces each frame band by band as its lines are made;
// the result must be the whole NTSC frame first, then its whole reduction.
TEST(BlockConvert, SameAsConvertingThenReducing)
{
    std::mt19937 rng(8);
    const int sizes[][3] = {{720, 576, 486}, {720, 576, 487}, {722, 300, 485}, {37, 100, 84}, {16, 20, 7}, {8, 8, 3}};
    for (const auto& size : sizes) {
        const int width = size[0], palLines = size[1], ntscLines = size[2];
        const std::size_t palWords = static_cast<std::size_t>(width >> 1) * palLines;
        const std::size_t ntscWords = static_cast<std::size_t>(width >> 1) * ntscLines;
        std::vector<uint32_t> pal = randomWords(rng, palWords);
        for (int scale : {4, 2}) {
            SCOPED_TRACE(::testing::Message() << width << "x" << palLines << " to " << ntscLines << " scale " << scale);
            const std::size_t reducedBytes = 3 * static_cast<std::size_t>(width / scale) * (ntscLines / scale);
            std::vector<uint32_t> ntsc(ntscWords, 0), expectedNtsc(ntscWords, 0);
            std::vector<unsigned char> reduced(reducedBytes + 1, sentinel), expectedReduced(reducedBytes + 1, sentinel);

            convert(pal.data(), ntsc.data(), reduced.data(), 1, width, palLines, ntscLines, scale, 0, 0, 0);

            float field = 1.0f;
            Convert converter(width, ntscLines, 1, &field);
            converter.DoConvert(pal.data(), palLines, expectedNtsc.data());
            quart q{};
            auto* out = reinterpret_cast<uint32_t*>(expectedReduced.data());
            if (scale == 4)
                q.zoomYUVtoQuartRGB(expectedNtsc.data(), width, ntscLines, out);
            else
                q.zoomYUVtoHalfRGB(expectedNtsc.data(), width, ntscLines, out);
            EXPECT_EQ(ntsc, expectedNtsc);
            EXPECT_EQ(reduced, expectedReduced);
        }
    }
}

} // namespace
