// Helpers of the clip file tests: a clip object whose inner state the tests
// may look at, a small clip description and page-aligned buffers.
#pragma once

#include <fcntl.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "clipfile/vXfsFile.h"
#include "tests/common/testSupport.h"

using namespace tsupport;

constexpr int kSlot = 4096;  // a DescribeSmall frame: exactly one block

// Exposes the header record and descriptor, for the header operations' own tests.
class TestClip : public vXfsFile {
public:
    using vXfsFile::descriptor;
    using vXfsFile::header;
};

// A small YUV 4:2:2 clip: 64 x 32 x 2 = 4096 bytes a frame.
inline void DescribeSmall(vXfsFile& clip, const std::string& path, int frames)
{
    clip.SetName(path.c_str());
    clip.SetSize(64, 32);
    clip.SetImageFormat(DM_IMAGE_PACKING_CbYCrY);
    clip.SetImageLenght(frames);
}

// A new small clip of `frames` frames, open for writing.
inline void OpenSmall(vXfsFile& clip, const std::string& path, int frames)
{
    DescribeSmall(clip, path, frames);
    ASSERT_EQ(clip.Open("w"), 1);
}

inline void Reopen(vXfsFile& clip)
{
    clip.Close();
    ASSERT_EQ(clip.Open("r"), 1);
}

// An open descriptor with direct I/O in force.
inline bool IsDirect(int fd) { return fcntl(fd, F_GETFL) != -1 && (fcntl(fd, F_GETFL) & O_DIRECT) != 0; }

inline void* ByValue(uintptr_t v) { return reinterpret_cast<void*>(v); }

// A page-aligned buffer of `bytes` bytes holding a pattern that differs with
// the seed and from block to block.
struct AlignedBuffer {
    explicit AlignedBuffer(size_t bytes, unsigned seed = 0)
        : size(bytes),
          owned(static_cast<unsigned char*>(std::aligned_alloc(4096, (bytes + 4095) / 4096 * 4096)), &std::free)
    {
        for (size_t i = 0; i < size; ++i)
            owned.get()[i] = static_cast<unsigned char>(i * 131 + seed * 7919 + (i >> 12));
    }
    unsigned char* Data() const { return owned.get(); }
    Bytes Copy(size_t from, size_t n) const { return {Data() + from, Data() + from + n}; }

    size_t size;
    std::unique_ptr<unsigned char, decltype(&std::free)> owned;
};

// `n` bytes of the file from `offset` (fewer when the file ends first).
inline Bytes FileBytes(const std::string& path, size_t offset, size_t n)
{
    const Bytes all = ReadBytes(path);
    offset = std::min(offset, all.size());
    return Bytes(all.begin() + offset, all.begin() + std::min(all.size(), offset + n));
}
