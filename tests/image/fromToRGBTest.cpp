// FromToRGB: colour values, line placement in field pairs and enlargements,
// round trips, partial groups and the null-buffer rules. Outputs are caller
// buffers fenced by guard words, pre-filled with a sentinel.
#include "image/FromToRGB.h"
#include "imageTestUtil.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace {

using Bytes = std::array<unsigned, 4>;
constexpr uint32_t S = Guarded::kSentinel;

// The YUV word made from a single RGBX pixel (X, blue, green, red).
uint32_t yuvOfPixel(unsigned b, unsigned g, unsigned r)
{
    std::vector<uint32_t> src(2, wordOfBytes(0xEE, b, g, r));
    Guarded frame(1);
    FromToRGB f;
    f.RGBXtoYUVFrame(src.data(), 2, 1, 4, frame.data());
    EXPECT_TRUE(frame.guardsIntact());
    return frame[0];
}

// A 24-bit frame whose pixel (x, y) has bytes x, y, 7.
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

TEST(YuvColour, StudioRangeValuesOfThePrimaries)
{
    // Words are Cb, Y, Cr, Y; 24-bit sources are checked with the pair below.
    EXPECT_EQ(bytesOfWord(yuvOfPixel(255, 255, 255)), (Bytes{128, 235, 128, 235}));
    EXPECT_EQ(bytesOfWord(yuvOfPixel(0, 0, 0)), (Bytes{128, 16, 128, 16}));
    EXPECT_EQ(bytesOfWord(yuvOfPixel(0, 0, 255)), (Bytes{90, 81, 240, 81}));
    EXPECT_EQ(bytesOfWord(yuvOfPixel(0, 255, 0)), (Bytes{54, 144, 34, 144}));
    EXPECT_EQ(bytesOfWord(yuvOfPixel(255, 0, 0)), (Bytes{240, 41, 110, 41}));
}

TEST(YuvColour, ChromaFromTheLeftPixelAndPictureTurnedUpright)
{
    // Two lines, stored bottom line first: bottom red | blue, top black | white.
    std::vector<unsigned char> src = {0, 0, 255, 255, 0, 0, 0, 0, 0, 255, 255, 255};
    Guarded frame(2);
    FromToRGB f;
    f.RGBXtoYUVFrame(words(src), 2, 2, 3, frame.data());
    EXPECT_EQ(bytesOfWord(frame[0]), (Bytes{128, 16, 128, 235})); // top line: black then white
    EXPECT_EQ(frame[1], bigEndianWord(0x5A51F029u)); // red then blue
    EXPECT_TRUE(frame.guardsIntact());
}

TEST(YuvColour, FieldsTakeOddAndEvenLinesAndNullFieldsAreSkipped)
{
    // Four lines of one pixel pair each; frame line y has grey level 10 * y.
    const int w = 2, h = 4;
    std::vector<unsigned char> src;
    for (int y = h - 1; y >= 0; --y)
        for (int x = 0; x < w; ++x)
            src.insert(src.end(), {0x11, static_cast<unsigned char>(60 * y), static_cast<unsigned char>(60 * y),
                                   static_cast<unsigned char>(60 * y)});
    Guarded frame(4), odd(2), even(2);
    FromToRGB f;
    f.RGBXtoYUVFrame(words(src), w, h, 4, frame.data());
    f.RGBXtoYUVFields(words(src), w, h, 4, odd.data(), nullptr);
    f.RGBXtoYUVFields(words(src), w, h, 4, nullptr, even.data());
    EXPECT_EQ((std::vector<uint32_t>{even[0], odd[0], even[1], odd[1]}),
              std::vector<uint32_t>(frame.data(), frame.data() + 4));
    EXPECT_NE(frame[1], frame[3]);
    EXPECT_TRUE(odd.guardsIntact() && even.guardsIntact());
}

TEST(YuvEnlarge, QuarterFrameOf180x121)
{
    const int w = 180, h = 121;
    std::vector<unsigned char> src(size_t(4) * w * h, 0);
    for (int x = 0; x < w; ++x)
        src[4 * x + 3] = 255; // first source line (bottom of the picture): red
    src[4 * (w * (h - 1)) + 1] = 255; // last source line, first pixel: blue
    Guarded frame(size_t(360) * 484);
    FromToRGB f;
    f.RGBXQuartToYUVFrame(words(src), w, h, 4, frame.data());
    EXPECT_TRUE(frame.guardsIntact());
    const uint32_t red = wordOfBytes(90, 81, 240, 81), blue = wordOfBytes(240, 41, 110, 41);
    const uint32_t black = bigEndianWord(0x80108010u);
    for (int y = 480; y < 484; ++y)
        for (int i = 0; i < 360; ++i)
            ASSERT_EQ(frame[size_t(y) * 360 + i], red) << y << "," << i;
    EXPECT_EQ(frame[size_t(479) * 360], black);
    for (int y = 0; y < 4; ++y) {
        EXPECT_EQ(frame[size_t(y) * 360], blue);
        EXPECT_EQ(frame[size_t(y) * 360 + 1], blue);
        EXPECT_EQ(frame[size_t(y) * 360 + 2], black);
    }
}

