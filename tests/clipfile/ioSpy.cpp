#include "ioSpy.h"

#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

int watched = -1;
std::vector<IoCall> calls;

void note(int fd, char kind, const iovec* v, int n, int64_t offset)
{
    int64_t bytes = 0;
    for (int k = 0; k < n; ++k)
        bytes += static_cast<int64_t>(v[k].iov_len);
    if (fd == watched)
        calls.push_back(IoCall{kind, bytes, offset, n});
}

}  // namespace

void SpyStart(int fd)
{
    calls.clear();
    watched = fd;
}

std::vector<IoCall> SpyStop()
{
    watched = -1;
    return std::move(calls);
}

// These definitions take the place of the C library's entry points in the
// test program and pass every call on to the kernel unchanged.
extern "C" ssize_t pread64(int fd, void* buf, size_t n, off64_t offset)
{
    const iovec one{buf, n};
    note(fd, 'r', &one, 1, offset);
    return syscall(SYS_pread64, fd, buf, n, offset);
}

extern "C" ssize_t pwrite64(int fd, const void* buf, size_t n, off64_t offset)
{
    const iovec one{const_cast<void*>(buf), n};
    note(fd, 'w', &one, 1, offset);
    return syscall(SYS_pwrite64, fd, buf, n, offset);
}

extern "C" ssize_t readv(int fd, const struct iovec* v, int n)
{
    note(fd, 'R', v, n, -1);
    return syscall(SYS_readv, fd, v, n);
}

extern "C" ssize_t writev(int fd, const struct iovec* v, int n)
{
    note(fd, 'W', v, n, -1);
    return syscall(SYS_writev, fd, v, n);
}
