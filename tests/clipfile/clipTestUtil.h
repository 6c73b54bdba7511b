// Shared helpers of the clip file tests: a scratch directory on the real
// file system, a clip object whose inner state the tests may look at, and
// byte-level file access.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "clipfile/vXfsFile.h"

// A fresh directory under /tmp (never tmpfs here: the clips need a file
// system with direct I/O), removed with everything in it.
class ScratchDir {
public:
    ScratchDir()
    {
        char pattern[] = "/tmp/clipfile-test-XXXXXX";
        const char* made = mkdtemp(pattern);
        if (made != nullptr)
            path_ = made;
    }
    ~ScratchDir()
    {
        std::error_code ec;
        if (!path_.empty())
            std::filesystem::remove_all(path_, ec);
    }
    std::string File(const char* leaf) const { return path_ + "/" + leaf; }
    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

// Exposes the object's fields to the tests.
class TestClip : public vXfsFile {
public:
    using vXfsFile::blockSize;
    using vXfsFile::dataOffset;
    using vXfsFile::descriptor;
    using vXfsFile::dio;
    using vXfsFile::header;
    using vXfsFile::replaceable;
};

inline std::vector<unsigned char> ReadBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), {});
}

inline void WriteBytes(const std::string& path, const std::vector<unsigned char>& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

// Runs f and returns what it printed on stdout.
template <class F>
std::string StdoutOf(F&& f)
{
    std::fflush(stdout);
    testing::internal::CaptureStdout();
    f();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

// Describes a small YUV 4:2:2 clip: 64 x 32 x 2 = 4096 bytes, one block.
inline void DescribeSmall(vXfsFile& clip, const std::string& path, int frames)
{
    clip.SetName(path.c_str());
    clip.SetSize(64, 32);
    clip.SetImageFormat(DM_IMAGE_PACKING_CbYCrY);
    clip.SetImageLenght(frames);
}

// An aligned buffer owned by the test.
class AlignedBuffer {
public:
    AlignedBuffer(size_t bytes, size_t alignment = 4096) : size_(bytes)
    {
        if (posix_memalign(&data_, alignment, bytes == 0 ? 1 : bytes) != 0)
            data_ = nullptr;
    }
    ~AlignedBuffer() { std::free(data_); }
    AlignedBuffer(const AlignedBuffer&) = delete;
    AlignedBuffer& operator=(const AlignedBuffer&) = delete;
    unsigned char* Bytes() const { return static_cast<unsigned char*>(data_); }
    void* Data() const { return data_; }
    size_t Size() const { return size_; }
    void Fill(unsigned seed)
    {
        for (size_t i = 0; i < size_; ++i)
            Bytes()[i] = static_cast<unsigned char>((i * 131 + seed * 7919 + (i >> 12)) & 0xFF);
    }

private:
    void* data_ = nullptr;
    size_t size_;
};