TEST(YuvEnlarge, HalfFrameAndQuarterField)
{
    // 2 x 2 source, bottom line first: bottom (white, black), top (red, blue).
    std::vector<unsigned char> src = {255, 255, 255, 0, 0, 0, 0, 0, 255, 255, 0, 0};
    const uint32_t white = wordOfBytes(128, 235, 128, 235), black = wordOfBytes(128, 16, 128, 16);
    const uint32_t red = wordOfBytes(90, 81, 240, 81), blue = wordOfBytes(240, 41, 110, 41);
    FromToRGB f;
    Guarded half(2 * 4); // 4 x 4 pixels: 2 words a line
    f.RGBXHalfToYUVFrame(words(src), 2, 2, 3, half.data());
    EXPECT_EQ(std::vector<uint32_t>(half.data(), half.data() + 8),
              (std::vector<uint32_t>{red, blue, red, blue, white, black, white, black}));
    EXPECT_TRUE(half.guardsIntact());

    Guarded field(4 * 4); // 8 x 4 pixels: 4 words a line
    f.RGBXQuartToYUVField(words(src), 2, 2, 3, field.data());
    EXPECT_EQ(std::vector<uint32_t>(field.data() + 4, field.data() + 12),
              (std::vector<uint32_t>{red, red, blue, blue, white, white, black, black}));
    EXPECT_EQ(field[15], black);
    EXPECT_TRUE(field.guardsIntact());
}

TEST(FieldPair, SIR32LinesAreBottomUpInTheirField)
{
    const int w = 6, h = 4; // 6 pixels: one group of 4, pixels 4 and 5 untouched
    std::vector<unsigned char> rgb = placedRGB(w, h);
    Guarded odd(size_t(w) * 2), even(size_t(w) * 2);
    FromToRGB f;
    f.RGBtoSIR32(odd.data(), even.data(), words(rgb), w, h);
    EXPECT_EQ(even[w + 1], wordOfBytes(255, 1, 0, 7)); // frame line 0 -> even line 1
    EXPECT_EQ(even[2], wordOfBytes(255, 2, 2, 7));     // frame line 2 -> even line 0
    EXPECT_EQ(odd[w + 3], wordOfBytes(255, 3, 1, 7));  // frame line 1 -> odd line 1
    EXPECT_EQ(odd[0], wordOfBytes(255, 0, 3, 7));      // frame line 3 -> odd line 0
    EXPECT_EQ(odd[4], S);
    EXPECT_EQ(even[w + 5], S);
    EXPECT_TRUE(odd.guardsIntact() && even.guardsIntact());

    // And back, with the frame's partial group left as it was.
    std::vector<unsigned char> back(rgb.size(), 0xCC);
    f.SIR32toRGB(odd.data(), even.data(), words(back), w, h);
    for (int y = 0; y < h; ++y)
        for (int b = 0; b < 3 * w; ++b)
            ASSERT_EQ(back[3 * w * y + b], b < 12 ? rgb[3 * w * y + b] : 0xCC) << y << "," << b;
}

TEST(FieldPair, SIR32WordsAlphaKeysAndOddHeights)
{
    const int w = 4, h = 5; // the fifth line has no place in the even field
    std::vector<uint32_t> frame;
    for (int i = 0; i < w * h; ++i)
        frame.push_back(wordOfBytes(i, 1, 2, 3));
    Guarded odd(size_t(w) * 2), even(size_t(w) * 2);
    FromToRGB f;
    f.RGBXtoSIR32(odd.data(), even.data(), frame.data(), w, h);
    EXPECT_EQ(even[w], frame[0]);
    EXPECT_EQ(odd[0], frame[3 * w]);
    EXPECT_TRUE(odd.guardsIntact() && even.guardsIntact());

    Guarded keys(size_t(w) * 2);
    f.RGBXtoSIR32Alpha(nullptr, keys.data(), frame.data(), w, h);
    EXPECT_EQ(keys[w + 1], wordOfBytes(0, 1, 1, 1));
    EXPECT_EQ(keys[2], wordOfBytes(0, 10, 10, 10));
    EXPECT_TRUE(keys.guardsIntact());
}

