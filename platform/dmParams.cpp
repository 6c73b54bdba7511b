#include "platform/dmParams.h"

#include <cstdint>
#include <new>

namespace {

constexpr int kKeyCount = DM_IMAGE_RATE + 1;

enum class Kind : uint8_t { Absent, Int, Enum, Float };

struct Entry {
    Kind kind = Kind::Absent;
    int i = 0;
    double f = 0.0;
};

bool validKey(DMparamKey key) { return key >= 0 && key < kKeyCount; }

}  // namespace

// One slot per key: the list holds few enough keys that a fixed table is
// both the simplest and the fastest representation.
struct DMparams {
    Entry entries[kKeyCount];
};

DMstatus dmParamsCreate(DMparams** params)
{
    if (params == nullptr)
        return DM_FAILURE;
    *params = new (std::nothrow) DMparams();
    return *params != nullptr ? DM_SUCCESS : DM_FAILURE;
}

void dmParamsDestroy(DMparams* params) { delete params; }

DMstatus dmParamsCopyAllElems(DMparams* from, DMparams* to)
{
    if (from == nullptr || to == nullptr)
        return DM_FAILURE;
    for (int k = 0; k < kKeyCount; ++k)
        if (from->entries[k].kind != Kind::Absent)
            to->entries[k] = from->entries[k];
    return DM_SUCCESS;
}

static DMstatus setEntry(DMparams* params, DMparamKey key, Kind kind, int i, double f)
{
    if (params == nullptr || !validKey(key))
        return DM_FAILURE;
    params->entries[key] = Entry{kind, i, f};
    return DM_SUCCESS;
}

static const Entry* findEntry(const DMparams* params, DMparamKey key, Kind kind)
{
    if (params == nullptr || !validKey(key) || params->entries[key].kind != kind)
        return nullptr;
    return &params->entries[key];
}

DMstatus dmParamsSetInt(DMparams* params, DMparamKey key, int value)
{
    return setEntry(params, key, Kind::Int, value, 0.0);
}

int dmParamsGetInt(const DMparams* params, DMparamKey key)
{
    const Entry* e = findEntry(params, key, Kind::Int);
    return e != nullptr ? e->i : 0;
}

DMstatus dmParamsSetEnum(DMparams* params, DMparamKey key, int value)
{
    return setEntry(params, key, Kind::Enum, value, 0.0);
}

int dmParamsGetEnum(const DMparams* params, DMparamKey key)
{
    const Entry* e = findEntry(params, key, Kind::Enum);
    return e != nullptr ? e->i : 0;
}

DMstatus dmParamsSetFloat(DMparams* params, DMparamKey key, double value)
{
    return setEntry(params, key, Kind::Float, 0, value);
}

double dmParamsGetFloat(const DMparams* params, DMparamKey key)
{
    const Entry* e = findEntry(params, key, Kind::Float);
    return e != nullptr ? e->f : 0.0;
}

// Bytes per pixel, in halves, of each packing code; 0 for unknown codes.
static int halfBytesPerPixel(DMimagepacking packing)
{
    switch (packing) {
    case 1003:
    case 1004:
    case 1005:
    case 1007:
        return 2;
    case 3001:
    case 3002:
    case 3003:
    case 3004:
        return 3;
    case 1008:
    case 1009:
    case 1011:
    case 1091:
    case 1092:
        return 4;
    case 1000:
    case 1006:
    case 2000:
        return 6;
    case 1001:
    case 1002:
    case 1010:
    case 1089:
    case 1090:
    case 2001:
    case 2002:
    case 3000:
    case 8001:
    case 9001:
    case 11002:
        return 8;
    case 11001:
        return 12;
    default:
        return 0;
    }
}

size_t dmImageFrameSize(const DMparams* params)
{
    const int64_t width = dmParamsGetInt(params, DM_IMAGE_WIDTH);
    const int64_t height = dmParamsGetInt(params, DM_IMAGE_HEIGHT);
    const int64_t half = halfBytesPerPixel(dmParamsGetEnum(params, DM_IMAGE_PACKING));
    if (width <= 0 || height <= 0 || half == 0)
        return 0;
    // Every packing takes at least one byte a pixel, so a pixel count past
    // the int range already has no size (and the product below cannot wrap).
    const int64_t pixels = width * height;
    if (pixels > INT32_MAX)
        return 0;
    const int64_t size = pixels * half / 2;
    return size <= INT32_MAX ? static_cast<size_t>(size) : 0;
}
