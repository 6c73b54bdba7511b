// The progress line: what it says, how often it is redrawn, and that it
// leaves nothing behind.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "tool/progress.h"

namespace {

std::string contents(std::FILE* f)
{
    std::fflush(f);
    std::rewind(f);
    std::string text;
    for (int c; (c = std::fgetc(f)) != EOF;)
        text.push_back(static_cast<char>(c));
    return text;
}

TEST(Progress, LineSaysDoneTotalRateAndTimeLeft)
{
    EXPECT_EQ(Progress::Line(0, 250, 0.0), "0 of 250 frames");
    EXPECT_EQ(Progress::Line(50, 250, 2.0), "50 of 250 frames, 25.0 fps, 0:08 left");
    EXPECT_EQ(Progress::Line(10, 1000, 1.0), "10 of 1000 frames, 10.0 fps, 1:39 left");
    EXPECT_EQ(Progress::Line(250, 250, 10.0), "250 of 250 frames, 25.0 fps, 0:00 left");
}

TEST(Progress, RedrawnAtMostFourTimesASecondAndClearedAtTheEnd)
{
    std::FILE* f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    {
        Progress progress(100, f, true);
        const auto t0 = Progress::Clock::now();
        progress.Update(5, t0 + std::chrono::milliseconds(100));   // first drawing
        progress.Update(10, t0 + std::chrono::milliseconds(200));  // too soon
        progress.Update(15, t0 + std::chrono::milliseconds(400));  // drawn
        progress.Update(100, t0 + std::chrono::milliseconds(410)); // the end is always drawn
        const std::string text = contents(f);
        EXPECT_NE(text.find("\r5 of 100"), std::string::npos);
        EXPECT_EQ(text.find("10 of 100"), std::string::npos);
        EXPECT_NE(text.find("\r15 of 100"), std::string::npos);
        EXPECT_NE(text.find("\r100 of 100"), std::string::npos);
        EXPECT_EQ(text.find('\n'), std::string::npos);
        std::fseek(f, 0, SEEK_END);
    }
    // Cleared: the last thing written blanks the line and returns to its start.
    const std::string text = contents(f);
    const size_t last = text.rfind("\r", text.size() - 2);
    ASSERT_NE(last, std::string::npos);
    const std::string tail = text.substr(last + 1);
    EXPECT_EQ(tail.back(), '\r');
    EXPECT_EQ(tail.find_first_not_of(" \r"), std::string::npos) << tail;
    std::fclose(f);
}

}  // namespace
