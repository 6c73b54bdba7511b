// Whole 4:2:2 clips for the reliability tests: the header built byte by byte,
// padding up to frame 0 (one slot in), then frames of a pattern that differs
// from frame to frame.
#pragma once

#include "tests/common/testSupport.h"

namespace rel {

// The header and `stored` frames, whatever the header's frame count says,
// each in a slot of whole blocks.
inline tsupport::Bytes MakeClip(const tsupport::ClipHeader& h, int stored)
{
    tsupport::Bytes bytes = h.Encode();
    const size_t frame = size_t(h.width) * size_t(h.height) * 2,
                 slot = (frame + h.blockSize - 1) / h.blockSize * h.blockSize;
    bytes.resize(slot * static_cast<size_t>(1 + stored), 0);
    for (size_t k = slot; k < bytes.size(); ++k)
        bytes[k] = static_cast<unsigned char>((k * 7 + (k >> 9) * 13 + k / slot * 29) & 0xFF);
    return bytes;
}

}  // namespace rel
