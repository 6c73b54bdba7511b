// Fuzz target: a clip file's header, through the same opening path the tool
// uses. The input bytes are the whole file.
//
// Properties checked for every input:
// - an open for reading either refuses the file or leaves a usable layout
//   (a positive block size and frame slot, frame 0 right where the header's
//   version puts it);
// - a frame read moves exactly the bytes the file holds at the frame's place
//   (fewer at the end of the file) and leaves the rest of the buffer alone;
// - an open for writing that refuses an existing file leaves it byte for
//   byte as it was, and so does one that keeps a preserved clip;
// - no probe file is left in the directory.
#include "fuzz/fuzzScratch.h"
#include "fuzz/fuzzTargets.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "clipfile/vXfsFile.h"

namespace {

// Frame slots larger than this are not read back: the tool could not move
// such a frame in one transfer anyway, and the buffer would only cost time.
constexpr int kLargestSlotRead = 1 << 22;
constexpr unsigned char kUntouched = 0xA5;

struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};
using Buffer = std::unique_ptr<unsigned char, FreeDeleter>;

Buffer alignedBuffer(size_t bytes)
{
    void* p = nullptr;
    if (posix_memalign(&p, 4096, bytes) != 0)
        return Buffer();
    std::memset(p, kUntouched, bytes);
    return Buffer(static_cast<unsigned char*>(p));
}

// What the file holds at [pos, pos + n), as a read that stops at the end
// of the file gives it.
std::vector<unsigned char> fileSlice(const std::vector<unsigned char>& file, int64_t pos, int64_t n)
{
    if (pos >= static_cast<int64_t>(file.size()))
        return {};
    const int64_t end = std::min<int64_t>(pos + n, static_cast<int64_t>(file.size()));
    return std::vector<unsigned char>(file.begin() + pos, file.begin() + end);
}

void checkRead(const unsigned char* buffer, int64_t bufferBytes, int64_t moved,
               const std::vector<unsigned char>& expected)
{
    fuzzCheck(moved == static_cast<int64_t>(expected.size()), "read moved a wrong byte count");
    fuzzCheck(expected.empty() || std::memcmp(buffer, expected.data(), expected.size()) == 0,
              "read gave bytes other than the file's");
    for (int64_t i = moved; i < bufferBytes; ++i)
        fuzzCheck(buffer[i] == kUntouched, "read wrote past what the file holds");
}

void readFrames(vXfsFile& clip, const std::vector<unsigned char>& file)
{
    const int slot = clip.ImageSize();
    fuzzCheck(slot > 0 && clip.BlockSize() > 0, "open clip without a frame slot");
    fuzzCheck(slot % clip.BlockSize() == 0, "frame slot is not whole blocks");
    const int32_t expectedOffset = clip.Version() == 3 ? slot : clip.BlockSize();
    fuzzCheck(clip.DataOffset() == expectedOffset, "frame 0 is not where the version puts it");

    int size = -1;
    clip.GetImageSize(0, size);
    fuzzCheck(size == (clip.GetNumFrames() >= 0 ? slot : 0), "GetImageSize disagrees");
    if (slot > kLargestSlotRead)
        return;

    Buffer one = alignedBuffer(static_cast<size_t>(slot));
    const int32_t frames = clip.GetNumFrames();
    for (int i = 0; i <= 2; ++i) {
        std::memset(one.get(), kUntouched, static_cast<size_t>(slot));
        const int ok = clip.GetImage(i, one.get(), slot);
        if (i > frames) {
            fuzzCheck(ok == 0, "frame beyond the count was read");
            continue;
        }
        fuzzCheck(ok != 0, "reading a frame of a readable file failed");
        const int64_t pos = clip.DataOffset() + int64_t{i} * slot;
        checkRead(one.get(), slot, clip.LastTransferBytes(), fileSlice(file, pos, slot));
    }

    Buffer two = alignedBuffer(2 * static_cast<size_t>(slot));
    fuzzCheck(clip.GetImagesBlock(0, 1, slot, two.get()) != 0, "block read failed");
    checkRead(two.get(), 2 * int64_t{slot}, clip.LastTransferBytes(),
              fileSlice(file, clip.DataOffset(), 2 * int64_t{slot}));
}

}  // namespace

int fuzzClipHeader(const uint8_t* data, size_t size)
{
    const std::string leaf = "clip";
    const std::string path = fuzzScratchDir() + "/" + leaf;
    fuzzCheck(fuzzWriteFile(path, data, size), "input file cannot be written");
    const std::vector<unsigned char> original(data, data + size);

    bool readable = false;
    int32_t replaceable = 1;
    {
        vXfsFile clip;
        clip.SetName(path.c_str());
        if (clip.Open("r")) {
            readable = true;
            replaceable = clip.Replaceable();
            readFrames(clip, original);
            clip.Close();
        }
        fuzzCheck(clip.Descriptor() == 0, "a closed or refused clip keeps a descriptor");
    }
    fuzzCheck(fuzzReadFile(path) == original, "opening for reading changed the file");

    {
        vXfsFile clip;
        clip.SetName(path.c_str());
        clip.SetSize(64, 32);
        clip.SetImageFormat(DM_IMAGE_PACKING_CbYCrY);
        clip.SetImageLenght(1);
        const int opened = clip.Open("w");
        if (!readable)
            fuzzCheck(!opened, "a file that is no clip was opened for writing");
        if (!opened || replaceable == 0)
            fuzzCheck(fuzzReadFile(path) == original,
                      "a refused or preserved clip was changed by opening it for writing");
        if (opened)
            clip.Close();
        fuzzCheck(clip.Descriptor() == 0, "a closed or refused clip keeps a descriptor");
    }
    fuzzCheck(fuzzStrayFiles({leaf}).empty(), "a probe file was left behind");
    std::remove(path.c_str());
    return 0;
}
