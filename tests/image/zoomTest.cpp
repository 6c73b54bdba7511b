// quart's reductions, aspect corrections, enlargements and repacking,
// checked against per-byte reference rules on random images, and on the
// hand-worked cases whose numbers pin down rounding, skips and orientation.
#include "image/quart.h"
#include "tests/pixels/pixelTestUtil.h"

#include <functional>

namespace {

using Image = std::vector<uint32_t>;

// Owns an image returned by quart and gives it back with delMem.
struct Owned {
    void* p;
    explicit Owned(void* q) : p(q) {}
    ~Owned() { delMem(p); }
    uint32_t* words() const { return static_cast<uint32_t*>(p); }
    unsigned char* bytes() const { return static_cast<unsigned char*>(p); }
    Image first(std::size_t n) const { return p ? Image(words(), words() + n) : Image(); }
};

// An image out of per-lane values f(output index, lane).
Image perLane(std::size_t n, const std::function<unsigned(std::size_t, int)>& f)
{
    Image out(n);
    for (std::size_t i = 0; i < n; ++i)
        out[i] = wordOf(f(i, 0), f(i, 1), f(i, 2), f(i, 3));
    return out;
}

// Pixel (x, y) of the image names its own place: lanes x low, x high, y, 0x5A.
uint32_t placeWord(int x, int y) { return wordOf(x & 0xFF, x >> 8, y & 0xFF, 0x5A); }
Image placed(int w, int h)
{
    Image v;
    for (int i = 0; i < w * h; ++i)
        v.push_back(placeWord(i % w, i / w));
    return v;
}

// Grey pixels; levels chosen so that swapping the operands of any blend or
// lane average changes the result.
Image greys(Image levels)
{
    for (uint32_t& l : levels)
        l *= 0x01010101u;
    return levels;
}

}  // namespace

// Quarters are rounded lane averages, the NTSC quarter and the third are
// truncated means. 722 x 486 leaves two lines and two pixels over: one of
// each is skipped first.
TEST(Reductions, QuartersAndThird)
{
    const int w = 722, h = 486, sy = 1, sx = 1;
    Image in = randomWords(std::size_t(w) * h, 1);
    Image want = perLane(180 * 121, [&](std::size_t i, int c) {
        auto line = [&](int y) {
            auto p = [&](int x) { return bytesOf(in[(sy + 4 * (i / 180) + y) * w + sx + 4 * (i % 180) + x])[c]; };
            return refAverage(refAverage(p(0), p(1)), refAverage(p(2), p(3)));
        };
        return refAverage(refAverage(line(0), line(1)), refAverage(line(2), line(3)));
    });
    quart q;
    EXPECT_EQ(Owned(q.zoomtoquart(in.data(), w, h)).first(want.size()), want);

    // 720 x 486 to 160 x 121 from line 1: output pixel j covers input pixels
    // 4j + j / 2 to 4j + j / 2 + 3 (pixel 2: 9 to 12).
    Image ntsc = randomWords(std::size_t(720) * 486, 3);
    want = perLane(160 * 121, [&](std::size_t i, int c) {
        const int k = static_cast<int>(i / 160), j = static_cast<int>(i % 160);
        unsigned sum = 0;
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 4; ++x)
                sum += bytesOf(ntsc[(1 + 4 * k + y) * 720 + 4 * j + (j >> 1) + x])[c];
        return sum / 16;
    });
    EXPECT_EQ(Owned(q.zoomtoquartNTSC(ntsc.data(), 720, 486)).first(want.size()), want);

    Image nine(81, 10 * 0x01010101u);
    nine[4 * 9 + 4] = wordOf(10, 19, 10, 10);
    Image third(9, 10 * 0x01010101u);
    third[4] = wordOf(10, 11, 10, 10);  // (8 x 10 + 19) / 9
    EXPECT_EQ(Owned(q.zoomtothird(nine.data(), 9, 9)).first(9), third);
}

