// Loads and stores of 32-bit pixel words that assume no alignment.
//
// Frames lie in block buffers one slot after another, and a slot may be any
// number of bytes, so the word pointer of a frame, or of a line in it, can
// point at any byte. Such a pointer is never dereferenced: every word is read
// and written through these two. The address goes in untyped, so no compiler
// takes the alignment of a uint32_t for granted; the 4-byte copy becomes one
// plain load or store where the machine allows unaligned access, and a safe
// sequence where it does not. The word keeps the bytes in memory order.
#pragma once

#include <cstdint>
#include <cstring>

inline uint32_t loadWord(const void* at)
{
    uint32_t word;
    std::memcpy(&word, at, sizeof word);
    return word;
}

inline void storeWord(void* at, uint32_t word) { std::memcpy(at, &word, sizeof word); }
