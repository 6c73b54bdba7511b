// Everything the tool refuses, and every open that fails: the input clip is
// never written, a file that is not a clip is never overwritten, and a
// refusal that needs no output file leaves the outputs uncreated.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "runTestUtil.h"

namespace {

const std::string kInfo = "PAL file: 6 frames [720x576]\n";

class Refusal : public testing::Test {
protected:
    ScratchDir dir;
    std::string pal = dir / "pal.clip", ntsc = dir / "ntsc.clip", small = dir / "small.clip";
    std::string keep = dir / "keep.txt";
    std::string input, decoy = "precious data, not a clip\n";

    void SetUp() override
    {
        writeClip(pal, ClipFields{6}, 7);
        input = readFile(pal);
        writeFile(keep, decoy);
    }

    // Runs the tool and checks what every refusal has in common.
    RunResult refuse(const std::vector<std::string>& args, bool outputsAbsent)
    {
        const RunResult r = runPal2ntsc(args);
        EXPECT_EQ(r.status, 0);
        EXPECT_TRUE(readFile(pal) == input) << "input clip changed";
        EXPECT_EQ(readFile(keep), decoy) << "non-clip file changed";
        if (outputsAbsent) {
            EXPECT_FALSE(exists(ntsc)) << "NTSC clip created";
            EXPECT_FALSE(exists(small)) << "scaled clip created";
        }
        return r;
    }

