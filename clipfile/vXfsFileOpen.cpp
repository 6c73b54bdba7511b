// Opening and closing: reading an existing clip, claiming and opening for
// writing (new, replaced or preserved clips), and the direct-I/O set-up.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "clipfile/vXfsFile.h"
#include "clipfile/vXfsFileInternal.h"
#include "device/assertions.h"
#include "platform/fileIdentity.h"
#include "platform/fsControl.h"
#include "platform/uniqueFd.h"

using xfsfile::keepOffStandardInput;
using xfsfile::kSource;
using xfsfile::openClip;

namespace {

// Bytes of a header of this version on disk.
int64_t headerBytes(int32_t version) { return version == 1 ? 40 : 44; }

}  // namespace

void vXfsFile::CloseDescriptor()
{
    if (descriptor > 0)
        close(descriptor);
    descriptor = 0;
    directIO = false;
}

int vXfsFile::OpenForReading()
{
    if (name[0] == '\0') {
        std::printf("No file name defined\n");
        return 0;
    }
    // Only a regular file can be a clip. Looking first gives the clearer
    // message; opening without blocking and looking again at what was
    // opened keeps a FIFO put there in between from holding us up.
    struct stat st;
    if (stat(name, &st) == 0 && !S_ISREG(st.st_mode)) {
        if (S_ISDIR(st.st_mode))
            std::printf("%s is a directory [vXfsFile::OpenForReading]\n", name);
        else
            std::printf("%s is not a regular file [vXfsFile::OpenForReading]\n", name);
        return 0;
    }
    descriptor = openClip(name, O_RDONLY | O_NONBLOCK | O_NOCTTY);
    if (descriptor < 0) {
        std::perror(name);
        descriptor = 0;
        return 0;
    }
    if (fstat(descriptor, &st) != 0 || !S_ISREG(st.st_mode)) {
        std::printf("%s is not a regular file [vXfsFile::OpenForReading]\n", name);
        CloseDescriptor();
        return 0;
    }
    if (!ReadHead(descriptor, header)) {
        std::printf("Unable to read %s's header, or it is not a Vetra file "
                    "[vXfsFile::OpenForReading]\n",
                    name);
        CloseDescriptor();  // a failed open holds no file
        return 0;
    }
    SetDirectIO();
    return 1;
}

FileIdentity vXfsFile::Identity() const
{
    if (descriptor > 0)
        return fsIdentityOf(descriptor);
    if (claim.active && claim.fd > 0)
        return fsIdentityOf(claim.fd);
    return examined;
}

void vXfsFile::DropClaim()
{
    if (claim.fd > 0)
        close(claim.fd);  // a nameless new clip vanishes with it
    claim = WriteClaim{};
}

int vXfsFile::ClaimForWriting(const FileIdentity* avoid, int avoidCount)
{
    DropClaim();
    examined = FileIdentity{};
    if (name[0] == '\0') {
        std::printf("No file name defined\n");
        std::fflush(stdout);
        ASSERT_ZERO(kSource, 185);
    }
    struct stat st;
    if (stat(name, &st) == 0)
        return ClaimExistingClip(avoid, avoidCount);
    if (errno != ENOENT) {
        // Something is in the way that we cannot look at: do not guess.
        std::perror(name);
        return 0;
    }
    return ClaimNewClip();
}

// A new clip is made without a name and named only once its header is
// written (FinishClaim): nothing half made ever shows in the directory, and
// a name that appears meanwhile is not replaced. Where the file system has
// no nameless files, the clip is created by name when it is opened.
int vXfsFile::ClaimNewClip()
{
    if (!CheckLayout("vXfsFile::OpenForWriting"))
        return 0;
    const int fd = fsCreateUnnamed(name, O_RDWR, 0666);
    if (fd < 0 && errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL) {
        std::perror(name);
        return 0;
    }
    claim.active = true;
    claim.fresh = true;
    claim.fd = fd >= 0 ? keepOffStandardInput(fd) : 0;
    examined = Identity();
    return 1;
}

