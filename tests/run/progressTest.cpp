// The progress line: how often it is redrawn, and that it leaves a blank
// line behind. (The end-to-end runs show that it draws nothing
// when standard error is not a terminal.)
#include <gtest/gtest.h>

#include <cstdio>

#include "tool/progress.h"

namespace {

TEST(Progress, RedrawnAtMostFourTimesASecondAndClearedAtTheEnd)
{
    char text[512] = {};
    std::FILE* f = fmemopen(text, sizeof text - 1, "w");
    {
        Progress progress(100, f, true);
        const auto t0 = Progress::Clock::now();
        for (auto [done, ms] : {std::pair{5, 100}, {10, 200}, {15, 400}, {100, 410}})
            progress.Update(done, t0 + std::chrono::milliseconds(ms));
    }
    std::fclose(f);
    const std::string out(text);
    // 10 comes too soon after 5; the end is always drawn, then blanked over
    // its whole width with the cursor back at the start of the line.
    EXPECT_EQ(out.rfind("\r5 of 100", 0), 0u);
    EXPECT_EQ(out.find("10 of 100"), std::string::npos);
    EXPECT_NE(out.find("\r15 of 100"), std::string::npos);
    const size_t end = out.find("\r100 of 100"), clear = out.find('\r', end + 1);
    ASSERT_NE(clear, std::string::npos);
    EXPECT_EQ(out.substr(clear), "\r" + std::string(clear - end - 1, ' ') + "\r");
}

}  // namespace
