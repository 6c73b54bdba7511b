// File system controls the clip store relies on: switching a descriptor to
// unbuffered (direct) I/O and learning its limits, a scratch file for probing
// a directory's file system, space reservation, the block map and the file
// system's type name. Results follow the system-call habit: 0 (or a
// descriptor) on success, -1 with errno set on failure.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

// Direct-I/O limits of a file system: buffer address alignment, minimum
// transfer (and offset) granularity, largest transfer per call.
struct dioattr {
    uint32_t d_mem;
    uint32_t d_miniosz;
    uint32_t d_maxiosz;
};

// What a descriptor gets when nothing better is known.
constexpr dioattr kDefaultDioattr{4096, 4096, 4194304};

// One record of a block map. Offsets and lengths are in 512-byte units;
// bmv_block is -1 for a hole. Record 0 of an array is the request (offset,
// length, count of records including record 0) and gets bmv_entries, the
// number of records filled from 1 onwards.
struct getbmap {
    int64_t bmv_offset;
    int64_t bmv_block;
    int64_t bmv_length;
    int32_t bmv_count;
    int32_t bmv_entries;
};

// Largest name fsTypeName writes, terminating NUL included.
constexpr int kFsTypeNameSize = 16;

// Adds O_DIRECT to the descriptor's status flags. Fails where the file
// system refuses unbuffered I/O (tmpfs, for one).
int fsSetDirect(int fd);

// Direct-I/O limits of the file system that holds fd. Fails (errno EINVAL)
// when the file system reports no direct-I/O alignment at all.
int fsGetDioInfo(int fd, dioattr* info);

// An empty scratch file in the directory that holds `path` (never in
// TMPDIR: the probe must see the clip's own file system), for learning the
// direct-I/O limits. It has no name: a nameless file where the file system
// makes them, otherwise a uniquely named one removed at once. Closing the
// descriptor is all the clean-up there is, and a run killed at any moment
// leaves nothing in the directory.
int fsOpenProbe(const char* path);

// Reserves disk space for bytes [0, length) without changing the file size:
// the file never looks longer than what has been written to it.
int fsReserveSpace(int fd, int64_t length);

// One extent of a file: its place in the file and on the device, in bytes,
// and whether it is only reserved (allocated, never written).
struct FileExtent {
    int64_t offset;
    int64_t physical;
    int64_t length;
    bool unwritten;
};

// Calls visit for each extent of fd that meets [start, end), in order,
// until visit returns false or the extents end. The file's written pages
// are flushed first, so that the map shows them. -1 (errno set) where the
// file system has no extent map.
int fsWalkExtents(int fd, int64_t start, int64_t end, const std::function<bool(const FileExtent&)>& visit);

// Fills map[1..] from the file's extents for the range in map[0]
// (bmv_offset, bmv_length with -1 for "to the end", bmv_count), and sets
// map[0].bmv_entries. Holes between extents get records of their own.
int fsGetBmap(int fd, getbmap* map);

// Type name of the mounted file system that holds fd ("ext4", "xfs", ...),
// at most kFsTypeNameSize - 1 characters and a NUL.
int fsTypeName(int fd, char* name);
