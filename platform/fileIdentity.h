// Which file a name or a descriptor really is. Names can be links, other
// spellings of a path, or /proc/self/fd entries, and a name can be made to
// point elsewhere between two looks at it; so the tools compare the files
// they have open, by device and inode, before a byte of an output changes.
// Both tools take their answers from here.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    bool known = false;  // false: no file (not open, or the name led nowhere)
};

// The file open on fd; unknown when fd is not open.
FileIdentity fsIdentityOf(int fd);

// The file a path leads to now, links followed; unknown when there is none.
// A first, cheap look only: what counts is the identity of what was opened.
FileIdentity fsIdentityOfPath(const char* path);

// One file: both known, same device and inode.
bool fsSameFile(const FileIdentity& a, const FileIdentity& b);

// Whether two names lead to one file now: the same file when both exist,
// the same place in the same directory when neither does ("x" and "./x").
// A first, cheap look, like fsIdentityOfPath.
bool fsSameDestination(const char* a, const char* b);

// Opens the very file that fd has open, again, with other flags (through
// /proc/self/fd, so that no name is looked up a second time). When /proc is
// not there, opens `path` and gives the descriptor only if it is still the
// same file; otherwise -1 with errno ESTALE.
int fsReopen(int fd, const char* path, int flags);

// The directory a new file named `path` would be made in ("." for a bare
// name), as dirname gives it.
std::string fsDirectoryOf(const char* path);

// A new, nameless regular file in the directory that would hold `path`
// (O_TMPFILE): it vanishes with its last descriptor, so a run stopped at
// any moment leaves nothing behind. -1 with errno EOPNOTSUPP (or whatever
// the file system says) where there are no such files.
int fsCreateUnnamed(const char* path, int flags, mode_t mode);

// Gives a nameless file its name. Fails with EEXIST when anything, a
// dangling link included, already has that name: nothing is replaced.
int fsNameUnnamed(int fd, const char* path);

// The first byte at or after `from` that holds no written data: the start
// of a hole or of an unwritten (reserved) extent, or the end of the file.
// Where the file system cannot tell, the end of the file. -1 on error.
int64_t fsNextHole(int fd, int64_t from);
