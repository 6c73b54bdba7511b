#include "platform/fileIdentity.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace {

FileIdentity identityFrom(const struct stat& st)
{
    FileIdentity id;
    id.device = st.st_dev;
    id.inode = st.st_ino;
    id.known = true;
    return id;
}

std::string procPath(int fd) { return "/proc/self/fd/" + std::to_string(fd); }

}  // namespace

FileIdentity fsIdentityOf(int fd)
{
    struct stat st;
    if (fd < 0 || fstat(fd, &st) != 0)
        return {};
    return identityFrom(st);
}

FileIdentity fsIdentityOfPath(const char* path)
{
    struct stat st;
    if (path == nullptr || stat(path, &st) != 0)
        return {};
    return identityFrom(st);
}

bool fsSameFile(const FileIdentity& a, const FileIdentity& b)
{
    return a.known && b.known && a.device == b.device && a.inode == b.inode;
}

namespace {

// Where a file that does not exist yet would be created: the real path of
// its directory and its own name.
std::string placeOfNewFile(const char* path)
{
    const std::string text(path);
    const size_t slash = text.rfind('/');
    const std::string base = slash == std::string::npos ? text : text.substr(slash + 1);
    char* real = realpath(fsDirectoryOf(path).c_str(), nullptr);
    if (!real)
        return text;
    std::string place = std::string(real) + "/" + base;
    std::free(real);
    return place;
}

}  // namespace

bool fsSameDestination(const char* a, const char* b)
{
    const FileIdentity fa = fsIdentityOfPath(a), fb = fsIdentityOfPath(b);
    if (fa.known || fb.known)
        return fsSameFile(fa, fb);
    return placeOfNewFile(a) == placeOfNewFile(b);
}

int fsReopen(int fd, const char* path, int flags)
{
    const FileIdentity was = fsIdentityOf(fd);
    int again = open(procPath(fd).c_str(), flags | O_CLOEXEC);
    if (again < 0 && errno == ENOENT && path != nullptr)
        again = open(path, flags | O_CLOEXEC);  // no /proc: by name, checked below
    if (again < 0)
        return -1;
    if (!fsSameFile(was, fsIdentityOf(again))) {
        close(again);
        errno = ESTALE;
        return -1;
    }
    return again;
}

std::string fsDirectoryOf(const char* path)
{
    std::string dir(path != nullptr ? path : "");
    while (dir.size() > 1 && dir.back() == '/')
        dir.pop_back();
    const size_t slash = dir.rfind('/');
    if (slash == std::string::npos)
        return ".";
    if (slash == 0)
        return "/";
    dir.resize(slash);
    while (dir.size() > 1 && dir.back() == '/')
        dir.pop_back();
    return dir;
}

int fsCreateUnnamed(const char* path, int flags, mode_t mode)
{
#ifdef O_TMPFILE
    return open(fsDirectoryOf(path).c_str(), O_TMPFILE | flags | O_CLOEXEC, mode);
#else
    (void)path;
    (void)flags;
    (void)mode;
    errno = EOPNOTSUPP;
    return -1;
#endif
}

int fsNameUnnamed(int fd, const char* path)
{
    // linkat with AT_EMPTY_PATH needs a privilege; the /proc entry does not.
    return linkat(AT_FDCWD, procPath(fd).c_str(), AT_FDCWD, path, AT_SYMLINK_FOLLOW) < 0 ? -1 : 0;
}

int64_t fsNextHole(int fd, int64_t from)
{
    struct stat st;
    if (fstat(fd, &st) != 0)
        return -1;
    if (from >= st.st_size)
        return st.st_size;
    const off_t hole = lseek(fd, from, SEEK_HOLE);
    if (hole < 0)
        return errno == ENXIO ? st.st_size : (errno == EINVAL ? st.st_size : -1);
    return hole < st.st_size ? hole : st.st_size;
}
