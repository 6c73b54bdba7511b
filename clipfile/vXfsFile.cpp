#include "clipfile/vXfsFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "device/assertions.h"

namespace {

// Source name printed by the assertion stops.
constexpr const char* kSource = "vXfsFile";

constexpr uint32_t kClipMagic = 0x000609CE;

// Entries of the gathering table: a vector longer than this goes frame by frame.
constexpr int kMaxGather = 256;

void putBE32(unsigned char* p, uint32_t v)
{
    p[0] = static_cast<unsigned char>(v >> 24);
    p[1] = static_cast<unsigned char>(v >> 16);
    p[2] = static_cast<unsigned char>(v >> 8);
    p[3] = static_cast<unsigned char>(v);
}

uint32_t getBE32(const unsigned char* p)
{
    return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}

void putBE64(unsigned char* p, uint64_t v)
{
    putBE32(p, static_cast<uint32_t>(v >> 32));
    putBE32(p + 4, static_cast<uint32_t>(v));
}

uint64_t getBE64(const unsigned char* p)
{
    return (uint64_t{getBE32(p)} << 32) | getBE32(p + 4);
}

// Reads n bytes, going on after short reads until end of file.
// Returns -1 on error, 0 when the file ended first, 1 when all came.
int readFull(int fd, unsigned char* buffer, size_t n)
{
    size_t got = 0;
    while (got < n) {
        const ssize_t r = read(fd, buffer + got, n - got);
        if (r < 0) {
            if (errno == EINTR)
                continue;
            return -1;
        }
        if (r == 0)
            return 0;
        got += static_cast<size_t>(r);
    }
    return 1;
}

// Writes n bytes, going on after short writes. Returns -1 on error, 1 when done.
int writeFull(int fd, const unsigned char* buffer, size_t n)
{
    size_t put = 0;
    while (put < n) {
        const ssize_t r = write(fd, buffer + put, n - put);
        if (r < 0) {
            if (errno == EINTR)
                continue;
            return -1;
        }
        if (r == 0) {
            errno = EIO;
            return -1;
        }
        put += static_cast<size_t>(r);
    }
    return 1;
}

// open() that never yields descriptor 0: the clip keeps 0 for "no file open",
// so a process started with standard input closed must not get its clip
// there. Close-on-exec, as nothing we start should inherit a clip.
int openClip(const char* path, int flags, mode_t perms = 0)
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
int keepOffStandardInput(int fd)
{
    if (fd != 0)
        return fd;
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, 3);
    close(fd);
    return moved;
}

// Bytes of a header of this version on disk.
int64_t headerBytes(int32_t version) { return version == 1 ? 40 : 44; }

bool isAligned(const void* p, uint32_t alignment)
{
    return alignment != 0 && reinterpret_cast<uintptr_t>(p) % alignment == 0;
}

// Clamps a count of kilobytes to what an int answer can carry.
int kbAnswer(uint64_t kb)
{
    return kb > static_cast<uint64_t>(INT_MAX) ? INT_MAX : static_cast<int>(kb);
}

}  // namespace

// ---------------------------------------------------------------------------
// fileHeader

fileHeader::fileHeader() { dmParamsCreate(&params); }

fileHeader::fileHeader(const fileHeader& other)
    : version(other.version), numFrames(other.numFrames)
{
    dmParamsCreate(&params);
    dmParamsCopyAllElems(other.params, params);
}

fileHeader& fileHeader::operator=(const fileHeader& other)
{
    if (this == &other)
        return *this;
    DMparams* fresh = nullptr;
    dmParamsCreate(&fresh);
    dmParamsCopyAllElems(other.params, fresh);
    dmParamsDestroy(params);
    params = fresh;
    version = other.version;
    numFrames = other.numFrames;
    return *this;
}

fileHeader::~fileHeader() { dmParamsDestroy(params); }

