// vclip, the store keeper's tool: test clips, information, import and export,
// and the files it writes checked field by field; its help texts against its
// options and its manual page.
#include <cctype>
#include <set>

#include "tests/run/vclipInProcess.h"
#include "tool/vclip/commands.h"

#ifdef HAVE_PNG
#include <png.h>
#endif

namespace {

using namespace run;

// An unsigned number of `bytes` at `at`, most or least significant byte first.
uint32_t Number(const std::string& s, size_t at, int bytes, bool big)
{
    uint32_t v = 0;
    for (int i = 0; i < bytes; ++i)
        v = v << 8 | uint8_t(s[at + (big ? i : bytes - 1 - i)]);
    return v;
}

TEST(Vclip, ArgumentsBarsInfoAndWhatItWritesOver)
{
    ScratchDir dir;
    const RunResult help = VclipInProcess({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out.rfind("Usage: vclip COMMAND", 0), 0u);
    // Arguments refused: the message alone, and no clip made.
    const std::string x = dir / "x.clip";
    const std::vector<std::pair<std::vector<std::string>, std::string>> refused = {
        {{"frobnicate"}, "unknown command 'frobnicate'; see 'vclip --help'"},
        {{"help", "nope"}, "unknown command 'nope'; see 'vclip --help'"},
        {{"help", "info", "bars"}, "help takes one command; see 'vclip --help'"},
        {{"bars", x, "--colour", "red"}, "unknown option --colour"},
        {{"bars", x, "--width", "721"}, "bad width '721' (an even number of pixels)"},
        {{"bars", "--force=1", x}, "option --force takes no value"},
        {{"bars", "--frames=", x}, "bad frame count ''"},
        {{"info", "--", "--help"}, "--help: No such file or directory"},
    };
    for (const auto& [args, message] : refused) {
        const RunResult r = VclipInProcess(args);
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, "vclip: " + message + "\n");
    }
    EXPECT_FALSE(std::filesystem::exists(x));

    const std::string clip = dir / "bars.clip";
    ASSERT_EQ(VclipInProcess({"bars", clip, "--frames", "3"}).status, 0);
    const std::string bars = ReadFile(clip);
    EXPECT_EQ(bars.substr(0, 44), Encoded(Header(3, 720, 576)));
    EXPECT_EQ(bars.size(), 831488u * 4);
    EXPECT_EQ(VclipInProcess({"info", clip}).out,
              "clip:         " + clip +
                  "\nversion:      3\nframes:       3\nblock size:   4096\n"
                  "replaceable:  1\nwidth:        720\nheight:       576\npacking:      1008 (YUV 4:2:2)\n"
                  "rate:         25\ninterlacing:  1\nframe slot:   831488\ndata offset:  831488\n"
                  "file size:    3325952\ncomplete:     yes, all 3 frames present\n");

    // "--name=value", and "--" before an operand that looks like an option.
    EXPECT_EQ(VclipInProcess({"bars", "--frames=1", "--width=32", "--height=8", "--", clip}).status, 0);
    EXPECT_EQ(ReadFile(clip).substr(0, 44), Encoded(Header(1, 32, 8)));
}

TEST(Vclip, Y4mImportAndExportRoundTrip)
{
    // 16x4 C422: a Y plane of 64 bytes, Cb and Cr planes of 32 each.
    const std::string stream = Y4mStream("YUV4MPEG2 W16 H4 F30000:1001 It A0:0 C422\n", 3, 16, 4, 40);
    ScratchDir dir;
    const std::string in = dir / "in.y4m", clip = dir / "y.clip", out = dir / "out.y4m";
    WriteFile(in, stream);
    ASSERT_EQ(VclipInProcess({"import", "--y4m", in, clip}).status, 0);
    const std::string imported = ReadFile(clip);
    EXPECT_EQ(imported.substr(0, 44), Encoded(Header(3, 16, 4, 1008, 30000.0 / 1001)));
    // Pixel pair 5 of frame 1: Cb, Y0, Cr, Y1 from the planes.
    const std::string y = Random(128, 41);
    EXPECT_EQ(SlotOf(imported, 4096, 1).substr(20, 4), (std::string{y[64 + 5], y[10], y[96 + 5], y[11]}));
    ASSERT_EQ(VclipInProcess({"export", clip, "--y4m", out}).status, 0);
    EXPECT_TRUE(ReadFile(out) == stream);
}

TEST(Vclip, RawImportConvertAndExport)
{
    // 724 pixels reduce to 181: rows of 543 bytes, padded to 544 in a BMP.
    const size_t frame = 724 * 576 * 2, line = 724 * 2, slot = size_t(Slot(Header(0, 724, 486)));
    ScratchDir dir;
    const std::string raw = Random(frame * 3, 99), rawPath = dir / "in.uyvy", pal = dir / "pal.clip";
    const std::string ntsc = dir / "ntsc.clip", small = dir / "small.clip";
    WriteFile(rawPath, raw);
    ASSERT_EQ(VclipInProcess({"import", "--uyvy", rawPath, "--width", "724", "--height", "576", pal}).status, 0);
    ASSERT_EQ(Tool({"-P", pal, "-N", ntsc, "-n", small}).out, "PAL file: 3 frames [724x576]\n");
    const std::string converted = ReadFile(ntsc);
    // NTSC line 0 is input line 1: the raw bytes went into the clip as they were.
    EXPECT_TRUE(SlotOf(converted, slot, 2).substr(0, line) == raw.substr(2 * frame + line, line));

    ASSERT_EQ(VclipInProcess({"export", ntsc, "--y4m", dir / "ntsc.y4m"}).status, 0);
    const std::string y4m = ReadFile(dir / "ntsc.y4m"), header = "YUV4MPEG2 W724 H486 F25:1 Ip A0:0 C422\n";
    EXPECT_EQ(y4m.substr(0, header.size()), header);
    EXPECT_EQ(y4m.size(), header.size() + 3 * (6 + 724 * 486 * 2));
    // Imported again, the frames are those of the NTSC clip.
    ASSERT_EQ(VclipInProcess({"import", "--y4m", dir / "ntsc.y4m", dir / "back.clip"}).status, 0);
    EXPECT_TRUE(ReadFile(dir / "back.clip").substr(slot) == converted.substr(slot));

    ASSERT_EQ(VclipInProcess({"export", small, "--frame", "1", "--image", dir / "s.bmp"}).status, 0);
    const std::string bmp = ReadFile(dir / "s.bmp");
    ASSERT_EQ(bmp.size(), 54u + 544 * 121);
    EXPECT_EQ(bmp.substr(0, 2), "BM");
    for (auto [at, bytes, value] : {std::tuple<int, int, uint32_t>{2, 4, 54 + 544 * 121},
                                    {10, 4, 54},
                                    {14, 4, 40},
                                    {18, 4, 181},
                                    {22, 4, 121},
                                    {28, 2, 24}})
        EXPECT_EQ(Number(bmp, at, bytes, false), value) << "offset " << at;
    const std::string reduced = SlotOf(ReadFile(small), Slot(Header(0, 181, 121, 1000)), 1);
    for (size_t row = 0; row < 121; ++row) {
        ASSERT_TRUE(bmp.substr(54 + row * 544, 543) == reduced.substr(row * 543, 543)) << row;
        ASSERT_EQ(bmp[54 + row * 544 + 543], '\0');
    }
}

TEST(Vclip, PpmAndPngImages)
{
    // One line of four pixel pairs, twice: white and black, red, mid grey,
    // black and white.
    const std::string pairs("\x80\xEB\x80\x10\x5A\x51\xF0\x51\x80\x7E\x80\x7E\x80\x10\x80\xEB", 16);
    const std::string rgb("\xFF\xFF\xFF\0\0\0\xFF\0\0\xFF\0\0\x80\x80\x80\x80\x80\x80\0\0\0\xFF\xFF\xFF", 24);
    ScratchDir dir;
    WriteFile(dir / "in.uyvy", pairs + pairs);
    ASSERT_EQ(
        VclipInProcess({"import", "--uyvy", dir / "in.uyvy", "--width", "8", "--height", "2", dir / "c.clip"}).status,
        0);
    ASSERT_EQ(VclipInProcess({"export", dir / "c.clip", "--frame", "0", "--image", dir / "f.ppm"}).status, 0);
    EXPECT_EQ(ReadFile(dir / "f.ppm"), "P6\n8 2\n255\n" + rgb + rgb);

    ASSERT_EQ(VclipInProcess({"export", dir / "c.clip", "--frame", "0", "--image", dir / "f.PNG"}).status, 0);
    const std::string png = ReadFile(dir / "f.PNG");
    ASSERT_EQ(png.substr(0, 8), std::string("\x89PNG\r\n\x1A\n", 8));
    EXPECT_EQ(png.substr(16, 13), std::string("\0\0\0\x08\0\0\0\x02\x08\x02\0\0\0", 13));  // 8x2, 8-bit RGB
#ifdef HAVE_PNG
    // Read back by libpng's own reader.
    png_image decoded{};
    decoded.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_memory(&decoded, png.data(), png.size()));
    decoded.format = PNG_FORMAT_RGB;
    std::string pixels(PNG_IMAGE_SIZE(decoded), '\0');
    ASSERT_TRUE(png_image_finish_read(&decoded, nullptr, &pixels[0], 0, nullptr));
    EXPECT_EQ(pixels, rgb + rgb);
#endif
}

