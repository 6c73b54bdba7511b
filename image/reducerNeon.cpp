// YUV-to-RGB reducer rows, NEON: eight output pixels per step, the rest by
// the plain rule. The colours are the plain formulas on 32-bit lanes; the
// stores interleave B, G and R by themselves. Built for little-endian
// AArch64, where the bytes Cb, Y0, Cr, Y1 of a word are its bits 0, 8, 16
// and 24.
#include <arm_neon.h>

#include "image/reducerRows.h"

namespace {

inline uint8x16_t load16(const uint32_t* words) { return vld1q_u8(reinterpret_cast<const uint8_t*>(words)); }

// Lane average with the earlier operand rounded up (see laneAverage): the
// rounding halving add of a and b with its low bit cleared.
inline uint8x16_t laneAverage16(uint8x16_t a, uint8x16_t b) { return vrhaddq_u8(a, vandq_u8(b, vdupq_n_u8(0xFE))); }

// Words 2j and 2j + 1 of one line for four pixels, averaged.
inline uint8x16_t pairAverage16(const uint32_t* line)
{
    const uint32x4_t a = vreinterpretq_u32_u8(load16(line)), b = vreinterpretq_u32_u8(load16(line + 4));
    return laneAverage16(vreinterpretq_u8_u32(vuzp1q_u32(a, b)), vreinterpretq_u8_u32(vuzp2q_u32(a, b)));
}

// The byte of every word `shift` bits up, as a 32-bit lane.
template <int Shift>
inline int32x4_t lane(uint32x4_t words)
{
    return vreinterpretq_s32_u32(vandq_u32(vshrq_n_u32(words, Shift), vdupq_n_u32(0xFF)));
}

struct Bgr32 {
    int32x4_t b, g, r;
};

inline Bgr32 yuvToBgr(uint8x16_t bytes)
{
    using namespace yuvColour;
    const uint32x4_t words = vreinterpretq_u32_u8(bytes);
    const int32x4_t cb = lane<0>(words), cr = lane<16>(words);
    const int32x4_t lumaPart = vmulq_n_s32(vaddq_s32(lane<8>(words), lane<24>(words)), luma);
    return {vshrq_n_s32(vmlaq_n_s32(vaddq_s32(lumaPart, vdupq_n_s32(bOffset)), cb, cbToB), 16),
            vshrq_n_s32(vmlaq_n_s32(vmlaq_n_s32(vaddq_s32(lumaPart, vdupq_n_s32(gOffset)), cr, crToG), cb, cbToG), 16),
            vshrq_n_s32(vmlaq_n_s32(vaddq_s32(lumaPart, vdupq_n_s32(rOffset)), cr, crToR), 16)};
}

// Eight colours clamped to 0..255.
inline uint8x8_t clamped(int32x4_t first, int32x4_t second)
{
    return vqmovn_u16(vcombine_u16(vqmovun_s32(first), vqmovun_s32(second)));
}

// Eight pixels of a row (see vectorRow), as two groups of four words.
struct Rows8 {
    static constexpr int units = 8;

    template <bool Quarter>
    static uint8x16_t mixed(const uint32_t* lines, std::ptrdiff_t stride, int j)
    {
        if constexpr (Quarter) {
            const uint32_t* l = lines + 2 * j;
            const uint8x16_t upper = laneAverage16(pairAverage16(l), pairAverage16(l + stride));
            const uint8x16_t lower = laneAverage16(pairAverage16(l + 2 * stride), pairAverage16(l + 3 * stride));
            return laneAverage16(upper, lower);
        } else {
            return laneAverage16(load16(lines + j), load16(lines + stride + j));
        }
    }

    template <bool Quarter>
    static void row(const uint32_t* lines, std::ptrdiff_t stride, int j, unsigned char* out)
    {
        const Bgr32 first = yuvToBgr(mixed<Quarter>(lines, stride, j));
        const Bgr32 second = yuvToBgr(mixed<Quarter>(lines, stride, j + 4));
        uint8x8x3_t bgr;
        bgr.val[0] = clamped(first.b, second.b);
        bgr.val[1] = clamped(first.g, second.g);
        bgr.val[2] = clamped(first.r, second.r);
        vst3_u8(out + 3 * j, bgr);
    }
};

}  // namespace

void addNeonReducers(PixelKernels& table) { addVectorRows<Rows8>(table); }
