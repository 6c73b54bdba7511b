// FromToRGB: colour values, line placement in field pairs, enlargement,
// round trips, partial groups and the refusals. Outputs are caller buffers
// fenced by guard words, pre-filled with a sentinel.
#include "image/FromToRGB.h"
#include "tests/pixels/pixelTestUtil.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace {

constexpr uint32_t S = Guarded<>::kSentinel;
// YUV words of two equal pixels: Cb, Y, Cr, Y in memory.
const uint32_t white = wordOf(128, 235, 128, 235), black = wordOf(128, 16, 128, 16);
const uint32_t red = wordOf(90, 81, 240, 81), blue = wordOf(240, 41, 110, 41);

// A 24-bit frame whose pixel (x, y) has bytes x, y, 7, padded to whole words.
std::vector<unsigned char> placedRGB(int w, int h)
{
    std::vector<unsigned char> v;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            v.insert(v.end(), {static_cast<unsigned char>(x), static_cast<unsigned char>(y), 7});
    v.resize((v.size() + 3) / 4 * 4);
    return v;
}

uint32_t* words(std::vector<unsigned char>& v) { return reinterpret_cast<uint32_t*>(v.data()); }

} // namespace

TEST(YuvColour, PrimariesChromaFromTheLeftPixelAndPictureTurnedUpright)
{
    // One RGBX pixel pair (X, blue, green, red) at a time.
    const struct { unsigned b, g, r; uint32_t want; } cases[] = {
        {255, 255, 255, white}, {0, 0, 0, black}, {0, 0, 255, red}, {0, 255, 0, wordOf(54, 144, 34, 144)}, {255, 0, 0, blue}};
    FromToRGB f;
    for (const auto& c : cases) {
        std::vector<uint32_t> src(2, wordOf(0xEE, c.b, c.g, c.r));
        Guarded<> frame(1);
        f.RGBXtoYUVFrame(src.data(), 2, 1, 4, frame.data());
        EXPECT_EQ(frame[0], c.want) << c.b << " " << c.g << " " << c.r;
        EXPECT_TRUE(frame.guardsIntact());
    }
    // 24-bit, two lines stored bottom line first: bottom red | blue, top
    // black | white. Cb and Cr come from the left pixel of each pair.
    std::vector<unsigned char> src = {0, 0, 255, 255, 0, 0, 0, 0, 0, 255, 255, 255};
    Guarded<> frame(2);
    f.RGBXtoYUVFrame(words(src), 2, 2, 3, frame.data());
    EXPECT_EQ(frame.contents(), std::vector<uint32_t>({wordOf(128, 16, 128, 235), wordOf(0x5A51F029)}));
    EXPECT_TRUE(frame.guardsIntact());
}

TEST(YuvEnlarge, QuarterFrameOf180x121)
{
    // RGBX, bottom line first: the first source line red, the last line's
    // first pixel blue, the rest black.
    const int w = 180, h = 121;
    std::vector<uint32_t> src(std::size_t(w) * h, 0);
    for (int x = 0; x < w; ++x)
        src[x] = wordOf(0, 0, 0, 255);
    src[std::size_t(w) * (h - 1)] = wordOf(0, 255, 0, 0);
    Guarded<> frame(std::size_t(360) * 484);
    FromToRGB f;
    f.RGBXQuartToYUVFrame(src.data(), w, h, 4, frame.data());
    EXPECT_TRUE(frame.guardsIntact());
    for (std::size_t i = 0; i < std::size_t(360) * 484; ++i) {
        const std::size_t y = i / 360, x = i % 360;
        ASSERT_EQ(frame[i], y >= 480 ? red : y < 4 && x < 2 ? blue : black) << y << "," << x;
    }
}

