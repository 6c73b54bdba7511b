// Control orders: questions about the clip's file system and limits, space
// reservation, the block map, and header fields changed in place.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>

#include "clipfile/vXfsFile.h"
#include "clipfile/vXfsFileInternal.h"
#include "device/assertions.h"
#include "platform/fsControl.h"
#include "platform/uniqueFd.h"

using xfsfile::kSource;
using xfsfile::openClip;

namespace {

// Clamps a count of kilobytes to what an int answer can carry.
int kbAnswer(uint64_t kb) { return kb > static_cast<uint64_t>(INT_MAX) ? INT_MAX : static_cast<int>(kb); }

}  // namespace

int vXfsFile::GetFreeDiskSpace_Kb(const char* path)
{
    sync();
    if (path == nullptr || path[0] == '\0') {
        std::printf("No path defined [vXfsFile::GetFreeDiskSpace_Kb]\n");
        return 0;
    }
    struct statvfs sv;
    if (statvfs(path, &sv) < 0) {
        std::printf("Unable to get path descriptor [vXfsFile::GetFreeDiskSpace_Kb]\n");
        return 0;
    }
    return kbAnswer(uint64_t{sv.f_frsize} * sv.f_bavail / 1024);
}

// Rewrites one header field of the file `name` in place. The clip may be
// open: its own descriptor is put aside while the header is rewritten
// through a descriptor of our own, and given back afterwards. If the header
// cannot be read, the object keeps the settings it had.
int vXfsFile::ChangeHeaderField(int order, int32_t value)
{
    struct stat st;
    if (stat(name, &st) < 0) {
        std::printf("Unable to locate file %s\n", name);
        return 0;
    }
    const int ownDescriptor = descriptor;
    const bool ownDirect = directIO;
    const fileHeader kept(header);
    const int32_t keptReplaceable = replaceable;
    const int32_t keptBlockSize = blockSize;
    const int32_t keptDataOffset = dataOffset;

    const UniqueFd fd(S_ISREG(st.st_mode) ? openClip(name, O_RDWR | O_NONBLOCK) : -1);
    int result = 0;
    if (!fd) {
        std::printf("Unable to read %s's header.\n", name);
    } else {
        descriptor = fd.Get();
        if (!ReadHead(descriptor, header)) {
            std::printf("Unable to read %s's header.\n", name);
            header = kept;
            replaceable = keptReplaceable;
            blockSize = keptBlockSize;
            dataOffset = keptDataOffset;
        } else {
            if (order == XFS_CHANGE_NUM_FRAMES)
                header.numFrames = value;
            else
                replaceable = value;
            if (!WriteHead(descriptor, header))
                std::printf("Unable to change %s's header.\n", name);
            else
                result = 1;
        }
    }
    descriptor = ownDescriptor;
    directIO = ownDirect;
    return result;
}

namespace {

// A number carried in the pointer's value rather than pointed to.
uint32_t byValue(void* arg) { return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(arg)); }

// Orders that answer through an int.
int answer(void* arg, int value)
{
    ASSERT_NZERO(arg != nullptr, kSource, __LINE__);
    *static_cast<int*>(arg) = value;
    return 1;
}

}  // namespace

int vXfsFile::OrderMaxIoSize(void* arg) { return answer(arg, static_cast<int>(dio.d_maxiosz)); }

int vXfsFile::OrderFreeSpaceKb(void* arg) { return answer(arg, GetFreeDiskSpace_Kb(name)); }

int vXfsFile::OrderFreeSpaceMb(void* arg)
{
    return answer(arg, static_cast<int>(static_cast<uint32_t>(GetFreeDiskSpace_Kb(name)) >> 10));
}

int vXfsFile::OrderFreeImages(void* arg)
{
    const int slot = ImageSize();
    if (slot == 0) {
        // Nothing to divide by: the parameters describe no frame.
        std::printf("No valid frame size for %s [vXfsFile::IOCtl]\n", name);
        answer(arg, -1);
        return 0;
    }
    // Small slots on a large disk can number more than an int holds.
    const int64_t freeBytes = int64_t{GetFreeDiskSpace_Kb(name)} * 1024;
    const int64_t images = freeBytes / slot - 1;
    return answer(arg, images > INT_MAX ? INT_MAX : static_cast<int>(images));
}

int vXfsFile::OrderFsType(void* arg)
{
    if (descriptor == 0) {
        std::printf("Unable to perform IOCtl operation (GET FS TYPE), file not opened.\n");
        return 0;
    }
    char type[kFsTypeNameSize];
    if (fsTypeName(descriptor, type) < 0) {
        std::printf("Unable to statvfs\n");
        return 0;
    }
    ASSERT_NZERO(arg != nullptr, kSource, __LINE__);
    std::memcpy(arg, type, std::strlen(type) + 1);
    return 1;
}