// set changes the header's fields and nothing else; export carries them, or
// its own for one stream; a picture sequence takes a checked pattern.
TEST(Vclip, SetExportTagsAndPictureSequences)
{
    ScratchDir d;
    const std::string clip = d / "c.clip";
    WriteClip(clip, Header(3, 16, 4), 8);
    const std::string before = ReadFile(clip);
    ASSERT_EQ(VclipInProcess({"set", clip, "--rate=30000/1001", "--field-order", "bff"}).status, 0);
    std::string after = ReadFile(clip);
    EXPECT_EQ(after.substr(0, 44), Encoded(Header(3, 16, 4, 1008, 30000.0 / 1001, 2)));
    EXPECT_TRUE(after.substr(44) == before.substr(44));
    RunResult r = VclipInProcess({"export", clip, "--y4m", "-", "--frames", "1-2"});
    EXPECT_EQ(r.out.substr(0, r.out.find('\n')), "YUV4MPEG2 W16 H4 F30000:1001 Ib A0:0 C422");
    EXPECT_EQ(r.out.size(), r.out.find('\n') + 1 + 2 * (6 + 128));
    r = VclipInProcess({"export", clip, "--y4m", "-", "--rate", "25", "--field-order", "progressive"});
    EXPECT_EQ(r.out.substr(0, r.out.find('\n')), "YUV4MPEG2 W16 H4 F25:1 Ip A0:0 C422");

    // A preserved clip keeps its header until it is released.
    ASSERT_EQ(VclipInProcess({"set", clip, "--replaceable", "0"}).status, 0);
    after = ReadFile(clip);
    EXPECT_NE(VclipInProcess({"set", clip, "--rate", "25"}).err.find("is a preserved clip"), std::string::npos);
    EXPECT_TRUE(ReadFile(clip) == after);
    EXPECT_EQ(VclipInProcess({"set", clip, "--rate", "25", "--replaceable", "1"}).status, 0);

    ASSERT_EQ(VclipInProcess({"export", clip, "--frames", "1-2", "--image", d / "f%03d.ppm"}).status, 0);
    EXPECT_TRUE(std::filesystem::exists(d / "f001.ppm") && std::filesystem::exists(d / "f002.ppm"));
    WriteFile(d / "g1.ppm", "notes");  // the second name is taken: nothing is written
    for (const char* name : {"g%d.ppm", "g.ppm", "g%d%d.ppm", "g%s%d.ppm", "g%x.ppm", "g%100d.ppm"}) {
        r = VclipInProcess({"export", clip, "--frames", "0-1", "--image", d / name});
        EXPECT_EQ(r.status, 1) << name;
        EXPECT_FALSE(std::filesystem::exists(d / "g0.ppm")) << name;
    }
}