void fileHeader::debug() const
{
    std::printf("File header configuration:\n");
    std::printf("\tVERSION:\t%d\n", version);
    std::printf("\tNUM FRAMES:\t%d\n", numFrames);
    std::printf("\tSIZES:\t\t%d x %d\n", dmParamsGetInt(params, DM_IMAGE_WIDTH),
                dmParamsGetInt(params, DM_IMAGE_HEIGHT));
    std::printf("\tRATE:\t\t%f\n", dmParamsGetFloat(params, DM_IMAGE_RATE));
}

// ---------------------------------------------------------------------------
// Object, name and parameters

vXfsFile::vXfsFile() { Init(); }

void vXfsFile::Init()
{
    std::free(name);
    name = strdup("");
    dataOffset = 4096;
    blockSize = 4096;
    replaceable = 1;
    descriptor = 0;
}

vXfsFile::~vXfsFile()
{
    if (IsInUse())
        Close();
    CloseDescriptor();  // a clip left open by a failed path: never leak it
    DropClaim();
    std::free(name);
}

int vXfsFile::SetName(const char* n)
{
    if (!mode.empty() || n == nullptr)
        return 0;
    DropClaim();  // a claim belongs to the file of the old name
    std::free(name);
    name = strdup(n);
    return 1;
}

vString vXfsFile::GetName() const { return vString(name); }

void vXfsFile::Debug()
{
    std::printf("File name: %s\n", name);
    std::printf("File mode: %s\n", Mode());
    header.debug();
}

int vXfsFile::SetSize(int width, int height)
{
    dmParamsSetInt(header.params, DM_IMAGE_WIDTH, width);
    dmParamsSetInt(header.params, DM_IMAGE_HEIGHT, height);
    return 1;
}

int vXfsFile::SetImageLenght(int32_t frames)
{
    header.numFrames = frames;
    return 1;
}

int vXfsFile::SetImageFormat(DMimagepacking packing)
{
    dmParamsSetEnum(header.params, DM_IMAGE_PACKING, packing);
    return 1;
}

int vXfsFile::SetInterlacing(int interlacing)
{
    dmParamsSetEnum(header.params, DM_IMAGE_INTERLACING, interlacing);
    return 1;
}

int vXfsFile::SetImageRate(double rate)
{
    dmParamsSetFloat(header.params, DM_IMAGE_RATE, rate);
    return 1;
}

int vXfsFile::SetAudioRate(double) { ASSERT_ZERO(kSource, 825); }

int vXfsFile::GetWidth() const { return dmParamsGetInt(header.params, DM_IMAGE_WIDTH); }

int vXfsFile::GetHeight() const { return dmParamsGetInt(header.params, DM_IMAGE_HEIGHT); }

int32_t vXfsFile::GetNumFrames() const { return header.numFrames; }

int32_t vXfsFile::GetImageFrameLenght() const { return header.numFrames; }

DMimagepacking vXfsFile::GetImageFormat() const
{
    return dmParamsGetEnum(header.params, DM_IMAGE_PACKING);
}

int vXfsFile::GetInterlacing(int& interlacing) const
{
    interlacing = dmParamsGetEnum(header.params, DM_IMAGE_INTERLACING);
    return 1;
}

int vXfsFile::GetImageRate(double& rate) const
{
    rate = dmParamsGetFloat(header.params, DM_IMAGE_RATE);
    return 1;
}

int vXfsFile::GetAudioRate(double&) const { ASSERT_ZERO(kSource, 1023); }

int vXfsFile::GetAudioFrameSize(int&) const { ASSERT_ZERO(kSource, 1035); }

int32_t vXfsFile::GetAudioFrameLenght() const { ASSERT_ZERO(kSource, 1046); }

int vXfsFile::UseImageTrack() { return 1; }

int vXfsFile::UseAudioTrack(int) { ASSERT_ZERO(kSource, 853); }

