#include "convert/bandWorkers.h"

BandWorkers::BandWorkers(int threads) : threads_(threads < 1 ? 1 : threads)
{
    for (int i = 1; i < threads_; ++i)
        helpers_.emplace_back([this] { serve(); });
}

BandWorkers::~BandWorkers()
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    start_.notify_all();
    for (auto& helper : helpers_)
        helper.join();
}

// Bands are taken in turn by whichever thread is free, so that a thread
// with cheap bands does not wait for one with dear ones.
void BandWorkers::share()
{
    for (int band = next_.fetch_add(1, std::memory_order_relaxed); band < bands_;
         band = next_.fetch_add(1, std::memory_order_relaxed))
        (*job_)(band);
}

void BandWorkers::run(int bands, const std::function<void(int)>& job)
{
    if (threads_ == 1) {
        for (int band = 0; band < bands; ++band)
            job(band);
        return;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        job_ = &job;
        bands_ = bands;
        next_.store(0, std::memory_order_relaxed);
        pending_ = threads_ - 1;
        ++generation_;
    }
    start_.notify_all();
    share();
    std::unique_lock<std::mutex> lock(mutex_);
    done_.wait(lock, [this] { return pending_ == 0; });
    job_ = nullptr;
}

void BandWorkers::serve()
{
    unsigned seen = 0;
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(mutex_);
            start_.wait(lock, [&] { return stopping_ || generation_ != seen; });
            if (stopping_)
                return;
            seen = generation_;
        }
        share();
        {
            std::lock_guard<std::mutex> lock(mutex_);
            --pending_;
        }
        done_.notify_one();
    }
}
