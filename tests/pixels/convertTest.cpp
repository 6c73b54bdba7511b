#include <cstdint>
#include <random>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "convert/Convert.h"
#include "pixelTestUtil.h"

namespace {

struct Source {
    int a;  // line that gets weight 256 - w
    int b;  // next line of the same field (frame), weight w
    int w;
};

// The line map written out plainly, each single-precision step forced
// through a volatile so that no step is fused with the next.
Source mapLine(int y, int hin, int hout, bool field)
{
    volatile float r = static_cast<float>(hin) / static_cast<float>(hout);
    const int m = field ? y >> 1 : y;
    const float offset = field ? ((y & 1) ? 0.5f : -0.5f) : 0.0f;
    const int parity = field && !(y & 1) ? 1 : 0;
    const int step = field ? 2 : 1;
    const int last = field ? (hin >> 1) - 1 : hin - 1;
    volatile float product = static_cast<float>(m) * r;
    volatile float pos = product + offset;
    int j = static_cast<int>(pos);
    volatile float fraction = pos - static_cast<float>(j);
    volatile float scaled = fraction * 256.0f;
    int w = static_cast<int>(scaled);
    if (j < 0)
        j = 0, w = 0;
    if (j >= last)
        j = last, w = 0;
    w = w < 0 ? 0 : (w > 256 ? 256 : w);
    return {step * j + parity, step * j + parity + step, w};
}

struct Frame {
    int width;
    int lines;
    std::vector<uint32_t> words;
    uint32_t* line(int n) { return words.data() + static_cast<std::size_t>(n) * (width >> 1); }
};

Frame randomFrame(std::mt19937& rng, int width, int lines)
{
    return {width, lines, randomWords(rng, static_cast<std::size_t>(lines) * (width >> 1))};
}

std::vector<uint32_t> convertFrame(Frame& in, int hout, float flag)
{
    Convert converter(in.width, hout, 1, &flag);
    std::vector<uint32_t> out(static_cast<std::size_t>(hout) * (in.width >> 1), 0xCDCDCDCDu);
    converter.DoConvert(in.words.data(), in.lines, out.data());
    return out;
}

// Every output line is the blend the map names, lane by lane.
void expectFollowsMap(Frame& in, const std::vector<uint32_t>& out, int hout, bool field)
{
    const int L = in.width >> 1;
    for (int y = 0; y < hout; ++y) {
        const Source s = mapLine(y, in.lines, hout, field);
        for (int i = 0; i < L; ++i) {
            const uint32_t want = s.w == 0 ? in.line(s.a)[i] : blendLanes(in.line(s.b)[i], in.line(s.a)[i], s.w);
            ASSERT_EQ(out[static_cast<std::size_t>(y) * L + i], want) << "line " << y << " word " << i;
        }
    }
}

using ConvertBoth = BothPaths;

TEST(LineMap, PalToNtscFieldModeTable)
{
    const Source head[] = {{1, 3, 0},   {0, 2, 128}, {1, 3, 175}, {2, 4, 175},
                           {3, 5, 222}, {4, 6, 222}, {7, 9, 14},  {8, 10, 14}};
    for (int y = 0; y < 8; ++y) {
        const Source s = mapLine(y, 576, 486, true);
        EXPECT_EQ(s.a, head[y].a) << y;
        EXPECT_EQ(s.w, head[y].w) << y;
    }
    const Source tail[] = {{571, 573, 33}, {572, 574, 33}, {573, 575, 80}, {574, 576, 0}};
    for (int y = 482; y < 486; ++y) {
        const Source s = mapLine(y, 576, 486, true);
        EXPECT_EQ(s.a, tail[y - 482].a) << y;
        EXPECT_EQ(s.w, tail[y - 482].w) << y;
    }
    std::set<int> weights;
    for (int y = 0; y < 486; ++y)
        weights.insert(mapLine(y, 576, 486, true).w);
    EXPECT_EQ(weights, (std::set<int>{0, 4, 14, 23, 33, 42, 52, 61, 71, 80, 90, 99, 109, 118,
                                      128, 137, 146, 156, 165, 175, 184, 194, 203, 213, 222, 232, 241, 251}));

    EXPECT_EQ(mapLine(0, 576, 486, false).w, 0);
    EXPECT_EQ(mapLine(1, 576, 486, false).a, 1);
    EXPECT_EQ(mapLine(1, 576, 486, false).w, 47);
    EXPECT_EQ(mapLine(2, 576, 486, false).w, 94);
    EXPECT_EQ(mapLine(485, 576, 486, false).a, 574);
    EXPECT_EQ(mapLine(485, 576, 486, false).w, 208);
}

// PAL to NTSC, heights where a fused multiply-add would move whole lines,
// 486 to 486 (not a copy), odd widths, odd heights and sizes that only just
// have a line per field: every output line is the blend the map names.
TEST_P(ConvertBoth, OutputFollowsTheMapInBothModes)
{
    std::mt19937 rng(11);
    const int sizes[][3] = {{720, 576, 486}, {720, 45, 486}, {720, 567, 486}, {46, 486, 486}, {19, 577, 486},
                            {10, 2, 5},     {8, 3, 7},       {16, 1000, 37}, {722, 576, 480}};
    for (const auto& size : sizes) {
        Frame in = randomFrame(rng, size[0], size[1]);
        SCOPED_TRACE(::testing::Message() << size[0] << "x" << size[1] << " to " << size[2]);
        expectFollowsMap(in, convertFrame(in, size[2], 1.0f), size[2], true);
        expectFollowsMap(in, convertFrame(in, size[2], 0.0f), size[2], false);
    }
}

TEST_P(ConvertBoth, FieldsStaySeparate)
{
    std::mt19937 rng(3);
    Frame in = randomFrame(rng, 64, 576);
    const std::vector<uint32_t> before = convertFrame(in, 486, 1.0f);
    for (int changedParity = 0; changedParity < 2; ++changedParity) {
        Frame changed = in;
        for (int n = changedParity; n < 576; n += 2)
            for (int i = 0; i < 32; ++i)
                changed.line(n)[i] ^= 0x5A5A5A5Au;
        const std::vector<uint32_t> after = convertFrame(changed, 486, 1.0f);
        // Even output lines come from the odd field, odd ones from the even field.
        for (int y = changedParity; y < 486; y += 2)
            for (int i = 0; i < 32; ++i)
                ASSERT_EQ(after[y * 32 + i], before[y * 32 + i]) << "line " << y;
    }
}

TEST_P(ConvertBoth, FlagIsReadAtEveryFrame)
{
    std::mt19937 rng(5);
    Frame in = randomFrame(rng, 32, 60);
    float flag = 1.0f;
    Convert converter(32, 50, 1, &flag);
    std::vector<uint32_t> out(50 * 16);
    converter.DoConvert(in.words.data(), 60, out.data());
    expectFollowsMap(in, out, 50, true);
    flag = 0.7f;  // truncates to 0: frame mode
    converter.DoConvert(in.words.data(), 60, out.data());
    expectFollowsMap(in, out, 50, false);
    flag = -1.5f;
    converter.DoConvert(in.words.data(), 60, out.data());
    expectFollowsMap(in, out, 50, true);
}

// Too short for the mode: the output is left as it was and the input is not
// touched (a null input would crash on any read).
TEST_P(ConvertBoth, TooFewInputLinesAreRefused)
{
    std::vector<uint32_t> out(8 * 4, 0x11111111u);
    float field = 1.0f, frame = 0.0f;
    Convert fieldConverter(8, 8, 1, &field), frameConverter(8, 8, 1, &frame);
    fieldConverter.DoConvert(nullptr, 1, out.data());
    fieldConverter.DoConvert(nullptr, 0, out.data());
    frameConverter.DoConvert(nullptr, 0, out.data());
    frameConverter.DoConvert(nullptr, -3, out.data());
    EXPECT_EQ(out, std::vector<uint32_t>(32, 0x11111111u));
}

INSTANTIATE_TEST_SUITE_P(Paths, ConvertBoth, allPaths, pathName);

} // namespace
