#include <cstdint>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "convert/MixLine.h"
#include "pixelTestUtil.h"

namespace {

TEST(KernelSelection, BestPathMatchesTheCpu)
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx2")) {
        EXPECT_EQ(bestKernelPath(), KernelPath::avx2);
    } else if (__builtin_cpu_supports("sse2")) {
        EXPECT_EQ(bestKernelPath(), KernelPath::sse2);
    }
#endif
    setReferenceKernels(true);
    EXPECT_STREQ(activeKernelPath(), "reference");
    setReferenceKernels(false);
    EXPECT_STREQ(activeKernelPath(), kernelPathName(bestKernelPath()));
}

using MixLineBoth = BothPaths;

// Each example line is long enough to reach the vector loops and their tails.
uint32_t blendRepeated(MixLineKernel* kernel, uint32_t firstBytes, uint32_t secondBytes)
{
    constexpr int words = 45;
    std::vector<uint32_t> first(words, wordOf(firstBytes)), second(words, wordOf(secondBytes)), out(words, 0);
    kernel(first.data(), second.data(), out.data(), words);
    for (int i = 1; i < words; ++i)
        EXPECT_EQ(out[i], out[0]) << "word " << i;
    return out[0];
}

TEST_P(MixLineBoth, ExampleWords)
{
    EXPECT_EQ(blendRepeated(MixLine_000, 0x80108020, 0x10EB10EB), wordOf(0x10EB10EB));
    EXPECT_EQ(blendRepeated(MixLine_001, 0x80108020, 0x10EB10EB), wordOf(0x10EA10EA));
    EXPECT_EQ(blendRepeated(MixLine_064, 0x80108020, 0x10EB10EB), wordOf(0x2CB42CB8));
    EXPECT_EQ(blendRepeated(MixLine_128, 0x80108020, 0x10EB10EB), wordOf(0x487D4885));
    EXPECT_EQ(blendRepeated(MixLine_043, 0x80108020, 0x10EB10EB), wordOf(0x22C622C8));

    EXPECT_EQ(blendRepeated(MixLine_001, 0xFF00FF00, 0x00FF00FF), wordOf(0x00FE00FE));
    EXPECT_EQ(blendRepeated(MixLine_043, 0xFF00FF00, 0x00FF00FF), wordOf(0x2AD42AD4));
    EXPECT_EQ(blendRepeated(MixLine_064, 0xFF00FF00, 0x00FF00FF), wordOf(0x3FBF3FBF));
    EXPECT_EQ(blendRepeated(MixLine_128, 0xFF00FF00, 0x00FF00FF), wordOf(0x7F7F7F7F));

    // One lane at a time, the others zero; rounding is always down.
    EXPECT_EQ(blendRepeated(MixLine_001, 0x00FF0000, 0x00000000), 0u);
    EXPECT_EQ(blendRepeated(MixLine_128, 0x00FF0000, 0x00000000), wordOf(0x007F0000));
    EXPECT_EQ(blendRepeated(MixLine_001, 0x00000000, 0x000000FF), wordOf(0x000000FE));
    EXPECT_EQ(blendRepeated(MixLine_128, 0x00000000, 0x000000FF), wordOf(0x0000007F));
    EXPECT_EQ(blendRepeated(MixLine_127, 0x01000000, 0x00000000), 0u);
}

// Every weight, many lengths and start offsets, against the lane rule. The
// inputs end exactly at the end of their allocations and the output sits
// between guard words, so any stray read or write is caught.
TEST_P(MixLineBoth, EveryWeightMatchesTheLaneRule)
{
    std::mt19937 rng(2024);
    constexpr uint32_t sentinel = 0xA5C3E1F7u;
    constexpr int guard = 9;
    const int lengths[] = {1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 33, 63, 360};
    for (int k = 0; k < mixLineWeights; ++k) {
        for (int words : lengths) {
            const int offset = static_cast<int>(rng() % 8);
            std::vector<uint32_t> first = randomWords(rng, words + offset);
            std::vector<uint32_t> second = randomWords(rng, words + offset);
            std::vector<uint32_t> out(words + offset + 2 * guard, sentinel);
            getMixLine(k)(first.data() + offset, second.data() + offset, out.data() + guard + offset, words);
            for (int i = 0; i < static_cast<int>(out.size()); ++i) {
                const int w = i - guard - offset;
                const uint32_t want = (w >= 0 && w < words) ? blendLanes(first[offset + w], second[offset + w], k) : sentinel;
                ASSERT_EQ(out[i], want) << "k " << k << " words " << words << " offset " << offset << " index " << w;
            }
        }
    }
}

TEST_P(MixLineBoth, WeightZeroNeverReadsItsFirstLine)
{
    std::vector<uint32_t> second = {wordOf(0x01020304), wordOf(0xFFEEDDCC), 7, 8, 9};
    std::vector<uint32_t> out(5, 0);
    MixLine_000(nullptr, second.data(), out.data(), 5);
    EXPECT_EQ(out, second);
}

TEST_P(MixLineBoth, NoWordsWritesNothing)
{
    std::vector<uint32_t> line(8, 0x12345678u), out(8, 0xDEADBEEFu);
    for (int k : {0, 1, 77, 128}) {
        getMixLine(k)(line.data(), line.data(), out.data(), 0);
        getMixLine(k)(line.data(), line.data(), out.data(), -5);
    }
    EXPECT_EQ(out, std::vector<uint32_t>(8, 0xDEADBEEFu));
}

INSTANTIATE_TEST_SUITE_P(Paths, MixLineBoth, allPaths, pathName);

} // namespace
