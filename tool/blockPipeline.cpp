#include "tool/blockPipeline.h"

#include <system_error>
#include <utility>

BlockReader::BlockReader(Read read_) : read(std::move(read_)) {}

BlockReader::~BlockReader()
{
    Join();
}

void BlockReader::Start(int first, int last, void* buffer)
{
    Join();
    begun = true;
    result = false;
    try {
        worker = std::thread([this, first, last, buffer] { result = read(first, last, buffer); });
    } catch (const std::system_error&) {
        // No thread to be had (the process is at its limit): the block is
        // read here and now, which gives the same bytes, only later.
        result = read(first, last, buffer);
    }
}

bool BlockReader::Finish()
{
    Join();
    const bool loaded = begun && result;
    begun = false;
    result = false;
    return loaded;
}

void BlockReader::Join()
{
    if (worker.joinable())
        worker.join();
}

// Block b + 1 is read while block b is converted, and the read is waited for
// before block b is written, so that the disk never has a read and a write
// of the run at once. Reading ahead during the writes as well was measured
// first and lost: 250 frames of 720x576 on ext4 over a virtual disk,
// alternating with a loop that reads, converts and writes one block after
// the other, 15 rounds twice, gave medians of 644 and 600 frames/s against
// 699 and 613; a read beside a write only shares the disk. Overlapping the
// read with the conversion alone gave 758 and 732 against 712 and 711.
//
// The result of a read is looked at only when its block's turn comes, after
// the block before it is written, as if it had been read then: a failed read
// of a full block ends the run with its message once the block before it is
// written (whose own failures end the run first); a failed read of the short
// block drops it without a message, and the run closes normally with the
// outputs ending after the last full block. What moves is the clip store's
// own line for a failed read, on standard error, which comes before the
// block before it is written rather than after.
const char* streamBlocks(int32_t frames, int blockFrames, void* const inputs[2], const BlockSteps& steps)
{
    if (frames <= 0 || blockFrames <= 0)
        return nullptr;
    const int32_t fullBlocks = frames / blockFrames;
    const int32_t blocks = fullBlocks + (int64_t{fullBlocks} * blockFrames < frames ? 1 : 0);
    auto firstOf = [&](int32_t b) { return b * blockFrames; };
    auto lastOf = [&](int32_t b) { return b < fullBlocks ? b * blockFrames + blockFrames - 1 : frames - 1; };

    BlockReader reader(steps.read);
    bool loaded = steps.read(firstOf(0), lastOf(0), inputs[0]);
    for (int32_t b = 0; b < blocks; ++b) {
        const int first = firstOf(b);
        const int last = lastOf(b);
        if (!loaded)
            return b < fullBlocks ? "Unable to load PAL images\n" : nullptr;
        if (b + 1 < blocks)
            reader.Start(firstOf(b + 1), lastOf(b + 1), inputs[(b + 1) & 1]);
        steps.convert(inputs[b & 1], first, last);
        loaded = reader.Finish();
        if (const char* failure = steps.write(first, last))
            return failure;
    }
    return nullptr;
}