int vXfsFile::ImageSize() const
{
    // The rounding is done in 64 bits: a slot that would not fit in an int
    // (or a block size that is not positive) gives 0, "no valid slot", which
    // every opening refuses, so no transfer ever strides by it.
    const uint64_t frame = dmImageFrameSize(header.params);
    if (blockSize <= 0 || frame == 0)
        return 0;
    const uint64_t block = static_cast<uint64_t>(blockSize);
    const uint64_t slot = (block + frame - 1) / block * block;
    return slot > static_cast<uint64_t>(INT_MAX) ? 0 : static_cast<int>(slot);
}

// Refuses a layout that frames could not be placed in: a block size that
// is not positive, or parameters that give no frame size.
int vXfsFile::CheckLayout(const char* operation)
{
    if (blockSize <= 0) {
        std::printf("Invalid block size %d for %s [%s]\n", blockSize, name, operation);
        return 0;
    }
    if (ImageSize() == 0) {
        std::printf("Frame size of %s is not valid (%d x %d, packing %d) [%s]\n", name,
                    GetWidth(), GetHeight(), GetImageFormat(), operation);
        return 0;
    }
    return FramesClearOfHeader(header.version, operation);
}

// Frame 0 starts one block (versions 1 and 2) or one frame slot (version 3)
// into the file. A block or slot shorter than the header itself would put
// frame 0 over the header, and the first frame written would destroy the
// clip; such a layout is refused.
int vXfsFile::FramesClearOfHeader(int32_t version, const char* operation)
{
    const int headerBytes = version == 1 ? 40 : 44;
    const int firstFrame = version == 3 ? ImageSize() : blockSize;
    if (firstFrame < headerBytes) {
        std::printf("Frames of %s would overlap its header (frame 0 at byte %d) [%s]\n", name,
                    firstFrame, operation);
        return 0;
    }
    return 1;
}

// ---------------------------------------------------------------------------
// Header on disk

int vXfsFile::WriteHead(int fd, fileHeader& head)
{
    if (lseek(descriptor, 0, SEEK_SET) < 0) {
        std::perror("Unable to seek file [vXfsFile::WriteHead]");
        return 0;
    }
    // The header is made in memory and goes out in one write, so that a
    // failing disk leaves either the whole header or none of it.
    unsigned char bytes[44];
    size_t length = 0;
    auto put32 = [&](uint32_t v) {
        putBE32(bytes + length, v);
        length += 4;
    };
    auto fail = [] {
        std::perror("vXfsFile::WriteHead");
        return 0;
    };

    put32(kClipMagic);
    put32(static_cast<uint32_t>(head.version));
    put32(static_cast<uint32_t>(head.numFrames));
    put32(static_cast<uint32_t>(blockSize));
    put32(static_cast<uint32_t>(replaceable));
    if (head.version < 1 || head.version > 3) {
        // What comes next depends on the version: the fields so far are
        // written, and a header of no known version stops the program.
        if (writeFull(fd, bytes, length) < 0)
            return fail();
        std::printf("Unrecognized version number for XFS file\n");
        std::fflush(stdout);
        ASSERT_ZERO(kSource, 488);
    }

    double rate = 0.0;
    GetImageRate(rate);
    uint64_t rateBits = 0;
    std::memcpy(&rateBits, &rate, sizeof rateBits);
    put32(static_cast<uint32_t>(GetWidth()));
    put32(static_cast<uint32_t>(GetHeight()));
    put32(static_cast<uint32_t>(GetImageFormat()));
    putBE64(bytes + length, rateBits);
    length += 8;
    if (head.version >= 2) {
        int interlacing = 0;
        GetInterlacing(interlacing);
        put32(static_cast<uint32_t>(interlacing));
    }
    if (writeFull(fd, bytes, length) < 0)
        return fail();

    dataOffset = head.version == 3 ? ImageSize() : blockSize;
    return 1;
}

