// Records the positioned and gathering transfers made on one descriptor.
// The calls still go to the kernel: nothing about the file system is faked,
// the tests only learn how a transfer was cut into system calls.
#pragma once

#include <cstdint>
#include <vector>

struct IoCall {
    char kind;       // 'r' pread, 'w' pwrite, 'R' readv, 'W' writev
    int64_t bytes;   // bytes asked for (sum over the entries for readv/writev)
    int64_t offset;  // file position (-1 for readv/writev)
    int entries;     // iovec entries (1 for pread/pwrite)
};

void SpyStart(int fd);
std::vector<IoCall> SpyStop();
