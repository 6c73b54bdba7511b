// Small word operations shared by the image code and its kernels, and the
// colour conversion's constants. A 32-bit pixel word holds four 8-bit lanes;
// the lane rules treat every lane alike, so they give the same bytes in
// memory whatever the machine's byte order. Internal linkage: the
// instruction-set files compile these with their own flags.
#pragma once

#include <cstdint>
#include <cstring>

namespace {

// The word whose bytes in memory are b0 b1 b2 b3.
inline uint32_t wordOf(unsigned b0, unsigned b1, unsigned b2, unsigned b3)
{
    const unsigned char b[4] = {static_cast<unsigned char>(b0), static_cast<unsigned char>(b1),
                                static_cast<unsigned char>(b2), static_cast<unsigned char>(b3)};
    uint32_t w;
    std::memcpy(&w, b, 4);
    return w;
}

// Lane k (0 to 3) of a word: the k-th byte of the word in memory.
inline unsigned laneByte(uint32_t word, int k)
{
    unsigned char bytes[4];
    std::memcpy(bytes, &word, 4);
    return bytes[k];
}

// Lane average of two words: the earlier operand a is halved rounding up, the
// later one b rounding down, so no lane ever carries into its neighbour.
constexpr uint32_t laneAverage(uint32_t a, uint32_t b)
{
    return ((b & 0xFEFEFEFEu) >> 1) + ((a & 0xFEFEFEFEu) >> 1) + (a & 0x01010101u);
}

// YUV 4:2:2 to RGB, BT.601 studio range in 16-bit fixed point. A colour of
// a word (bytes Cb, Y0, Cr, Y1) is
//     (luma * (Y0 + Y1) + its chroma terms + its offset) >> 16
// on 32-bit signed products, shifted rounding towards minus infinity, with
// no rounding term, and clamped to 0..255. Both lumas enter through their
// sum, so the pixel gets the mean luma of the word. The offsets centre
// chroma on 128 and luma on 16 (32 for the sum).
namespace yuvColour {
constexpr int32_t luma = 38155;
constexpr int32_t crToR = 104635;
constexpr int32_t crToG = -53294;
constexpr int32_t cbToG = -25690;
constexpr int32_t cbToB = 132278;
constexpr int32_t lumaOffset = 32 * luma;
constexpr int32_t rOffset = -(128 * crToR + lumaOffset);
constexpr int32_t gOffset = -(128 * crToG + 128 * cbToG + lumaOffset);
constexpr int32_t bOffset = -(128 * cbToB + lumaOffset);
static_assert(rOffset == -14614240 && gOffset == 8888992 && bOffset == -18152544, "offsets of the colour formulas");
}  // namespace yuvColour

inline unsigned char clampToByte(int32_t v) { return static_cast<unsigned char>(v < 0 ? 0 : (v > 255 ? 255 : v)); }

// One YUV 4:2:2 word to one 24-bit pixel, written as the bytes B, G, R.
inline void yuvWordToBgr(uint32_t word, unsigned char* bgr)
{
    using namespace yuvColour;
    const int32_t cb = static_cast<int32_t>(laneByte(word, 0));
    const int32_t cr = static_cast<int32_t>(laneByte(word, 2));
    const int32_t s = static_cast<int32_t>(laneByte(word, 1) + laneByte(word, 3));
    bgr[0] = clampToByte((cbToB * cb + luma * s + bOffset) >> 16);
    bgr[1] = clampToByte((luma * s + crToG * cr + cbToG * cb + gOffset) >> 16);
    bgr[2] = clampToByte((crToR * cr + luma * s + rOffset) >> 16);
}

}  // namespace