int vXfsFile::ReadHead(int fd, fileHeader& head)
{
    if (lseek(descriptor, 0, SEEK_SET) < 0) {
        std::perror("Unable to seek file [vXfsFile::ReadHead]");
        return 0;
    }
    unsigned char field[8] = {};

    // The clip magic: a file too short to hold it is no clip either.
    const int got = readFull(fd, field, 4);
    if (got < 0) {
        std::perror("vXfsFile::ReadHead");
        return 0;
    }
    if (got == 0 || getBE32(field) != kClipMagic) {
        std::printf("%s is not a Vetra xfs file.\n", name);
        return 0;
    }

    // Every further field must be there in full: a header cut short is
    // refused rather than completed with stale values.
    auto next = [&](size_t n) {
        const int r = readFull(fd, field, n);
        if (r < 0)
            std::perror("vXfsFile::ReadHead");
        else if (r == 0)
            std::printf("%s's header is cut short [vXfsFile::ReadHead]\n", name);
        return r > 0;
    };
    auto word = [&] { return static_cast<int32_t>(getBE32(field)); };

    if (!next(4))
        return 0;
    head.version = word();
    if (head.version < 1 || head.version > 3) {
        std::printf("Unrecognized version number [vXfsFile::ReadHead]\n");
        return 0;
    }
    if (!next(4))
        return 0;
    head.numFrames = word();

    if (!next(4))
        return 0;
    const int32_t fileBlockSize = word();
    if (fileBlockSize <= 0) {
        // Frames are laid out in whole blocks; without a positive block size
        // nothing in the file can be found, so the clip is refused here.
        std::printf("Invalid block size %d in %s [vXfsFile::ReadHead]\n", fileBlockSize, name);
        return 0;
    }
    if (fileBlockSize != blockSize) {
        std::printf("WARNING: Diferent block sizes in XFS files\n");
        std::printf("\tFile [%s] block size:  %d\n", name, fileBlockSize);
        std::printf("\tConfigured block size: \t%d\n", blockSize);
        blockSize = fileBlockSize;
    }

    if (!next(4))
        return 0;
    replaceable = word();

    if (!next(4))
        return 0;
    dmParamsSetInt(head.params, DM_IMAGE_WIDTH, word());
    if (!next(4))
        return 0;
    dmParamsSetInt(head.params, DM_IMAGE_HEIGHT, word());
    if (!next(4))
        return 0;
    SetImageFormat(word());
    if (!next(8))
        return 0;
    const uint64_t rateBits = getBE64(field);
    double rate = 0.0;
    std::memcpy(&rate, &rateBits, sizeof rate);
    SetImageRate(rate);
    if (head.version >= 2) {
        if (!next(4))
            return 0;
        SetInterlacing(word());
    }

    if (ImageSize() == 0) {
        std::printf("Frame size of %s is not valid (%d x %d, packing %d) [vXfsFile::ReadHead]\n",
                    name, GetWidth(), GetHeight(), GetImageFormat());
        return 0;
    }
    if (!FramesClearOfHeader(head.version, "vXfsFile::ReadHead"))
        return 0;
    dataOffset = head.version == 3 ? ImageSize() : blockSize;
    return 1;
}

// ---------------------------------------------------------------------------
// Opening and closing

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
    if (stat(name, &st) < 0) {
        if (errno != ENOENT) {
            // Something is in the way that we cannot look at: do not guess.
            std::perror(name);
            return 0;
        }
        if (!CheckLayout("vXfsFile::OpenForWriting"))
            return 0;
        // A new clip is made without a name and named only once its header
        // is written (FinishClaim): nothing half made ever shows in the
        // directory, and a name that appears meanwhile is not replaced.
        // Where the file system has no nameless files, the clip is created
        // by name when it is opened.
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
    const int probe = fsOpenProbe(name);
    if (probe < 0) {
        std::perror("ERROR: Unable to define direct IO");
        dio = kDefaultDioattr;
        return;
    }
    if (fsSetDirect(probe) < 0) {
        dio = kDefaultDioattr;
        close(probe);
        return;
    }
    dioattr learnt{};
    if (fsGetDioInfo(probe, &learnt) < 0) {
        std::printf("Unable to get IO information [vXfsFile::OpenForWriting]\n");
        dio = kDefaultDioattr;
        close(probe);
        return;
    }
    dio = learnt;
    close(probe);

    if (blockSize > 0 && static_cast<uint32_t>(blockSize) == dio.d_miniosz) {
        directIO = fsSetDirect(descriptor) == 0;
    } else {
        std::printf("XFS block size and required block size are not the same.\n");
    }
}