// The text of a manual page section, from its heading line to the next
// heading, with roff's escaped hyphens and font changes made plain.
std::string ManSection(const std::string& page, const std::string& heading)
{
    const size_t start = page.find("\n" + heading + "\n");
    if (start == std::string::npos)
        return "";
    size_t end = start + heading.size() + 2;
    while (end < page.size() && page.compare(end, 4, ".SS ") != 0 && page.compare(end, 4, ".SH ") != 0)
        end = page.find('\n', end) + 1;
    std::string plain;
    for (size_t at = start; at < end; ++at) {
        if (page.compare(at, 2, "\\-") == 0) {
            plain += '-';
            ++at;
        } else if (page.compare(at, 2, "\\f") == 0 && at + 2 < end) {
            at += 2;
        } else {
            plain += page[at];
        }
    }
    return plain;
}

// The names of the "--name" options a text mentions.
std::set<std::string> LongOptionsIn(const std::string& text)
{
    std::set<std::string> names;
    for (size_t at = text.find("--"); at != std::string::npos; at = text.find("--", at + 2)) {
        size_t end = at + 2;
        auto inName = [&](size_t i) {
            const auto c = static_cast<unsigned char>(text[i]);
            return std::islower(c) || std::isdigit(c) || (c == '-' && i + 1 < text.size() && text[i + 1] != '-');
        };
        while (end < text.size() && inName(end))
            ++end;
        if (end > at + 2)
            names.insert(text.substr(at + 2, end - at - 2));
    }
    return names;
}

