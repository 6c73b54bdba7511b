// BandWorkers: a fixed set of threads that share out the bands of a job, each
// taking the next band not yet taken. Every band writes only its own part of
// the result and reads nothing another band of the same job writes, so the
// bytes made do not depend on the number of threads or on which thread runs
// which band.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

class BandWorkers {
public:
    explicit BandWorkers(int threads);
    ~BandWorkers();
    BandWorkers(const BandWorkers&) = delete;
    BandWorkers& operator=(const BandWorkers&) = delete;

    // Runs job(band) for every band from 0 to bands - 1 and returns when all
    // are done; the calling thread takes its share.
    void run(int bands, const std::function<void(int)>& job);

    int threads() const { return threads_; }

private:
    void serve();
    void share();

    int threads_;
    std::vector<std::thread> helpers_;
    std::mutex mutex_;
    std::condition_variable start_;
    std::condition_variable done_;
    const std::function<void(int)>* job_ = nullptr;
    int bands_ = 0;
    std::atomic<int> next_{0};
    unsigned generation_ = 0;
    int pending_ = 0;
    bool stopping_ = false;
};
