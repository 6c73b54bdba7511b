// vclip, the store keeper's tool: test clips, information, import and export,
// and the files it writes checked field by field.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "runTestUtil.h"

#ifdef HAVE_ZLIB
#include <zlib.h>
#endif

namespace {

uint32_t big32(const std::string& s, size_t at)
{
    return uint32_t(uint8_t(s[at])) << 24 | uint32_t(uint8_t(s[at + 1])) << 16 |
           uint32_t(uint8_t(s[at + 2])) << 8 | uint8_t(s[at + 3]);
}

uint32_t little(const std::string& s, size_t at, int bytes)
{
    uint32_t v = 0;
    for (int i = bytes - 1; i >= 0; --i)
        v = v << 8 | uint8_t(s[at + i]);
    return v;
}

// Luma of pixel x, line y of a packed 4:2:2 picture.
int luma(const std::string& picture, int width, int x, int y)
{
    return uint8_t(picture[size_t(y) * width * 2 + (x / 2) * 4 + 1 + (x & 1) * 2]);
}

class Vclip : public testing::Test {
protected:
    ScratchDir dir;
};

TEST_F(Vclip, HelpAndUsageErrors)
{
    RunResult r = runVclip({"--help"});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("Usage: vclip COMMAND"), std::string::npos);
    for (const char* command : {"info", "bars", "import", "export"}) {
        r = runVclip({command, "--help"});
        EXPECT_EQ(r.status, 0) << command;
        EXPECT_EQ(r.out.rfind(std::string("Usage: vclip ") + command, 0), 0u) << r.out;
    }
    r = runVclip({"frobnicate"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "vclip: unknown command 'frobnicate'; see 'vclip --help'\n");
    r = runVclip({"bars", dir / "x.clip", "--colour", "red"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "vclip: unknown option --colour\n");
    r = runVclip({"bars", dir / "x.clip", "--width", "721"});
    EXPECT_EQ(r.status, 1);
    EXPECT_FALSE(exists(dir / "x.clip"));
}

TEST_F(Vclip, BarsClipWithFieldsThatDiffer)
{
    const std::string clip = dir / "bars.clip";
    RunResult r = runVclip({"bars", clip, "--frames", "3"});
    ASSERT_EQ(r.status, 0) << r.err;
    const ClipOnDisk bars = readClip(clip);
    EXPECT_EQ(bars.frames, 3);
    EXPECT_EQ(bars.width, 720);
    EXPECT_EQ(bars.height, 576);
    EXPECT_EQ(bars.packing, 1008);
    EXPECT_EQ(bars.rate, 25.0);
    EXPECT_EQ(bars.interlacing, 1);
    EXPECT_EQ(bars.replaceable, 1);
    EXPECT_EQ(bars.bytes.size(), size_t(bars.slot * 4));

    // Studio range everywhere; white 75% bar on the left.
    const std::string f0 = bars.Slot(0).substr(0, 720 * 576 * 2);
    for (size_t i = 1; i < f0.size(); i += 2)
        ASSERT_TRUE(uint8_t(f0[i]) >= 16 && uint8_t(f0[i]) <= 235) << i;
    EXPECT_EQ(luma(f0, 720, 50, 10), 180);
    // The box covers x = 2 in the even lines only, and moves on in frame 1.
    EXPECT_EQ(luma(f0, 720, 2, 250), 235);
    EXPECT_EQ(luma(f0, 720, 2, 251), 180);
    EXPECT_EQ(luma(f0, 720, 10, 251), 235);
    const std::string f1 = bars.Slot(1).substr(0, 720 * 576 * 2);
    EXPECT_EQ(luma(f1, 720, 2, 250), 180);
    EXPECT_EQ(luma(f1, 720, 16, 250), 235);

    r = runVclip({"info", clip});
    EXPECT_EQ(r.status, 0);
    for (const char* line : {"version:      3\n", "frames:       3\n", "block size:   4096\n",
                             "replaceable:  1\n", "width:        720\n", "height:       576\n",
                             "packing:      1008 (YUV 4:2:2)\n", "rate:         25\n",
                             "interlacing:  1\n", "frame slot:   831488\n", "data offset:  831488\n",
                             "file size:    3325952\n", "complete:     yes, all 3 frames present\n"})
        EXPECT_NE(r.out.find(line), std::string::npos) << line << r.out;
}

TEST_F(Vclip, WritesOnlyOverReplaceableClips)
{
    const std::string text = dir / "notes.txt", kept = dir / "kept.clip", old = dir / "old.clip";
    writeFile(text, "not a clip");
    ClipFields preserved{1, 16, 4};
    preserved.replaceable = 0;
    writeClip(kept, preserved, 1);
    const std::string keptBytes = readFile(kept);
    writeClip(old, ClipFields{1, 16, 4}, 1);

    RunResult r = runVclip({"bars", text, "--frames", "1"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("is not a clip file; it is left as it is"), std::string::npos) << r.err;
    EXPECT_EQ(readFile(text), "not a clip");
    r = runVclip({"bars", kept, "--frames", "1"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("is a preserved clip"), std::string::npos) << r.err;
    EXPECT_TRUE(readFile(kept) == keptBytes);
    r = runVclip({"bars", old, "--frames", "2", "--width", "32", "--height", "8"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(readClip(old).frames, 2);
    EXPECT_EQ(readClip(old).width, 32);

    // Importing a clip onto itself would empty the input while reading it.
    r = runVclip({"import", "--uyvy", old, "--width", "32", "--height", "8", old});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(readClip(old).frames, 2);
}

TEST_F(Vclip, TruncatedClipIsReportedAndItsMissingFramesNotExported)
{
    const std::string clip = dir / "cut.clip";
    const int64_t slot = slotBytes(720, 576, 1008);
    writeClip(clip, ClipFields{12}, 2, slot * 8 + 1000);
    RunResult r = runVclip({"info", clip});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("complete:     no, 7 of 12 frames present\n"), std::string::npos) << r.out;
    r = runVclip({"export", clip, "--frame", "6", "--image", dir / "six.ppm"});
    EXPECT_EQ(r.status, 0) << r.err;
    r = runVclip({"export", clip, "--frame", "7", "--image", dir / "seven.ppm"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "vclip: frame 7 is missing: the file is truncated\n");
    r = runVclip({"export", clip, "--frame", "12", "--image", dir / "twelve.ppm"});
    EXPECT_EQ(r.err, "vclip: frame 12 is not in the clip (it has 12 frames)\n");
    r = runVclip({"info", dir / "nothing.clip"});
    EXPECT_EQ(r.status, 1);
}

TEST_F(Vclip, Y4mImportAndExportRoundTrip)
{
    // 16x4 C422: a Y plane of 64 bytes, Cb and Cr planes of 32 each.
    std::string stream = "YUV4MPEG2 W16 H4 F30000:1001 It A0:0 C422\n";
    std::vector<std::string> planes;
    for (int f = 0; f < 3; ++f) {
        const auto bytes = randomPicture(128, 40 + f);
        planes.emplace_back(bytes.begin(), bytes.end());
        stream += "FRAME\n" + planes.back();
    }
    const std::string in = dir / "in.y4m", clip = dir / "y.clip", out = dir / "out.y4m";
    writeFile(in, stream);
    RunResult r = runVclip({"import", "--y4m", in, clip});
    ASSERT_EQ(r.status, 0) << r.err;
    const ClipOnDisk imported = readClip(clip);
    EXPECT_EQ(imported.frames, 3);
    EXPECT_EQ(imported.width, 16);
    EXPECT_EQ(imported.height, 4);
    EXPECT_EQ(imported.packing, 1008);
    EXPECT_NEAR(imported.rate, 30000.0 / 1001, 1e-9);
    EXPECT_EQ(imported.interlacing, 1);
    // Pixel pair 5 of frame 1: Cb, Y0, Cr, Y1 from the planes.
    const std::string packed = imported.Slot(1);
    const std::string pair5{planes[1][64 + 5], planes[1][10], planes[1][96 + 5], planes[1][11]};
    EXPECT_EQ(packed.substr(20, 4), pair5);

    r = runVclip({"export", clip, "--y4m", out});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(readFile(out) == stream);

    writeFile(in, "YUV4MPEG2 W16 H4 F25:1 C420jpeg\nFRAME\n" + std::string(96, '\x80'));
    r = runVclip({"import", "--y4m", in, dir / "bad.clip"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("only C422"), std::string::npos) << r.err;
    writeFile(in, "YUV4MPEG2 W16 H4 C422\nFRAME\n" + std::string(100, '\x80'));
    r = runVclip({"import", "--y4m", in, dir / "bad.clip"});
    EXPECT_EQ(r.status, 1);
    EXPECT_FALSE(exists(dir / "bad.clip"));
}

TEST_F(Vclip, RawImportConvertAndExport)
{
    const int frames = 3;
    const int64_t frame = 720 * 576 * 2;
    const auto raw = randomPicture(frame * frames, 99);
    const std::string rawPath = dir / "in.uyvy", pal = dir / "pal.clip", ntsc = dir / "ntsc.clip";
    writeFile(rawPath, std::string(raw.begin(), raw.end()));
    RunResult r = runVclip({"import", "--uyvy", rawPath, "--width", "720", "--height", "576", pal});
    ASSERT_EQ(r.status, 0) << r.err;
    r = runPal2ntsc({"-P", pal, "-N", ntsc});
    ASSERT_EQ(r.out, "PAL file: 3 frames [720x576]\n");
    const ClipOnDisk converted = readClip(ntsc);
    // NTSC line 0 is input line 1: the raw bytes went into the clip as they were.
    EXPECT_TRUE(converted.Slot(2).substr(0, 1440) ==
                std::string(raw.begin() + 2 * frame + 1440, raw.begin() + 2 * frame + 2880));

    r = runVclip({"export", ntsc, "--y4m", dir / "ntsc.y4m"});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string y4m = readFile(dir / "ntsc.y4m");
    const std::string header = "YUV4MPEG2 W720 H486 F25:1 Ip A0:0 C422\n";
    ASSERT_EQ(y4m.compare(0, header.size(), header), 0) << y4m.substr(0, 60);
    const size_t planes = 720 * 486 * 2;
    ASSERT_EQ(y4m.size(), header.size() + frames * (6 + planes));
    for (int f = 0; f < frames; ++f) {
        const size_t at = header.size() + f * (6 + planes);
        EXPECT_EQ(y4m.substr(at, 6), "FRAME\n");
        const std::string slot = converted.Slot(f);
        // Spot checks of every plane against the packed words.
        for (size_t pair : {size_t(0), size_t(1234), size_t(720 * 486 / 2 - 1)}) {
            EXPECT_EQ(y4m[at + 6 + 2 * pair], slot[4 * pair + 1]);
            EXPECT_EQ(y4m[at + 6 + 2 * pair + 1], slot[4 * pair + 3]);
            EXPECT_EQ(y4m[at + 6 + 720 * 486 + pair], slot[4 * pair]);
            EXPECT_EQ(y4m[at + 6 + 720 * 486 * 3 / 2 + pair], slot[4 * pair + 2]);
        }
    }

    const std::string before = readFile(ntsc);
    r = runVclip({"export", ntsc, "--y4m", ntsc});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(readFile(ntsc) == before);
}

TEST_F(Vclip, PngAndPpmOfA422Frame)
{
    // One line of four pixel pairs, twice: white and black, red, mid grey,
    // black and white.
    const std::string pairs = std::string("\x80\xEB\x80\x10", 4) + std::string("\x5A\x51\xF0\x51", 4) +
                              std::string("\x80\x7E\x80\x7E", 4) + std::string("\x80\x10\x80\xEB", 4);
    const std::string rawPath = dir / "in.uyvy", clip = dir / "c.clip";
    writeFile(rawPath, pairs + pairs);
    ASSERT_EQ(runVclip({"import", "--uyvy", rawPath, "--width", "8", "--height", "2", clip}).status, 0);
    const std::string rgbLine = std::string("\xFF\xFF\xFF\x00\x00\x00\xFF\x00\x00\xFF\x00\x00", 12) +
                                std::string("\x80\x80\x80\x80\x80\x80\x00\x00\x00\xFF\xFF\xFF", 12);

    RunResult r = runVclip({"export", clip, "--frame", "0", "--image", dir / "f.ppm"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(readFile(dir / "f.ppm"), "P6\n8 2\n255\n" + rgbLine + rgbLine);

    r = runVclip({"export", clip, "--frame", "0", "--image", dir / "f.PNG"});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string png = readFile(dir / "f.PNG");
    ASSERT_EQ(png.substr(0, 8), std::string("\x89PNG\r\n\x1A\n", 8));
    std::string idat;
    std::vector<std::string> types;
    for (size_t at = 8; at + 12 <= png.size();) {
        const uint32_t length = big32(png, at);
        types.push_back(png.substr(at + 4, 4));
        if (types.back() == "IHDR") {
            EXPECT_EQ(big32(png, at + 8), 8u);
            EXPECT_EQ(big32(png, at + 12), 2u);
            EXPECT_EQ(png.substr(at + 16, 5), std::string("\x08\x02\x00\x00\x00", 5));
        }
        if (types.back() == "IDAT")
            idat += png.substr(at + 8, length);
#ifdef HAVE_ZLIB
        const auto* chunk = reinterpret_cast<const Bytef*>(png.data() + at + 4);
        EXPECT_EQ(crc32(0, chunk, length + 4), big32(png, at + 8 + length)) << types.back();
#endif
        at += 12 + length;
    }
    EXPECT_EQ(types, (std::vector<std::string>{"IHDR", "IDAT", "IEND"}));
#ifdef HAVE_ZLIB
    std::string rows(2 * (1 + 24), '\0');
    uLongf size = rows.size();
    ASSERT_EQ(uncompress(reinterpret_cast<Bytef*>(rows.data()), &size,
                         reinterpret_cast<const Bytef*>(idat.data()), idat.size()),
              Z_OK);
    EXPECT_EQ(rows, std::string(1, '\0') + rgbLine + std::string(1, '\0') + rgbLine);
#else
    GTEST_SKIP() << "no zlib to inflate the PNG with";
#endif
}

TEST_F(Vclip, BmpOfAReducedFrameKeepsItsRowsAndPadsThem)
{
    // 724 pixels reduce to 181: rows of 543 bytes, padded to 544 in the BMP.
    const std::string pal = dir / "pal.clip", ntsc = dir / "ntsc.clip", small = dir / "small.clip";
    writeClip(pal, ClipFields{2, 724, 576}, 8);
    ASSERT_EQ(runPal2ntsc({"-P", pal, "-N", ntsc, "-n", small}).out, "PAL file: 2 frames [724x576]\n");
    RunResult r = runVclip({"export", small, "--frame", "1", "--image", dir / "s.bmp"});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string bmp = readFile(dir / "s.bmp");
    ASSERT_EQ(bmp.size(), 54u + 544 * 121);
    EXPECT_EQ(bmp.substr(0, 2), "BM");
    EXPECT_EQ(little(bmp, 2, 4), bmp.size());
    EXPECT_EQ(little(bmp, 10, 4), 54u);
    EXPECT_EQ(little(bmp, 14, 4), 40u);
    EXPECT_EQ(little(bmp, 18, 4), 181u);
    EXPECT_EQ(little(bmp, 22, 4), 121u);
    EXPECT_EQ(little(bmp, 28, 2), 24u);
    const std::string frame = readClip(small).Slot(1);
    for (int row = 0; row < 121; ++row) {
        ASSERT_TRUE(bmp.substr(54 + row * 544, 543) == frame.substr(row * 543, 543)) << row;
        ASSERT_EQ(bmp[54 + row * 544 + 543], '\0');
    }
    r = runVclip({"export", small, "--y4m", dir / "s.y4m"});
    EXPECT_EQ(r.status, 1);
    r = runVclip({"export", small, "--image", dir / "s.gif"});
    EXPECT_EQ(r.status, 1);
    EXPECT_FALSE(exists(dir / "s.gif"));
}

}  // namespace
