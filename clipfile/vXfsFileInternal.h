// What the files of vXfsFile share and nothing else uses.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace xfsfile {

// Source name printed by the assertion stops.
constexpr const char* kSource = "vXfsFile";

// open() that never yields descriptor 0: the clip keeps 0 for "no file open",
// so a process started with standard input closed must not get its clip
// there. Close-on-exec, as nothing we start should inherit a clip.
inline int openClip(const char* path, int flags, mode_t perms = 0)
{
    int fd = open(path, flags | O_CLOEXEC, perms);
    if (fd == 0) {
        const int moved = fcntl(fd, F_DUPFD_CLOEXEC, 3);
        const int saved = errno;
        close(fd);
        errno = saved;
        fd = moved;
    }
    return fd;
}

// The same for a descriptor we already have.
inline int keepOffStandardInput(int fd)
{
    if (fd != 0)
        return fd;
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, 3);
    close(fd);
    return moved;
}

}  // namespace xfsfile
