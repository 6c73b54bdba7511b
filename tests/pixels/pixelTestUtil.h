// Pixel test helpers shared by the pixel and image suites: words given by
// their bytes in memory order, the per-lane rules written plainly, seeded
// random pixels, buffers fenced by guard values or placed at any byte, and the
// kernel-path fixture.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "image/pixelOps.h"
#include "util/cpuFeatures.h"

// A word given as its bytes in memory order: wordOf(0x80, 0x10, 0x80, 0x20)
// (image/pixelOps.h) and wordOf(0x80108020) both lie in memory as
// 80 10 80 20 on any machine.
namespace {
inline uint32_t wordOf(uint32_t bytesInOrder)
{
    return wordOf(bytesInOrder >> 24, bytesInOrder >> 16, bytesInOrder >> 8, bytesInOrder);
}
}  // namespace

inline std::array<unsigned, 4> bytesOf(uint32_t word)
{
    unsigned char b[4];
    std::memcpy(b, &word, 4);
    return {b[0], b[1], b[2], b[3]};
}

// The lane rules from their definitions: the earlier operand of an average
// is halved rounding up; a blend of weight k takes k / 256 of p.
inline unsigned refAverage(unsigned earlier, unsigned later) { return (earlier + 1) / 2 + later / 2; }
inline uint32_t blendLanes(uint32_t p, uint32_t q, int k)
{
    const auto a = bytesOf(p), b = bytesOf(q);
    auto lane = [&](int i) { return (k * a[i] + (256 - k) * b[i]) / 256; };
    return wordOf(lane(0), lane(1), lane(2), lane(3));
}

// Random words over the full range, with extreme bytes mixed in often.
inline std::vector<uint32_t> randomWords(std::mt19937& rng, std::size_t n)
{
    static const unsigned char extremes[] = {0, 255, 16, 235, 1, 254, 128};
    auto byte = [&]() -> unsigned { return rng() % 4 == 0 ? extremes[rng() % 7] : rng() & 0xFF; };
    std::vector<uint32_t> words(n);
    for (auto& w : words) {
        const unsigned b0 = byte(), b1 = byte(), b2 = byte();
        w = wordOf(b0, b1, b2, byte());
    }
    return words;
}
inline std::vector<uint32_t> randomWords(std::size_t n, uint32_t seed)
{
    std::mt19937 rng(seed);
    return randomWords(rng, n);
}
inline std::vector<unsigned char> randomBytes(std::size_t n, uint32_t seed)
{
    const std::vector<uint32_t> w = randomWords((n + 3) / 4, seed);
    const auto* bytes = reinterpret_cast<const unsigned char*>(w.data());
    return std::vector<unsigned char>(bytes, bytes + n);
}

// A caller's buffer of n values between two runs of guard values, all set to
// a sentinel first; a value still holding the sentinel was not written.
template <class T = uint32_t>
class Guarded {
public:
    static constexpr T kSentinel = static_cast<T>(0xA5A5A5A5u);
    static constexpr std::size_t kGuard = 64 / sizeof(T);

    explicit Guarded(std::size_t n) : buf_(n + 2 * kGuard, kSentinel) {}
    T* data() { return buf_.data() + kGuard; }
    uint32_t* words() { return reinterpret_cast<uint32_t*>(data()); }
    T& operator[](std::size_t i) { return buf_[kGuard + i]; }
    std::vector<T> contents() const { return std::vector<T>(buf_.begin() + kGuard, buf_.end() - kGuard); }
    // Values [from, to) of the buffer still hold the sentinel.
    bool unwritten(std::size_t from, std::size_t to) const { return sentinels(kGuard + from, kGuard + to); }
    bool guardsIntact() const { return sentinels(0, kGuard) && sentinels(buf_.size() - kGuard, buf_.size()); }

private:
    bool sentinels(std::size_t from, std::size_t to) const
    {
        return std::all_of(buf_.begin() + from, buf_.begin() + to, [](T v) { return v == kSentinel; });
    }
    std::vector<T> buf_;
};

// Bytes placed `offset` bytes past a word boundary, at the very end of their
// buffer, so that a read past them is caught by the sanitizers: a frame in a
// block slot whose size is not a multiple of 4.
class Placed {
public:
    Placed(const std::vector<unsigned char>& bytes, int offset) : buf_(offset + bytes.size()), offset_(offset)
    {
        std::copy(bytes.begin(), bytes.end(), buf_.begin() + offset);
    }
    uint32_t* words() { return reinterpret_cast<uint32_t*>(buf_.data() + offset_); }
    std::vector<unsigned char> bytes() const { return std::vector<unsigned char>(buf_.begin() + offset_, buf_.end()); }

private:
    std::vector<unsigned char> buf_;
    int offset_;
};

// Runs a test on each kernel path this CPU has: the reference first, then
// each vector path, after checking that it is really the one selected. The
// suite's tests in every file are instantiated once, in convertTest.cpp.
class KernelPaths : public ::testing::TestWithParam<KernelPath> {
protected:
    void SetUp() override
    {
        if (!kernelPathAvailable(GetParam()))
            GTEST_SKIP() << "this machine has no " << kernelPathName(GetParam());
        limitKernelPath(GetParam());
        ASSERT_EQ(kernelPath(), GetParam());
    }
    void TearDown() override { setReferenceKernels(false); }
};