TEST(AspectCorrection, NinePixelsToEightAndThreeToFour)
{
    quart q;
    // Blends a - a/4 + b/4 and lane averages, earlier operand first.
    Image nine = greys({10, 40, 200, 7, 100, 33, 90, 250, 5});
    EXPECT_EQ(Owned(q.correctNtscRatio(nine.data(), 9, 1)).first(8),
              greys({10, 40 - 10 + 50, 200 - 50 + 1, 4 + 50, 50 + 16, 90 - 22 + 8, 250 - 62 + 22, 5}));
    Image three = greys({10, 41, 200, 7, 100, 33});
    EXPECT_EQ(Owned(q.scaleXFourThirds(three.data(), 6, 1)).first(8),
              greys({10, 41 - 10 + 2, 21 + 100, 200 - 50 + 1, 7, 100 - 25 + 1, 50 + 16, 33}));

    // 727 mod 9 = 7: three pixels skipped, 640 out, the last input pixel 722.
    Image wide = placed(727, 2);
    Owned ntsc(q.correctNtscRatio(wide.data(), 727, 2));
    EXPECT_EQ(Image({ntsc.words()[0], ntsc.words()[639], ntsc.words()[640]}),
              Image({placeWord(3, 0), placeWord(722, 0), placeWord(3, 1)}));
    // 640 pixels give 852, ending with a copy of pixel 638; 641 skips one.
    Image narrow = placed(640, 2);
    Owned four(q.scaleXFourThirds(narrow.data(), 640, 2)), skipped(q.scaleXFourThirds(wide.data(), 641, 1));
    EXPECT_EQ(Image({four.words()[0], four.words()[851], four.words()[852], skipped.words()[0]}),
              Image({placeWord(0, 0), placeWord(638, 0), placeWord(0, 1), placeWord(1, 0)}));
}

// The word path (whole runs of 8 on aligned data) averages vertically, then
// horizontally; the byte path takes the rounded mean of the four.
TEST(Half24, WordAndBytePaths)
{
    quart q;
    const int h = 4;
    std::vector<unsigned char> in = randomBytes(std::size_t(3) * 722 * h + 1, 7);
    const struct {
        int w, offset;
        bool wordPath;
    } cases[] = {{720, 0, true}, {722, 0, false}, {720, 1, false}};
    for (const auto [w, offset, wordPath] : cases) {
        unsigned char* src = in.data() + offset;
        Owned out(q.zoomtohalf24(reinterpret_cast<uint32_t*>(src), w, h));
        for (int i = 0; i < 3 * (w / 2) * (h / 2); ++i) {
            const int k = i / (3 * (w / 2)), j = i / 3 % (w / 2), c = i % 3;
            auto p = [&](int y, int x) { return unsigned(src[((2 * k + y) * w + 2 * j + x) * 3 + c]); };
            const unsigned want = wordPath ? refAverage(refAverage(p(0, 0), p(1, 0)), refAverage(p(0, 1), p(1, 1)))
                                           : (p(0, 0) + p(0, 1) + p(1, 0) + p(1, 1) + 2) >> 2;
            ASSERT_EQ(out.bytes()[i], want) << "width " << w << " offset " << offset << " byte " << i;
        }
    }
}

TEST(Enlargement, RepeatsEachPixelAndRefusesRatio3)
{
    Image in = placed(3, 2);
    quart q;
    for (int r : {2, 4}) {
        Owned out(q.zoomUp(in.data(), 3, 2, r));
        for (int i = 0; i < 6 * r * r; ++i)
            ASSERT_EQ(out.words()[i], placeWord(i % (3 * r) / r, i / (3 * r) / r)) << r << ": " << i;
    }
    testing::internal::CaptureStdout();
    EXPECT_EQ(q.zoomUp(in.data(), 3, 2, 3), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "zoomUp error: ratio 3 not implemented\n");
}