TEST(FieldPair, SIR32LinesAreBottomUpInTheirFieldAndPartialGroupsAreLeft)
{
    const int w = 6, h = 4; // 6 pixels: one group of 4, pixels 4 and 5 untouched
    std::vector<unsigned char> rgb = placedRGB(w, h);
    Guarded<> odd(std::size_t(w) * 2), even(std::size_t(w) * 2);
    FromToRGB f;
    f.RGBtoSIR32(odd.data(), even.data(), words(rgb), w, h);
    EXPECT_EQ(even[w + 1], wordOf(255, 1, 0, 7)); // frame line 0 -> even line 1
    EXPECT_EQ(even[2], wordOf(255, 2, 2, 7));     // frame line 2 -> even line 0
    EXPECT_EQ(odd[w + 3], wordOf(255, 3, 1, 7));  // frame line 1 -> odd line 1
    EXPECT_EQ(odd[0], wordOf(255, 0, 3, 7));      // frame line 3 -> odd line 0
    EXPECT_EQ(odd[4], S);
    EXPECT_EQ(even[w + 5], S);
    EXPECT_TRUE(odd.guardsIntact() && even.guardsIntact());

    std::vector<unsigned char> back(rgb.size(), 0xCC);
    f.SIR32toRGB(odd.data(), even.data(), words(back), w, h);
    for (int y = 0; y < h; ++y)
        for (int b = 0; b < 3 * w; ++b)
            ASSERT_EQ(back[3 * w * y + b], b < 12 ? rgb[3 * w * y + b] : 0xCC) << y << "," << b;
}

TEST(FieldPair, SIRYUVRoundTripAndPartialGroups)
{
    const int h = 6;
    FromToRGB f;
    for (int w : {32, 36}) { // 16 words a line; 18 words, of which 16 are copied
        const int words = w / 2;
        std::vector<uint32_t> frame = randomWords(std::size_t(words) * h, 11);
        Guarded<> odd(std::size_t(words) * h / 2), even(std::size_t(words) * h / 2), back(std::size_t(words) * h);
        f.YUVtoSIRYUV(odd.data(), even.data(), frame.data(), w, h);
        EXPECT_EQ(odd[0], frame[words]);
        EXPECT_EQ(even[words], frame[2 * words]);
        EXPECT_EQ(odd[std::size_t(words) * 2 + 15], frame[std::size_t(words) * 5 + 15]);
        EXPECT_EQ(odd[16], w == 36 ? S : frame[3 * words]);
        f.SIRYUVtoYUV(odd.data(), even.data(), back.data(), w, h);
        if (w == 32) {
            EXPECT_EQ(back.contents(), frame);
        }
        EXPECT_TRUE(odd.guardsIntact() && even.guardsIntact() && back.guardsIntact());
    }
}

TEST(YuvFrames, BlackFillInWholeRunsAndCopy)
{
    FromToRGB f;
    Guarded<> frame(std::size_t(360) * 486);
    f.FillBlackYUV(frame.data(), 720, 486);
    EXPECT_EQ(frame.contents(), std::vector<uint32_t>(std::size_t(360) * 486, wordOf(0x80108010)));
    EXPECT_TRUE(frame.guardsIntact());

    // 10 words a line: runs of 8, one after the other; the frame's end is left.
    Guarded<> shortLines(10 * 3);
    f.FillBlackYUV(shortLines.data(), 20, 3);
    std::vector<uint32_t> want(30, S);
    std::fill_n(want.begin(), 24, black);
    EXPECT_EQ(shortLines.contents(), want);

    std::vector<uint32_t> src = randomWords(10 * 3, 12);
    Guarded<> copy(10 * 3);
    f.YUVtoYUV(src.data(), 20, 3, copy.data());
    EXPECT_EQ(copy.contents(), src);
    EXPECT_TRUE(copy.guardsIntact());
}

TEST(Refusals, MissingBuffersAndUnusablePixelSizesWriteNothing)
{
    std::vector<uint32_t> src(64, 0x01020304u);
    Guarded<> out(64);
    FromToRGB f;
    testing::internal::CaptureStdout();
    f.SIR32toRGBX(nullptr, out.data(), src.data(), 4, 4);
    f.RGBXtoYUVFrame(src.data(), 4, 4, 2, out.data());
    f.RGBXHalfToYUVFrame(src.data(), 2, 2, 4, nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Missing image buffer [FromToRGB::SIR32toRGBX]\n"
                                                      "Source pixel size 2 not supported [FromToRGB::RGBXtoYUVFrame]\n"
                                                      "Missing image buffer [FromToRGB::RGBXHalfToYUVFrame]\n");
    EXPECT_TRUE(out.unwritten(0, 64));
    EXPECT_EQ(src, std::vector<uint32_t>(64, 0x01020304u));
}
