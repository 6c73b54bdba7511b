// The conversion run, in two steps. Planning opens the PAL clip, checks
// everything that decides whether the run can go ahead, claims the outputs
// (opened as they are and examined, nothing on disk changed) and allocates
// the block buffers. Execution then opens the outputs for writing, reserves
// their space and streams the clip block by block. Each step gives back the
// line that ends the run, or nothing; the caller prints it.
#pragma once

#include <cstdint>
#include <string>

#include "clipfile/vXfsFile.h"
#include "platform/alignedMemory.h"

struct RunSettings {
    const char* palName = "";
    const char* ntscName = "";
    const char* reducedName = "";  // empty: no reduced clip
    int scale = 4;
    int alignment = 128;
};

// What planning learnt and holds: the PAL clip open for reading, the
// outputs claimed, the sizes and the buffers.
struct ConversionPlan {
    vXfsFile palClip, ntscClip, reducedClip;
    bool reducing = false;
    int width = 0, height = 0;
    int32_t frames = 0;
    int scale = 4;
    int palSlot = 0, ntscSlot = 0, reducedSlot = 0;
    int64_t palPicture = 0;  // bytes of a 4:2:2 picture of the input's size
    int blockFrames = 0;     // frames per block: one direct transfer of the input
    int bufferAlignment = 0;
    AlignedMemory palBlock, palNext, ntscBlock, reducedBlock;
};

// Prints the information line (and the clip store's messages as they come).
// Returns the refusal line, or an empty text when the plan is ready; either
// way nothing on disk has changed.
std::string planConversion(const RunSettings& settings, ConversionPlan& plan);

// Carries out a ready plan. Returns the line that stopped the run, or an
// empty text when every frame was written.
std::string executeConversion(ConversionPlan& plan);