int64_t vXfsFile::FileSizeBytes() const
{
    struct stat st;
    if (descriptor == 0 || fstat(descriptor, &st) < 0)
        return -1;
    return st.st_size;
}

int64_t vXfsFile::FramesPresent(int64_t pictureBytes) const
{
    const int slot = ImageSize();
    if (pictureBytes <= 0)
        pictureBytes = static_cast<int64_t>(dmImageFrameSize(header.params));
    if (descriptor == 0 || slot <= 0 || pictureBytes <= 0 || header.numFrames <= 0)
        return 0;
    // One look per hole: every frame that ends before the next hole is
    // there; the frame the hole falls in is the first one missing, unless
    // the hole lies in the padding after its picture.
    const int64_t count = header.numFrames;
    int64_t frame = 0;
    while (frame < count) {
        const int64_t start = dataOffset + frame * slot;
        const int64_t hole = fsNextHole(descriptor, start);
        if (hole < 0 || start + pictureBytes > hole)
            break;
        frame = (hole - dataOffset - pictureBytes) / slot + 1;
    }
    return frame < count ? frame : count;
}

// ---------------------------------------------------------------------------
// Frame transfers

// Moves `bytes` between data and the file at `pos`, no call larger than
// d_maxiosz. A read that meets the end of the file stops there and still
// succeeds (lastTransferBytes tells how much came); a short write is carried
// on until all is written or the system reports why not.
void vXfsFile::HoldReports(bool hold)
{
    holdReports = hold;
}

void vXfsFile::ReleaseReports()
{
    for (const std::string& line : heldReports)
        std::fputs(line.c_str(), stderr);
    heldReports.clear();
}

// A failed system call of a transfer: "text: system error" on standard
// error, as perror writes it, now or when the held reports are released.
void vXfsFile::ReportSystemError(const char* text)
{
    if (!holdReports) {
        std::perror(text);
        return;
    }
    heldReports.push_back(std::string(text) + ": " + std::strerror(errno) + "\n");
}

int vXfsFile::ChunkedTransfer(bool writing, void* data, int64_t bytes, int64_t pos,
                              const char* failure)
{
    lastTransferBytes = 0;
    const int64_t maxChunk = dio.d_maxiosz != 0 ? dio.d_maxiosz : kDefaultDioattr.d_maxiosz;

    // Direct transfers need an aligned buffer, position and length. Rather
    // than fail with EINVAL on a caller's unaligned buffer, such a transfer
    // goes through the cache, and the descriptor returns to direct I/O after.
    const bool buffered = directIO && (dio.d_miniosz == 0 || !isAligned(data, dio.d_mem) ||
                                       bytes % dio.d_miniosz != 0 || pos % dio.d_miniosz != 0);
    if (buffered)
        fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) & ~O_DIRECT);

    // A direct read that runs past the end of the file may zero the caller's
    // buffer beyond the data; reading no further than the last block that
    // holds data leaves the rest of the buffer as it was.
    if (!writing && directIO && !buffered) {
        const int64_t size = FileSizeBytes();
        if (size >= 0 && pos + bytes > size) {
            const int64_t unit = dio.d_miniosz;
            const int64_t end = size > pos ? (size + unit - 1) / unit * unit : pos;
            bytes = end - pos;
        }
    }

    auto* bytesAt = static_cast<unsigned char*>(data);
    int64_t done = 0;
    int result = 1;
    while (done < bytes) {
        const int64_t chunk = bytes - done < maxChunk ? bytes - done : maxChunk;
        const ssize_t r = writing ? pwrite(descriptor, bytesAt + done, chunk, pos + done)
                                  : pread(descriptor, bytesAt + done, chunk, pos + done);
        if (r < 0) {
            if (errno == EINTR)
                continue;
            ReportSystemError(failure);
            result = 0;
            break;
        }
        if (r == 0) {
            if (!writing)
                break;  // end of file
            errno = EIO;
            ReportSystemError(failure);
            result = 0;
            break;
        }
        done += r;
        lastTransferBytes = done;
    }

    if (buffered)
        fsSetDirect(descriptor);
    return result;
}

