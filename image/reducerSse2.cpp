// YUV-to-RGB reducer rows, SSE2: four output pixels per step, the rest by
// the plain rule.
#include "image/reducerVector.h"

void addSse2Reducers(PixelKernels& table) { addVectorRows<RowStep<Regs128>>(table); }
