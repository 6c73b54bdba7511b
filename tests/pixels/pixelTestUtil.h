#pragma once

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "util/cpuFeatures.h"

// A word given as its bytes in memory order: 0x80108020 is 80 10 80 20.
inline uint32_t wordOf(uint32_t bytesInOrder)
{
    const unsigned char b[4] = {static_cast<unsigned char>(bytesInOrder >> 24), static_cast<unsigned char>(bytesInOrder >> 16),
                                static_cast<unsigned char>(bytesInOrder >> 8), static_cast<unsigned char>(bytesInOrder)};
    uint32_t w;
    std::memcpy(&w, b, 4);
    return w;
}

inline unsigned byteOf(uint32_t word, int k)
{
    unsigned char b[4];
    std::memcpy(b, &word, 4);
    return b[k];
}

// The blend rule lane by lane, straight from its definition.
inline uint32_t blendLanes(uint32_t p, uint32_t q, int k)
{
    unsigned char b[4];
    for (int lane = 0; lane < 4; ++lane)
        b[lane] = static_cast<unsigned char>((k * byteOf(p, lane) + (256 - k) * byteOf(q, lane)) / 256);
    uint32_t w;
    std::memcpy(&w, b, 4);
    return w;
}

// Random words over the full range, with extreme bytes mixed in often.
inline std::vector<uint32_t> randomWords(std::mt19937& rng, std::size_t n)
{
    static const unsigned char extremes[] = {0, 255, 16, 235, 1, 254, 128};
    std::vector<uint32_t> words(n);
    for (auto& w : words) {
        unsigned char b[4];
        for (auto& byte : b)
            byte = (rng() % 4 == 0) ? extremes[rng() % 7] : static_cast<unsigned char>(rng());
        std::memcpy(&w, b, 4);
    }
    return words;
}

// Runs a test on each kernel path this CPU has: the reference first, then
// each vector path, after checking that it is really the one selected.
class BothPaths : public ::testing::TestWithParam<KernelPath> {
protected:
    void SetUp() override
    {
        if (GetParam() > bestKernelPath())
            GTEST_SKIP() << "this CPU has no " << kernelPathName(GetParam());
        limitKernelPath(GetParam());
        ASSERT_EQ(kernelPath(), GetParam());
    }
    void TearDown() override { setReferenceKernels(false); }
};

inline const auto allPaths = ::testing::Values(KernelPath::reference, KernelPath::sse2, KernelPath::avx2);

inline std::string pathName(const ::testing::TestParamInfo<KernelPath>& info)
{
    return kernelPathName(info.param);
}
