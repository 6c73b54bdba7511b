// Line blend, NEON: 16 bytes per step, each lane as the definition has it,
// (K * p + (256 - K) * q) >> 8 in 16 bits: for weights 1 to 128 both
// factors fit a byte and the sum is at most 255 * 256. The streamed kernels
// are the same, with plain stores.
#include <arm_neon.h>

#include "convert/mixLineWord.h"

namespace {

struct Lanes16 {
    using type = uint8x16_t;

    template <int K>
    static uint8x16_t mix(uint8x16_t p, uint8x16_t q)
    {
        const uint8x8_t kp = vdup_n_u8(K), kq = vdup_n_u8(256 - K);
        const uint16x8_t low = vmlal_u8(vmull_u8(vget_low_u8(p), kp), vget_low_u8(q), kq);
        const uint16x8_t high = vmlal_u8(vmull_u8(vget_high_u8(p), kp), vget_high_u8(q), kq);
        return vcombine_u8(vshrn_n_u16(low, 8), vshrn_n_u16(high, 8));
    }
};

}  // namespace

void addNeonMixLine(PixelKernels& table)
{
    table.mixLine = mixLineTable<VectorMixLines<Lanes16>>();
    table.mixLineStreamed = table.mixLine;
}
