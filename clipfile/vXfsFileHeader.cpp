// The clip header on disk: the header record, and ReadHead and WriteHead,
// which move it between the file and the clip object.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "clipfile/vXfsFile.h"
#include "clipfile/vXfsFileInternal.h"
#include "device/assertions.h"

using xfsfile::kSource;

namespace {

constexpr uint32_t kClipMagic = 0x000609CE;

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

uint64_t getBE64(const unsigned char* p) { return (uint64_t{getBE32(p)} << 32) | getBE32(p + 4); }

// Moves n bytes through read or write, going on after short counts. Returns
// -1 on error, 0 when a read met the end of the file first (a write that
// moves nothing is an error), 1 when all moved.
template <class Buffer, class Call>
int moveFull(int fd, Buffer* buffer, size_t n, Call call)
{
    size_t done = 0;
    while (done < n) {
        const ssize_t r = call(fd, buffer + done, n - done);
        if (r < 0 && errno == EINTR)
            continue;
        if (r < 0)
            return -1;
        if (r == 0)
            return 0;
        done += static_cast<size_t>(r);
    }
    return 1;
}

int readFull(int fd, unsigned char* buffer, size_t n) { return moveFull(fd, buffer, n, ::read); }

int writeFull(int fd, const unsigned char* buffer, size_t n)
{
    const int r = moveFull(fd, buffer, n, ::write);
    if (r == 0)
        errno = EIO;
    return r > 0 ? 1 : -1;
}
}  // namespace

// ---------------------------------------------------------------------------
// fileHeader

fileHeader::fileHeader() { dmParamsCreate(&params); }

fileHeader::fileHeader(const fileHeader& other) : version(other.version), numFrames(other.numFrames)
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

    if (!ReadHeadFields(fd, head))
        return 0;

    if (ImageSize() == 0) {
        std::printf("Frame size of %s is not valid (%d x %d, packing %d) [vXfsFile::ReadHead]\n", name, GetWidth(),
                    GetHeight(), GetImageFormat());
        return 0;
    }
    if (!FramesClearOfHeader(head.version, "vXfsFile::ReadHead"))
        return 0;
    dataOffset = head.version == 3 ? ImageSize() : blockSize;
    return 1;
}

// The fields after the magic, each taken into the record or the object as
// it comes. Every field must be there in full: a header cut short is
// refused rather than completed with stale values.
int vXfsFile::ReadHeadFields(int fd, fileHeader& head)
{
    unsigned char field[8] = {};
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

    return 1;
}

bool vXfsFile::StartsAsClip(int fd)
{
    unsigned char magic[4] = {};
    return pread(fd, magic, sizeof magic, 0) == 4 && getBE32(magic) == kClipMagic;
}
