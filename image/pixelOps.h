// Small word operations shared by the image code. A 32-bit pixel word holds
// four 8-bit lanes; these rules treat every lane alike, so they give the same
// bytes in memory whatever the machine's byte order.
#pragma once

#include <cstdint>

// Lane average of two words: the earlier operand a is halved rounding up, the
// later one b rounding down, so no lane ever carries into its neighbour.
constexpr uint32_t laneAverage(uint32_t a, uint32_t b)
{
    return ((b & 0xFEFEFEFEu) >> 1) + ((a & 0xFEFEFEFEu) >> 1) + (a & 0x01010101u);
}

// Lane k (0 to 3) of a word: the k-th byte of the word in memory.
inline unsigned laneByte(uint32_t word, int k)
{
    unsigned char bytes[4];
    __builtin_memcpy(bytes, &word, 4);
    return bytes[k];
}

// One YUV 4:2:2 word (bytes Cb, Y0, Cr, Y1 in memory) to one 24-bit pixel,
// written as the bytes B, G, R. Both lumas enter through their sum, so the
// pixel gets the mean luma of the word. BT.601 studio range, 16-bit fixed
// point: 32-bit signed products, shifts that round towards minus infinity,
// no rounding term, results clamped to 0..255.
inline void yuvWordToBgr(uint32_t word, unsigned char* bgr)
{
    const int32_t cb = static_cast<int32_t>(laneByte(word, 0));
    const int32_t cr = static_cast<int32_t>(laneByte(word, 2));
    const int32_t s = static_cast<int32_t>(laneByte(word, 1) + laneByte(word, 3));
    int32_t r = (104635 * cr + 38155 * s - 14614240) >> 16;
    int32_t g = (38155 * s - 53294 * cr - 25690 * cb + 8888992) >> 16;
    int32_t b = (132278 * cb + 38155 * s - 18152544) >> 16;
    r = r < 0 ? 0 : (r > 255 ? 255 : r);
    g = g < 0 ? 0 : (g > 255 ? 255 : g);
    b = b < 0 ? 0 : (b > 255 ? 255 : b);
    bgr[0] = static_cast<unsigned char>(b);
    bgr[1] = static_cast<unsigned char>(g);
    bgr[2] = static_cast<unsigned char>(r);
}
