// FromToRGB: colour values, line placement in field pairs, enlargement,
// round trips and partial groups. Outputs are caller buffers
// fenced by guard words, pre-filled with a sentinel.
#include "image/FromToRGB.h"
#include "tests/pixels/pixelTestUtil.h"

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

}  // namespace

// Three lines stored bottom line first, as 24-bit pixels (blue, green, red)
// and as RGBX ones (X, blue, green, red); each pixel pair takes Cb and Cr
// from its left pixel. Every colour's chroma and Y shows somewhere.
TEST(YuvColour, PrimariesChromaFromTheLeftPixelAndPictureTurnedUpright)
{
    const uint32_t R = 0xFF0000, G = 0xFF00, B = 0xFF, K = 0, W = 0xFFFFFF;
    const uint32_t stored[] = {R, B, B, G, W, K, G, G, K, W, W, W};
    const std::vector<uint32_t> upright = {wordOf(128, 16, 128, 235), white,
                                           wordOf(128, 235, 128, 16), wordOf(54, 144, 34, 144),
                                           wordOf(0x5A51F029),        wordOf(240, 41, 110, 144)};
    FromToRGB f;
    for (int size : {3, 4}) {
        std::vector<unsigned char> src;
        for (uint32_t p : stored) {
            if (size == 4)
                src.push_back(0xEE);
            src.insert(src.end(), {static_cast<unsigned char>(p), static_cast<unsigned char>(p >> 8),
                                   static_cast<unsigned char>(p >> 16)});
        }
        Guarded<> frame(6);
        f.RGBXtoYUVFrame(words(src), 4, 3, size, frame.data());
        EXPECT_EQ(frame.contents(), upright) << "pixel size " << size;
        EXPECT_TRUE(frame.guardsIntact());
    }
}

TEST(YuvEnlarge, QuarterFrameOf180x121)
{
    // RGBX, bottom line first: the first source line red, the last line's
    // first pixel blue, the rest black.
    const int w = 180, h = 121;
    std::vector<uint32_t> src(std::size_t(w) * h, 0);
    std::fill_n(src.begin(), w, wordOf(0, 0, 0, 255));
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
    const int w = 6, h = 4;  // 6 pixels: one group of 4, pixels 4 and 5 untouched
    std::vector<unsigned char> rgb = placedRGB(w, h);
    Guarded<> odd(std::size_t(w) * 2), even(std::size_t(w) * 2);
    FromToRGB f;
    f.RGBtoSIR32(odd.data(), even.data(), words(rgb), w, h);
    EXPECT_EQ(even[w + 1], wordOf(255, 1, 0, 7));  // frame line 0 -> even line 1
    EXPECT_EQ(even[2], wordOf(255, 2, 2, 7));      // frame line 2 -> even line 0
    EXPECT_EQ(odd[w + 3], wordOf(255, 3, 1, 7));   // frame line 1 -> odd line 1
    EXPECT_EQ(odd[0], wordOf(255, 0, 3, 7));       // frame line 3 -> odd line 0
    EXPECT_EQ(odd[4], S);
    EXPECT_EQ(even[w + 5], S);
    EXPECT_TRUE(odd.guardsIntact() && even.guardsIntact());

    std::vector<unsigned char> back(rgb.size(), 0xCC);
    f.SIR32toRGB(odd.data(), even.data(), words(back), w, h);
    for (int y = 0; y < h; ++y)
        for (int b = 0; b < 3 * w; ++b)
            ASSERT_EQ(back[3 * w * y + b], b < 12 ? rgb[3 * w * y + b] : 0xCC) << y << "," << b;
}

// 36 pixels: 18 words a line, of which the first 16 (two runs of 8) are
// copied; lines alternate between the fields, frame line 1 first.
TEST(FieldPair, SIRYUVRoundTripLeavesPartialGroups)
{
    const int w = 36, h = 6, words = 18;
    std::vector<uint32_t> frame = randomWords(words * h, 11), want = frame;
    Guarded<> odd(words * h / 2), even(words * h / 2), back(words * h);
    FromToRGB f;
    f.YUVtoSIRYUV(odd.data(), even.data(), frame.data(), w, h);
    EXPECT_EQ(odd[0], frame[words]);
    EXPECT_EQ(even[words + 15], frame[2 * words + 15]);
    EXPECT_EQ(odd[16], S);
    f.SIRYUVtoYUV(odd.data(), even.data(), back.data(), w, h);
    for (int y = 0; y < h; ++y)
        want[y * words + 16] = want[y * words + 17] = S;
    EXPECT_EQ(back.contents(), want);
    EXPECT_TRUE(odd.guardsIntact() && even.guardsIntact() && back.guardsIntact());
}

