// Replays the fuzz seeds and every input kept in fuzz/regressions through
// the fuzz targets' own code, built with this compiler and its sanitizers.
// A property that fails stops the process, naming it.
#include <filesystem>
#include <utility>

#include "fuzz/fuzzTargets.h"
#include "tests/common/testSupport.h"

namespace {

namespace fs = std::filesystem;

TEST(FuzzReplay, EveryKeptInputPassesItsTarget)
{
    const std::pair<const char*, int (*)(const uint8_t*, size_t)> targets[] = {
        {"clip_header", fuzzClipHeader}, {"conversion", fuzzConversion}, {"string_match", fuzzStringMatch}};
    for (const auto& [name, run] : targets) {
        int inputs = 0;
        for (const char* kind : {"corpus", "regressions"}) {
            const fs::path dir = fs::path(PAL2NTSC_SOURCE_DIR) / "fuzz" / kind / name;
            if (!fs::is_directory(dir))
                continue;  // no regressions kept yet
            for (const auto& entry : fs::directory_iterator(dir)) {
                SCOPED_TRACE(entry.path().string());
                const std::string bytes = tsupport::ReadFile(entry.path());
                EXPECT_EQ(run(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()), 0);
                ++inputs;
            }
        }
        EXPECT_GT(inputs, 0) << "no inputs for " << name;
    }
}

}  // namespace