    static bool endsWith(const std::string& text, const std::string& end)
    {
        return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
    }
};

TEST_F(Refusal, OutputNamesThatLeadToTheInput)
{
    ASSERT_EQ(link(pal.c_str(), (dir / "hard").c_str()), 0);
    ASSERT_EQ(symlink(pal.c_str(), (dir / "sym").c_str()), 0);
    ASSERT_EQ(mkdir((dir / "sub").c_str(), 0700), 0);
    const std::string same = "PAL file and NTSC file are the same\n";
    const std::string scaledSame = "PAL file and scaled file are the same\n";
    for (const std::string& other :
         {dir / "hard", dir / "sym", dir / "./pal.clip", dir / "sub/../pal.clip"}) {
        SCOPED_TRACE(other);
        EXPECT_EQ(refuse({"-P", pal, "-N", other}, true).out, same);
        EXPECT_EQ(refuse({"-P", pal, "-N", ntsc, "-n", other}, true).out, scaledSame);
    }
}

TEST_F(Refusal, ScaledNameThatLeadsToTheNtscClip)
{
    // Neither exists yet: the same place by two spellings.
    ASSERT_EQ(mkdir((dir / "sub").c_str(), 0700), 0);
    EXPECT_EQ(refuse({"-P", pal, "-N", ntsc, "-n", dir / "sub/../ntsc.clip"}, true).out,
              kInfo + "NTSC file and scaled file are the same\n");
    EXPECT_EQ(refuse({"-P", pal, "-N", ntsc, "-n", dir / "./ntsc.clip"}, true).out,
              kInfo + "NTSC file and scaled file are the same\n");

    // An existing NTSC clip reached through a hard link.
    writeClip(ntsc, ClipFields{2, 720, 486}, 3);
    const std::string before = readFile(ntsc);
    ASSERT_EQ(link(ntsc.c_str(), (dir / "hard").c_str()), 0);
    EXPECT_EQ(refuse({"-P", pal, "-N", ntsc, "-n", dir / "hard"}, false).out,
              "NTSC file and scaled file are the same\n");
    EXPECT_TRUE(readFile(ntsc) == before);
}

TEST_F(Refusal, ScaleAndAlignment)
{
    for (const char* scale : {"3", "0", "-4", "abc"}) {
        SCOPED_TRACE(scale);
        const RunResult r = refuse({"-P", pal, "-N", ntsc, "-n", small, "-s", scale}, true);
        EXPECT_EQ(r.out.rfind("Scale ", 0), 0u) << r.out;
        EXPECT_NE(r.out.find("(use 2 or 4)\n"), std::string::npos) << r.out;
    }
    for (const char* alignment : {"3", "0", "-128", "96"}) {
        SCOPED_TRACE(alignment);
        EXPECT_EQ(refuse({"-P", pal, "-N", ntsc, "-n", small, "-a", alignment}, true).out,
                  "Alignment " + std::string(alignment) +
                      " is not supported for the block buffers (use a power of two)\n");
    }
    // Small powers of two are raised to what direct transfers need.
    const RunResult r = runPal2ntsc({"-P", pal, "-N", ntsc, "-a", "1"});
    EXPECT_EQ(r.out, kInfo);
    EXPECT_EQ(r.err, "");
}

TEST_F(Refusal, BrokenSymbolicLinkAtAnOutput)
{
    const std::string target = dir / "elsewhere.clip";
    ASSERT_EQ(symlink(target.c_str(), ntsc.c_str()), 0);
    EXPECT_EQ(refuse({"-P", pal, "-N", ntsc}, false).out,
              kInfo + "NTSC file " + ntsc + " is a broken symbolic link\n");
    EXPECT_FALSE(exists(target));
    unlink(ntsc.c_str());

    ASSERT_EQ(symlink(target.c_str(), small.c_str()), 0);
    EXPECT_EQ(refuse({"-P", pal, "-N", ntsc, "-n", small}, false).out,
              kInfo + "Scaled file " + small + " is a broken symbolic link\n");
    EXPECT_FALSE(exists(target));
    EXPECT_FALSE(exists(ntsc));
}

TEST_F(Refusal, InputsThatCannotBeConverted)
{
    struct Case {
        const char* what;
        ClipFields fields;
        int64_t keepBytes;
        std::string out;
    };
    const int64_t slot = slotBytes(720, 576, 1008);
    const int64_t picture = frameBytes(720, 576, 1008);
    const std::vector<Case> cases = {
        {"one line", ClipFields{2, 720, 1}, -1,
         "PAL file: 2 frames [720x1]\nPAL file has 1 lines: at least 2 are needed\n"},
        {"negative count", ClipFields{-1}, slot, "PAL file: -1 frames [720x576]\nPAL file has a negative frame count (-1)\n"},
        {"one byte a pixel", ClipFields{2, 720, 576, 1005}, -1,
         "PAL file: 2 frames [720x576]\nPAL file frames of " + std::to_string(slotBytes(720, 576, 1005)) +
             " bytes cannot hold 720x576 4:2:2 pictures\n"},
        {"frame larger than a transfer", ClipFields{1, 2048, 1100}, -1,
         "PAL file: 1 frames [2048x1100]\nPAL frames of 4505600 bytes do not fit in one transfer of "
         "4194304 bytes\n"},
        {"cut inside frame 7", ClipFields{12}, slot * 8 + 1000,
         "PAL file: 12 frames [720x576]\nPAL file is truncated: 7 of 12 frames present\n"},
        {"cut in frame 7's padding", ClipFields{12}, slot * 8 + picture,
         "PAL file: 12 frames [720x576]\nPAL file is truncated: 8 of 12 frames present\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        writeClip(pal, c.fields, 11, c.keepBytes);
        input = readFile(pal);
        EXPECT_EQ(refuse({"-P", pal, "-N", ntsc, "-n", small}, true).out, c.out);
    }
}

TEST_F(Refusal, OpensThatFail)
{
    RunResult r = refuse({"-P", dir / "missing.clip", "-N", ntsc}, true);
    EXPECT_EQ(r.out, "Unable to open PAL file\n");
    EXPECT_NE(r.err.find("missing.clip: No such file or directory"), std::string::npos) << r.err;

    EXPECT_TRUE(endsWith(refuse({"-P", keep, "-N", ntsc}, true).out, "Unable to open PAL file\n"));

    // A header that describes no frame at all.
    writeClip(dir / "odd.clip", ClipFields{2, 720, 576, 4242}, 1);
    EXPECT_TRUE(endsWith(refuse({"-P", dir / "odd.clip", "-N", ntsc}, true).out,
                         "Unable to open PAL file\n"));

    r = refuse({"-P", pal, "-N", keep}, false);
    EXPECT_TRUE(endsWith(r.out, "Unable to check existing file for writting [vXfsFile::OpenForWriting]\n"
                                "Unable to open NTSC file\n"))
        << r.out;

    r = refuse({"-P", pal, "-N", ntsc, "-n", keep}, false);
    EXPECT_TRUE(endsWith(r.out, "Unable to open scaled file\n")) << r.out;
    std::remove(ntsc.c_str());

    EXPECT_TRUE(endsWith(refuse({"-P", pal, "-N", dir / "no/such/dir.clip"}, true).out,
                         "Unable to open NTSC file\n"));
}

TEST_F(Refusal, PreservedClipOfAnotherFormatAtAnOutput)
{
    ClipFields preserved{3, 180, 121, 1000};
    preserved.replaceable = 0;
    writeClip(ntsc, preserved, 5);
    const std::string before = readFile(ntsc);
    EXPECT_EQ(refuse({"-P", pal, "-N", ntsc}, false).out,
              kInfo + "NTSC file is a preserved clip of another format\n");
    EXPECT_TRUE(readFile(ntsc) == before);

    ClipFields preservedNtsc{3, 720, 486};
    preservedNtsc.replaceable = 0;
    writeClip(small, preservedNtsc, 5);
    const std::string smallBefore = readFile(small);
    std::remove(ntsc.c_str());
    EXPECT_EQ(refuse({"-P", pal, "-N", ntsc, "-n", small}, false).out,
              kInfo + "Scaled file is a preserved clip of another format\n");
    EXPECT_TRUE(readFile(small) == smallBefore);
}

}  // namespace
