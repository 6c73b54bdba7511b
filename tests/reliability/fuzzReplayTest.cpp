// Replays the fuzz seeds and every input kept in fuzz/regressions through
// the fuzz targets' own code, built with this compiler and its sanitizers.
// A property that fails stops the process, naming it.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/fuzzTargets.h"

namespace {

namespace fs = std::filesystem;

// Every file of fuzz/corpus/<target> and fuzz/regressions/<target>.
std::vector<fs::path> inputsOf(const std::string& target)
{
    std::vector<fs::path> files;
    for (const char* kind : {"corpus", "regressions"}) {
        const fs::path dir = fs::path(PAL2NTSC_SOURCE_DIR) / "fuzz" / kind / target;
        if (!fs::is_directory(dir))
            continue;
        for (const auto& entry : fs::directory_iterator(dir))
            if (entry.is_regular_file())
                files.push_back(entry.path());
    }
    return files;
}

void replay(const std::string& target, int (*run)(const uint8_t*, size_t))
{
    const std::vector<fs::path> files = inputsOf(target);
    EXPECT_FALSE(files.empty()) << "no inputs for " << target;
    for (const fs::path& file : files) {
        SCOPED_TRACE(file.string());
        std::ifstream in(file, std::ios::binary);
        const std::vector<unsigned char> bytes(std::istreambuf_iterator<char>(in), {});
        EXPECT_EQ(run(bytes.data(), bytes.size()), 0);
    }
}

TEST(FuzzReplay, ClipHeader) { replay("clip_header", fuzzClipHeader); }
TEST(FuzzReplay, Conversion) { replay("conversion", fuzzConversion); }
TEST(FuzzReplay, StringMatch) { replay("string_match", fuzzStringMatch); }

}  // namespace
