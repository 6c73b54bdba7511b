// The line blend kernels, the line converter built on them and the block
// converter that runs the line converter and the reducers frame by frame.
#include <set>

#include "convert/Convert.h"
#include "convert/MixLine.h"
#include "convert/pixelKernels.h"
#include "image/quart.h"
#include "pixelTestUtil.h"
#include "tool/blockConvert.h"

namespace {

// A path wrongly left unselected would have its tests skipped, not failed.
TEST(KernelSelection, BestPathMatchesTheCpu)
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_cpu_init();
    bool avx512 = false;
#if defined(PAL2NTSC_AVX512_KERNELS)
    avx512 = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
             __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx2");
#endif
    EXPECT_EQ(bestKernelPath(), avx512                           ? KernelPath::avx512
                                : __builtin_cpu_supports("avx2") ? KernelPath::avx2
                                : __builtin_cpu_supports("sse2") ? KernelPath::sse2
                                                                 : KernelPath::reference);
#elif defined(__aarch64__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    EXPECT_EQ(bestKernelPath(), KernelPath::neon);
#else
    EXPECT_EQ(bestKernelPath(), KernelPath::reference);
#endif
}

// Hand-worked words, each repeated along a line long enough to reach the
// vector loops and their tails; rounding is always down. Weight 0 is a copy
// of the second line and never reads the first (null here).
TEST_P(KernelPaths, ExampleWords)
{
    const struct {
        int k;
        uint32_t first, second, want;
    } cases[] = {{0, 0x80108020, 0x10EB10EB, 0x10EB10EB},   {1, 0x80108020, 0x10EB10EB, 0x10EA10EA},
                 {64, 0x80108020, 0x10EB10EB, 0x2CB42CB8},  {128, 0x80108020, 0x10EB10EB, 0x487D4885},
                 {43, 0x80108020, 0x10EB10EB, 0x22C622C8},  {1, 0xFF00FF00, 0x00FF00FF, 0x00FE00FE},
                 {43, 0xFF00FF00, 0x00FF00FF, 0x2AD42AD4},  {64, 0xFF00FF00, 0x00FF00FF, 0x3FBF3FBF},
                 {128, 0xFF00FF00, 0x00FF00FF, 0x7F7F7F7F}, {1, 0x00FF0000, 0, 0},
                 {128, 0x00FF0000, 0, 0x007F0000},          {1, 0, 0x000000FF, 0x000000FE},
                 {128, 0, 0x000000FF, 0x0000007F},          {127, 0x01000000, 0, 0}};
    constexpr int words = 45;
    for (const auto& c : cases) {
        std::vector<uint32_t> first(words, wordOf(c.first)), second(words, wordOf(c.second)), out(words, 0);
        getMixLine(c.k)(c.k == 0 ? nullptr : first.data(), second.data(), out.data(), words);
        EXPECT_EQ(out, std::vector<uint32_t>(words, wordOf(c.want))) << "k " << c.k << " first " << std::hex << c.first;
    }
}

// Every weight, many lengths and start offsets, against the lane rule, for
// the plain and the streamed kernels (whose vector part starts at the first
// aligned word, so the offsets move it along). The inputs end exactly at the
// end of their allocations and the output sits between guard words, so any
// stray read or write is caught; 0 words writes nothing.
TEST_P(KernelPaths, EveryWeightMatchesTheLaneRule)
{
    std::mt19937 rng(2024);
    for (bool streamed : {false, true}) {
        for (int k = 0; k < mixLineWeights; ++k) {
            MixLineKernel* kernel = streamed ? pixelKernels().mixLineStreamed[std::size_t(k)] : getMixLine(k);
            for (int words : {0, 1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 33, 63, 360}) {
                const int offset = static_cast<int>(rng() % 8);
                std::vector<uint32_t> first = randomWords(rng, words + offset),
                                      second = randomWords(rng, words + offset);
                Guarded<> out(words + offset);
                kernel(first.data() + offset, second.data() + offset, out.data() + offset, words);
                pixelKernels().streamFence();
                ASSERT_TRUE(out.guardsIntact()) << "k " << k << " words " << words;
                for (int i = 0; i < words + offset; ++i)
                    ASSERT_EQ(out[i], i < offset ? Guarded<>::kSentinel : blendLanes(first[i], second[i], k))
                        << (streamed ? "streamed " : "") << "k " << k << " words " << words << " offset " << offset
                        << " index " << i;
            }
        }
    }
}

