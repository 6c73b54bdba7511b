// The storage device interface: clip parameters, frame transfer and audio,
// each with a neutral default so that a concrete store overrides only what
// it supports. Defaults ignore their arguments and leave outputs untouched.
#pragma once

#include <cstdint>

#include "device/vDevice.h"
#include "platform/dmParams.h"
#include "util/vString.h"

class vStorageDevice : public vDevice {
public:
    vStorageDevice() = default;
    ~vStorageDevice() override = default;

    virtual int SetName(const char* name);
    virtual int SetSize(int width, int height);
    virtual int SetImageLenght(int32_t frames);
    virtual int SetImageFormat(DMimagepacking packing);
    virtual int SetInterlacing(int interlacing);
    virtual int SetAudioRate(double rate);
    virtual int SetImageRate(double rate);
    virtual int SetAudioFormat(int format);  // reserved: no store has audio formats yet

    virtual int GetWidth() const;
    virtual int GetHeight() const;
    virtual int32_t GetNumFrames() const;
    virtual DMimagepacking GetImageFormat() const;
    virtual vString GetName() const;
    virtual int GetInterlacing(int& interlacing) const;
    virtual int GetAudioRate(double& rate) const;
    virtual int GetImageRate(double& rate) const;
    virtual int GetAudioFrameSize(int& size) const;
    virtual int32_t GetImageFrameLenght() const;
    virtual int32_t GetAudioFrameLenght() const;
    virtual int UseImageTrack();
    virtual int UseAudioTrack(int track);

    virtual int PutImage(int frame, void* data, int size);
    virtual int PutImageField(int frame, int field, void* data, int size);  // reserved
    virtual int PutAudioFrame(int frame, void* data);
    virtual int GetImageSize(int frame, int& size);
    virtual int GetImage(int frame, void* data, int size);
    virtual int GetImagesBlock(int first, int last, int frameSize, void* data);
    virtual int GetAudioFrame(int frame, void* data, int size);
    virtual int PutDummyImage(int frame);
    virtual int DeleteImage(int frame);  // reserved
    virtual int InsertImage(int frame);  // reserved
};
