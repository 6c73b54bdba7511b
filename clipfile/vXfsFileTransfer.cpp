// Frame transfers: single frames, blocks and vectors of frames, and
// placeholder frames, in pieces no larger than one direct transfer.
#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "clipfile/vXfsFile.h"
#include "clipfile/vXfsFileInternal.h"
#include "device/assertions.h"
#include "platform/alignedMemory.h"
#include "platform/fsControl.h"

using xfsfile::kSource;

namespace {

// Entries of the gathering table: a vector longer than this goes frame by frame.
constexpr int kMaxGather = 256;

bool isAligned(const void* p, uint32_t alignment)
{
    return alignment != 0 && reinterpret_cast<uintptr_t>(p) % alignment == 0;
}

}  // namespace

void vXfsFile::HoldReports(bool hold) { holdReports = hold; }

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

// Moves `bytes` between data and the file at `pos`, no call larger than
// d_maxiosz. A read that meets the end of the file stops there and still
// succeeds (lastTransferBytes tells how much came); a short write is carried
// on until all is written or the system reports why not.
int vXfsFile::ChunkedTransfer(bool writing, void* data, int64_t bytes, int64_t pos, const char* failure)
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

// The two single-frame transfers. A read checks the frame against the
// count (frame numFrames, one past the last, passes, as the store has it);
// a write may go beyond it, but never in front of frame 0: that is the header.
int vXfsFile::FrameTransfer(bool writing, int frame, void* data, int size)
{
    if (descriptor == 0)
        ASSERT_ZERO(kSource, __LINE__);
    if (frame < 0 || (!writing && frame > header.numFrames)) {
        std::printf(writing ? "Asking for a negative frame [vXfsFile::PutImage]\n"
                            : "Asking for a non-existing frame [vXfsFile::GetImage]\n");
        return 0;
    }
    if (size < 0) {
        std::printf(writing ? "Invalid frame size %d [vXfsFile::PutImage]\n"
                            : "Invalid frame size %d [vXfsFile::GetImage]\n",
                    size);
        return 0;
    }
    return ChunkedTransfer(writing, data, size, dataOffset + int64_t{frame} * size,
                           writing ? "Unable to write data [vXfsFile::PutImage]"
                                   : "Unable to read data [vXfsFile::GetImage]");
}

int vXfsFile::GetImage(int frame, void* data, int size) { return FrameTransfer(false, frame, data, size); }

int vXfsFile::PutImage(int frame, void* data, int size) { return FrameTransfer(true, frame, data, size); }

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
        const ssize_t moved =
            writing ? writev(descriptor, table, static_cast<int>(n)) : readv(descriptor, table, static_cast<int>(n));
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
        const int ok = writing ? PutImage(i, data[i - first], slot) : GetImage(i, data[i - first], slot);
        total += ok ? lastTransferBytes : 0;
        if (!ok) {
            lastTransferBytes = total;
            return 0;
        }
    }
    lastTransferBytes = total;
    return 1;
}

int vXfsFile::GetImagesVector(int first, int last, void** data) { return VectorTransfer(false, first, last, data); }

int vXfsFile::PutImagesVector(int first, int last, void** data) { return VectorTransfer(true, first, last, data); }

int vXfsFile::PutDummyImage(int frame)
{
    int size = 0;
    if (!GetImageSize(frame, size))
        return 0;
    ASSERT_NZERO(dio.d_mem != 0, kSource, __LINE__);
    AlignedMemory zeros;
    if (!zeros.Allocate(static_cast<size_t>(size > 0 ? size : 0), dio.d_mem)) {
        std::printf("Unable to allocate a frame [vXfsFile::PutDummyImage]\n");
        return 0;
    }
    return PutImage(frame, zeros.Data(), size);
}

int vXfsFile::PutAudioFrame(int, void*) { ASSERT_ZERO(kSource, __LINE__); }

int vXfsFile::GetAudioFrame(int, void*, int) { ASSERT_ZERO(kSource, __LINE__); }