TEST(FieldPair, SIRYUVRoundTripAndPartialGroups)
{
    const int h = 6;
    for (int w : {32, 36}) { // 16 words a line; 18 words, of which 16 are copied
        const int words = w / 2;
        std::vector<uint32_t> frame = randomWords(size_t(words) * h, 11);
        Guarded odd(size_t(words) * h / 2), even(size_t(words) * h / 2);
        FromToRGB f;
        f.YUVtoSIRYUV(odd.data(), even.data(), frame.data(), w, h);
        EXPECT_EQ(odd[0], frame[words]);
        EXPECT_EQ(even[words], frame[2 * words]);
        EXPECT_EQ(odd[size_t(words) * 2 + 15], frame[size_t(words) * 5 + 15]);
        EXPECT_EQ(odd[16], w == 36 ? S : frame[3 * words]);
        EXPECT_TRUE(odd.guardsIntact() && even.guardsIntact());

        Guarded back(size_t(words) * h);
        f.SIRYUVtoYUV(odd.data(), even.data(), back.data(), w, h);
        if (w == 32) {
            EXPECT_EQ(std::vector<uint32_t>(back.data(), back.data() + words * h), frame);
        }
        EXPECT_TRUE(back.guardsIntact());
    }
}

TEST(FieldEnlarge, HalfAndQuarterPixelsRepeatedIntoOneField)
{
    // 4 x 2 source, stored top-down; source line 0 ends at the bottom.
    std::vector<unsigned char> rgb = placedRGB(4, 2);
    FromToRGB f;
    Guarded quarter(size_t(16) * 4);
    f.RGBQuartToSIR32(quarter.data(), words(rgb), 4, 2);
    for (int x = 0; x < 16; ++x) {
        EXPECT_EQ(quarter[x], wordOfBytes(255, x / 4, 1, 7));
        EXPECT_EQ(quarter[16 + x], quarter[x]);
        EXPECT_EQ(quarter[32 + x], wordOfBytes(255, x / 4, 0, 7));
        EXPECT_EQ(quarter[48 + x], quarter[32 + x]);
    }
    EXPECT_TRUE(quarter.guardsIntact());

    std::vector<uint32_t> rgbx = {wordOfBytes(9, 1, 1, 1), wordOfBytes(7, 3, 3, 3)};
    Guarded keys(8 * 2);
    f.RGBXQuartToSIR32Alpha(keys.data(), rgbx.data(), 2, 1);
    EXPECT_EQ(keys[0], wordOfBytes(0, 9, 9, 9));
    EXPECT_EQ(keys[8 + 7], wordOfBytes(0, 7, 7, 7));
    EXPECT_TRUE(keys.guardsIntact());

    // 24-bit sources convert whole groups of four: pixels 4 and 5 are left.
    std::vector<unsigned char> six = placedRGB(6, 1);
    Guarded halfRGB(12);
    f.RGBHalftoSIR32(halfRGB.data(), words(six), 6, 1);
    EXPECT_EQ(halfRGB[7], wordOfBytes(255, 3, 0, 7));
    EXPECT_EQ(halfRGB[8], S);
}

TEST(YuvFrames, BlackFillAndCopy)
{
    const uint32_t black = bigEndianWord(0x80108010u);
    Guarded frame(size_t(360) * 486);
    FromToRGB f;
    f.FillBlackYUV(frame.data(), 720, 486);
    for (size_t i = 0; i < frame.size(); ++i)
        ASSERT_EQ(frame[i], black) << i;
    EXPECT_TRUE(frame.guardsIntact());

    // 10 words a line: runs of 8, one after the other; the frame's end is left.
    Guarded shortLines(10 * 3);
    f.FillBlackYUV(shortLines.data(), 20, 3);
    for (size_t i = 0; i < 30; ++i)
        EXPECT_EQ(shortLines[i], i < 24 ? black : S) << i;

    std::vector<uint32_t> src = randomWords(10 * 3, 12);
    Guarded copy(10 * 3);
    f.YUVtoYUV(src.data(), 20, 3, copy.data());
    EXPECT_EQ(std::vector<uint32_t>(copy.data(), copy.data() + 30), src);
    EXPECT_TRUE(copy.guardsIntact());
}

TEST(Refusals, MissingBuffersAndUnusablePixelSizesWriteNothing)
{
    std::vector<uint32_t> src(64, 0x01020304u);
    Guarded out(64);
    FromToRGB f;
    testing::internal::CaptureStdout();
    f.SIR32toRGBX(nullptr, out.data(), src.data(), 4, 4);
    f.RGBXtoYUVFrame(src.data(), 4, 4, 2, out.data());
    f.RGBXHalfToYUVFrame(src.data(), 2, 2, 4, nullptr);
    const std::string said = testing::internal::GetCapturedStdout();
    EXPECT_EQ(said, "Missing image buffer [FromToRGB::SIR32toRGBX]\n"
                    "Source pixel size 2 not supported [FromToRGB::RGBXtoYUVFrame]\n"
                    "Missing image buffer [FromToRGB::RGBXHalfToYUVFrame]\n");
    for (size_t i = 0; i < out.size(); ++i)
        ASSERT_EQ(out[i], S);
    EXPECT_EQ(src[0], 0x01020304u);
}
