// Helpers for the image tests: words built from bytes in memory order, a
// seeded source of random pixels, and caller buffers fenced by guard words.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

// The word whose bytes in memory are those of the big-endian hex value:
// bigEndianWord(0x80108020) lies in memory as 80 10 80 20 on any machine.
inline uint32_t bigEndianWord(uint32_t hex)
{
    const unsigned char b[4] = {static_cast<unsigned char>(hex >> 24), static_cast<unsigned char>(hex >> 16),
                                static_cast<unsigned char>(hex >> 8), static_cast<unsigned char>(hex)};
    uint32_t w;
    std::memcpy(&w, b, 4);
    return w;
}

inline uint32_t wordOfBytes(unsigned b0, unsigned b1, unsigned b2, unsigned b3)
{
    return bigEndianWord((b0 << 24) | (b1 << 16) | (b2 << 8) | b3);
}

inline std::array<unsigned, 4> bytesOfWord(uint32_t w)
{
    unsigned char b[4];
    std::memcpy(b, &w, 4);
    return {b[0], b[1], b[2], b[3]};
}

template <class T = uint32_t>
std::vector<T> randomValues(size_t n, uint32_t seed)
{
    std::mt19937 gen(seed);
    std::vector<T> v(n);
    for (auto& x : v)
        x = static_cast<T>(gen());
    return v;
}
inline std::vector<uint32_t> randomWords(size_t n, uint32_t seed) { return randomValues(n, seed); }
inline std::vector<unsigned char> randomBytes(size_t n, uint32_t seed) { return randomValues<unsigned char>(n, seed); }

// Reference rules, written per byte.
inline unsigned refAverage(unsigned earlier, unsigned later) { return (earlier + 1) / 2 + later / 2; }
inline unsigned refBlend(unsigned a, unsigned b) { return a - a / 4 + b / 4; }

// A caller's buffer of n words between two runs of guard words, every word
// set to a sentinel first; a word still holding the sentinel was not written.
class Guarded {
public:
    static constexpr uint32_t kSentinel = 0xA5A5A5A5u;
    static constexpr size_t kGuard = 16;

    explicit Guarded(size_t n) : n_(n), buf_(n + 2 * kGuard, kSentinel) {}
    uint32_t* data() { return buf_.data() + kGuard; }
    uint32_t& operator[](size_t i) { return buf_[kGuard + i]; }
    size_t size() const { return n_; }
    bool guardsIntact() const
    {
        for (size_t i = 0; i < kGuard; ++i)
            if (buf_[i] != kSentinel || buf_[kGuard + n_ + i] != kSentinel)
                return false;
        return true;
    }

private:
    size_t n_;
    std::vector<uint32_t> buf_;
};