int vXfsFile::GetImageSize(int frame, int& size)
{
    if (frame < 0 || frame > header.numFrames) {
        std::printf("Asking for a non-existing frame [vXfsFile::GetImageSize]\n");
        size = 0;
        return 0;
    }
    size = ImageSize();
    return descriptor != 0 ? 1 : 0;
}

int vXfsFile::GetImage(int frame, void* data, int size)
{
    if (descriptor == 0)
        ASSERT_ZERO(kSource, __LINE__);
    if (frame < 0 || frame > header.numFrames) {
        std::printf("Asking for a non-existing frame [vXfsFile::GetImage]\n");
        return 0;
    }
    if (size < 0) {
        std::printf("Invalid frame size %d [vXfsFile::GetImage]\n", size);
        return 0;
    }
    return ChunkedTransfer(false, data, size, dataOffset + int64_t{frame} * size,
                           "Unable to read data [vXfsFile::GetImage]");
}

int vXfsFile::PutImage(int frame, void* data, int size)
{
    if (descriptor == 0)
        ASSERT_ZERO(kSource, __LINE__);
    // Nothing is ever written in front of frame 0: that is the header.
    if (frame < 0) {
        std::printf("Asking for a negative frame [vXfsFile::PutImage]\n");
        return 0;
    }
    if (size < 0) {
        std::printf("Invalid frame size %d [vXfsFile::PutImage]\n", size);
        return 0;
    }
    return ChunkedTransfer(true, data, size, dataOffset + int64_t{frame} * size,
                           "Unable to write data [vXfsFile::PutImage]");
}

// The two block transfers: frames first..last, one after the other in data.
int vXfsFile::BlockTransfer(bool writing, int first, int last, int frameSize, void* data)
{
    if (descriptor == 0)
        ASSERT_ZERO(kSource, __LINE__);
    ASSERT_NZERO(data != nullptr, kSource, __LINE__);
    ASSERT_NZERO(first <= last, kSource, __LINE__);
    ASSERT_NZERO(frameSize > 0, kSource, __LINE__);
    if (first < 0) {
        std::printf(writing ? "Asking for a negative frame [vXfsFile::PutImagesBlock]\n"
                            : "Asking for a negative frame [vXfsFile::GetImagesBlock]\n");
        return 0;
    }
    const int64_t bytes = (int64_t{last} - first + 1) * frameSize;
    return ChunkedTransfer(writing, data, bytes, dataOffset + int64_t{first} * frameSize,
                           writing ? "Unable to write data [vXfsFile::PutImagesBlock]"
                                   : "Unable to read data [vXfsFile::GetImagesBlock]");
}

int vXfsFile::GetImagesBlock(int first, int last, int frameSize, void* data)
{
    return BlockTransfer(false, first, last, frameSize, data);
}

int vXfsFile::PutImagesBlock(int first, int last, int frameSize, void* data)
{
    return BlockTransfer(true, first, last, frameSize, data);
}