// The line map written out plainly, each single-precision step forced
// through a volatile so that no step is fused with the next. Gives the line
// that gets weight 256 - w and the weight w of the next line of its field
// (or frame).
std::pair<int, int> mapLine(int y, int hin, int hout, bool field)
{
    volatile float r = static_cast<float>(hin) / static_cast<float>(hout);
    const int step = field ? 2 : 1, parity = field && !(y & 1) ? 1 : 0;
    const int last = field ? (hin >> 1) - 1 : hin - 1;
    volatile float product = static_cast<float>(field ? y >> 1 : y) * r;
    volatile float pos = product + (field ? ((y & 1) ? 0.5f : -0.5f) : 0.0f);
    const int j = static_cast<int>(pos);
    volatile float scaled = (pos - static_cast<float>(j)) * 256.0f;
    const int w = (j < 0 || j >= last) ? 0 : std::clamp(static_cast<int>(scaled), 0, 256);
    return {step * std::clamp(j, 0, last) + parity, w};
}

TEST(LineMap, PalToNtscExamples)
{
    const struct {
        bool field;
        int y, a, w;
    } cases[] = {{true, 0, 1, 0},      {true, 1, 0, 128},    {true, 2, 1, 175},    {true, 3, 2, 175},
                 {true, 4, 3, 222},    {true, 5, 4, 222},    {true, 6, 7, 14},     {true, 7, 8, 14},
                 {true, 482, 571, 33}, {true, 483, 572, 33}, {true, 484, 573, 80}, {true, 485, 574, 0},
                 {false, 0, 0, 0},     {false, 1, 1, 47},    {false, 2, 2, 94},    {false, 485, 574, 208}};
    for (const auto& c : cases)
        EXPECT_EQ(mapLine(c.y, 576, 486, c.field), std::make_pair(c.a, c.w)) << c.y << (c.field ? " field" : " frame");
    std::set<int> weights;
    for (int y = 0; y < 486; ++y)
        weights.insert(mapLine(y, 576, 486, true).second);
    EXPECT_EQ(weights, (std::set<int>{0,   4,   14,  23,  33,  42,  52,  61,  71,  80,  90,  99,  109, 118,
                                      128, 137, 146, 156, 165, 175, 184, 194, 203, 213, 222, 232, 241, 251}));
}

// PAL to NTSC, heights where a fused multiply-add would move whole lines,
// 486 to 486 (not a copy), odd widths, odd heights and sizes that only just
// have a line per field. In field mode each line names two lines of one
// field, so this also shows that the fields never mix. The mode flag is read
// again at every frame: 0.7 truncates to 0 (frame mode), -1.5 to -1 (field).
TEST_P(KernelPaths, OutputFollowsTheMapInBothModes)
{
    std::mt19937 rng(11);
    const int sizes[][3] = {{720, 576, 486}, {720, 45, 486}, {720, 567, 486}, {46, 486, 486}, {19, 577, 486},
                            {10, 2, 5},      {8, 3, 7},      {16, 1000, 37},  {722, 576, 480}};
    for (const auto& size : sizes) {
        const int words = size[0] >> 1, hin = size[1], hout = size[2];
        std::vector<uint32_t> in = randomWords(rng, std::size_t(words) * hin), out(std::size_t(words) * hout);
        SCOPED_TRACE(::testing::Message() << size[0] << "x" << hin << " to " << hout);
        float flag = 1.0f;
        Convert converter(size[0], hout, 1, &flag);
        for (float mode : {1.0f, 0.7f, -1.5f}) {
            flag = mode;
            converter.DoConvert(in.data(), hin, out.data());
            const bool field = mode != 0.7f;
            for (int y = 0; y < hout; ++y) {  // each line the blend the map names
                const auto [line, w] = mapLine(y, hin, hout, field);
                const uint32_t *a = &in[std::size_t(line) * words], *b = a + (field ? 2 : 1) * words;
                for (int i = 0; i < words; ++i)
                    ASSERT_EQ(out[std::size_t(y) * words + i], w == 0 ? a[i] : blendLanes(b[i], a[i], w))
                        << (field ? "field" : "frame") << " line " << y << " word " << i;
            }
        }
    }
    // Too short for the mode: nothing is written and the input (null here)
    // is not read.
    Guarded<> untouched(8 * 4);
    const std::pair<float, int> tooShort[] = {{1.0f, 1}, {1.0f, 0}, {0.0f, 0}, {0.0f, -3}};
    for (auto [mode, lines] : tooShort)
        Convert(8, 8, 1, &mode).DoConvert(nullptr, lines, untouched.data());
    EXPECT_TRUE(untouched.unwritten(0, 32));
}

