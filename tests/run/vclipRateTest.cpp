// vclip ntsc --rate: the stream at 30000/1001 frames a second, its header,
// its length, the field order it needs, and its reading and writing.
#include "tests/run/vclipInProcess.h"

namespace {

using namespace run;

// A stream of `frames` copies of one random 64 x 40 4:2:2 picture.
std::string stillStream(const std::string& interlacing, int frames)
{
    const std::string picture = Random(64 * 40 * 2, 3);
    std::string s = "YUV4MPEG2 W64 H40 F25:1 " + interlacing + " A1:1 C422\n";
    for (int i = 0; i < frames; ++i)
        s += "FRAME\n" + picture;
    return s;
}

TEST(VclipRate, StillStreamKeepsItsDurationAndItsPictures)
{
    ScratchDir dir;
    const std::string in = dir / "in.y4m", plain = dir / "plain.y4m", timed = dir / "timed.y4m";
    WriteFile(in, stillStream("It", 12));
    ASSERT_EQ(VclipInProcess({"ntsc", in, plain}).status, 0);
    ASSERT_EQ(VclipInProcess({"ntsc", in, timed, "--rate", "30000/1001"}).status, 0);
    const std::string header = "YUV4MPEG2 W64 H486 F30000:1001 Ib A1:1 C422\n";
    const std::string p = ReadFile(plain);
    const std::string frame = p.substr(p.find('\n') + 1, 6 + 64 * 486 * 2);
    std::string expected = header;
    // 12 frames at 25/s last as long as 14 at 30000/1001/s; a still picture
    // is its plain line conversion in every one.
    for (int i = 0; i < 14; ++i)
        expected += frame;
    EXPECT_TRUE(ReadFile(timed) == expected);
}

TEST(VclipRate, FieldOrderFromTheHeaderOrTheOption)
{
    ScratchDir dir;
    const std::string unknown = dir / "unknown.y4m", out = dir / "out.y4m";
    WriteFile(unknown, stillStream("I?", 3));
    const RunResult refused = VclipInProcess({"ntsc", unknown, out, "--rate", "30000/1001"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.err, "vclip: " + unknown +
                               ": the header gives no field order (I?); say --field-order tff, bff or progressive\n");
    EXPECT_FALSE(std::filesystem::exists(out));
    ASSERT_EQ(VclipInProcess({"ntsc", unknown, out, "--rate", "30000/1001", "--field-order", "bff"}).status, 0);
    EXPECT_EQ(ReadFile(out).substr(0, ReadFile(out).find('\n')), "YUV4MPEG2 W64 H486 F30000:1001 It A1:1 C422");
    EXPECT_EQ(VclipInProcess({"ntsc", unknown, dir / "x.y4m", "--field-order", "tff"}).err,
              "vclip: ntsc: --field-order goes with --rate\n");
    EXPECT_EQ(VclipInProcess({"ntsc", unknown, dir / "x.y4m", "--rate", "fast"}).status, 1);
}

// Read ahead and written behind the conversion, the stream still comes out
// whole to standard output, and a cut input still stops it with the reader's
// message and no output.
TEST(VclipRate, StreamsThroughThreadsAsThroughOne)
{
    ScratchDir dir;
    const std::string in = dir / "in.y4m", cut = dir / "cut.y4m", out = dir / "out.y4m";
    const std::string stream = stillStream("It", 9);
    WriteFile(in, stream);
    ASSERT_EQ(VclipInProcess({"ntsc", in, out, "--rate", "30000/1001"}).status, 0);
    const RunResult piped = VclipInProcess({"ntsc", in, "-", "--rate", "30000/1001"});
    EXPECT_EQ(piped.status, 0);
    EXPECT_TRUE(piped.out == ReadFile(out));
    WriteFile(cut, stream.substr(0, stream.size() - 1000));
    const RunResult r = VclipInProcess({"ntsc", cut, dir / "x.y4m", "--rate", "30000/1001"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "vclip: " + cut + ": frame 8: cut short: 4120 of its 5120 bytes are there\n");
    EXPECT_FALSE(std::filesystem::exists(dir / "x.y4m"));
}

}  // namespace
