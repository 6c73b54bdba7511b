// The block loop with fake transfers: what is read, converted and written,
// in which order, and which message ends the run, when blocks are converted
// on a second thread while the next one is read.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tool/blockPipeline.h"

namespace {

std::string span(int first, int last) { return std::to_string(first) + "-" + std::to_string(last); }

// Records every step as it happens. Reads and conversions are slow, so that
// a loop which did not wait for a conversion would write before it ended,
// and one that read into the buffer being converted would be seen.
class FakeRun {
public:
    std::set<int> failingReads;  // first frames of blocks whose read fails
    bool lastReadFailed = false;
    std::string heldReport;
    int failingWrite = -1;       // first frame of the block whose write fails

    const char* Stream(int32_t frames, int blockFrames)
    {
        BlockSteps steps;
        steps.read = [this](int first, int last, void* buffer) {
            Log("begin read " + span(first, last));
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            std::memcpy(buffer, &first, sizeof first);
            Log("read " + span(first, last));
            lastReadFailed = failingReads.count(first) != 0;
            if (lastReadFailed)
                heldReport = "report " + span(first, last);
            return !lastReadFailed;
        };
        // The store's line about a failed read, held with the read.
        steps.reportRead = [this] {
            if (!heldReport.empty())
                Log(heldReport);
            heldReport.clear();
        };
        steps.convert = [this](void* buffer, int first, int last) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            int held = -1;
            std::memcpy(&held, buffer, sizeof held);
            Log("convert " + span(first, last) + (held == first ? "" : " of block " + std::to_string(held)));
        };
        steps.write = [this](int first, int last) -> const char* {
            Log("write " + span(first, last));
            return first == failingWrite ? "write failed\n" : nullptr;
        };
        void* const inputs[2] = {buffers[0], buffers[1]};
        return streamBlocks(frames, blockFrames, inputs, steps);
    }

    // The events that start with prefix, without it.
    std::vector<std::string> Steps(const std::string& prefix) const
    {
        std::vector<std::string> found;
        for (const std::string& e : events)
            if (e.rfind(prefix, 0) == 0)
                found.push_back(e.substr(prefix.size()));
        return found;
    }

    // Position of an event; events.size() when it never happened.
    size_t At(const std::string& event) const
    {
        return size_t(std::find(events.begin(), events.end(), event) - events.begin());
    }

    // Each block is converted between its read and its write, and the disk
    // never has a read beside a write: the read of a block begins after the
    // write two blocks back and ends before the one just before.
    void ExpectOrder(const std::vector<std::string>& blocks) const
    {
        for (size_t b = 0; b < blocks.size(); ++b) {
            SCOPED_TRACE(blocks[b]);
            EXPECT_LT(At("read " + blocks[b]), At("convert " + blocks[b]));
            EXPECT_LT(At("convert " + blocks[b]), At("write " + blocks[b]));
            if (b >= 1) {
                EXPECT_LT(At("read " + blocks[b]), At("write " + blocks[b - 1]));
            }
            if (b >= 2) {
                EXPECT_GT(At("begin read " + blocks[b]), At("write " + blocks[b - 2]));
            }
        }
    }

    std::vector<std::string> events;

private:
    void Log(const std::string& event)
    {
        std::lock_guard<std::mutex> lock(mutex);
        events.push_back(event);
    }

    std::mutex mutex;
    int buffers[2][1] = {{-1}, {-1}};
};

using Blocks = std::vector<std::string>;

TEST(BlockPipeline, EveryBlockOnceInOrderFromItsOwnBuffer)
{
    struct Case {
        int32_t frames;
        int blockFrames;
        Blocks blocks;
    };
    for (const Case& c : {Case{12, 5, {"0-4", "5-9", "10-11"}}, Case{10, 5, {"0-4", "5-9"}},
                          Case{3, 5, {"0-2"}}, Case{7, 1, {"0-0", "1-1", "2-2", "3-3", "4-4", "5-5", "6-6"}},
                          Case{0, 5, {}}}) {
        SCOPED_TRACE(std::to_string(c.frames) + " frames by " + std::to_string(c.blockFrames));
        FakeRun run;
        EXPECT_EQ(run.Stream(c.frames, c.blockFrames), nullptr);
        EXPECT_EQ(run.Steps("read "), c.blocks);
        EXPECT_EQ(run.Steps("convert "), c.blocks);  // a stale buffer shows as "of block n"
        EXPECT_EQ(run.Steps("write "), c.blocks);
        run.ExpectOrder(c.blocks);
    }
}

TEST(BlockPipeline, FailedReadEndsTheRunOnlyAfterTheBlockBeforeIsWritten)
{
    FakeRun run;
    run.failingReads = {5};
    EXPECT_STREQ(run.Stream(17, 5), "Unable to load PAL images\n");
    EXPECT_EQ(run.Steps("convert "), Blocks{"0-4"});
    EXPECT_EQ(run.Steps("write "), Blocks{"0-4"});
    EXPECT_LT(run.At("write 0-4"), run.events.size());
    // The failed read's own line shows where a plain loop would have read.
    EXPECT_EQ(run.Steps("report "), Blocks{"5-9"});
    EXPECT_LT(run.At("write 0-4"), run.At("report 5-9"));
    // Nothing of the run goes on past the failed block, not even a read.
    EXPECT_EQ(run.Steps("begin read "), (Blocks{"0-4", "5-9"}));

    FakeRun first;
    first.failingReads = {0};
    EXPECT_STREQ(first.Stream(17, 5), "Unable to load PAL images\n");
    EXPECT_EQ(first.Steps("begin read "), Blocks{"0-4"});
    EXPECT_TRUE(first.Steps("convert ").empty());
    EXPECT_TRUE(first.Steps("write ").empty());
}

TEST(BlockPipeline, FailedReadOfTheShortBlockDropsItQuietly)
{
    FakeRun run;
    run.failingReads = {10};
    EXPECT_EQ(run.Stream(12, 5), nullptr);
    EXPECT_EQ(run.Steps("write "), (Blocks{"0-4", "5-9"}));
    EXPECT_EQ(run.Steps("convert "), (Blocks{"0-4", "5-9"}));

    FakeRun alone;  // a clip shorter than one block
    alone.failingReads = {0};
    EXPECT_EQ(alone.Stream(3, 5), nullptr);
    EXPECT_TRUE(alone.Steps("write ").empty());
}

TEST(BlockPipeline, WriteFailureComesFirstAndNothingOutlivesIt)
{
    // Block 5-9 fails to write after the next block, read ahead, failed too:
    // the write's message ends the run, and nothing runs on after it.
    FakeRun run;
    run.failingWrite = 5;
    run.failingReads = {10};
    EXPECT_STREQ(run.Stream(17, 5), "write failed\n");
    EXPECT_EQ(run.Steps("write "), (Blocks{"0-4", "5-9"}));
    EXPECT_EQ(run.Steps("convert "), (Blocks{"0-4", "5-9"}));
    EXPECT_EQ(run.Steps("read "), (Blocks{"0-4", "5-9", "10-14"}));
    EXPECT_EQ(run.events.back(), "write 5-9");
    EXPECT_TRUE(run.Steps("report ").empty());  // that read was never the loop's
}

} // namespace
