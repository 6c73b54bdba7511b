// The generic device: an open mode and four open/close hooks that a concrete
// device supplies. Open("r") / Open("w") / Close() drive the hooks.
#pragma once

#include <string>

class vDevice {
public:
    vDevice();
    vDevice(const vDevice&) = delete;
    vDevice& operator=(const vDevice&) = delete;

    // Hooks, called by Open and Close (and by a device examining itself).
    // Non-zero is success.
    virtual int OpenForReading();
    virtual int OpenForWriting();
    virtual int CloseForReading();
    virtual int CloseForWriting();

    virtual ~vDevice();  // fifth slot, after the hooks
    virtual int Open(const char* mode);
    virtual int Close();

    // Reserved slots: part of the interface, implemented by no device yet.
    virtual int Flush();
    virtual int Pause();
    virtual int Resume();

    virtual int IsInUse() const;
    virtual int IOCtl(int order, void* arg);
    virtual int GetUSTMSCPair(unsigned long long& ust, unsigned long long& msc);

    void Init();

    // The current open mode: "" closed, "r" reading, "w" writing.
    const char* Mode() const { return mode.c_str(); }

protected:
    std::string mode;
};

// A polymorphic configuration record; nothing derives from it yet.
class vDeviceConfig {
public:
    virtual ~vDeviceConfig();
};
