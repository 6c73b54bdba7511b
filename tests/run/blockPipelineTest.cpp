// The block loop with fake transfers: what is read, converted and written,
// in which order, and which message ends the run, when blocks are converted
// on a second thread while the next one is read.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <thread>
#include <utility>

#include "tool/blockPipeline.h"

namespace {

using Blocks = std::vector<std::string>;

std::string Span(int first, int last) { return std::to_string(first) + "-" + std::to_string(last); }

// Records every step as it happens. Reads and conversions are slow, so that
// a loop which did not wait for a conversion would write before it ended,
// and one that read into the buffer being converted would be seen.
struct FakeRun {
    int failingRead = -1;   // first frame of the block whose read fails
    int failingWrite = -1;  // first frame of the block whose write fails
    std::string heldReport;
    std::vector<std::string> events;
    std::mutex mutex;
    int buffers[2] = {-1, -1};

    void Log(const std::string& event)
    {
        std::lock_guard<std::mutex> lock(mutex);
        events.push_back(event);
    }

    const char* Stream(int32_t frames, int blockFrames)
    {
        BlockSteps steps;
        steps.read = [this](int first, int last, void* buffer) {
            Log("begin read " + Span(first, last));
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            *static_cast<int*>(buffer) = first;
            Log("read " + Span(first, last));
            heldReport = first == failingRead ? "report " + Span(first, last) : "";
            return heldReport.empty();
        };
        // The store's line about a failed read, held with the read.
        steps.reportRead = [this] {
            if (!heldReport.empty())
                Log(std::exchange(heldReport, ""));
        };
        // A conversion from a stale buffer shows as "of block n".
        steps.convert = [this](void* buffer, int first, int last) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            const int held = *static_cast<int*>(buffer);
            Log("convert " + Span(first, last) + (held == first ? "" : " of block " + std::to_string(held)));
        };
        steps.write = [this](int first, int last) -> const char* {
            Log("write " + Span(first, last));
            return first == failingWrite ? "write failed\n" : nullptr;
        };
        void* const inputs[2] = {&buffers[0], &buffers[1]};
        return streamBlocks(frames, blockFrames, inputs, steps);
    }

    // The events that start with prefix, without it.
    Blocks Steps(const std::string& prefix) const
    {
        Blocks found;
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
};

TEST(BlockPipeline, EveryBlockOnceInOrderFromItsOwnBuffer)
{
    struct Case {
        int32_t frames;
        int blockFrames;
        Blocks blocks;
    };
    for (const Case& c : {Case{12, 5, {"0-4", "5-9", "10-11"}}, Case{10, 5, {"0-4", "5-9"}}, Case{3, 5, {"0-2"}},
                          Case{7, 1, {"0-0", "1-1", "2-2", "3-3", "4-4", "5-5", "6-6"}}, Case{0, 5, {}}}) {
        SCOPED_TRACE(std::to_string(c.frames) + " frames by " + std::to_string(c.blockFrames));
        FakeRun run;
        EXPECT_EQ(run.Stream(c.frames, c.blockFrames), nullptr);
        for (const char* step : {"read ", "convert ", "write "})
            EXPECT_EQ(run.Steps(step), c.blocks) << step;
        // Each block is converted between its read and its write, and the
        // disk never has a read beside a write: the read of a block begins
        // after the write two blocks back and ends before the one just before.
        for (size_t b = 0; b < c.blocks.size(); ++b) {
            const size_t convert = run.At("convert " + c.blocks[b]);
            EXPECT_TRUE(run.At("read " + c.blocks[b]) < convert && convert < run.At("write " + c.blocks[b])) << b;
            EXPECT_TRUE(b < 1 || run.At("read " + c.blocks[b]) < run.At("write " + c.blocks[b - 1])) << b;
            EXPECT_TRUE(b < 2 || run.At("begin read " + c.blocks[b]) > run.At("write " + c.blocks[b - 2])) << b;
        }
    }
}

TEST(BlockPipeline, FailedReadReportedAfterTheBlockBeforeIsWrittenAndWriteFailureFirst)
{
    // A failed read of a full block ends the run; of the short block, it
    // drops that block quietly. Either way the read's own line comes where a
    // plain loop would have read, and nothing goes on past it, not even a
    // read. A write that fails ends the run first, even when the read made
    // ahead of it failed too: that read was never the loop's to report.
    struct Case {
        int32_t frames;
        std::string failedRead;
        int failingWrite;
        std::string message;
        Blocks written;
    };
    const std::string load = "Unable to load PAL images\n";
    for (const Case& c :
         {Case{17, "5-9", -1, load, {"0-4"}}, Case{17, "0-4", -1, load, {}}, Case{12, "10-11", -1, "", {"0-4", "5-9"}},
          Case{3, "0-2", -1, "", {}}, Case{17, "10-14", 5, "write failed\n", {"0-4", "5-9"}}}) {
        SCOPED_TRACE(c.failedRead + " of " + std::to_string(c.frames));
        FakeRun run;
        run.failingRead = std::stoi(c.failedRead);
        run.failingWrite = c.failingWrite;
        const char* message = run.Stream(c.frames, 5);
        EXPECT_EQ(message ? message : "", c.message);
        EXPECT_EQ(run.Steps("convert "), c.written);
        EXPECT_EQ(run.Steps("write "), c.written);
        Blocks begun = c.written;
        begun.push_back(c.failedRead);
        EXPECT_EQ(run.Steps("begin read "), begun);
        const bool reported = c.failingWrite < 0;
        EXPECT_EQ(run.Steps("report "), reported ? Blocks{c.failedRead} : Blocks{});
        EXPECT_EQ(run.events.back(), reported ? "report " + c.failedRead : "write " + c.written.back());
    }
}

}  // namespace
