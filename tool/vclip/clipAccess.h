// How vclip reads and writes clips: through vXfsFile, with the checks a
// store keeper expects (no file is overwritten unless it is a replaceable
// clip; a frame that is not all in the file is an error, not a picture).
// Failures print one line on stderr, "vclip: ...", and return false.
#pragma once

#include <cstdint>

#include "clipfile/vXfsFile.h"

// A buffer for one frame slot, aligned for direct transfers, cleared.
class FrameBuffer {
public:
    explicit FrameBuffer(int size);
    ~FrameBuffer();
    FrameBuffer(const FrameBuffer&) = delete;
    FrameBuffer& operator=(const FrameBuffer&) = delete;
    uint8_t* data() const { return bytes; }
    int size() const { return length; }

private:
    uint8_t* bytes = nullptr;
    int length = 0;
};

struct ClipFormat {
    int width = 720;
    int height = 576;
    DMimagepacking packing = DM_IMAGE_PACKING_CbYCrY;
    double rate = 25.0;
    int interlacing = 1;  // 0 none or unknown, 1 top field first, 2 bottom field first
};

// Both paths exist and are one file.
bool sameFile(const char* a, const char* b);

bool openForReading(vXfsFile& clip, const char* path);

// Creates the clip, or replaces a replaceable one. Refuses anything else
// already at `path`, and the file `source` (null when there is none).
bool createClip(vXfsFile& clip, const char* path, const ClipFormat& format, int32_t frames,
                const char* source);

// Bytes of the picture at the start of a slot: known for 4:2:2 and 24-bit
// RGB; for other packings the whole slot.
int64_t pictureBytes(const vXfsFile& clip);

// Frames, from frame 0, whose picture lies wholly in the file.
int64_t framesPresent(const vXfsFile& clip);

bool readFrame(vXfsFile& clip, int frame, FrameBuffer& buffer);
bool writeFrame(vXfsFile& clip, int frame, FrameBuffer& buffer);
