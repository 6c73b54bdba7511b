// The block loop of the conversion run: reads the input clip block by block,
// converts each block and writes it, reading the next block on a second
// thread while the current one is converted.
#pragma once

#include <cstdint>
#include <functional>
#include <thread>

// Reads one block at a time on a thread of its own, into a buffer that the
// caller hands over and leaves alone until the read is finished. The thread
// only fills that buffer and keeps the result; it is the caller that decides
// what a failed read means, and when to say so.
class BlockReader {
public:
    // One block transfer of frames first to last into buffer; true when
    // every picture of the block came from the file.
    using Read = std::function<bool(int first, int last, void* buffer)>;

    explicit BlockReader(Read read);
    ~BlockReader();  // waits for a read under way
    BlockReader(const BlockReader&) = delete;
    BlockReader& operator=(const BlockReader&) = delete;

    // Begins reading frames first to last into buffer. A read still under
    // way is waited for first, and its result is lost.
    void Start(int first, int last, void* buffer);

    // Waits for the read begun last and gives its result; false when no
    // read was begun since the last Finish.
    bool Finish();

private:
    void Join();

    Read read;
    std::thread worker;
    bool begun = false;   // a read was begun and not yet finished
    bool result = false;  // written by the worker, read after joining it
};

// What the run does with one block of frames first to last.
struct BlockSteps {
    // Reads the block into buffer; true when every picture came in.
    std::function<bool(int first, int last, void* buffer)> read;
    // Converts the block held in buffer into the run's output blocks.
    std::function<void(void* buffer, int first, int last)> convert;
    // Writes the converted block: null, or the message that ends the run.
    std::function<const char*(int first, int last)> write;
};

// Streams frames 0 to frames - 1 in blocks of blockFrames (the last block
// may be shorter), reading into inputs[0] and inputs[1] in turn. Returns
// null when the run may close normally, else the message that ends it; no
// read is under way by then.
const char* streamBlocks(int32_t frames, int blockFrames, void* const inputs[2], const BlockSteps& steps);