// Frames lie in block slots of any size, so the kernels get lines at any
// byte. Each kernel, reading and writing lines at every offset from a word
// boundary, gives the bytes it gives on aligned lines; the sanitizer build
// reports a word access that takes alignment for granted. 45 words a line,
// and a 60 x 8 frame (15 quarter pixels: 8 + 4 + 3; 30 half: 3 x 8 + 4 + 2),
// reach every vector loop and tail.
TEST_P(KernelPaths, KernelsTakeLinesAtAnyByte)
{
    const std::vector<unsigned char> first = randomBytes(4 * 45, 5), second = randomBytes(4 * 45, 6), line(4 * 45);
    const int offsets[][3] = {{0, 0, 0}, {1, 2, 3}, {3, 0, 1}, {2, 3, 2}, {0, 1, 0}};
    for (int k = 0; k < mixLineWeights; ++k) {
        std::vector<unsigned char> want;
        for (const auto& o : offsets) {
            Placed p(first, o[0]), q(second, o[1]), out(line, o[2]);
            getMixLine(k)(p.words(), q.words(), out.words(), 45);
            if (want.empty())
                want = out.bytes();
            ASSERT_EQ(out.bytes(), want) << "k " << k << " offsets " << o[0] << o[1] << o[2];
            Placed streamedOut(line, o[2]);
            pixelKernels().mixLineStreamed[std::size_t(k)](p.words(), q.words(), streamedOut.words(), 45);
            ASSERT_EQ(streamedOut.bytes(), want) << "streamed k " << k << " offsets " << o[0] << o[1] << o[2];
        }
    }
    const std::vector<unsigned char> frame = randomBytes(4 * 30 * 8, 7);
    for (bool quarter : {true, false}) {
        const auto reducer = quarter ? &quart::zoomYUVtoQuartRGB : &quart::zoomYUVtoHalfRGB;
        std::vector<unsigned char> want;
        for (int offset : {0, 1, 2, 3}) {
            Placed in(frame, offset), out(std::vector<unsigned char>(quarter ? 3 * 15 * 2 : 3 * 30 * 4), 3 - offset);
            quart q{};
            (q.*reducer)(in.words(), 60, 8, out.words());
            if (want.empty())
                want = out.bytes();
            ASSERT_EQ(out.bytes(), want) << (quarter ? "quarter" : "half") << " offset " << offset;
        }
    }
}

// With slots of 4k + 1 bytes, frames 1, 2 and 3 of a block start 1, 2 and 3
// bytes past a word boundary; each comes out, NTSC and reduced, as it does
// in slots of whole words.
TEST_P(KernelPaths, BlockSlotsOfAnySize)
{
    const int frames = 4, width = 92, palLines = 58, ntscLines = 49;
    const int palPicture = 2 * width * palLines, ntscPicture = 2 * width * ntscLines;
    const std::vector<unsigned char> pal = randomBytes(frames * palPicture, 12);
    for (int scale : {4, 2, 3}) {
        const int reducedPicture = scale == 3 ? 0 : 3 * (width / scale) * (ntscLines / scale);
        // The frames' NTSC and reduced pictures, made in slots `extra` bytes
        // longer than the pictures.
        auto pictures = [&](int extra) {
            const int palSlot = palPicture + extra, ntscSlot = ntscPicture + extra,
                      reducedSlot = reducedPicture + extra;
            std::vector<unsigned char> palBlock(frames * palSlot), ntsc(frames * ntscSlot),
                reduced(frames * reducedSlot), all;
            for (int i = 0; i < frames; ++i)
                std::copy_n(&pal[i * palPicture], palPicture, &palBlock[i * palSlot]);
            convert(palBlock.data(), ntsc.data(), scale == 3 ? nullptr : reduced.data(), frames, width, palLines,
                    ntscLines, scale, palSlot, ntscSlot, reducedSlot);
            for (int i = 0; i < frames; ++i) {
                all.insert(all.end(), ntsc.begin() + i * ntscSlot, ntsc.begin() + i * ntscSlot + ntscPicture);
                all.insert(all.end(), reduced.begin() + i * reducedSlot,
                           reduced.begin() + i * reducedSlot + reducedPicture);
            }
            return all;
        };
        EXPECT_TRUE(pictures(1) == pictures(4)) << "scale " << scale;
    }
}

