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
