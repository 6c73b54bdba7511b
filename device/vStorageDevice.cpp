#include "device/vStorageDevice.h"

int vStorageDevice::SetName(const char*) { return 0; }
int vStorageDevice::SetSize(int, int) { return 0; }
int vStorageDevice::SetImageLenght(int32_t) { return 0; }
int vStorageDevice::SetImageFormat(DMimagepacking) { return 0; }
int vStorageDevice::SetInterlacing(int) { return 0; }
int vStorageDevice::SetAudioRate(double) { return 0; }
int vStorageDevice::SetImageRate(double) { return 0; }
int vStorageDevice::SetAudioFormat(int) { return 0; }

int vStorageDevice::GetWidth() const { return -1; }
int vStorageDevice::GetHeight() const { return -1; }
int32_t vStorageDevice::GetNumFrames() const { return -1; }
DMimagepacking vStorageDevice::GetImageFormat() const { return 0; }
vString vStorageDevice::GetName() const { return vString(); }
int vStorageDevice::GetInterlacing(int&) const { return 0; }
int vStorageDevice::GetAudioRate(double&) const { return 0; }
int vStorageDevice::GetImageRate(double&) const { return 0; }
int vStorageDevice::GetAudioFrameSize(int&) const { return 0; }
int32_t vStorageDevice::GetImageFrameLenght() const { return -1; }
int32_t vStorageDevice::GetAudioFrameLenght() const { return -1; }
int vStorageDevice::UseImageTrack() { return 0; }
int vStorageDevice::UseAudioTrack(int) { return 0; }

int vStorageDevice::PutImage(int, void*, int) { return 0; }
int vStorageDevice::PutImageField(int, int, void*, int) { return 0; }
int vStorageDevice::PutAudioFrame(int, void*) { return 0; }
int vStorageDevice::GetImageSize(int, int&) { return 0; }
int vStorageDevice::GetImage(int, void*, int) { return 0; }
int vStorageDevice::GetImagesBlock(int, int, int, void*) { return 0; }
int vStorageDevice::GetAudioFrame(int, void*, int) { return 0; }
int vStorageDevice::PutDummyImage(int) { return 0; }
int vStorageDevice::DeleteImage(int) { return 0; }
int vStorageDevice::InsertImage(int) { return 0; }