int vXfsFile::ClaimExistingClip(const FileIdentity* avoid, int avoidCount)
{
    // The file exists. It is examined through a descriptor of our own, and
    // everything that follows works on that same file, whatever its name
    // leads to by then.
    const fileHeader kept(header);
    const int32_t keptReplaceable = replaceable;
    const int32_t keptBlockSize = blockSize;
    const int32_t keptDataOffset = dataOffset;
    // Puts back the caller's settings after the existing clip's were read.
    auto restore = [&] {
        header = kept;
        replaceable = keptReplaceable;
        blockSize = keptBlockSize;
        dataOffset = keptDataOffset;
    };

    if (!OpenForReading()) {
        std::printf("Unable to check existing file for writting [vXfsFile::OpenForWriting]\n");
        restore();
        return 0;
    }
    examined = fsIdentityOf(descriptor);
    for (int k = 0; k < avoidCount; ++k)
        if (fsSameFile(examined, avoid[k])) {
            CloseForReading();
            restore();
            return -1;
        }
    const int writer = fsReopen(descriptor, name, O_RDWR | O_NONBLOCK | O_NOCTTY);
    const int openError = errno;
    const int32_t oldVersion = header.version;
    CloseForReading();

    if (replaceable != 0) {
        // The caller's clip will take the place of the old one; the block
        // size stays the one the old clip was laid out with.
        const int32_t existingBlockSize = blockSize;
        restore();
        blockSize = existingBlockSize;
        if (writer < 0) {
            errno = openError;
            std::perror(name);
            return 0;
        }
        if (!CheckLayout("vXfsFile::OpenForWriting")) {
            close(writer);
            return 0;
        }
        claim.active = true;
        claim.fd = keepOffStandardInput(writer);
        claim.oldVersion = oldVersion;
        return 1;
    }

    // A preserved clip is opened in place, and the object describes the clip
    // on disk from here on, not the caller's settings.
    descriptor = writer < 0 ? 0 : keepOffStandardInput(writer);
    if (descriptor <= 0 || !ReadHead(descriptor, header)) {
        std::printf("Unable to read %s's header. [vXfsFile::OpenForWriting]\n", name);
        CloseDescriptor();
        restore();
        return 0;
    }
    claim.active = true;
    claim.keep = true;
    claim.fd = descriptor;
    descriptor = 0;
    return 1;
}

int vXfsFile::OpenForWriting()
{
    if (!claim.active && ClaimForWriting() <= 0)
        return 0;
    return FinishClaim();
}

// Takes the claim over as the open clip. A replaced clip is first cut back
// to its old header, then given the new one, so that at every moment the
// file is a clip that claims no frame it does not hold; a header that
// cannot be written leaves no new file behind.
int vXfsFile::FinishClaim()
{
    const WriteClaim taken = claim;
    claim = WriteClaim{};
    descriptor = taken.fd;
    if (taken.keep) {
        SetDirectIO();
        return 1;
    }

    bool createdByName = false;
    if (taken.fresh && descriptor == 0) {
        // O_EXCL: a file that appeared since we looked is refused, not emptied.
        descriptor = openClip(name, O_RDWR | O_CREAT | O_EXCL, 0666);
        if (descriptor < 0) {
            std::perror(name);
            descriptor = 0;
            return 0;
        }
        createdByName = true;
    }
    auto undo = [&] {
        if (createdByName && fsSameFile(fsIdentityOfPath(name), fsIdentityOf(descriptor)))
            unlink(name);
        CloseDescriptor();
    };
    if (!taken.fresh && ftruncate(descriptor, headerBytes(taken.oldVersion)) != 0) {
        std::perror(name);
        CloseDescriptor();
        return 0;
    }
    if (!WriteHead(descriptor, header)) {
        std::printf("Unable to write %s's header. [vXfsFile::OpenForWriting]\n", name);
        undo();
        return 0;
    }
    if (taken.fresh && !createdByName && fsNameUnnamed(descriptor, name) != 0) {
        std::perror(name);
        CloseDescriptor();
        return 0;
    }
    SetDirectIO();
    return 1;
}

int vXfsFile::CloseForReading()
{
    CloseDescriptor();
    return 1;
}

int vXfsFile::CloseForWriting()
{
    CloseDescriptor();
    return 1;
}

void vXfsFile::SetDirectIO()
{
    // The limits are learnt on a nameless scratch file next to the clip, so
    // they are those of the file system that really holds it.
    const UniqueFd probe(fsOpenProbe(name));
    if (!probe) {
        std::perror("ERROR: Unable to define direct IO");
        dio = kDefaultDioattr;
        return;
    }
    if (fsSetDirect(probe.Get()) < 0) {
        dio = kDefaultDioattr;
        return;
    }
    dioattr learnt{};
    if (fsGetDioInfo(probe.Get(), &learnt) < 0) {
        std::printf("Unable to get IO information [vXfsFile::OpenForWriting]\n");
        dio = kDefaultDioattr;
        return;
    }
    dio = learnt;

    if (blockSize > 0 && static_cast<uint32_t>(blockSize) == dio.d_miniosz) {
        directIO = fsSetDirect(descriptor) == 0;
    } else {
        std::printf("XFS block size and required block size are not the same.\n");
    }
}
