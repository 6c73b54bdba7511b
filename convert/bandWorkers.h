// BandWorkers: a fixed set of threads that share out the bands of a job. Band
// b always goes to thread b % threads, and every band writes only its own
// part of the result, so the bytes made do not depend on the number of
// threads or on which thread runs first.
#pragma once

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
    void serve(int index);
    void share(int index);

    int threads_;
    std::vector<std::thread> helpers_;
    std::mutex mutex_;
    std::condition_variable start_;
    std::condition_variable done_;
    const std::function<void(int)>* job_ = nullptr;
    int bands_ = 0;
    unsigned generation_ = 0;
    int pending_ = 0;
    bool stopping_ = false;
};