// "vclip help COMMAND" is "vclip COMMAND --help"; each help text names every
// option its command takes, and the command's part of the manual page every
// option its help text names.
TEST(Vclip, HelpVersionAndManualPageSayTheSame)
{
    const std::string page = ReadFile(PAL2NTSC_SOURCE_DIR "/man/vclip.1");
    ASSERT_FALSE(page.empty());
    for (const Command& row : vclipCommands()) {
        const std::string command = row.name;
        SCOPED_TRACE(command);
        const RunResult help = VclipInProcess({"help", command}), asked = VclipInProcess({command, "--help"});
        EXPECT_EQ(help.status, 0);
        EXPECT_EQ(help.out.rfind("Usage: vclip " + command, 0), 0u) << help.out;
        EXPECT_EQ(help.out, asked.out);
        const std::set<std::string> named = LongOptionsIn(help.out);
        for (const auto& list : {row.options.values, row.options.flags})
            for (const std::string& option : list)
                EXPECT_EQ(named.count(option), 1u) << "--" << option << " is not in the help text";
        const std::string section = ManSection(page, ".SS \"vclip " + command + "\"");
        ASSERT_FALSE(section.empty()) << "no section for " << command << " in the manual page";
        for (const std::string& option : named)
            EXPECT_NE(section.find("--" + option), std::string::npos) << "--" << option << " is not in the manual page";
    }
    const RunResult overview = VclipInProcess({"help"});
    EXPECT_EQ(overview.out, VclipInProcess({"--help"}).out);
    const std::string synopsis = ManSection(page, ".SH SYNOPSIS");
    for (const std::string& option : LongOptionsIn(overview.out))
        EXPECT_NE(synopsis.find("--" + option), std::string::npos) << "--" << option << " is not in the synopsis";

    const RunResult version = VclipInProcess({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out, "vclip " PAL2NTSC_VERSION "\n");
    EXPECT_NE(overview.out.find("(vclip " PAL2NTSC_VERSION ")"), std::string::npos);
    // Both pages carry the version they describe in their title line.
    for (const char* name : {"vclip.1", "pal2ntsc.1"}) {
        const std::string title = ReadFile(std::string(PAL2NTSC_SOURCE_DIR "/man/") + name);
        EXPECT_NE(title.substr(0, title.find('\n')).find("\"pal2ntsc " PAL2NTSC_VERSION "\""), std::string::npos)
            << name;
    }
}

}  // namespace
