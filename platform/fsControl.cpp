#include "platform/fsControl.h"

#include "platform/fileIdentity.h"

#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

int fsSetDirect(int fd)
{
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0)
        return -1;
    return fcntl(fd, F_SETFL, flags | O_DIRECT) < 0 ? -1 : 0;
}

int fsGetDioInfo(int fd, dioattr* info)
{
    struct statx sx;
    std::memset(&sx, 0, sizeof sx);
    if (statx(fd, "", AT_EMPTY_PATH, STATX_DIOALIGN | STATX_BASIC_STATS, &sx) < 0)
        return -1;
    // A file system without direct I/O reports no alignment (or an older
    // kernel does not know the query): both read as "no limits".
    if ((sx.stx_mask & STATX_DIOALIGN) == 0 || sx.stx_dio_mem_align == 0 || sx.stx_dio_offset_align == 0) {
        errno = EINVAL;
        return -1;
    }
    info->d_mem = sx.stx_dio_mem_align;
    // Whole file system blocks are the transfers that direct I/O serves
    // best, so the block size is the granularity we ask for when it is a
    // legal one.
    const uint32_t offsetAlign = sx.stx_dio_offset_align;
    info->d_miniosz = (sx.stx_blksize != 0 && sx.stx_blksize % offsetAlign == 0) ? sx.stx_blksize : offsetAlign;
    info->d_maxiosz = kDefaultDioattr.d_maxiosz;
    return 0;
}

int fsOpenProbe(const char* path)
{
    const int unnamed = fsCreateUnnamed(path, O_WRONLY, 0600);
    if (unnamed >= 0)
        return unnamed;
    std::string pattern = fsDirectoryOf(path);
    pattern += pattern.back() == '/' ? "XXXXXX" : "/XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    const int fd = mkostemp(buffer.data(), O_CLOEXEC);
    if (fd >= 0)
        unlink(buffer.data());
    return fd;
}

int fsReserveSpace(int fd, int64_t length) { return fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, length) < 0 ? -1 : 0; }

namespace {

constexpr int64_t kUnit = 512;

void putRecord(getbmap& r, int64_t startByte, int64_t endByte, int64_t block)
{
    r.bmv_offset = startByte / kUnit;
    r.bmv_length = (endByte + kUnit - 1) / kUnit - startByte / kUnit;
    r.bmv_block = block;
    r.bmv_count = 0;
    r.bmv_entries = 0;
}

}  // namespace

int fsWalkExtents(int fd, int64_t start, int64_t end, const std::function<bool(const FileExtent&)>& visit)
{
    constexpr unsigned kBatch = 256;
    std::vector<unsigned char> request(sizeof(fiemap) + kBatch * sizeof(fiemap_extent));
    auto* fm = reinterpret_cast<fiemap*>(request.data());
    int64_t cursor = start;
    // Written pages still in the cache may sit on extents the file system
    // has not allocated or marked written yet: they are flushed first.
    unsigned flags = FIEMAP_FLAG_SYNC;
    while (cursor < end) {
        std::memset(request.data(), 0, request.size());
        fm->fm_start = static_cast<uint64_t>(cursor);
        fm->fm_length = static_cast<uint64_t>(end - cursor);
        fm->fm_flags = flags;
        fm->fm_extent_count = kBatch;
        if (ioctl(fd, FS_IOC_FIEMAP, fm) < 0)
            return -1;
        flags = 0;
        if (fm->fm_mapped_extents == 0)
            return 0;
        for (unsigned k = 0; k < fm->fm_mapped_extents; ++k) {
            const fiemap_extent& e = fm->fm_extents[k];
            const FileExtent extent{static_cast<int64_t>(e.fe_logical), static_cast<int64_t>(e.fe_physical),
                                    static_cast<int64_t>(e.fe_length), (e.fe_flags & FIEMAP_EXTENT_UNWRITTEN) != 0};
            if (!visit(extent) || (e.fe_flags & FIEMAP_EXTENT_LAST) != 0)
                return 0;
            cursor = std::max(cursor, extent.offset + extent.length);
        }
    }
    return 0;
}

