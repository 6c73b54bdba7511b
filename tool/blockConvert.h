// convert: one block of PAL frames to the matching block of NTSC frames and,
// when reducedBlock is not null, of reduced RGB frames (scale 4: a quarter,
// scale 2: a half of the NTSC frame). Frame i of a block starts i slots into
// it, at any byte: a slot need not be a multiple of 4 bytes. Only the picture
// at the start of each slot is written.
#pragma once

void convert(void* palBlock, void* ntscBlock, void* reducedBlock, int frames, int width, int palLines, int ntscLines,
             int scale, int palSlot, int ntscSlot, int reducedSlot);
