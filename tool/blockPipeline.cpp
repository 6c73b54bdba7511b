#include "tool/blockPipeline.h"

#include <system_error>
#include <utility>

SideJob::~SideJob()
{
    {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [this] { return !busy; });
        closing = true;
    }
    changed.notify_all();
    if (worker.joinable())
        worker.join();
}

void SideJob::Start(std::function<void()> next)
{
    Wait();
    if (!worker.joinable()) {
        try {
            worker = std::thread(&SideJob::Serve, this);
        } catch (const std::system_error&) {
            // No thread to be had (the process is at its limit): the job runs
            // here and now, which gives the same result, only later.
            next();
            return;
        }
    }
    {
        std::lock_guard<std::mutex> lock(mutex);
        job = std::move(next);
        busy = true;
    }
    changed.notify_all();
}

void SideJob::Wait()
{
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [this] { return !busy; });
}

// The thread's loop: each job handed over runs outside the lock, and its end
// is announced under it, so that what the job wrote is seen by the waiter.
void SideJob::Serve()
{
    std::unique_lock<std::mutex> lock(mutex);
    for (;;) {
        changed.wait(lock, [this] { return busy || closing; });
        if (!busy)
            return;
        const std::function<void()> current = std::move(job);
        lock.unlock();
        current();
        lock.lock();
        busy = false;
        changed.notify_all();
    }
}

// Block b is converted on a second thread while this one reads block b + 1,
// and the conversion is waited for before block b is written. All transfers
// stay on this thread, one at a time, in the order of a loop that reads,
// converts and writes one block after the other, except that block b + 1 is
// read before block b is written rather than after.
//
// Measured on 250 frames of 720x576, ext4 over a virtual disk, programs
// alternating over 11 to 15 rounds (medians, frames/s):
//   - one block after the other: 650 to 710 with 4 KB-page buffers;
//   - reading on the second thread during both the conversion and the
//     writes: 644 and 600 against 699 and 613 for the plain loop; a read
//     beside a write only shares the disk;
//   - reading on the second thread during the conversion only: 1,563 with
//     large-page buffers, but the new thread often got the processor only
//     once the conversion was done;
//   - converting on the second thread while this one reads (here): 1,814
//     against 1,563, with the plain read/write program at 1,883. A read
//     blocks in the system at once and leaves the processor to the
//     conversion, so the overlap holds even when only one core is free.
//
// The result of a read is looked at only when its block's turn comes, after
// the block before it is written, as if it had been read then: a failed read
// of a full block ends the run with its message once the block before it is
// written (whose own failures end the run first); a failed read of the short
// block drops it without a message, and the run closes normally with the
// outputs ending after the last full block. The clip store's own line for a
// failed read (standard error) is held with the read and shown at that same
// point, so the messages are those of the loop without overlap, in its order.
const char* streamBlocks(int32_t frames, int blockFrames, void* const inputs[2], const BlockSteps& steps)
{
    if (frames <= 0 || blockFrames <= 0)
        return nullptr;
    const int32_t fullBlocks = frames / blockFrames;
    const int32_t blocks = fullBlocks + (int64_t{fullBlocks} * blockFrames < frames ? 1 : 0);
    auto firstOf = [&](int32_t b) { return b * blockFrames; };
    auto lastOf = [&](int32_t b) { return b < fullBlocks ? b * blockFrames + blockFrames - 1 : frames - 1; };

    SideJob converter;
    bool loaded = steps.read(firstOf(0), lastOf(0), inputs[0]);
    for (int32_t b = 0; b < blocks; ++b) {
        const int first = firstOf(b);
        const int last = lastOf(b);
        if (steps.reportRead)
            steps.reportRead();
        if (!loaded)
            return b < fullBlocks ? "Unable to load PAL images\n" : nullptr;
        void* const block = inputs[b & 1];
        converter.Start([&steps, block, first, last] { steps.convert(block, first, last); });
        loaded = b + 1 < blocks && steps.read(firstOf(b + 1), lastOf(b + 1), inputs[(b + 1) & 1]);
        converter.Wait();
        if (const char* failure = steps.write(first, last))
            return failure;
    }
    return nullptr;
}
