// Drives the built pal2ntsc executable and checks what it prints and returns.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct RunResult {
    std::string out;
    std::string err;
    int status = -1;  // exit status, or -1 when the program did not exit normally
};

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

class CommandLine : public testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/pal2ntsc-cli-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
    }
    void TearDown() override {
        for (const char* name : {"out", "err", "pal", "link", "sub", "a", "b", "c", "ntsc"})
            std::remove((dir + "/" + name).c_str());
        rmdir(dir.c_str());
    }

    std::string path(const char* name) const { return dir + "/" + name; }

    void touch(const char* name) { std::ofstream(path(name)) << "x"; }

    // Runs the tool with the given arguments (argv[0] included) and collects
    // its standard output, standard error and exit status.
    RunResult run(std::vector<std::string> args) {
        std::string outPath = path("out"), errPath = path("err");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        std::vector<char*> argv;
        for (auto& a : args)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        RunResult result;
        pid_t pid;
        int rc = posix_spawn(&pid, PAL2NTSC_BIN, &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        EXPECT_EQ(rc, 0) << "cannot start " << PAL2NTSC_BIN;
        if (rc != 0)
            return result;
        int wstatus = 0;
        waitpid(pid, &wstatus, 0);
        result.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : -1;
        result.out = readFile(outPath);
        result.err = readFile(errPath);
        return result;
    }

    std::string dir;
};

const std::string kProgram = "my-pal2ntsc";
const std::string kUsage =
    "Use: my-pal2ntsc -P pal_file_name -N ntsc_file_name [-n scaled_ntsc_file_name] [-s scale]\n";

// The checks passed when none of their messages, nor the usage, was printed.
// (What the conversion run then prints about missing clips is its own.)
void expectPastChecks(const RunResult& r) {
    EXPECT_EQ(r.status, 0);
    for (const char* message : {"Use: ", "not defined", "are the same", "not supported for the scaled file"})
        EXPECT_EQ(r.out.find(message), std::string::npos) << r.out;
}

TEST_F(CommandLine, UsageForHelpUnknownOptionAndMissingArgument) {
    RunResult help = run({kProgram, "-h", "-P", "a", "-N", "b"});
    EXPECT_EQ(help.out, kUsage);
    EXPECT_EQ(help.err, "");
    EXPECT_EQ(help.status, 0);

    // The option parser explains the problem on stderr, then the usage follows.
    RunResult unknown = run({kProgram, "-x"});
    EXPECT_EQ(unknown.out, kUsage);
    EXPECT_NE(unknown.err.find("'x'"), std::string::npos) << unknown.err;
    EXPECT_EQ(unknown.status, 0);

    RunResult missing = run({kProgram, "-N", "b", "-P"});
    EXPECT_EQ(missing.out, kUsage);
    EXPECT_NE(missing.err.find("'P'"), std::string::npos) << missing.err;
    EXPECT_EQ(missing.status, 0);
}

TEST_F(CommandLine, NameChecksInOrder) {
    struct Case { std::vector<std::string> args; const char* out; };
    for (const Case& c : {
             Case{{}, "PAL file not defined\n"},
             Case{{"-N", "b"}, "PAL file not defined\n"},
             Case{{"-P", ""}, "PAL file not defined\n"},
             Case{{"-P", "a"}, "NTSC file not defined\n"},
             Case{{"-P", "a", "-N", "a"}, "PAL file and NTSC file are the same\n"},
             Case{{"-P", "b", "-P", "a", "-N", "a"}, "PAL file and NTSC file are the same\n"},
         }) {
        std::vector<std::string> args{kProgram};
        args.insert(args.end(), c.args.begin(), c.args.end());
        RunResult r = run(args);
        EXPECT_EQ(r.out, c.out);
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 0);
    }
}

TEST_F(CommandLine, LastOccurrenceWinsAndEmptyReducedNameIsAbsent) {
    std::string a = path("a"), b = path("b");
    expectPastChecks(run({kProgram, "-P", a, "-P", b, "-N", a}));
    // -n "" is no reduced clip, so an unusable scale does not matter.
    expectPastChecks(run({kProgram, "-P", a, "-N", b, "-n", "", "-s", "3", "-a", "abc"}));
    expectPastChecks(run({kProgram, "-P", a, "-N", b, "-n", path("c"), "-s", "2"}));
    expectPastChecks(run({kProgram, "-P", a, "-N", b, "-s", "abc", "extra"}));
}

TEST_F(CommandLine, InputCannotBeNamedAsAnOutput) {
    touch("pal");
    ASSERT_EQ(mkdir(path("sub").c_str(), 0700), 0);
    ASSERT_EQ(link(path("pal").c_str(), path("link").c_str()), 0);
    std::string pal = path("pal");
    std::string sameByAnotherPath = path("sub") + "/../pal";

    RunResult r = run({kProgram, "-P", pal, "-N", sameByAnotherPath});
    EXPECT_EQ(r.out, "PAL file and NTSC file are the same\n");
    r = run({kProgram, "-P", pal, "-N", path("link")});
    EXPECT_EQ(r.out, "PAL file and NTSC file are the same\n");
    r = run({kProgram, "-P", pal, "-N", path("ntsc"), "-n", path("link")});
    EXPECT_EQ(r.out, "PAL file and scaled file are the same\n");
    r = run({kProgram, "-P", pal, "-N", path("ntsc"), "-n", path("ntsc")});
    EXPECT_EQ(r.out, "NTSC file and scaled file are the same\n");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(readFile(pal), "x");
}

TEST_F(CommandLine, ScaledFileNeedsScaleTwoOrFour) {
    for (const char* scale : {"0", "3", "abc", "-4"}) {
        RunResult r = run({kProgram, "-P", path("a"), "-N", path("b"), "-n", path("c"), "-s", scale});
        EXPECT_EQ(r.out, "Scale " + std::to_string(atoi(scale)) +
                             " is not supported for the scaled file (use 2 or 4)\n");
        EXPECT_EQ(r.status, 0);
    }
}

}  // namespace