int vXfsFile::VectorTransfer(bool writing, int first, int last, void** data)
{
    if (descriptor == 0)
        ASSERT_ZERO(kSource, __LINE__);
    if (data == nullptr || last < first)
        return 0;
    if (first < 0) {
        std::printf(writing ? "Asking for a negative frame [vXfsFile::PutImagesVector]\n"
                            : "Asking for a negative frame [vXfsFile::GetImagesVector]\n");
        return 0;
    }
    const int slot = ImageSize();
    const int64_t n = int64_t{last} - first + 1;

    bool aligned = true;
    for (int64_t k = 0; k < n; ++k) {
        if (!isAligned(data[k], dio.d_miniosz)) {
            aligned = false;
            if (!writing)
                break;
            std::printf("insufficient block alignment: %lx\n",
                        static_cast<unsigned long>(reinterpret_cast<uintptr_t>(data[k])));
        }
    }

    // The total is formed in 64 bits so that a large vector cannot wrap into
    // a small one and slip onto the gathering path.
    if (aligned && n <= kMaxGather && n * slot < int64_t{dio.d_maxiosz}) {
        struct iovec table[kMaxGather];
        for (int64_t k = 0; k < n; ++k) {
            table[k].iov_base = data[k];
            table[k].iov_len = static_cast<size_t>(slot);
        }
        lseek(descriptor, dataOffset + int64_t{first} * slot, SEEK_SET);
        const ssize_t moved = writing ? writev(descriptor, table, static_cast<int>(n))
                                      : readv(descriptor, table, static_cast<int>(n));
        lastTransferBytes = moved > 0 ? moved : 0;
        if (moved >= 0 && moved != n * slot)
            errno = writing ? EIO : ENODATA;  // fell short without an error of its own
        if (moved != n * slot) {
            std::perror(writing ? "Xfs write error\n" : "Xfs read error\n");
            return 0;
        }
        return 1;
    }

    int64_t total = 0;
    for (int i = first; i <= last; ++i) {
        const int ok = writing ? PutImage(i, data[i - first], slot)
                               : GetImage(i, data[i - first], slot);
        total += ok ? lastTransferBytes : 0;
        if (!ok) {
            lastTransferBytes = total;
            return 0;
        }
    }
    lastTransferBytes = total;
    return 1;
}

int vXfsFile::GetImagesVector(int first, int last, void** data)
{
    return VectorTransfer(false, first, last, data);
}

int vXfsFile::PutImagesVector(int first, int last, void** data)
{
    return VectorTransfer(true, first, last, data);
}

int vXfsFile::PutDummyImage(int frame)
{
    int size = 0;
    if (!GetImageSize(frame, size))
        return 0;
    ASSERT_NZERO(dio.d_mem != 0, kSource, __LINE__);
    void* zeros = nullptr;
    const size_t alignment = dio.d_mem < sizeof(void*) ? sizeof(void*) : dio.d_mem;
    if (posix_memalign(&zeros, alignment, size > 0 ? static_cast<size_t>(size) : 1) != 0) {
        std::printf("Unable to allocate a frame [vXfsFile::PutDummyImage]\n");
        return 0;
    }
    std::memset(zeros, 0, static_cast<size_t>(size));
    const int result = PutImage(frame, zeros, size);
    std::free(zeros);
    return result;
}

int vXfsFile::PutAudioFrame(int, void*) { ASSERT_ZERO(kSource, __LINE__); }

int vXfsFile::GetAudioFrame(int, void*, int) { ASSERT_ZERO(kSource, __LINE__); }

// ---------------------------------------------------------------------------
// Control orders

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

    const int fd = S_ISREG(st.st_mode) ? openClip(name, O_RDWR) : -1;
    int result = 0;
    if (fd < 0) {
        std::printf("Unable to read %s's header.\n", name);
    } else {
        descriptor = fd;
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
        close(fd);
    }
    descriptor = ownDescriptor;
    directIO = ownDirect;
    return result;
}

