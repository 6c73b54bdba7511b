// vclip's streams: pipes through standard input and output, 'vclip ntsc'
// frame for frame against the converter, and FFmpeg as the client of what
// vclip writes, down to the field order a deinterlacer follows.
#include <cstdio>

#include "tests/run/vclipInProcess.h"

namespace {

using namespace run;

// A shell script run with $V and $P set to vclip and pal2ntsc.
RunResult Sh(const std::string& script)
{
    return Run("/bin/sh", {"-c", "V=" VCLIP_BIN " P=" PAL2NTSC_BIN " && " + script});
}

// The frames of a stream: everything after its header line.
std::string FramesOf(const std::string& stream) { return stream.substr(stream.find('\n') + 1); }

TEST(VclipStream, NtscIsTheConverterFrameForFrameThroughPipes)
{
    // Random pictures 724 wide: every pixel kernel path, a width no vector
    // divides.
    ScratchDir d;
    ClipHeader h = Header(3, 724, 576);
    WriteClip(d / "pal.clip", h, 41);
    ASSERT_EQ(Tool({"-P", d / "pal.clip", "-N", d / "ntsc.clip"}).status, 0);
    const std::string piped = d / "piped.y4m", exported = d / "exported.y4m";
    const RunResult run = Sh("$V export " + d / "pal.clip" + " --y4m - | $V ntsc - - > " + piped + " && $V export " +
                             d / "ntsc.clip" + " --y4m " + exported);
    ASSERT_EQ(run.status, 0) << run.err;
    const std::string stream = ReadFile(piped);
    EXPECT_EQ(stream.substr(0, stream.find('\n') + 1), "YUV4MPEG2 W724 H486 F25:1 Ib A0:0 C422\n");
    EXPECT_TRUE(FramesOf(stream) == FramesOf(ReadFile(exported)));

    // Back in through standard input, byte for byte the converter's clip.
    ASSERT_EQ(Sh("$V import --y4m - " + d / "back.clip" + " < " + exported).status, 0);
    const int64_t slot = Slot(Header(3, 724, 486));
    EXPECT_TRUE(ReadFile(d / "back.clip").substr(size_t(slot)) == ReadFile(d / "ntsc.clip").substr(size_t(slot)));

    // The field order follows the lines: It in, Ib out, and the other way.
    for (const auto& [in, out] : {std::pair<char, char>{'t', 'b'}, {'b', 't'}, {'p', 'p'}}) {
        WriteFile(d / "s.y4m", std::string("YUV4MPEG2 W8 H4 F30000:1001 I") + in + " A10:11 C422\nFRAME\n" +
                                   std::string(64, '\x80'));
        const RunResult r = VclipInProcess({"ntsc", d / "s.y4m", "-"});
        EXPECT_EQ(r.out.substr(0, r.out.find('\n')),
                  std::string("YUV4MPEG2 W8 H486 F30000:1001 I") + out + " A10:11 C422");
    }
    // A stream cut short leaves no output behind.
    const RunResult cut = Sh("head -c 900000 " + exported + " | $V ntsc - " + d / "cut.y4m");
    EXPECT_EQ(cut.status, 1);
    EXPECT_NE(cut.err.find("vclip: standard input: frame 1: cut short"), std::string::npos) << cut.err;
    EXPECT_FALSE(std::filesystem::exists(d / "cut.y4m"));
}

// Mean column of the bright pixels (the test box) in lines 200 to 280 of
// each frame of a raw 8-bit picture stream.
std::vector<double> BoxCentres(const std::string& gray, int width, int height)
{
    std::vector<double> centres;
    const size_t frame = size_t(width) * height;
    for (size_t at = 0; at + frame <= gray.size(); at += frame) {
        double sum = 0, count = 0;
        for (int y = 200; y < 280; ++y)
            for (int x = 0; x < width; ++x)
                if (uint8_t(gray[at + size_t(y) * width + x]) > 225) {
                    sum += x;
                    ++count;
                }
        centres.push_back(count > 0 ? sum / count : -1);
    }
    return centres;
}

bool Increasing(const std::vector<double>& values)
{
    for (size_t i = 1; i < values.size(); ++i)
        if (!(values[i] > values[i - 1]))
            return false;
    return values.size() > 1;
}

TEST(VclipFfmpeg, StreamsDecodeAndTheConvertedFieldOrderHolds)
{
    if (Missing("ffmpeg") || Missing("ffprobe"))
        GTEST_SKIP() << "ffmpeg not installed";
    ScratchDir d;
    const std::string pal = d / "pal.clip", ntsc = d / "ntsc.clip";
    // In from FFmpeg through a pipe, with its rate and field order.
    RunResult r = Sh("ffmpeg -v error -f lavfi -i testsrc=size=720x576:rate=25 -frames:v 6 -vf setfield=tff "
                     "-pix_fmt yuv422p -f yuv4mpegpipe - | $V import --y4m - " +
                     d / "in.clip");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(VclipInProcess({"info", d / "in.clip"}).out.find("rate:         25\ninterlacing:  1\n"),
              std::string::npos);
    r = Sh("ffmpeg -v error -f lavfi -i testsrc=size=64x32 -frames:v 1 -pix_fmt yuv420p -f yuv4mpegpipe - | $V import "
           "--y4m - " +
           d / "x.clip");
    EXPECT_NE(r.err.find("C420jpeg: only 8-bit 4:2:2 (C422) is taken; FFmpeg writes it with -pix_fmt yuv422p"),
              std::string::npos)
        << r.err;

    // Out to FFmpeg: the converter's output tagged as it is, bottom field
    // first at the input's rate.
    ASSERT_EQ(VclipInProcess({"bars", pal, "--frames", "25"}).status, 0);
    ASSERT_EQ(Tool({"-P", pal, "-N", ntsc}).status, 0);
    const std::string out = "$V export " + ntsc + " --y4m - --rate 25 --field-order bff";
    r = Sh(out + " | ffprobe -v error -count_frames -show_entries "
                 "stream=width,height,r_frame_rate,field_order,nb_read_frames -of default=nw=1 -");
    EXPECT_EQ(r.out, "width=720\nheight=486\nfield_order=bb\nr_frame_rate=25/1\nnb_read_frames=25\n") << r.err;
    r = Sh(out + " | ffmpeg -f yuv4mpegpipe -i - -vf idet -f null - 2>&1 | grep 'Multi frame'");
    EXPECT_NE(r.out.find("TFF:     0 BFF:    25"), std::string::npos) << r.out;
    r = Sh("ffmpeg -v error -f lavfi -i testsrc=size=720x576:rate=25 -frames:v 2 -vf setsar=16/15 -pix_fmt yuv422p "
           "-f yuv4mpegpipe - | $V ntsc - - | ffprobe -v error -show_entries stream=sample_aspect_ratio "
           "-of default=nw=1 -");
    EXPECT_EQ(r.out, "sample_aspect_ratio=16:15\n") << r.err;

    // A deinterlacer moves the box on field by field in the order the tag
    // gives; the converter's output left tagged progressive goes back and
    // forth.
    const std::string raw = d / "fields.gray";
    for (const bool tagged : {true, false}) {
        r = Sh("$V export " + ntsc + " --y4m - --frames 0-5" + (tagged ? " --field-order bff" : "") +
               " | ffmpeg -v error -f yuv4mpegpipe -i - -vf yadif=mode=1 -f rawvideo -pix_fmt gray - > " + raw);
        ASSERT_EQ(r.status, 0) << r.err;
        const std::vector<double> centres = BoxCentres(ReadFile(raw), 720, 486);
        EXPECT_EQ(centres.size(), 12u);
        EXPECT_EQ(Increasing(centres), tagged) << ::testing::PrintToString(centres);
    }
}

}  // namespace
