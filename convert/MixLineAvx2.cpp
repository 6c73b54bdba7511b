// Line blend, AVX2: 32 bytes per step, then one 16-byte step, then the plain
// rule for the last words.
#include "convert/mixLineAvx2.h"

void addAvx2MixLine(PixelKernels& table)
{
    addStreamedKernels<Lanes32, Lanes16>(table, [] { _mm_sfence(); });
}
