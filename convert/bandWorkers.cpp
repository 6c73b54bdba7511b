#include "convert/bandWorkers.h"

BandWorkers::BandWorkers(int threads) : threads_(threads < 1 ? 1 : threads)
{
    for (int i = 1; i < threads_; ++i)
        helpers_.emplace_back([this, i] { serve(i); });
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

void BandWorkers::share(int index)
{
    for (int band = index; band < bands_; band += threads_)
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
        pending_ = threads_ - 1;
        ++generation_;
    }
    start_.notify_all();
    share(0);
    std::unique_lock<std::mutex> lock(mutex_);
    done_.wait(lock, [this] { return pending_ == 0; });
    job_ = nullptr;
}

void BandWorkers::serve(int index)
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
        share(index);
        {
            std::lock_guard<std::mutex> lock(mutex_);
            --pending_;
        }
        done_.notify_one();
    }
}
