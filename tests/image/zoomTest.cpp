// quart's reductions, aspect corrections, enlargements and repacking,
// checked against per-byte reference rules on random images, and on the
// hand-worked cases whose numbers pin down rounding, skips and orientation.
#include "image/quart.h"
#include "imageTestUtil.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace {

using Image = std::vector<uint32_t>;

unsigned laneOf(uint32_t w, int c) { return bytesOfWord(w)[c]; }

uint32_t perLane(const std::function<unsigned(int)>& f) { return wordOfBytes(f(0), f(1), f(2), f(3)); }

// Owns an image returned by quart and gives it back with delMem.
struct Owned {
    void* p;
    explicit Owned(void* q) : p(q) {}
    ~Owned() { delMem(p); }
    uint32_t* words() const { return static_cast<uint32_t*>(p); }
    unsigned char* bytes() const { return static_cast<unsigned char*>(p); }
};

void expectSameWords(const uint32_t* got, const Image& want)
{
    ASSERT_NE(got, nullptr);
    for (size_t i = 0; i < want.size(); ++i)
        if (got[i] != want[i]) {
            ADD_FAILURE() << "first difference at pixel " << i << ": got " << std::hex << got[i] << ", want "
                          << want[i];
            return;
        }
}

int quarterSkip(int n) { return (n % 4 == 2 || n % 4 == 3) ? 1 : 0; }

Image refQuart(const Image& in, int w, int h)
{
    const int sy = quarterSkip(h), sx = quarterSkip(w);
    Image out;
    for (int k = 0; k < (h >> 2); ++k)
        for (int j = 0; j < (w >> 2); ++j)
            out.push_back(perLane([&](int c) {
                auto line = [&](int y) {
                    auto p = [&](int x) { return laneOf(in[(sy + 4 * k + y) * w + sx + 4 * j + x], c); };
                    return refAverage(refAverage(p(0), p(1)), refAverage(p(2), p(3)));
                };
                return refAverage(refAverage(line(0), line(1)), refAverage(line(2), line(3)));
            }));
    return out;
}

Image refMean(const Image& in, int w, int outW, int outH, int sy, int sx, int block,
              const std::function<int(int)>& column, unsigned divisor)
{
    Image out;
    for (int k = 0; k < outH; ++k)
        for (int j = 0; j < outW; ++j)
            out.push_back(perLane([&](int c) {
                unsigned sum = 0;
                for (int y = 0; y < block; ++y)
                    for (int x = 0; x < block; ++x)
                        sum += laneOf(in[(sy + block * k + y) * w + sx + column(j) + x], c);
                return sum / divisor;
            }));
    return out;
}

// 24-bit half reductions: the word path averages vertically then
// horizontally; the byte path takes the rounded mean of the four.
std::vector<unsigned char> refHalf24(const unsigned char* in, int w, int h, bool wordPath)
{
    std::vector<unsigned char> out;
    for (int k = 0; k < h / 2; ++k)
        for (int j = 0; j < w / 2; ++j)
            for (int c = 0; c < 3; ++c) {
                auto p = [&](int y, int x) { return unsigned(in[((2 * k + y) * w + 2 * j + x) * 3 + c]); };
                out.push_back(static_cast<unsigned char>(
                    wordPath ? refAverage(refAverage(p(0, 0), p(1, 0)), refAverage(p(0, 1), p(1, 1)))
                             : (p(0, 0) + p(0, 1) + p(1, 0) + p(1, 1) + 2) >> 2));
            }
    return out;
}

// A pixel that names its own place: lanes x low, x high, y, 0x5A.
uint32_t placeWord(int x, int y) { return wordOfBytes(x & 0xFF, x >> 8, y & 0xFF, 0x5A); }

} // namespace

// ---------------------------------------------------------------------------

