#include "ioSpy.h"

#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

int watched = -1;
std::vector<IoCall>* calls = nullptr;

void note(int fd, char kind, int64_t bytes, int64_t offset, int entries)
{
    if (fd == watched && calls != nullptr)
        calls->push_back(IoCall{kind, bytes, offset, entries});
}

int64_t total(const iovec* v, int n)
{
    int64_t sum = 0;
    for (int k = 0; k < n; ++k)
        sum += static_cast<int64_t>(v[k].iov_len);
    return sum;
}

}  // namespace

void SpyStart(int fd)
{
    delete calls;
    calls = new std::vector<IoCall>();
    watched = fd;
}

std::vector<IoCall> SpyStop()
{
    std::vector<IoCall> result = calls != nullptr ? *calls : std::vector<IoCall>();
    delete calls;
    calls = nullptr;
    watched = -1;
    return result;
}

// These definitions take the place of the C library's entry points in the
// test program and pass every call on to the kernel unchanged.
extern "C" ssize_t pread64(int fd, void* buf, size_t n, off64_t offset)
{
    note(fd, 'r', static_cast<int64_t>(n), offset, 1);
    return syscall(SYS_pread64, fd, buf, n, offset);
}

extern "C" ssize_t pwrite64(int fd, const void* buf, size_t n, off64_t offset)
{
    note(fd, 'w', static_cast<int64_t>(n), offset, 1);
    return syscall(SYS_pwrite64, fd, buf, n, offset);
}

extern "C" ssize_t readv(int fd, const struct iovec* v, int n)
{
    note(fd, 'R', total(v, n), -1, n);
    return syscall(SYS_readv, fd, v, n);
}

extern "C" ssize_t writev(int fd, const struct iovec* v, int n)
{
    note(fd, 'W', total(v, n), -1, n);
    return syscall(SYS_writev, fd, v, n);
}