// Four pixels a step: a 7-pixel image has one step; the rest comes out 0.
TEST(Repacking, TwentyFourToThirtyTwoAndBack)
{
    std::vector<unsigned char> rgb = randomBytes(3 * 8 * 3, 10);
    quart q;
    Owned wide(q.pass24to32(rgb.data(), 8, 3)), back(q.pass32to24(wide.words(), 8, 3));
    EXPECT_EQ(wide.words()[1], wordOf(255, rgb[3], rgb[4], rgb[5]));
    EXPECT_EQ(0, std::memcmp(back.bytes(), rgb.data(), rgb.size()));

    Owned tail32(q.pass24to32(rgb.data(), 7, 1)), tail24(q.pass32to24(wide.words(), 7, 1));
    EXPECT_EQ(tail32.first(7), Image({wide.words()[0], wide.words()[1], wide.words()[2], wide.words()[3], 0, 0, 0}));
    std::vector<unsigned char> firstStep(rgb.begin(), rgb.begin() + 12);
    firstStep.resize(21, 0);
    EXPECT_EQ(std::vector<unsigned char>(tail24.bytes(), tail24.bytes() + 21), firstStep);
}

TEST(Allocation, ImpossibleSizesAndMissingSourcesGiveNull)
{
    Image in(16, 0);
    quart q;
    EXPECT_EQ(q.zoomtohalf(in.data(), 100000, 100000), nullptr);
    EXPECT_EQ(q.correctNtscRatio(in.data(), 90000, 90000), nullptr);
    EXPECT_EQ(q.zoomUp(in.data(), 40000, 40000, 4), nullptr);
    EXPECT_EQ(q.pass24to32(reinterpret_cast<unsigned char*>(in.data()), 60000, 60000), nullptr);
    EXPECT_EQ(q.zoomtoquart(nullptr, 8, 8), nullptr);
}

// A source may start at any byte: every word operation gives the same image
// from a copy placed 1, 2 or 3 bytes past a word boundary (the sanitizer
// build reports a word read that takes alignment for granted). The 24-bit
// half, whose path depends on the address, is checked above.
TEST(AnyByte, OperationsGiveTheSameImageFromEveryOffset)
{
    const int w = 27, h = 14;
    const std::vector<unsigned char> in = randomBytes(std::size_t(4) * w * h, 13);
    const struct {
        uint32_t* (*run)(quart&, uint32_t*);
        int pixels;
    } cases[] = {{[](quart& q, uint32_t* s) { return q.zoomtoquart(s, w, h); }, (w / 4) * (h / 4)},
                 {[](quart& q, uint32_t* s) { return q.zoomtohalf(s, w, h); }, (w / 2) * (h / 2)},
                 {[](quart& q, uint32_t* s) { return q.zoomtohalfX(s, w, h); }, (w / 2) * h},
                 {[](quart& q, uint32_t* s) { return q.zoomtohalfY(s, w, h); }, w * (h / 2)},
                 {[](quart& q, uint32_t* s) { return q.zoomtothird(s, w, h); }, (w / 3) * (h / 3)},
                 {[](quart& q, uint32_t* s) { return q.zoomtoquartNTSC(s, w, h); }, (2 * w / 9) * (h / 4)},
                 {[](quart& q, uint32_t* s) { return q.correctNtscRatio(s, w, h); }, (w / 9 * 8) * h},
                 {[](quart& q, uint32_t* s) { return q.scaleXFourThirds(s, w, h); }, (w / 3 * 4) * h},
                 {[](quart& q, uint32_t* s) { return q.zoomUp(s, w, h, 2); }, 4 * w * h}};
    for (std::size_t c = 0; c < std::size(cases); ++c) {
        Image want;
        for (int offset : {0, 1, 2, 3}) {
            Placed source(in, offset);
            quart q;
            const Image got = Owned(cases[c].run(q, source.words())).first(cases[c].pixels);
            if (offset == 0)
                want = got;
            ASSERT_EQ(got, want) << "operation " << c << " offset " << offset;
        }
    }
}
