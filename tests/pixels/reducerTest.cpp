#include "image/quart.h"
#include "pixelTestUtil.h"

namespace {

using Bytes = std::vector<unsigned char>;

// Reduces a frame into a caller buffer fenced by guard bytes, checks the
// guards and the returned pointer, and gives the picture bytes.
Bytes reduce(bool quarter, std::vector<uint32_t>& frame, int width, int height)
{
    Guarded<unsigned char> out(quarter ? 3 * (width >> 2) * (height >> 2) : 3 * (width >> 1) * (height >> 1));
    quart q{};
    const auto reducer = quarter ? &quart::zoomYUVtoQuartRGB : &quart::zoomYUVtoHalfRGB;
    EXPECT_EQ((q.*reducer)(frame.data(), width, height, out.words()), out.words());
    EXPECT_TRUE(out.guardsIntact()) << "a byte outside the picture was written";
    return out.contents();
}

// Uniform colours, and frames whose result changes if the earlier and later
// operands of a lane average are swapped (upper or lower line for the half
// reducer, words 2j or 2j + 1 for the quarter one): 201 and 100 average to
// 151 one way and 150 the other, grey 157 against 156. The frames are wide
// enough to reach the vector loops and their tails.
TEST_P(KernelPaths, ColourAndAveragingExamples)
{
    // Words of even and odd lines (half reducer) or columns (quarter reducer).
    const struct {
        bool quarter;
        uint32_t first, second;
        Bytes bgr;
    } cases[] = {{false, 0x80108010, 0x80108010, {0, 0, 0}},       {false, 0x80EB80EB, 0x80EB80EB, {255, 255, 255}},
                 {false, 0x8051F051, 0x8051F051, {75, 0, 254}},    {true, 0x8051F051, 0x8051F051, {75, 0, 254}},
                 {false, 0x80C980C9, 0x80648064, {157, 157, 157}}, {false, 0x80648064, 0x80C980C9, {156, 156, 156}},
                 {true, 0x80C980C9, 0x80648064, {157, 157, 157}},  {true, 0x80648064, 0x80C980C9, {156, 156, 156}}};
    const int width = 76, height = 4;
    for (const auto& c : cases) {
        std::vector<uint32_t> frame(width / 2 * height);
        for (std::size_t i = 0; i < frame.size(); ++i)
            frame[i] = wordOf((c.quarter ? i % 2 : i / (width / 2) % 2) ? c.second : c.first);
        const Bytes got = reduce(c.quarter, frame, width, height);
        for (std::size_t i = 0; i < got.size(); i += 3)
            ASSERT_EQ(Bytes(got.begin() + i, got.begin() + i + 3), c.bgr) << std::hex << c.first << " byte " << i;
    }
}

TEST_P(KernelPaths, NtscFrameSizesLineSkipAndBottomUpOrder)
{
    std::vector<uint32_t> frame = randomWords(360 * 486, 1);
    EXPECT_EQ(reduce(true, frame, 720, 486).size(), 65340u);
    EXPECT_EQ(reduce(false, frame, 720, 486).size(), 262440u);

    // Heights 486 and 7 (remainders 2 and 3) skip lines 0 and 1.
    for (int height : {486, 7}) {
        std::vector<uint32_t> top(frame.begin(), frame.begin() + height * 360), rest(top.begin() + 720, top.end());
        EXPECT_EQ(reduce(true, top, 720, height), reduce(true, rest, 720, height - 2)) << height;
    }
    // Line n of an 8-line frame is a grey of luma 16 + 30 n: the top of the
    // picture (lines 0 and 1, grey 17) comes last in memory.
    std::vector<uint32_t> greys(8 * 4);
    for (int n = 0; n < 8; ++n)
        std::fill_n(&greys[n * 4], 4, wordOf(0x80, 16 + 30 * n, 0x80, 16 + 30 * n));
    const Bytes half = reduce(false, greys, 8, 8);
    EXPECT_EQ(half[0], 227);
    EXPECT_EQ(half[3 * 12], 17);
}

// Each path's reducers against the reference ones, byte for byte, on random
// frames with widths up to a full line and heights that leave every tail.
TEST_P(KernelPaths, ReducersMatchTheReference)
{
    std::mt19937 rng(99);
    for (int width = 2; width <= 722; width += width < 80 ? 2 : 18)
        for (int height : {2, 3, 4, 5, 6, 7, 8, 11, 13}) {
            std::vector<uint32_t> frame = randomWords(rng, std::size_t(width / 2) * height);
            for (bool quarter : {true, false}) {
                setReferenceKernels(true);
                const Bytes reference = reduce(quarter, frame, width, height);
                limitKernelPath(GetParam());
                ASSERT_EQ(reduce(quarter, frame, width, height), reference)
                    << (quarter ? "quarter " : "half ") << width << "x" << height;
            }
        }
}

}  // namespace
