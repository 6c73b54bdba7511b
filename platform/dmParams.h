// The media library's image parameter list and frame size, as the clip store
// uses them: a small list of typed values under fixed keys.
#pragma once

#include <cstddef>
#include <cstdint>

// Pixel packing codes recorded in clip headers (the media library's public values).
using DMimagepacking = int32_t;
constexpr DMimagepacking DM_IMAGE_PACKING_BGR = 1000;     // 24-bit, memory order B, G, R
constexpr DMimagepacking DM_IMAGE_PACKING_CbYCrY = 1008;  // YUV 4:2:2

// Keys of the parameter list.
enum DMparamKey : int {
    DM_IMAGE_WIDTH,
    DM_IMAGE_HEIGHT,
    DM_IMAGE_PACKING,
    DM_IMAGE_INTERLACING,
    DM_IMAGE_RATE,
};

// Result codes of the list calls.
enum DMstatus : int { DM_SUCCESS = 0, DM_FAILURE = -1 };

struct DMparams;  // opaque

DMstatus dmParamsCreate(DMparams** params);
void dmParamsDestroy(DMparams* params);
DMstatus dmParamsCopyAllElems(DMparams* from, DMparams* to);
DMstatus dmParamsSetInt(DMparams* params, DMparamKey key, int value);
int dmParamsGetInt(const DMparams* params, DMparamKey key);  // absent: 0
DMstatus dmParamsSetEnum(DMparams* params, DMparamKey key, int value);
int dmParamsGetEnum(const DMparams* params, DMparamKey key);  // absent: 0
DMstatus dmParamsSetFloat(DMparams* params, DMparamKey key, double value);
double dmParamsGetFloat(const DMparams* params, DMparamKey key);  // absent: 0.0

// Bytes of one frame for the list's width, height and packing; 0 when the
// packing is unknown, a dimension is not positive, or the size does not fit
// in a signed 32-bit int.
size_t dmImageFrameSize(const DMparams* params);
