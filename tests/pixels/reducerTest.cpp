#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "image/pixelOps.h"
#include "image/quart.h"
#include "pixelTestUtil.h"

namespace {

using Bytes = std::vector<unsigned char>;

// Reduces a frame into a buffer with guard bytes on both sides and checks
// that the guards survive; returns the picture bytes.
Bytes reduce(bool quarter, std::vector<uint32_t>& frame, int width, int height, std::size_t expectBytes)
{
    constexpr unsigned char sentinel = 0xA7;
    constexpr std::size_t guard = 64;
    std::vector<uint32_t> buffer((expectBytes + 2 * guard + 3) / 4 + 1);
    auto* bytes = reinterpret_cast<unsigned char*>(buffer.data());
    std::fill(bytes, bytes + buffer.size() * 4, sentinel);
    auto* dest = reinterpret_cast<uint32_t*>(bytes + guard);
    quart q{};
    uint32_t* used = quarter ? q.zoomYUVtoQuartRGB(frame.data(), width, height, dest)
                             : q.zoomYUVtoHalfRGB(frame.data(), width, height, dest);
    EXPECT_EQ(used, dest);
    for (std::size_t i = 0; i < buffer.size() * 4; ++i) {
        if (i < guard || i >= guard + expectBytes) {
            EXPECT_EQ(bytes[i], sentinel) << "byte " << i << " outside the picture was written";
        }
    }
    return Bytes(bytes + guard, bytes + guard + expectBytes);
}

Bytes halfOfUniform(uint32_t wordBytes)
{
    std::vector<uint32_t> frame(2, wordOf(wordBytes));
    return reduce(false, frame, 2, 2, 3);
}

TEST(Reducers, ColourConversionExamples)
{
    EXPECT_EQ(halfOfUniform(0x80108010), (Bytes{0, 0, 0}));
    EXPECT_EQ(halfOfUniform(0x80EB80EB), (Bytes{255, 255, 255}));
    EXPECT_EQ(halfOfUniform(0x8051F051), (Bytes{75, 0, 254}));
}

TEST(Reducers, LaneAverageRoundsTheEarlierOperandUp)
{
    EXPECT_EQ(laneAverage(wordOf(0x03000300), wordOf(0x00030003)), wordOf(0x02010201));
    EXPECT_EQ(laneAverage(wordOf(0xFFFF0000), wordOf(0xFF00FF00)), wordOf(0xFF807F00));
}

using ReducerBoth = BothPaths;

TEST_P(ReducerBoth, NtscFrameSizesAndLineSkip)
{
    std::mt19937 rng(1);
    std::vector<uint32_t> frame = randomWords(rng, 360 * 486);
    const Bytes quarter = reduce(true, frame, 720, 486, 65340);
    reduce(false, frame, 720, 486, 262440);

    // Lines 0 and 1 are skipped: the same as reducing lines 2 to 485.
    std::vector<uint32_t> from2(frame.begin() + 2 * 360, frame.end());
    EXPECT_EQ(reduce(true, from2, 720, 484, 65340), quarter);

    // Height 7 (remainder 3) gives one line, from lines 2 to 5.
    std::vector<uint32_t> seven(frame.begin(), frame.begin() + 7 * 360);
    std::vector<uint32_t> lines2to5(frame.begin() + 2 * 360, frame.begin() + 6 * 360);
    EXPECT_EQ(reduce(true, seven, 720, 7, 540), reduce(true, lines2to5, 720, 4, 540));
}

TEST_P(ReducerBoth, BottomLineFirst)
{
    // Line n of an 8-line frame is a uniform grey of luma 16 + 30 n.
    std::vector<uint32_t> frame(8 * 4);
    for (int n = 0; n < 8; ++n)
        for (int i = 0; i < 4; ++i)
            frame[n * 4 + i] = wordOf(0x80008000u | ((16u + 30 * n) << 16) | (16u + 30 * n));
    const Bytes half = reduce(false, frame, 8, 8, 3 * 4 * 4);
    EXPECT_EQ(half[0], 227);      // lines 6 and 7: lumas 196 and 226, S = 422
    EXPECT_EQ(half[3 * 12], 17);  // lines 0 and 1: lumas 16 and 46, S = 62
}

TEST_P(ReducerBoth, NullDestinationAllocates)
{
    std::mt19937 rng(2);
    std::vector<uint32_t> frame = randomWords(rng, 360 * 486);
    quart q{};
    for (bool quarter : {true, false}) {
        auto* made = quarter ? q.zoomYUVtoQuartRGB(frame.data(), 720, 486, nullptr)
                             : q.zoomYUVtoHalfRGB(frame.data(), 720, 486, nullptr);
        ASSERT_NE(made, nullptr);
        const Bytes expected = reduce(quarter, frame, 720, 486, quarter ? 65340 : 262440);
        EXPECT_TRUE(std::equal(expected.begin(), expected.end(), reinterpret_cast<unsigned char*>(made)));
        delMem(made);
    }
}

// The vector reducers against the reference ones, byte for byte, on widths
// that leave tails of every length and on heights with every remainder.
TEST(ReducerPaths, VectorMatchesReference)
{
    if (bestKernelPath() == KernelPath::reference)
        GTEST_SKIP() << "no vector path on this CPU";
    std::mt19937 rng(99);

    // Every Cb with every Cr (line pair n has Cr = n, word j has Cb = j),
    // with lumas spread over the whole range.
    std::vector<uint32_t> grid(256 * 512);
    for (uint32_t n = 0; n < 512; ++n)
        for (uint32_t j = 0; j < 256; ++j)
            grid[n * 256 + j] = wordOf(j << 24 | (rng() & 0xFF) << 16 | (n / 2) << 8 | (rng() & 0xFF));
    std::vector<std::pair<int, int>> frames = {{512, 512}};
    for (int width = 2; width <= 140; width += (width < 80 ? 2 : 18))
        for (int height : {2, 3, 4, 5, 6, 7, 8, 11, 13})
            frames.emplace_back(width, height);

    for (auto [width, height] : frames) {
        std::vector<uint32_t> frame = width == 512 ? grid : randomWords(rng, static_cast<std::size_t>(width / 2) * height);
        for (bool quarter : {true, false}) {
            const std::size_t bytes = quarter ? 3 * (width >> 2) * (height >> 2) : 3 * (width >> 1) * (height >> 1);
            setReferenceKernels(true);
            const Bytes reference = reduce(quarter, frame, width, height, bytes);
            for (KernelPath path : {KernelPath::sse2, KernelPath::avx2}) {
                if (path > bestKernelPath())
                    continue;
                limitKernelPath(path);
                ASSERT_EQ(kernelPath(), path);
                ASSERT_EQ(reduce(quarter, frame, width, height, bytes), reference)
                    << kernelPathName(path) << (quarter ? " quarter " : " half ") << width << "x" << height;
            }
        }
    }
    setReferenceKernels(false);
}

INSTANTIATE_TEST_SUITE_P(Paths, ReducerBoth, allPaths, pathName);

} // namespace
