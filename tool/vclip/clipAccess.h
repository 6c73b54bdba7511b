// How vclip reaches files.
//
// Inputs are regular files only, opened without blocking. Clips are read and
// written through vXfsFile, and a frame counts only where its picture is
// written data in the file.
//
// Outputs follow the converter's rules: never over a preserved clip, never
// over a file this run reads (compared by the files open, by device and
// inode, before a byte changes), never over a directory or anything but a
// regular file, and over a file of another kind than the output only when
// forced. A clip replaces a replaceable clip in place, through the clip
// store; every other output (a y4m stream, a picture, a clip over a file
// that is not one) is written beside its destination and takes its place
// only when complete and flushed, so that a failed run leaves what was there
// as it was, and no file of its own behind.
//
// Failures print one line on stderr, "vclip: ...", and return false.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "clipfile/vXfsFile.h"
#include "platform/alignedMemory.h"
#include "platform/fileIdentity.h"
#include "platform/uniqueFd.h"

// A buffer for one frame slot, aligned for direct transfers, cleared.
class FrameBuffer {
public:
    explicit FrameBuffer(int size);
    uint8_t* data() const { return memory.Bytes(); }
    int size() const { return static_cast<int>(memory.Size()); }

private:
    AlignedMemory memory;
};

struct ClipFormat {
    int width = 720;
    int height = 576;
    DMimagepacking packing = DM_IMAGE_PACKING_CbYCrY;
    double rate = 25.0;
    int interlacing = 1;  // 0 none or unknown, 1 top field first, 2 bottom field first
};

// Opens a file to read: a regular file only, opened without blocking (a
// FIFO put at the name in between cannot hold us up) and looked at again
// once open. `expected` says what the file should be, for the message.
bool openInput(const std::string& path, const char* expected, UniqueFd& fd, int64_t& size);

// Reads `bytes` at `at`, going on after short reads: the bytes read, or -1.
int64_t readAt(int fd, void* data, int64_t bytes, int64_t at);

// Opens a clip to read. The clip store's reports of failed transfers are
// held, so that a failure is told once, as vclip's own message.
bool openForReading(vXfsFile& clip, const char* path);

// Bytes of the picture at the start of a slot: known for 4:2:2 and 24-bit
// RGB; 0 for other packings (the clip store then takes the frame's size).
int64_t pictureBytes(const vXfsFile& clip);

// Frames, from frame 0, whose picture is written data in the file.
int64_t framesPresent(const vXfsFile& clip);

// Says why frame `frame` cannot be read, if it cannot: not in the clip's
// count, or not (all) written in the file. True when it is there.
bool frameIsPresent(const vXfsFile& clip, const char* path, int64_t frame, int64_t present);

// Reads frame `frame` of the clip at `path` whole (a frame the file holds
// only in part is an error).
bool readFrame(vXfsFile& clip, const char* path, int frame, FrameBuffer& buffer);

// What an output may replace.
struct OutputRules {
    bool force = false;                // --force: a file of another kind too
    std::vector<FileIdentity> inputs;  // the files this run reads
};

enum class OutputKind { Clip, Y4m, Png, Ppm, Bmp, Framemd5 };

// What is at an output's name, looked at through a descriptor of our own.
struct Destination {
    enum class Holds { Nothing, Empty, OwnKind, OtherKind };
    std::string name;    // as given, for messages
    std::string target;  // where the output goes: the name, or a link's final target
    UniqueFd held;       // the file there, kept open until it is replaced
    FileIdentity found;  // its identity; unknown when nothing is there
    mode_t mode = 0;     // its permission bits, which a replacement takes over
    Holds holds = Holds::Nothing;
};

// Looks at what is at `name` and refuses what the rules do not let this
// output replace.
bool examineDestination(const std::string& name, OutputKind kind, const OutputRules& rules, Destination& destination);

// Puts the finished file `aside` (the file `ours`) in the destination's
// place: where nothing was, only if the name is still free; where a file
// was, only if it is still the one examined. False after the error line.
bool putInPlace(const std::string& aside, const FileIdentity& ours, Destination& destination);

// A clip being written. Over nothing or a replaceable clip, the clip store
// makes or replaces it in place; over an empty file, or a file of another
// kind when forced, the clip is made beside it and put in its place by
// Finish. A clip this run made and did not finish is removed, as long as
// its name still leads to it; a replaceable clip replaced in place is left
// with the frames written so far (and says so: its count is the full one).
class ClipOutput {
public:
    ~ClipOutput();

    bool Create(const std::string& name, const ClipFormat& format, int32_t frames, const OutputRules& rules);
    // A clip for a stream whose length is known only at its end: always
    // made beside its destination, so that a stream that fails half way
    // leaves the destination as it was; Finish(frames) gives the count.
    bool CreateForStream(const std::string& name, const ClipFormat& format, const OutputRules& rules);
    vXfsFile& Clip() { return clip; }
    bool WriteFrame(int frame, FrameBuffer& buffer);
    bool Finish();
    bool Finish(int32_t frames);

private:
    vXfsFile clip;
    Destination destination;
    std::string writtenAt;  // the name the clip has while it is written
    FileIdentity made;      // the clip file this run created, if it did
    bool aside = false;
    bool streamed = false;
    bool finished = false;
};

// A whole file (a y4m stream, a picture) written beside its destination,
// nameless where the file system allows, and put in place by Finish once
// complete and flushed. Unfinished, it vanishes. A stream may instead go to
// standard output (the name "-"), as it is written; it must not be a
// terminal, nor one of the files the run reads.
class FileOutput {
public:
    ~FileOutput();

    bool Begin(const std::string& name, OutputKind kind, const OutputRules& rules);
    bool Write(const void* data, size_t bytes);
    // Both pieces, one after the other, in one system call where it can.
    bool Write(const void* head, size_t headBytes, const void* data, size_t bytes);
    bool Finish();

private:
    bool BeginStandardOutput(const OutputRules& rules);

    Destination destination;
    UniqueFd file;
    std::string asideName;  // the file's temporary name; empty while nameless
    FileIdentity made;
    bool toStandardOutput = false;
    bool finished = false;
    // Bytes written to the file, and how many of them were sent on to the
    // disk ahead of Finish's flush.
    int64_t written = 0, sentOn = 0;
};