int vXfsFile::IOCtl(int order, void* arg)
{
    // Orders that answer through an int.
    auto answer = [&](int value) {
        ASSERT_NZERO(arg != nullptr, kSource, __LINE__);
        *static_cast<int*>(arg) = value;
        return 1;
    };
    const auto byValue = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(arg));

    switch (order) {
    case XFS_GET_MAX_IO_SIZE:
        return answer(static_cast<int>(dio.d_maxiosz));
    case XFS_GET_FREE_SPACE_KB:
        return answer(GetFreeDiskSpace_Kb(name));
    case XFS_GET_FREE_SPACE_MB:
        return answer(static_cast<int>(static_cast<uint32_t>(GetFreeDiskSpace_Kb(name)) >> 10));
    case XFS_GET_FREE_IMAGES: {
        const int slot = ImageSize();
        if (slot == 0) {
            // Nothing to divide by: the parameters describe no frame.
            std::printf("No valid frame size for %s [vXfsFile::IOCtl]\n", name);
            answer(-1);
            return 0;
        }
        const int64_t freeBytes = int64_t{GetFreeDiskSpace_Kb(name)} * 1024;
        return answer(static_cast<int>(freeBytes / slot - 1));
    }
    case XFS_GET_FS_TYPE: {
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
    case XFS_ALLOCATE_IMAGES: {
        if (descriptor == 0) {
            std::printf("Unable to perform IOCtl operation (ALLOCATE IMAGES), file not opened.\n");
            return 0;
        }
        // Space is reserved without making the file any longer: a clip is
        // as long as what has been written to it, so a run that stops early
        // leaves a clip that shows how far it got. Where the file system
        // cannot reserve, nothing else is tried: lengthening the file with
        // holes in place of the reservation would make a clip whose frames
        // were never written look complete.
        const int64_t length = int64_t{dataOffset} + int64_t{byValue} * ImageSize();
        if (fsReserveSpace(descriptor, length) == 0)
            return 1;
        std::perror("Error trying to allocate file [vXfsFile::IOCtl]");
        return 0;
    }
    case XFS_SET_REPLACEABLE:
        replaceable = arg != nullptr ? 1 : 0;
        return 1;
    case XFS_SET_BLOCK_SIZE: {
        const auto size = static_cast<int32_t>(byValue);
        if (size <= 0) {
            // Frames are laid out in whole blocks; refuse rather than keep a
            // block size that no clip could be written with.
            std::printf("Invalid block size %d [vXfsFile::IOCtl]\n", size);
            return 0;
        }
        blockSize = size;
        return 1;
    }
    case XFS_GET_BMAP: {
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
    case XFS_GET_FILE_SIZE_KB: {
        if (descriptor == 0)
            return 1;
        struct stat st;
        if (fstat(descriptor, &st) < 0) {
            std::printf("Unable to stat\n");
            return 0;
        }
        return answer(kbAnswer(static_cast<uint64_t>(st.st_size) / 1024));
    }
    case XFS_CHANGE_NUM_FRAMES:
    case XFS_CHANGE_REPLACEABLE:
        return ChangeHeaderField(order, static_cast<int32_t>(byValue));
    case XFS_GET_MEM_ALIGNMENT:
        return answer(static_cast<int>(dio.d_mem));
    case XFS_GET_FS_SIZE_KB: {
        struct statvfs sv;
        if (statvfs(name, &sv) < 0) {
            std::printf("Unable to get path descriptor \n");
            return 0;
        }
        return answer(kbAnswer(uint64_t{sv.f_frsize} * sv.f_blocks / 1024));
    }
    default:
        std::printf("Unrecognized IOCtl order [vXfsFile::IOCtl]\n");
        std::fflush(stdout);
        ASSERT_ZERO(kSource, __LINE__);
    }
}
