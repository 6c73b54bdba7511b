// plainio: the physical baseline for the converter. It streams a clip the
// way the converter does — read the input frame slots, write slots of the
// NTSC and reduced sizes — but computes nothing, so its frame rate is what
// the disk allows. Same block size (frames per call), direct I/O and buffers
// in large pages.
//
//   plainio IN OUT_NTSC [OUT_REDUCED] [--frames-per-call N]
//
// The input's header gives width, height, frame count, block size and the
// data offset; the outputs get the slot sizes of 720 x 486 YUV 4:2:2 and of
// the quarter 24-bit RGB picture, and a zeroed first slot where the header
// would be.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};
using Buffer = std::unique_ptr<uint8_t, FreeDeleter>;

uint32_t be32(const uint8_t* p) { return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3]; }

int64_t roundUp(int64_t n, int64_t block) { return (n + block - 1) / block * block; }

// Buffers of a few megabytes are put in 2 MB pages, as the converter does:
// direct transfers from them reach the disk in fewer, larger pieces, and
// clearing them costs two page faults rather than a thousand.
Buffer alignedBuffer(size_t bytes)
{
    constexpr size_t largePage = size_t{2} << 20;
    void* p = nullptr;
    if (bytes >= largePage) {
        const size_t rounded = (bytes + largePage - 1) / largePage * largePage;
        if (posix_memalign(&p, largePage, rounded) != 0)
            return nullptr;
        madvise(p, rounded, MADV_HUGEPAGE);
    } else if (posix_memalign(&p, 4096, bytes ? bytes : 4096) != 0) {
        return nullptr;
    }
    std::memset(p, 0, bytes);
    return Buffer(static_cast<uint8_t*>(p));
}

// Opens with O_DIRECT where the file system allows it, else buffered.
int openDirect(const char* path, int flags, bool& direct)
{
    int fd = open(path, flags | O_DIRECT, 0666);
    direct = fd >= 0;
    if (fd < 0)
        fd = open(path, flags, 0666);
    return fd;
}

bool transfer(bool write, int fd, uint8_t* buf, int64_t bytes, int64_t pos)
{
    while (bytes > 0) {
        ssize_t n = write ? pwrite(fd, buf, size_t(bytes), pos) : pread(fd, buf, size_t(bytes), pos);
        if (n <= 0)
            return !write && n == 0;  // end of input is not an error here
        buf += n;
        bytes -= n;
        pos += n;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> paths;
    int perCall = 0;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--frames-per-call") == 0 && i + 1 < argc)
            perCall = std::atoi(argv[++i]);
        else
            paths.emplace_back(argv[i]);
    }
    if (paths.size() < 2 || paths.size() > 3) {
        std::fprintf(stderr, "usage: %s IN OUT_NTSC [OUT_REDUCED] [--frames-per-call N]\n", argv[0]);
        return 2;
    }

    bool inDirect = false;
    int in = openDirect(paths[0].c_str(), O_RDONLY, inDirect);
    if (in < 0) {
        perror(paths[0].c_str());
        return 1;
    }
    Buffer head = alignedBuffer(4096);
    if (pread(in, head.get(), 4096, 0) < 44 || be32(head.get()) != 0x000609CEu) {
        std::fprintf(stderr, "%s: not a clip\n", paths[0].c_str());
        return 1;
    }
    const uint8_t* h = head.get();
    const int64_t version = be32(h + 4), frames = int32_t(be32(h + 8)), block = int32_t(be32(h + 12));
    const int64_t width = int32_t(be32(h + 20)), height = int32_t(be32(h + 24));
    if (block <= 0 || width <= 0 || height <= 0 || frames < 0) {
        std::fprintf(stderr, "%s: unusable header\n", paths[0].c_str());
        return 1;
    }
    const int64_t inSlot = roundUp(width * height * 2, block);
    const int64_t inOffset = version == 3 ? inSlot : block;
    const int64_t outSlot[2] = {roundUp(width * 486 * 2, block), roundUp((width / 4) * (486 / 4) * 3, block)};
    const int64_t maxIo = 4194304;
    const int64_t F = perCall > 0 ? perCall : maxIo / inSlot;
    if (F <= 0) {
        std::fprintf(stderr, "frame slot larger than one transfer\n");
        return 1;
    }

    const size_t outs = paths.size() - 1;
    int outFd[2] = {-1, -1};
    bool outDirect[2] = {false, false};
    Buffer inBlock = alignedBuffer(size_t(F * inSlot));
    Buffer outBlock[2];
    for (size_t o = 0; o < outs; ++o) {
        outFd[o] = openDirect(paths[o + 1].c_str(), O_WRONLY | O_CREAT | O_TRUNC, outDirect[o]);
        if (outFd[o] < 0) {
            perror(paths[o + 1].c_str());
            return 1;
        }
        outBlock[o] = alignedBuffer(size_t(F * outSlot[o]));
        Buffer slot0 = alignedBuffer(size_t(outSlot[o]));
        if (!transfer(true, outFd[o], slot0.get(), outSlot[o], 0)) {
            perror(paths[o + 1].c_str());
            return 1;
        }
    }

    auto start = std::chrono::steady_clock::now();
    for (int64_t first = 0; first < frames; first += F) {
        const int64_t n = std::min(F, frames - first);
        if (!transfer(false, in, inBlock.get(), n * inSlot, inOffset + first * inSlot)) {
            perror("read");
            return 1;
        }
        for (size_t o = 0; o < outs; ++o)
            if (!transfer(true, outFd[o], outBlock[o].get(), n * outSlot[o], outSlot[o] * (1 + first))) {
                perror("write");
                return 1;
            }
    }
    for (size_t o = 0; o < outs; ++o)
        close(outFd[o]);
    close(in);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("plainio: %lld frames, %lld per call, direct I/O %s, %.3f s, %.1f frames/s\n",
                static_cast<long long>(frames), static_cast<long long>(F),
                inDirect && (outs < 1 || outDirect[0]) ? "on" : "off", seconds,
                seconds > 0 ? double(frames) / seconds : 0.0);
    return 0;
}