TEST(YuvFrames, BlackFillInWholeRuns)
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
}

// Any buffer may start at any byte: every conversion that reads or writes
// whole words gives the same bytes with its buffers 1, 2 or 3 bytes past a
// word boundary (the sanitizer build reports a word access that takes
// alignment for granted). Sources are 16 x 6 pixels of 4 bytes or 3.
TEST(AnyByte, ConversionsGiveTheSameBytesAtEveryOffset)
{
    const int w = 16, h = 6;
    using Conversion = void (*)(FromToRGB&, uint32_t * in, uint32_t * first, uint32_t * second);
    const Conversion cases[] = {
        [](FromToRGB& f, uint32_t* in, uint32_t* a, uint32_t* b) { f.RGBtoSIR32(a, b, in, w, h); },
        [](FromToRGB& f, uint32_t* in, uint32_t* a, uint32_t* b) { f.RGBXtoSIR32Alpha(a, b, in, w, h); },
        [](FromToRGB& f, uint32_t* in, uint32_t* a, uint32_t*) { f.RGBXHalftoSIR32(a, in, w, h); },
        [](FromToRGB& f, uint32_t* in, uint32_t* a, uint32_t*) { f.RGBHalftoSIR32(a, in, w, h); },
        [](FromToRGB& f, uint32_t* in, uint32_t* a, uint32_t*) { f.RGBXHalftoSIR32Alpha(a, in, w, h); },
        [](FromToRGB& f, uint32_t* in, uint32_t* a, uint32_t*) { f.RGBXQuartToSIR32(a, in, w, h); },
        [](FromToRGB& f, uint32_t* in, uint32_t* a, uint32_t*) { f.RGBQuartToSIR32(a, in, w, h); },
        [](FromToRGB& f, uint32_t* in, uint32_t* a, uint32_t*) { f.RGBXQuartToSIR32Alpha(a, in, w, h); },
        [](FromToRGB& f, uint32_t* in, uint32_t* a, uint32_t*) { f.RGBXtoYUVFrame(in, w, h, 4, a); },
        [](FromToRGB& f, uint32_t* in, uint32_t* a, uint32_t* b) { f.RGBXtoYUVFields(in, w, h, 3, a, b); },
        [](FromToRGB& f, uint32_t* in, uint32_t* a, uint32_t*) { f.RGBXHalfToYUVFrame(in, w, h, 4, a); },
        [](FromToRGB& f, uint32_t* in, uint32_t* a, uint32_t*) { f.RGBXQuartToYUVFrame(in, w, h, 3, a); },
        [](FromToRGB& f, uint32_t* in, uint32_t* a, uint32_t*) { f.RGBXQuartToYUVField(in, w, h, 4, a); },
        [](FromToRGB& f, uint32_t*, uint32_t* a, uint32_t*) { f.FillBlackYUV(a, w, h); }};
    // The largest outputs, a quarter enlarged 4 x 4, are 8 w h words.
    const std::vector<unsigned char> in = randomBytes(std::size_t(4) * w * h, 17), out(std::size_t(32) * w * h, 0x5A);
    const int offsets[][3] = {{0, 0, 0}, {1, 2, 3}, {3, 1, 2}, {2, 3, 1}};
    for (std::size_t c = 0; c < std::size(cases); ++c) {
        std::vector<unsigned char> want;
        for (const auto& o : offsets) {
            Placed source(in, o[0]), first(out, o[1]), second(out, o[2]);
            FromToRGB f;
            cases[c](f, source.words(), first.words(), second.words());
            std::vector<unsigned char> got = first.bytes(), secondBytes = second.bytes();
            got.insert(got.end(), secondBytes.begin(), secondBytes.end());
            if (want.empty())
                want = got;
            ASSERT_EQ(got, want) << "conversion " << c << " offsets " << o[0] << o[1] << o[2];
        }
    }
}
