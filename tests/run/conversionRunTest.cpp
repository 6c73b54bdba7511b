// The conversion run end to end: the built pal2ntsc on generated clips.
#include <cstdlib>

#include "tests/run/runSupport.h"
#include "tool/blockConvert.h"

namespace {

using namespace run;

constexpr uint32_t kSeed = 1000;
constexpr size_t kLine = 720 * 2;
const ClipHeader kNtsc = Header(0, 720, 486);

std::string Line(const std::string& picture, int n) { return picture.substr(n * kLine, kLine); }

std::string Info(int frames) { return "PAL file: " + std::to_string(frames) + " frames [720x576]\n"; }

// A picture as it lies in its slot: followed by zero padding.
std::string Padded(const void* picture, const ClipHeader& h)
{
    return std::string(static_cast<const char*>(picture), size_t(Picture(h))).append(Slot(h) - Picture(h), '\0');
}

// Every NTSC and reduced frame in its slot, as the block converter makes it
// of the input frame.
void ExpectFrames(const std::string& ntsc, const std::string& reduced, int frames, int scale)
{
    const ClipHeader small = Header(0, 720 / scale, 486 / scale, 1000);
    EXPECT_EQ(ntsc.size(), frames ? size_t(Slot(kNtsc) * (frames + 1)) : 44u);
    EXPECT_EQ(reduced.size(), frames ? size_t(Slot(small) * (frames + 1)) : 44u);
    for (int i = 0; i < frames; ++i) {
        SCOPED_TRACE("frame " + std::to_string(i));
        std::string input = Random(720 * 576 * 2, kSeed + i);
        std::vector<uint32_t> out(Picture(kNtsc) / 4), red(out.size() + 1);
        convert(&input[0], out.data(), red.data(), 1, 720, 576, 486, scale, int(input.size()), int(Picture(kNtsc)), 0);
        const std::string slot = SlotOf(ntsc, Slot(kNtsc), i);
        EXPECT_TRUE(slot == Padded(out.data(), kNtsc));
        EXPECT_TRUE(SlotOf(reduced, Slot(small), i) == Padded(red.data(), small));
        // Anchors of the line map that do not depend on the converter: the
        // first line of each field and the last line.
        EXPECT_EQ(Line(slot, 0), Line(input, 1));
        std::string average(kLine, '\0');
        for (size_t b = 0; b < kLine; ++b)
            average[b] = char((uint8_t(input[b]) + uint8_t(input[2 * kLine + b])) >> 1);
        EXPECT_EQ(Line(slot, 1), average);
        EXPECT_EQ(Line(slot, 485), Line(input, 574));
    }
}

// 720x576 frames take 831488-byte slots, so a block holds 5 frames: 10 is two
// full blocks, 12 adds a short block, 3 is only a short block. The reduced
// copy is a quarter of the size unless -s says otherwise.
TEST(ConversionRun, FrameCountsAroundTheBlockAndScalesConvertedAndReproducible)
{
    for (auto [frames, scale] : {std::pair{10, "4"}, {12, ""}, {3, ""}, {0, ""}, {6, "2"}}) {
        SCOPED_TRACE(std::to_string(frames) + " frames, scale " + scale);
        ScratchDir dir;
        const std::string pal = dir / "pal.clip", ntsc = dir / "ntsc.clip", small = dir / "small.clip";
        const int by = *scale ? std::atoi(scale) : 4;
        std::vector<std::string> args{"-P", pal, "-N", ntsc, "-n", small};
        if (*scale)
            args.insert(args.end(), {"-s", scale});
        WriteClip(pal, Header(frames, 720, 576), kSeed);
        RunResult r = Tool(args);
        EXPECT_EQ(r.out, Info(frames));
        EXPECT_EQ(r.err, "");  // no progress line when stderr is not a terminal
        EXPECT_EQ(r.status, 0);
        const std::string first = ReadFile(ntsc), firstSmall = ReadFile(small);
        EXPECT_EQ(first.substr(0, 44), Encoded(Header(frames, 720, 486, 1008, 0.0, 0)));
        EXPECT_EQ(firstSmall.substr(0, 44), Encoded(Header(frames, 720 / by, 486 / by, 1000, 0.0, 0)));
        ExpectFrames(first, firstSmall, frames, by);
        // A second run replaces the clips of the first with the same bytes;
        // an alignment of 1 is raised to what direct transfers need.
        args.insert(args.end(), {"-a", "1"});
        r = Tool(args);
        EXPECT_EQ(r.out + r.err, Info(frames));
        EXPECT_TRUE(ReadFile(ntsc) == first);
        EXPECT_TRUE(ReadFile(small) == firstSmall);
    }
}

}  // namespace