int fsGetBmap(int fd, getbmap* map)
{
    if (map == nullptr || map[0].bmv_count < 2 || map[0].bmv_offset < 0) {
        errno = EINVAL;
        return -1;
    }
    struct stat st;
    if (fstat(fd, &st) < 0)
        return -1;
    const int64_t start = map[0].bmv_offset * kUnit;
    const int64_t end = map[0].bmv_length < 0 ? static_cast<int64_t>(st.st_size) : start + map[0].bmv_length * kUnit;
    const int capacity = map[0].bmv_count - 1;
    int filled = 0;
    int64_t cursor = start;
    const int walked = fsWalkExtents(fd, start, end, [&](const FileExtent& e) {
        const int64_t eEnd = std::min(e.offset + e.length, end);
        if (e.offset > cursor) {
            putRecord(map[1 + filled++], cursor, e.offset, -1);  // a hole before the extent
            cursor = e.offset;
            if (filled == capacity)
                return false;
        }
        if (eEnd > cursor) {
            putRecord(map[1 + filled++], cursor, eEnd, (e.physical + (cursor - e.offset)) / kUnit);
            cursor = eEnd;
        }
        return filled < capacity && cursor < end;
    });
    if (walked < 0)
        return -1;
    if (cursor < end && filled < capacity)
        putRecord(map[1 + filled++], cursor, end, -1);  // trailing hole
    map[0].bmv_entries = filled;
    return 0;
}

namespace {

struct MagicName {
    int64_t magic;
    const char* name;
};

// Fallback when the mount table does not name the file's device.
constexpr MagicName kMagicNames[] = {
    {0xEF53, "ext4"}, {0x58465342, "xfs"},     {0x01021994, "tmpfs"}, {0x9123683E, "btrfs"},
    {0x6969, "nfs"},  {0x794C7630, "overlay"}, {0xF2F52010, "f2fs"},  {0x2FC12FC1, "zfs"},
    {0x4D44, "vfat"}, {0x65735546, "fuseblk"}, {0x5346544E, "ntfs"},  {0x858458F6, "ramfs"},
};

void copyName(char* out, const char* name, size_t length)
{
    if (length > static_cast<size_t>(kFsTypeNameSize - 1))
        length = kFsTypeNameSize - 1;
    std::memcpy(out, name, length);
    out[length] = '\0';
}

}  // namespace

int fsTypeName(int fd, char* name)
{
    struct stat st;
    if (fstat(fd, &st) < 0)
        return -1;
    // /proc/self/mountinfo: "id parent major:minor root point options
    // [optional fields] - type source super-options".
    if (FILE* f = std::fopen("/proc/self/mountinfo", "r")) {
        char line[4096];
        bool found = false;
        while (!found && std::fgets(line, sizeof line, f) != nullptr) {
            unsigned major = 0, minor = 0;
            if (std::sscanf(line, "%*d %*d %u:%u", &major, &minor) != 2)
                continue;
            if (makedev(major, minor) != st.st_dev)
                continue;
            const char* sep = std::strstr(line, " - ");
            if (sep == nullptr)
                continue;
            const char* type = sep + 3;
            copyName(name, type, std::strcspn(type, " \n"));
            found = true;
        }
        std::fclose(f);
        if (found)
            return 0;
    }
    struct statfs sf;
    if (fstatfs(fd, &sf) < 0)
        return -1;
    for (const MagicName& m : kMagicNames)
        if (static_cast<int64_t>(static_cast<uint32_t>(sf.f_type)) == m.magic) {
            copyName(name, m.name, std::strlen(m.name));
            return 0;
        }
    copyName(name, "unknown", 7);
    return 0;
}