TEST(LaneRules, AverageRoundsTheEarlierOperandUpAndBlendWeighsAQuarter)
{
    quart q;
    // Pairs (3, 0) and (0, 3): the left pixel, or the upper one, is earlier.
    Image pairs = {wordOfBytes(3, 0, 255, 254), wordOfBytes(0, 3, 255, 1)};
    Owned halfX(q.zoomtohalfX(pairs.data(), 2, 1)), halfY(q.zoomtohalfY(pairs.data(), 1, 2));
    EXPECT_EQ(bytesOfWord(halfX.words()[0]), (std::array<unsigned, 4>{2, 1, 255, 127}));
    EXPECT_EQ(halfY.words()[0], halfX.words()[0]);

    // Quarter-weight blends appear as d1 of an 8/9 group: blend(s1, s2).
    Image group(9, 0);
    group[1] = wordOfBytes(255, 1, 4, 7);
    group[2] = wordOfBytes(255, 0, 255, 3);
    Owned ntsc(q.correctNtscRatio(group.data(), 9, 1));
    EXPECT_EQ(bytesOfWord(ntsc.words()[1]), (std::array<unsigned, 4>{255, 1, 3 + 63, 6}));
}

TEST(QuarterReduction, Odd722x486ReadsFromLine1Pixel1)
{
    const int w = 722, h = 486;
    Image in = randomWords(size_t(w) * h, 1);
    quart q;
    Owned out(q.zoomtoquart(in.data(), w, h));
    Image want = refQuart(in, w, h);
    ASSERT_EQ(want.size(), 180u * 121u);
    expectSameWords(out.words(), want);
}

TEST(QuarterReduction, HalfAveragesLinesBeforeJoiningThem)
{
    const int w = 13, h = 7;
    Image in = randomWords(size_t(w) * h, 2);
    Image half;
    for (int k = 0; k < h / 2; ++k)
        for (int j = 0; j < w / 2; ++j)
            half.push_back(perLane([&](int c) {
                auto p = [&](int y, int x) { return laneOf(in[(2 * k + y) * w + 2 * j + x], c); };
                return refAverage(refAverage(p(0, 0), p(0, 1)), refAverage(p(1, 0), p(1, 1)));
            }));
    quart q;
    Owned a(q.zoomtohalf(in.data(), w, h));
    expectSameWords(a.words(), half);
}

TEST(QuarterReduction, NtscQuarterOn720x486)
{
    const int w = 720, h = 486;
    Image in = randomWords(size_t(w) * h, 3);
    quart q;
    Owned out(q.zoomtoquartNTSC(in.data(), w, h));
    Image want = refMean(in, w, 160, 121, 1, 0, 4, [](int j) { return 4 * j + (j >> 1); }, 16);
    expectSameWords(out.words(), want);
}

TEST(QuarterReduction, ThirdIsTheTruncatedMeanAfterItsSkip)
{
    Image nine(81, wordOfBytes(10, 10, 10, 10));
    nine[4 * 9 + 4] = wordOfBytes(10, 19, 10, 10);
    quart q;
    Owned out(q.zoomtothird(nine.data(), 9, 9));
    EXPECT_EQ(bytesOfWord(out.words()[4]), (std::array<unsigned, 4>{10, 11, 10, 10}));
    EXPECT_EQ(out.words()[0], wordOfBytes(10, 10, 10, 10));

    const int w = 11, h = 14; // 11 mod 3 = 2: one pixel skipped; 14 mod 3 = 2: one line
    Image in = randomWords(size_t(w) * h, 4);
    Owned r(q.zoomtothird(in.data(), w, h));
    expectSameWords(r.words(), refMean(in, w, 3, 4, 1, 1, 3, [](int j) { return 3 * j; }, 9));
}

// Grey pixels of level v; values chosen so that swapping the operands of any
// blend or lane average changes the result.
Image greys(std::vector<unsigned> levels)
{
    Image v;
    for (unsigned l : levels)
        v.push_back(l * 0x01010101u);
    return v;
}