// Every kernel-path test of the suite, from all its files, on every path
// this build and this CPU have (BestPathMatchesTheCpu checks that none is
// missing at the top).
std::vector<KernelPath> familyPaths()
{
    std::vector<KernelPath> paths;
    for (int p = 0; p < kernelPathCount; ++p)
        if (kernelPathAvailable(static_cast<KernelPath>(p)))
            paths.push_back(static_cast<KernelPath>(p));
    return paths;
}
INSTANTIATE_TEST_SUITE_P(Paths, KernelPaths, ::testing::ValuesIn(familyPaths()),
                         [](const auto& path) { return std::string(kernelPathName(path.param)); });

// Two frames a block, each slot longer than its picture: every slot must
// hold the NTSC frame and its reduction (made band by band, the same as the
// whole frame converted, then reduced) of its own input frame alone, at the
// start of the slot, the rest of the slot untouched. Scale 3 reduces nothing;
// no frames write nothing. On every path: those with streaming stores make
// each band in a buffer of its own, the others in the frame.
TEST_P(KernelPaths, BlockSlotsHoldTheirFramesConvertedThenReduced)
{
    std::mt19937 rng(8);
    const int sizes[][3] = {{720, 576, 486}, {720, 576, 487}, {722, 300, 485}, {37, 100, 84}, {16, 20, 7}, {8, 8, 3}};
    for (const auto& [width, palLines, ntscLines] : sizes) {
        const std::size_t palSlot = 4 * std::size_t(width >> 1) * palLines + 64,
                          ntscPicture = 4 * std::size_t(width >> 1) * ntscLines;
        const std::size_t ntscSlot = ntscPicture + 68;
        std::vector<uint32_t> pal = randomWords(rng, palSlot / 2);
        for (int scale : {4, 2, 3}) {
            SCOPED_TRACE(::testing::Message() << width << "x" << palLines << " to " << ntscLines << " scale " << scale);
            const std::size_t reducedPicture = scale == 3 ? 0 : 3 * std::size_t(width / scale) * (ntscLines / scale),
                              reducedSlot = (reducedPicture + 23) / 4 * 4;
            Guarded<unsigned char> ntsc(2 * ntscSlot), reduced(2 * reducedSlot);
            convert(pal.data(), ntsc.data(), reduced.data(), 0, width, palLines, ntscLines, scale, int(palSlot),
                    int(ntscSlot), int(reducedSlot));
            ASSERT_TRUE(ntsc.unwritten(0, 2 * ntscSlot) && reduced.unwritten(0, 2 * reducedSlot));
            // Each slot as its own frame alone gives it, the rest unwritten.
            std::vector<unsigned char> wantNtsc = ntsc.contents(), wantReduced = reduced.contents();
            for (std::size_t i = 0; i < 2; ++i) {
                std::vector<uint32_t> ntscFrame(ntscPicture / 4), reducedFrame(reducedPicture / 4 + 1);
                float field = 1.0f;
                Convert(width, ntscLines, 1, &field).DoConvert(&pal[i * palSlot / 4], palLines, ntscFrame.data());
                quart q{};
                if (const auto reducer = scale == 4 ? &quart::zoomYUVtoQuartRGB : &quart::zoomYUVtoHalfRGB; scale != 3)
                    (q.*reducer)(ntscFrame.data(), width, ntscLines, reducedFrame.data());
                std::memcpy(&wantNtsc[i * ntscSlot], ntscFrame.data(), ntscPicture);
                std::memcpy(&wantReduced[i * reducedSlot], reducedFrame.data(), reducedPicture);
            }
            convert(pal.data(), ntsc.data(), reduced.data(), 2, width, palLines, ntscLines, scale, int(palSlot),
                    int(ntscSlot), int(reducedSlot));
            EXPECT_TRUE(ntsc.contents() == wantNtsc && reduced.contents() == wantReduced && ntsc.guardsIntact() &&
                        reduced.guardsIntact());
        }
    }
}

}  // namespace
