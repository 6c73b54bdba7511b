// FrameQueue: frames handed from one thread to another through a few buffers
// that go round, so that reading, converting and writing a stream overlap
// while memory stays at those few frames. One thread fills, one takes.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

class FrameQueue {
public:
    explicit FrameQueue(int slots) : buffers_(static_cast<size_t>(slots)) {}

    // Filler: a buffer for the next frame, waiting while every one is taken;
    // nullptr once the taker has stopped. Filled() hands it over.
    std::vector<uint8_t>* Fill();
    void Filled();
    // Filler: no frame comes after the ones handed over.
    void Finish();

    // Taker: the next frame in order, waiting for it; nullptr after the last
    // one or once stopped. Done() gives its buffer back.
    const std::vector<uint8_t>* Take();
    void Done();
    // Taker: no more frames are wanted.
    void Stop();

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::vector<uint8_t>> buffers_;
    size_t first_ = 0;  // the next frame to take
    size_t held_ = 0;   // frames handed over and not yet given back
    bool finished_ = false, stopped_ = false;
};
