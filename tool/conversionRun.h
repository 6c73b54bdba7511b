// The conversion run: opens the PAL clip, writes the NTSC clip (and the
// reduced clip when a name is given) block by block.
#pragma once

#include "util/vString.h"

// reducedName empty means no reduced clip. Every failure prints one line on
// standard output and ends the program with status 0.
void runConversion(const vString& palName, const vString& ntscName, const vString& reducedName,
                   int scale, int alignment);
