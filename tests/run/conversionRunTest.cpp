// The conversion run end to end: the built pal2ntsc on generated clips.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "image/quart.h"
#include "runTestUtil.h"
#include "tool/blockConvert.h"

namespace {

constexpr int kWidth = 720;
constexpr int kPalLines = 576;
constexpr int kNtscLines = 486;
constexpr int kLineBytes = kWidth * 2;
constexpr int64_t kNtscPicture = int64_t{kLineBytes} * kNtscLines;
constexpr uint32_t kSeed = 1000;

std::string line(const std::string& picture, int n) { return picture.substr(size_t(n) * kLineBytes, kLineBytes); }

std::string palPicture(int frame)
{
    const auto bytes = randomPicture(int64_t{kLineBytes} * kPalLines, kSeed + frame);
    return std::string(bytes.begin(), bytes.end());
}

// What the block converter makes of one PAL picture, and its reduction.
void expectedFrame(const std::string& pal, int scale, std::string& ntsc, std::string& reduced)
{
    std::vector<uint32_t> in(pal.size() / 4), out(kNtscPicture / 4), small(kNtscPicture / 4 + 1);
    std::memcpy(in.data(), pal.data(), pal.size());
    convert(in.data(), out.data(), small.data(), 1, kWidth, kPalLines, kNtscLines, scale,
            static_cast<int>(pal.size()), static_cast<int>(kNtscPicture), 0);
    ntsc.assign(reinterpret_cast<const char*>(out.data()), kNtscPicture);
    const int64_t smallBytes = int64_t{kWidth / scale} * 3 * (kNtscLines / scale);
    reduced.assign(reinterpret_cast<const char*>(small.data()), smallBytes);
}

class ConversionRun : public testing::Test {
protected:
    ScratchDir dir;
    std::string pal = dir / "pal.clip", ntsc = dir / "ntsc.clip", small = dir / "small.clip";

    void makeInput(int frames) { writeClip(pal, ClipFields{frames}, kSeed); }