TEST(AspectCorrection, NinePixelsToEight)
{
    quart q;
    Image group = greys({10, 40, 200, 7, 100, 33, 90, 250, 5});
    Owned g(q.correctNtscRatio(group.data(), 9, 1));
    expectSameWords(g.words(), greys({10, 40 - 10 + 50, 200 - 50 + 1, 4 + 50, 50 + 16, 90 - 22 + 8, 250 - 62 + 22, 5}));
    // 727 mod 9 = 7: three pixels skipped, the line ends with input pixel 722.
    Image placed;
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 727; ++x)
            placed.push_back(placeWord(x, y));
    Owned out(q.correctNtscRatio(placed.data(), 727, 2));
    EXPECT_EQ(out.words()[0], placeWord(3, 0));
    EXPECT_EQ(out.words()[639], placeWord(722, 0));
    EXPECT_EQ(out.words()[640], placeWord(3, 1));
}

TEST(AspectCorrection, ThreePixelsToFour)
{
    quart q;
    Image placed;
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 640; ++x)
            placed.push_back(placeWord(x, y));
    Owned out(q.scaleXFourThirds(placed.data(), 640, 2));
    EXPECT_EQ(out.words()[0], placeWord(0, 0));
    EXPECT_EQ(out.words()[851], placeWord(638, 0));
    EXPECT_EQ(out.words()[852], placeWord(0, 1));
    Owned skipped(q.scaleXFourThirds(placed.data(), 641, 1)); // 641 mod 3 = 2
    EXPECT_EQ(skipped.words()[0], placeWord(1, 0));

    Image groups = greys({10, 41, 200, 7, 100, 33});
    Owned g(q.scaleXFourThirds(groups.data(), 6, 1));
    expectSameWords(g.words(), greys({10, 41 - 10 + 2, 21 + 100, 200 - 50 + 1, 7, 100 - 25 + 1, 50 + 16, 33}));
}

TEST(Half24, WordPathOnlyForWholeRunsOnAlignedData)
{
    quart q;
    const int h = 4;
    for (int w : {720, 722}) {
        std::vector<unsigned char> in = randomBytes(size_t(3) * w * h, 7);
        Owned out(q.zoomtohalf24(reinterpret_cast<uint32_t*>(in.data()), w, h));
        std::vector<unsigned char> want = refHalf24(in.data(), w, h, w == 720);
        EXPECT_EQ(0, std::memcmp(out.bytes(), want.data(), want.size())) << "width " << w;
    }
    // Same width 720 one byte off alignment: the byte path.
    std::vector<unsigned char> shifted = randomBytes(size_t(3) * 720 * h + 1, 8);
    Owned odd(q.zoomtohalf24(reinterpret_cast<uint32_t*>(shifted.data() + 1), 720, h));
    std::vector<unsigned char> want = refHalf24(shifted.data() + 1, 720, h, false);
    EXPECT_EQ(0, std::memcmp(odd.bytes(), want.data(), want.size()));

    // A block whose blue bytes are 0, 1 (upper line), 2, 3 (lower line) on
    // the byte path: (0 + 1 + 2 + 3 + 2) >> 2 = 2.
    std::vector<unsigned char> block(size_t(3) * 722 * 2, 0);
    block[0] = 0, block[3] = 1, block[3 * 722] = 2, block[3 * 722 + 3] = 3;
    Owned b(q.zoomtohalf24(reinterpret_cast<uint32_t*>(block.data()), 722, 2));
    EXPECT_EQ(b.bytes()[0], 2);
}

