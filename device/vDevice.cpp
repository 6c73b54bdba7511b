#include "device/vDevice.h"

#include <cstring>

vDevice::vDevice() { Init(); }

vDevice::~vDevice() = default;

void vDevice::Init() { mode.assign(""); }

int vDevice::OpenForReading() { return 0; }
int vDevice::OpenForWriting() { return 0; }
int vDevice::CloseForReading() { return 0; }
int vDevice::CloseForWriting() { return 0; }

int vDevice::Open(const char* newMode)
{
    if (mode == newMode)
        return 1;
    if (!mode.empty())
        Close();  // a failed close still lets the new mode in
    // The mode is recorded first, so the hook already sees the device in use.
    mode.assign(newMode);
    int result = 0;
    if (std::strcmp(newMode, "r") == 0)
        result = OpenForReading();
    else if (std::strcmp(newMode, "w") == 0)
        result = OpenForWriting();
    if (result == 0)
        mode.assign("");
    return result;
}

int vDevice::Close()
{
    if (mode.empty())
        return 1;
    int result = 0;
    if (mode == "r")
        result = CloseForReading();
    else if (mode == "w")
        result = CloseForWriting();
    if (result != 0)
        mode.assign("");
    return result;
}

int vDevice::Flush() { return 0; }
int vDevice::Pause() { return 0; }
int vDevice::Resume() { return 0; }

int vDevice::IsInUse() const { return mode.empty() ? 0 : 1; }

int vDevice::IOCtl(int, void*) { return 0; }

int vDevice::GetUSTMSCPair(unsigned long long& ust, unsigned long long& msc)
{
    ust = ~0ULL;
    msc = ~0ULL;
    return 0;
}

vDeviceConfig::~vDeviceConfig() = default;
