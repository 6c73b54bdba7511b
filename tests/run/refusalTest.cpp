// Everything the tool refuses, and every open that fails, run in process:
// the message, the input clip never written, a file that is not a clip never
// overwritten, and no output created before the run gets to open it.
#include <sys/stat.h>
#include <unistd.h>

#include <map>

#include "tests/run/runSupport.h"

namespace {

using namespace run;

std::map<std::string, uint64_t> Files(const std::string& dir)
{
    std::map<std::string, uint64_t> files;
    for (const auto& entry : std::filesystem::directory_iterator(dir))
        files[entry.path().filename()] = entry.is_symlink() || entry.is_fifo() ? 0
                                         : entry.is_directory()                ? 1
                                                                               : HashFile(entry.path());
    return files;
}

TEST(Refusal, MessageAndEveryFileLeftAsItWas)
{
    ScratchDir dir;
    const std::string pal = dir / "pal.clip", ntsc = dir / "ntsc.clip", keep = dir / "keep.txt";
    const std::string info = "PAL file: 6 frames [720x576]\n";
    const int64_t slot = Slot(Header(12, 720, 576));
    WriteClip(pal, Header(6, 720, 576), 7);
    WriteFile(keep, "precious data, not a clip\n");
    WriteClip(dir / "negative.clip", Header(-1, 720, 576), 1, slot);
    WriteClip(dir / "oneline.clip", Header(2, 720, 1), 1);
    WriteClip(dir / "noframe.clip", Header(2, 720, 576, 4242), 1);
    WriteClip(dir / "luma.clip", Header(2, 720, 576, 1005), 1);
    WriteClip(dir / "huge.clip", Header(1, 2048, 1100), 1);
    WriteClip(dir / "cut.clip", Header(12, 720, 576), 1, slot * 8 + 1000);
    WriteClip(dir / "cutpad.clip", Header(12, 720, 576), 1, slot * 8 + 720 * 576 * 2);
    WriteClip(dir / "preserved.clip", Header(3, 16, 4, 1008, 25.0, 1, 0), 5);  // neither output's format
    ASSERT_EQ(symlink((dir / "elsewhere.clip").c_str(), (dir / "dangling").c_str()), 0);
    const std::string sub = dir / "sub", fifo = dir / "fifo";
    ASSERT_EQ(mkdir(sub.c_str(), 0700) | mkfifo(fifo.c_str(), 0600) | symlink(pal.c_str(), (dir / "to-pal").c_str()) |
                  link(pal.c_str(), (dir / "hard-link").c_str()),
              0);
    const auto files = Files(dir.Path());

    // What the clip store says of a file it cannot read as a clip.
    const auto unreadable = [](const std::string& why, const std::string& path) {
        return why + "\nUnable to read " + path + "'s header, or it is not a Vetra file [vXfsFile::OpenForReading]\n";
    };
    const std::string notClip = unreadable(keep + " is not a Vetra xfs file.", keep), noframe = dir / "noframe.clip";
    const std::string unwritable =
        info + notClip + "Unable to check existing file for writting [vXfsFile::OpenForWriting]\n";
    const std::string cannotReplace = " [vXfsFile::OpenForReading]\nUnable to check existing file for writting "
                                      "[vXfsFile::OpenForWriting]\nUnable to open NTSC file\n";
    const std::string aligned = " is not supported for the block buffers (use a power of two)\n";
    // The rows that get to open the NTSC clip make it in sub/.
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"-P", pal, "-N", keep, "-a", "3"}, "Alignment 3" + aligned},
        {{"-P", dir / "negative.clip", "-N", keep},
         "PAL file: -1 frames [720x576]\nPAL file has a negative frame count (-1)\n"},
        {{"-P", dir / "oneline.clip", "-N", keep},
         "PAL file: 2 frames [720x1]\nPAL file has 1 lines: at least 2 are needed\n"},
        {{"-P", dir / "luma.clip", "-N", keep},
         "PAL file: 2 frames [720x576]\nPAL file frames of 417792 bytes cannot hold 720x576 4:2:2 pictures\n"},
        {{"-P", dir / "huge.clip", "-N", keep},
         "PAL file: 1 frames [2048x1100]\nPAL frames of 4505600 bytes do not fit in one transfer of 4194304 bytes\n"},
        {{"-P", dir / "cut.clip", "-N", keep},
         "PAL file: 12 frames [720x576]\nPAL file is truncated: 7 of 12 frames present\n"},
        {{"-P", dir / "cutpad.clip", "-N", keep},
         "PAL file: 12 frames [720x576]\nPAL file is truncated: 8 of 12 frames present\n"},
        {{"-P", pal, "-N", dir / "dangling"}, info + "NTSC file " + dir / "dangling" + " is a broken symbolic link\n"},
        {{"-P", pal, "-N", ntsc, "-n", dir / "dangling"},
         info + "Scaled file " + dir / "dangling" + " is a broken symbolic link\n"},
        {{"-P", pal, "-N", ntsc, "-n", dir / "sub/../ntsc.clip"}, info + "NTSC file and scaled file are the same\n"},
        {{"-P", pal, "-N", dir / "preserved.clip"}, info + "NTSC file is a preserved clip of another format\n"},
        {{"-P", pal, "-N", dir / "sub/ntsc.clip", "-n", dir / "preserved.clip"},
         info + "Scaled file is a preserved clip of another format\n"},
        {{"-P", dir / "missing.clip", "-N", keep}, "Unable to open PAL file\n"},
        {{"-P", noframe, "-N", ntsc},
         unreadable("Frame size of " + noframe + " is not valid (720 x 576, packing 4242) [vXfsFile::ReadHead]",
                    noframe) +
             "Unable to open PAL file\n"},
        {{"-P", pal, "-N", keep}, unwritable + "Unable to open NTSC file\n"},
        {{"-P", pal, "-N", dir / "sub/ntsc.clip", "-n", keep}, unwritable + "Unable to open scaled file\n"},
    };
    for (const auto& [args, out] : cases) {
        SCOPED_TRACE(args[1] + " " + args[3] + (args.size() > 5 ? " " + args[5] : ""));
        const RunResult r = ToolInProcess(args);
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.out, out);
        EXPECT_EQ(Files(dir.Path()), files) << "a file was changed or created";
        std::filesystem::remove(ntsc);
    }
    EXPECT_NE(
        ToolInProcess({"-P", dir / "missing.clip", "-N", ntsc}).err.find("missing.clip: No such file or directory"),
        std::string::npos);
}

}  // namespace
