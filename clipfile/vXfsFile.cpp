// The clip object: construction, name, parameters, frame slot and layout,
// and what the open file holds.
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "clipfile/vXfsFile.h"
#include "clipfile/vXfsFileInternal.h"
#include "device/assertions.h"
#include "platform/fileIdentity.h"

using xfsfile::kSource;

// ---------------------------------------------------------------------------
// Object, name and parameters

vXfsFile::vXfsFile() { Init(); }

void vXfsFile::Init()
{
    std::free(name);
    name = strdup("");
    dataOffset = 4096;
    blockSize = 4096;
    replaceable = 1;
    descriptor = 0;
}

vXfsFile::~vXfsFile()
{
    if (IsInUse())
        Close();
    CloseDescriptor();  // a clip left open by a failed path: never leak it
    DropClaim();
    std::free(name);
}

int vXfsFile::SetName(const char* n)
{
    if (!mode.empty() || n == nullptr)
        return 0;
    DropClaim();  // a claim belongs to the file of the old name
    std::free(name);
    name = strdup(n);
    return 1;
}

vString vXfsFile::GetName() const { return vString(name); }

void vXfsFile::Debug()
{
    std::printf("File name: %s\n", name);
    std::printf("File mode: %s\n", Mode());
    header.debug();
}

int vXfsFile::SetSize(int width, int height)
{
    dmParamsSetInt(header.params, DM_IMAGE_WIDTH, width);
    dmParamsSetInt(header.params, DM_IMAGE_HEIGHT, height);
    return 1;
}

int vXfsFile::SetImageLenght(int32_t frames)
{
    header.numFrames = frames;
    return 1;
}

int vXfsFile::SetImageFormat(DMimagepacking packing)
{
    dmParamsSetEnum(header.params, DM_IMAGE_PACKING, packing);
    return 1;
}

int vXfsFile::SetInterlacing(int interlacing)
{
    dmParamsSetEnum(header.params, DM_IMAGE_INTERLACING, interlacing);
    return 1;
}

int vXfsFile::SetImageRate(double rate)
{
    dmParamsSetFloat(header.params, DM_IMAGE_RATE, rate);
    return 1;
}

int vXfsFile::SetAudioRate(double) { ASSERT_ZERO(kSource, 825); }

int vXfsFile::GetWidth() const { return dmParamsGetInt(header.params, DM_IMAGE_WIDTH); }

int vXfsFile::GetHeight() const { return dmParamsGetInt(header.params, DM_IMAGE_HEIGHT); }

int32_t vXfsFile::GetNumFrames() const { return header.numFrames; }

int32_t vXfsFile::GetImageFrameLenght() const { return header.numFrames; }

DMimagepacking vXfsFile::GetImageFormat() const { return dmParamsGetEnum(header.params, DM_IMAGE_PACKING); }

int vXfsFile::GetInterlacing(int& interlacing) const
{
    interlacing = dmParamsGetEnum(header.params, DM_IMAGE_INTERLACING);
    return 1;
}

int vXfsFile::GetImageRate(double& rate) const
{
    rate = dmParamsGetFloat(header.params, DM_IMAGE_RATE);
    return 1;
}

int vXfsFile::GetAudioRate(double&) const { ASSERT_ZERO(kSource, 1023); }

int vXfsFile::GetAudioFrameSize(int&) const { ASSERT_ZERO(kSource, 1035); }

int32_t vXfsFile::GetAudioFrameLenght() const { ASSERT_ZERO(kSource, 1046); }

int vXfsFile::UseImageTrack() { return 1; }

int vXfsFile::UseAudioTrack(int) { ASSERT_ZERO(kSource, 853); }

int vXfsFile::ImageSize() const
{
    // The rounding is done in 64 bits: a slot that would not fit in an int
    // (or a block size that is not positive) gives 0, "no valid slot", which
    // every opening refuses, so no transfer ever strides by it.
    const uint64_t frame = dmImageFrameSize(header.params);
    if (blockSize <= 0 || frame == 0)
        return 0;
    const uint64_t block = static_cast<uint64_t>(blockSize);
    const uint64_t slot = (block + frame - 1) / block * block;
    return slot > static_cast<uint64_t>(INT_MAX) ? 0 : static_cast<int>(slot);
}

// Refuses a layout that frames could not be placed in: a block size that
// is not positive, or parameters that give no frame size.
int vXfsFile::CheckLayout(const char* operation)
{
    if (blockSize <= 0) {
        std::printf("Invalid block size %d for %s [%s]\n", blockSize, name, operation);
        return 0;
    }
    if (ImageSize() == 0) {
        std::printf("Frame size of %s is not valid (%d x %d, packing %d) [%s]\n", name, GetWidth(), GetHeight(),
                    GetImageFormat(), operation);
        return 0;
    }
    return FramesClearOfHeader(header.version, operation);
}

// Frame 0 starts one block (versions 1 and 2) or one frame slot (version 3)
// into the file. A block or slot shorter than the header itself would put
// frame 0 over the header, and the first frame written would destroy the
// clip; such a layout is refused.
int vXfsFile::FramesClearOfHeader(int32_t version, const char* operation)
{
    const int headerBytes = version == 1 ? 40 : 44;
    const int firstFrame = version == 3 ? ImageSize() : blockSize;
    if (firstFrame < headerBytes) {
        std::printf("Frames of %s would overlap its header (frame 0 at byte %d) [%s]\n", name, firstFrame, operation);
        return 0;
    }
    return 1;
}

int64_t vXfsFile::FileSizeBytes() const
{
    struct stat st;
    if (descriptor == 0 || fstat(descriptor, &st) < 0)
        return -1;
    return st.st_size;
}

int64_t vXfsFile::PictureBytes() const { return static_cast<int64_t>(dmImageFrameSize(header.params)); }

int64_t vXfsFile::FramesPresent(int64_t pictureBytes) const
{
    const int slot = ImageSize();
    if (pictureBytes <= 0)
        pictureBytes = PictureBytes();
    if (descriptor == 0 || slot <= 0 || pictureBytes <= 0 || header.numFrames <= 0)
        return 0;
    // One look per hole: every frame that ends before the next hole is
    // there; the frame the hole falls in is the first one missing, unless
    // the hole lies in the padding after its picture.
    const int64_t count = header.numFrames;
    int64_t frame = 0;
    while (frame < count) {
        const int64_t start = dataOffset + frame * slot;
        const int64_t hole = fsNextHole(descriptor, start);
        if (hole < 0 || start + pictureBytes > hole)
            break;
        frame = (hole - dataOffset - pictureBytes) / slot + 1;
    }
    return frame < count ? frame : count;
}
