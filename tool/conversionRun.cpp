#include "tool/conversionRun.h"

// Placeholder until the conversion run is written: does nothing.
void runConversion(const vString& /*palName*/, const vString& /*ntscName*/,
                   const vString& /*reducedName*/, int /*scale*/, int /*alignment*/) {}