int vXfsFile::OrderAllocateImages(void* arg)
{
    if (descriptor == 0) {
        std::printf("Unable to perform IOCtl operation (ALLOCATE IMAGES), file not opened.\n");
        return 0;
    }
    // Space is reserved without making the file any longer: a clip is as
    // long as what has been written to it, so a run that stops early leaves
    // a clip that shows how far it got. Where the file system cannot
    // reserve, nothing else is tried: lengthening the file with holes in
    // place of the reservation would make a clip whose frames were never
    // written look complete.
    const int64_t length = int64_t{dataOffset} + int64_t{byValue(arg)} * ImageSize();
    if (fsReserveSpace(descriptor, length) == 0)
        return 1;
    std::perror("Error trying to allocate file [vXfsFile::IOCtl]");
    return 0;
}

int vXfsFile::OrderSetReplaceable(void* arg)
{
    replaceable = arg != nullptr ? 1 : 0;
    return 1;
}

int vXfsFile::OrderSetBlockSize(void* arg)
{
    const auto size = static_cast<int32_t>(byValue(arg));
    if (size <= 0) {
        // Frames are laid out in whole blocks; refuse rather than keep a
        // block size that no clip could be written with.
        std::printf("Invalid block size %d [vXfsFile::IOCtl]\n", size);
        return 0;
    }
    blockSize = size;
    return 1;
}

int vXfsFile::OrderBmap(void* arg)
{
    if (descriptor == 0)
        return 1;
    ASSERT_NZERO(arg != nullptr, kSource, __LINE__);
    auto* map = static_cast<getbmap*>(arg);
    map[0].bmv_offset = 0;
    map[0].bmv_length = -1;
    map[0].bmv_count = kBmapRecords;
    if (fsGetBmap(descriptor, map) != 0) {
        std::perror("Unable to get bmap");
        return 0;
    }
    return 1;
}

int vXfsFile::OrderFileSizeKb(void* arg)
{
    if (descriptor == 0)
        return 1;
    struct stat st;
    if (fstat(descriptor, &st) < 0) {
        std::printf("Unable to stat\n");
        return 0;
    }
    return answer(arg, kbAnswer(static_cast<uint64_t>(st.st_size) / 1024));
}

int vXfsFile::OrderChangeNumFrames(void* arg)
{
    return ChangeHeaderField(XFS_CHANGE_NUM_FRAMES, static_cast<int32_t>(byValue(arg)));
}

int vXfsFile::OrderMemAlignment(void* arg) { return answer(arg, static_cast<int>(dio.d_mem)); }

int vXfsFile::OrderChangeReplaceable(void* arg)
{
    return ChangeHeaderField(XFS_CHANGE_REPLACEABLE, static_cast<int32_t>(byValue(arg)));
}

int vXfsFile::OrderFsSizeKb(void* arg)
{
    struct statvfs sv;
    if (statvfs(name, &sv) < 0) {
        std::printf("Unable to get path descriptor \n");
        return 0;
    }
    return answer(arg, kbAnswer(uint64_t{sv.f_frsize} * sv.f_blocks / 1024));
}

int vXfsFile::IOCtl(int order, void* arg)
{
    // One function per order, by its number; 0 and the numbers past the
    // table are no orders.
    static constexpr int (vXfsFile::*kOrders[])(void*) = {
        nullptr,
        &vXfsFile::OrderMaxIoSize,
        &vXfsFile::OrderFreeSpaceKb,
        &vXfsFile::OrderFreeSpaceMb,
        &vXfsFile::OrderFreeImages,
        &vXfsFile::OrderFsType,
        &vXfsFile::OrderAllocateImages,
        &vXfsFile::OrderSetReplaceable,
        &vXfsFile::OrderSetBlockSize,
        &vXfsFile::OrderBmap,
        &vXfsFile::OrderFileSizeKb,
        &vXfsFile::OrderChangeNumFrames,
        &vXfsFile::OrderMemAlignment,
        &vXfsFile::OrderChangeReplaceable,
        &vXfsFile::OrderFsSizeKb,
    };
    static_assert(sizeof kOrders / sizeof kOrders[0] == XFS_GET_FS_SIZE_KB + 1, "one entry per order");
    if (order <= 0 || order > XFS_GET_FS_SIZE_KB) {
        std::printf("Unrecognized IOCtl order [vXfsFile::IOCtl]\n");
        std::fflush(stdout);
        ASSERT_ZERO(kSource, __LINE__);
    }
    return (this->*kOrders[order])(arg);
}
