// Drives the built pal2ntsc executable and checks what it prints and returns.
#include <sys/stat.h>
#include <unistd.h>

#include "tests/common/testSupport.h"

namespace {

using namespace tsupport;

const std::string kUsage =
    "Use: my-pal2ntsc -P pal_file_name -N ntsc_file_name [-n scaled_ntsc_file_name] [-s scale]\n";

RunResult RunTool(std::vector<std::string> args)
{
    args.insert(args.begin(), "my-pal2ntsc");
    return RunProgram(PAL2NTSC_BIN, args);
}

TEST(CommandLine, UsageForHelpUnknownOptionAndMissingArgument)
{
    // -h wins over good names; the option parser names the bad letter on stderr.
    struct Case {
        std::vector<std::string> args;
        const char* err;
    };
    for (const Case& c :
         {Case{{"-h", "-P", "a", "-N", "b"}, ""}, Case{{"-x"}, "'x'"}, Case{{"-N", "b", "-P"}, "'P'"}}) {
        const RunResult r = RunTool(c.args);
        EXPECT_EQ(r.out, kUsage);
        EXPECT_NE(r.err.find(c.err), std::string::npos) << r.err;
        EXPECT_EQ(r.err.empty(), *c.err == '\0');
        EXPECT_EQ(r.status, 0);
    }
}

TEST(CommandLine, NameChecksInOrder)
{
    struct Case {
        std::vector<std::string> args;
        const char* out;
    };
    for (const Case& c : {
             Case{{}, "PAL file not defined\n"},
             Case{{"-N", "b"}, "PAL file not defined\n"},
             Case{{"-P", ""}, "PAL file not defined\n"},
             Case{{"-P", "a"}, "NTSC file not defined\n"},
             Case{{"-P", "b", "-P", "a", "-N", "a"}, "PAL file and NTSC file are the same\n"},
         }) {
        const RunResult r = RunTool(c.args);
        EXPECT_EQ(r.out, c.out);
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 0);
    }
}

TEST(CommandLine, LastOccurrenceWinsAndEmptyReducedNameIsAbsent)
{
    ScratchDir dir;
    const std::string a = dir / "a", b = dir / "b";
    // -n "" is no reduced clip, so an unusable scale does not matter.
    for (const std::vector<std::string>& args : {
             std::vector<std::string>{"-P", a, "-P", b, "-N", a},
             std::vector<std::string>{"-P", a, "-N", b, "-n", "", "-s", "3", "-a", "abc"},
             std::vector<std::string>{"-P", a, "-N", b, "-n", dir / "c", "-s", "2"},
         }) {
        const RunResult r = RunTool(args);
        EXPECT_EQ(r.status, 0);
        for (const char* message : {"Use: ", "not defined", "are the same", "not supported for the scaled file"})
            EXPECT_EQ(r.out.find(message), std::string::npos) << r.out;
    }
}

TEST(CommandLine, RefusesTheSameFileByAnotherNameAndUnusableScales)
{
    ScratchDir dir;
    const std::string pal = dir / "pal", link = dir / "link";
    WriteFile(pal, "x");
    ASSERT_EQ(mkdir((dir / "sub").c_str(), 0700), 0);
    ASSERT_EQ(::link(pal.c_str(), link.c_str()), 0);
    struct Case {
        std::vector<std::string> args;
        std::string out;
    };
    for (const Case& c : {
             Case{{"-P", pal, "-N", dir / "sub/../pal"}, "PAL file and NTSC file are the same\n"},
             Case{{"-P", pal, "-N", link}, "PAL file and NTSC file are the same\n"},
             Case{{"-P", pal, "-N", dir / "ntsc", "-n", link}, "PAL file and scaled file are the same\n"},
             Case{{"-P", pal, "-N", dir / "ntsc", "-n", dir / "ntsc"}, "NTSC file and scaled file are the same\n"},
             Case{{"-P", pal, "-N", dir / "b", "-n", dir / "c", "-s", "3"},
                  "Scale 3 is not supported for the scaled file (use 2 or 4)\n"},
             Case{{"-P", pal, "-N", dir / "b", "-n", dir / "c", "-s", "abc"},
                  "Scale 0 is not supported for the scaled file (use 2 or 4)\n"},
         }) {
        const RunResult r = RunTool(c.args);
        EXPECT_EQ(r.out, c.out);
        EXPECT_EQ(r.status, 0);
    }
    EXPECT_EQ(ReadFile(pal), "x");
}

}  // namespace
