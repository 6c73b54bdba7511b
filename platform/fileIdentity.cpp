#include "platform/fileIdentity.h"

#include "platform/fsControl.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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

namespace {

// The first byte at or after `from` that the extent map shows as no written
// data: a gap between extents, an unwritten (reserved) extent, or the end
// of the last extent. -1 when the file system has no extent map.
int64_t firstGapInExtents(int fd, int64_t from, int64_t size)
{
    int64_t cursor = from, gap = -1;
    const int walked = fsWalkExtents(fd, from, size, [&](const FileExtent& e) {
        if (e.offset > cursor || e.unwritten) {
            gap = cursor;  // the hole before it begins here, or the reserved extent holds this byte
            return false;
        }
        cursor = std::max(cursor, e.offset + e.length);
        return cursor < size;
    });
    if (walked < 0)
        return -1;
    return gap >= 0 ? gap : std::min(cursor, size);
}

}  // namespace

int64_t fsNextHole(int fd, int64_t from)
{
    struct stat st;
    if (fstat(fd, &st) != 0)
        return -1;
    if (from >= st.st_size)
        return st.st_size;
    // The extent map tells reserved space from written data whatever the
    // cache holds; SEEK_HOLE, where there is no map (tmpfs), would count
    // reserved space as data once something has read it.
    const int64_t gap = firstGapInExtents(fd, from, st.st_size);
    if (gap >= 0)
        return gap;
    const off_t hole = lseek(fd, from, SEEK_HOLE);
    if (hole < 0)
        return errno == ENXIO || errno == EINVAL ? st.st_size : -1;
    return hole < st.st_size ? hole : st.st_size;
}
