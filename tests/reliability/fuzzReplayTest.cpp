// Replays the fuzz seeds and every input kept in fuzz/regressions through
// the fuzz targets' own code, built with this compiler and its sanitizers.
// A property that fails stops the process, naming it; the input's path is
// written to standard error just before it runs, so that the last one named
// is the one that stopped it.
#include <cstdio>
#include <filesystem>
#include <set>
#include <string>
#include <utility>

#include "fuzz/fuzzTargets.h"
#include "tests/common/testSupport.h"

namespace {

namespace fs = std::filesystem;

const std::pair<const char*, int (*)(const uint8_t*, size_t)> kTargets[] = {
    {"clip_header", fuzzClipHeader}, {"conversion", fuzzConversion}, {"string_match", fuzzStringMatch}};

const fs::path kFuzzDir = fs::path(PAL2NTSC_SOURCE_DIR) / "fuzz";

TEST(FuzzReplay, EveryKeptInputPassesItsTarget)
{
    for (const auto& [name, run] : kTargets) {
        int inputs = 0;
        for (const char* kind : {"corpus", "regressions"}) {
            const fs::path dir = kFuzzDir / kind / name;
            if (!fs::is_directory(dir))
                continue;  // no regressions kept yet
            for (const auto& entry : fs::directory_iterator(dir)) {
                // Hidden files (an editor's, a placeholder) are no inputs.
                if (!entry.is_regular_file() || entry.path().filename().string().front() == '.')
                    continue;
                SCOPED_TRACE(entry.path().string());
                std::fprintf(stderr, "replaying %s\n", entry.path().c_str());
                const std::string bytes = tsupport::ReadFile(entry.path());
                EXPECT_EQ(run(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()), 0);
                ++inputs;
            }
        }
        EXPECT_GT(inputs, 0) << "no inputs for " << name;
    }
}

// An input kept under a directory no target reads would never be replayed.
TEST(FuzzReplay, EveryInputDirectoryBelongsToATarget)
{
    std::set<std::string> known;
    for (const auto& target : kTargets)
        known.insert(target.first);
    for (const char* kind : {"corpus", "regressions"}) {
        const fs::path dir = kFuzzDir / kind;
        if (!fs::is_directory(dir))
            continue;
        for (const auto& entry : fs::directory_iterator(dir)) {
            if (entry.is_directory()) {
                EXPECT_TRUE(known.count(entry.path().filename().string())) << entry.path() << " is read by no target";
            }
        }
    }
}

}  // namespace