    // Every NTSC frame (and reduced frame) in its slot, padding zero.
    void expectFrames(int frames, int scale, bool reducing)
    {
        const ClipOnDisk out = readClip(ntsc);
        // Space is reserved without changing the size; frames make it grow.
        EXPECT_EQ(out.bytes.size(), frames ? size_t(out.slot * (frames + 1)) : 44u);
        const ClipOnDisk red = reducing ? readClip(small) : ClipOnDisk{};
        for (int i = 0; i < frames; ++i) {
            SCOPED_TRACE("frame " + std::to_string(i));
            const std::string input = palPicture(i);
            std::string wantNtsc, wantReduced;
            expectedFrame(input, scale, wantNtsc, wantReduced);
            const std::string slot = out.Slot(i);
            ASSERT_EQ(slot.size(), size_t(out.slot));
            const std::string picture = slot.substr(0, kNtscPicture);
            // Anchors of the line map, independent of the converter code:
            // each field keeps its own lines, the first line of each field
            // and the last line come straight from the input.
            EXPECT_EQ(line(picture, 0), line(input, 1));
            std::string average(kLineBytes, '\0');
            for (int b = 0; b < kLineBytes; ++b)
                average[b] = char((uint8_t(input[b]) + uint8_t(input[2 * kLineBytes + b])) >> 1);
            EXPECT_EQ(line(picture, 1), average);
            EXPECT_EQ(line(picture, 485), line(input, 574));
            EXPECT_TRUE(picture == wantNtsc);
            EXPECT_EQ(slot.find_first_not_of('\0', kNtscPicture), std::string::npos) << "padding";
            if (reducing) {
                const std::string rslot = red.Slot(i);
                ASSERT_EQ(rslot.size(), size_t(red.slot));
                EXPECT_TRUE(rslot.substr(0, wantReduced.size()) == wantReduced);
                EXPECT_EQ(rslot.find_first_not_of('\0', wantReduced.size()), std::string::npos);
            }
        }
    }
};

// 720x576 frames take 831488-byte slots, so a block holds 5 frames: 10 is
// two full blocks, 12 adds a short block, 3 is only a short block.
class FrameCounts : public ConversionRun, public testing::WithParamInterface<int> {};

TEST_P(FrameCounts, EveryFrameConvertedAndReducedInItsSlot)
{
    const int frames = GetParam();
    makeInput(frames);
    const RunResult r = runPal2ntsc({"-P", pal, "-N", ntsc, "-n", small});
    EXPECT_EQ(r.out, "PAL file: " + std::to_string(frames) + " frames [720x576]\n");
    EXPECT_EQ(r.err, "");  // no progress line when stderr is not a terminal
    EXPECT_EQ(r.status, 0);

    const ClipOnDisk out = readClip(ntsc);
    EXPECT_EQ(out.magic, 0x000609CE);
    EXPECT_EQ(out.version, 3);
    EXPECT_EQ(out.frames, frames);
    EXPECT_EQ(out.blockSize, 4096);
    EXPECT_EQ(out.replaceable, 1);
    EXPECT_EQ(out.width, 720);
    EXPECT_EQ(out.height, 486);
    EXPECT_EQ(out.packing, 1008);
    EXPECT_EQ(out.rate, 0.0);
    EXPECT_EQ(out.interlacing, 0);
    const ClipOnDisk red = readClip(small);
    EXPECT_EQ(red.frames, frames);
    EXPECT_EQ(red.width, 180);
    EXPECT_EQ(red.height, 121);
    EXPECT_EQ(red.packing, 1000);
    EXPECT_EQ(red.bytes.size(), frames ? size_t(red.slot * (frames + 1)) : 44u);
    expectFrames(frames, 4, true);
}

INSTANTIATE_TEST_SUITE_P(Blocks, FrameCounts, testing::Values(10, 12, 3, 0));

TEST_F(ConversionRun, HalfScaleAndNoReducedClip)
{
    makeInput(6);
    RunResult r = runPal2ntsc({"-P", pal, "-N", ntsc, "-n", small, "-s", "2"});
    EXPECT_EQ(r.out, "PAL file: 6 frames [720x576]\n");
    const ClipOnDisk red = readClip(small);
    EXPECT_EQ(red.width, 360);
    EXPECT_EQ(red.height, 243);
    expectFrames(6, 2, true);

    // Without -n the scale is not used, whatever it is.
    std::remove(ntsc.c_str());
    std::remove(small.c_str());
    r = runPal2ntsc({"-P", pal, "-N", ntsc, "-s", "3"});
    EXPECT_EQ(r.out, "PAL file: 6 frames [720x576]\n");
    EXPECT_FALSE(exists(small));
    expectFrames(6, 4, false);
}

TEST_F(ConversionRun, ReplacedOutputsAreByteForByteTheSame)
{
    makeInput(7);
    runPal2ntsc({"-P", pal, "-N", ntsc, "-n", small});
    const std::string first = readFile(ntsc), firstSmall = readFile(small);
    // The second run replaces the clips it made the first time.
    const RunResult r = runPal2ntsc({"-P", pal, "-N", ntsc, "-n", small, "-a", "4096"});
    EXPECT_EQ(r.out, "PAL file: 7 frames [720x576]\n");
    EXPECT_TRUE(readFile(ntsc) == first);
    EXPECT_TRUE(readFile(small) == firstSmall);
}

TEST_F(ConversionRun, WriteFailureMidRunKeepsTheFramesBefore)
{
    makeInput(12);
    const std::string input = readFile(pal);
    // Room for the header slot and the first block of 5 NTSC frames, and a
    // few blocks of the second one.
    const int64_t slot = slotBytes(720, 486, 1008);
    const RunResult r = runPal2ntsc({"-P", pal, "-N", ntsc}, slot * 6 + 4096 * 10);
    EXPECT_EQ(r.out, "PAL file: 12 frames [720x576]\nUnable to save NTSC images\n");
    EXPECT_NE(r.err.find("File too large"), std::string::npos) << r.err;
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(readFile(pal) == input);
    const ClipOnDisk out = readClip(ntsc);
    EXPECT_EQ(out.frames, 12);  // the header counts what was asked for
    for (int i = 0; i < 5; ++i) {
        std::string want, unused;
        expectedFrame(palPicture(i), 4, want, unused);
        EXPECT_TRUE(out.Slot(i).substr(0, kNtscPicture) == want) << "frame " << i;
    }
}

}  // namespace