TEST(Half24, QuarterSkipsOneLineWhenTwoAreLeftOver)
{
    const int w = 16, h = 10; // 10 mod 4 = 2: lines 1 to 8 are used
    std::vector<unsigned char> in(size_t(3) * w * h, 40);
    for (int x = 0; x < 3 * w; ++x)
        in[x] = in[size_t(3) * w * (h - 1) + x] = 255;
    quart q;
    Owned out(q.zoomtoquart24(reinterpret_cast<uint32_t*>(in.data()), w, h));
    for (int i = 0; i < 3 * 4 * 2; ++i)
        ASSERT_EQ(out.bytes()[i], 40) << "byte " << i;
}

TEST(Enlargement, RepeatsEachPixelInARatioBlock)
{
    Image in = {placeWord(0, 0), placeWord(1, 0), placeWord(2, 0), placeWord(0, 1), placeWord(1, 1), placeWord(2, 1)};
    quart q;
    for (int r : {2, 4}) {
        Owned out(q.zoomUp(in.data(), 3, 2, r));
        for (int y = 0; y < 2 * r; ++y)
            for (int x = 0; x < 3 * r; ++x)
                ASSERT_EQ(out.words()[y * 3 * r + x], placeWord(x / r, y / r)) << r << ": " << x << "," << y;
    }
    testing::internal::CaptureStdout();
    uint32_t* none = q.zoomUp(in.data(), 3, 2, 3);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "zoomUp error: ratio 3 not implemented\n");
    EXPECT_EQ(none, nullptr);
}

TEST(Repacking, TwentyFourToThirtyTwoAndBack)
{
    std::vector<unsigned char> rgb = randomBytes(3 * 8 * 3, 10);
    quart q;
    Owned wide(q.pass24to32(rgb.data(), 8, 3));
    EXPECT_EQ(bytesOfWord(wide.words()[1]), (std::array<unsigned, 4>{255, rgb[3], rgb[4], rgb[5]}));
    Owned back(q.pass32to24(wide.words(), 8, 3));
    EXPECT_EQ(0, std::memcmp(back.bytes(), rgb.data(), rgb.size()));

    // 7 pixels: the last three are outside the groups of four and come out 0.
    Owned tail32(q.pass24to32(rgb.data(), 7, 1));
    EXPECT_EQ(tail32.words()[3], wordOfBytes(255, rgb[9], rgb[10], rgb[11]));
    for (int i = 4; i < 7; ++i)
        EXPECT_EQ(tail32.words()[i], 0u);
    Owned tail24(q.pass32to24(wide.words(), 7, 1));
    EXPECT_EQ(0, std::memcmp(tail24.bytes(), rgb.data(), 12));
    for (int i = 12; i < 21; ++i)
        EXPECT_EQ(tail24.bytes()[i], 0);
}

TEST(Repacking, MatteMiddleByteBecomesAlpha)
{
    Image img = {wordOfBytes(1, 2, 3, 4), wordOfBytes(5, 6, 7, 8)};
    std::vector<unsigned char> matte = {9, 100, 9, 9, 200, 9};
    quart q;
    q.linkImgWithAlpha(img.data(), matte.data(), 2, 1);
    EXPECT_EQ(img[0], wordOfBytes(100, 2, 3, 4));
    EXPECT_EQ(img[1], wordOfBytes(200, 6, 7, 8));
}

TEST(Allocation, ImpossibleSizesGiveNullNotACrash)
{
    Image in(16, 0);
    quart q;
    EXPECT_EQ(q.zoomtohalf(in.data(), 100000, 100000), nullptr);
    EXPECT_EQ(q.correctNtscRatio(in.data(), 90000, 90000), nullptr);
    EXPECT_EQ(q.zoomUp(in.data(), 40000, 40000, 4), nullptr);
    EXPECT_EQ(q.pass24to32(reinterpret_cast<unsigned char*>(in.data()), 60000, 60000), nullptr);
    EXPECT_EQ(q.zoomtoquart(nullptr, 8, 8), nullptr);

    // Too small for one output pixel: an empty image, nothing read.
    Owned empty(q.zoomtoquart(in.data(), 3, 3));
    EXPECT_NE(empty.p, nullptr);
}
