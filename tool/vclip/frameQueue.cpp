#include "tool/vclip/frameQueue.h"

std::vector<uint8_t>* FrameQueue::Fill()
{
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return stopped_ || held_ < buffers_.size(); });
    return stopped_ ? nullptr : &buffers_[(first_ + held_) % buffers_.size()];
}

void FrameQueue::Filled()
{
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        ++held_;
    }
    changed_.notify_all();
}

void FrameQueue::Finish()
{
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        finished_ = true;
    }
    changed_.notify_all();
}

const std::vector<uint8_t>* FrameQueue::Take()
{
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return stopped_ || finished_ || held_ > 0; });
    return stopped_ || held_ == 0 ? nullptr : &buffers_[first_];
}

void FrameQueue::Done()
{
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        first_ = (first_ + 1) % buffers_.size();
        --held_;
    }
    changed_.notify_all();
}

void FrameQueue::Stop()
{
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stopped_ = true;
    }
    changed_.notify_all();
}
