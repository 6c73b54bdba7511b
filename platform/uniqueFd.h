// A descriptor owned by one object and closed with it.
#pragma once

#include <unistd.h>

class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() { Reset(); }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.Release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept
    {
        if (this != &other)
            Reset(other.Release());
        return *this;
    }

    int Get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    bool IsOpen() const { return fd_ >= 0; }
    // Gives the descriptor up, unclosed.
    int Release()
    {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }
    void Reset(int fd = -1)
    {
        if (fd_ >= 0)
            close(fd_);
        fd_ = fd;
    }

private:
    int fd_ = -1;
};
