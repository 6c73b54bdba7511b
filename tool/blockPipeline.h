// The block loop of the conversion run: reads the input clip block by block,
// converts each block and writes it, converting a block on a second thread
// while the next one is read.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

// Runs one job at a time on a thread of its own, started with the first job
// and kept for the next ones: a new thread for every block would cost more
// processor time than converting a frame. The block loop gives it nothing
// but the conversion, which works in memory only: every transfer and every
// message stays on the loop's own thread.
class SideJob {
public:
    SideJob() = default;
    ~SideJob();  // waits for the job under way, then ends the thread
    SideJob(const SideJob&) = delete;
    SideJob& operator=(const SideJob&) = delete;

    // Begins the job; one still under way is waited for first. Without a
    // thread to be had, the job runs here and now.
    void Start(std::function<void()> job);
    // Waits for the job under way, if any.
    void Wait();

private:
    void Serve();

    std::mutex mutex;
    std::condition_variable changed;
    std::function<void()> job;  // handed over and not yet done while busy
    bool busy = false;
    bool closing = false;
    std::thread worker;
};

// What the run does with one block of frames first to last.
struct BlockSteps {
    // Reads the block into buffer; true when every picture came in. What a
    // failed read has to say is held until `reportRead`.
    std::function<bool(int first, int last, void* buffer)> read;
    // Shows what the last read had to say; called where a loop without
    // overlap would have made that read (after the block before is written).
    std::function<void()> reportRead;
    // Converts the block held in buffer into the run's output blocks.
    std::function<void(void* buffer, int first, int last)> convert;
    // Writes the converted block: null, or the message that ends the run.
    std::function<const char*(int first, int last)> write;
};

// Streams frames 0 to frames - 1 in blocks of blockFrames (the last block
// may be shorter), reading into inputs[0] and inputs[1] in turn. Returns
// null when the run may close normally, else the message that ends it;
// nothing runs on the second thread by then.
const char* streamBlocks(int32_t frames, int blockFrames, void* const inputs[2], const BlockSteps& steps);
