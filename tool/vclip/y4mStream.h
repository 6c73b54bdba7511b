// YUV4MPEG2 streams read and written front to back through a descriptor: a
// file, a pipe, standard input or output. Nothing is sought, so a stream can
// come from or go to another program (FFmpeg) as it is made.
//
// vclip's stream commands are a chain: a reader hands the header and then
// each frame to a sink; a sink is either the writer (or a clip being made)
// or a stage that changes frames and hands them on to the next sink. A
// stage may hand on fewer or more frames than it gets, and a header of its
// own (another size, rate or field order).
//
// Frames travel as the stream holds them: planar 8-bit 4:2:2, a Y plane of
// width x height bytes, then Cb and Cr planes of width / 2 x height.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tool/vclip/clipAccess.h"
#include "tool/vclip/y4m.h"

// Bytes of one planar 4:2:2 frame.
inline size_t y4mFrameBytes(const Y4mHeader& header)
{
    return static_cast<size_t>(header.width) * static_cast<size_t>(header.height) * 2;
}

// Where a stream's header and frames go.
class Y4mSink {
public:
    virtual ~Y4mSink() = default;
    // The stream's header, before any frame. False after an error line.
    virtual bool Begin(const Y4mHeader& header) = 0;
    // One frame of the size Begin gave (y4mFrameBytes).
    virtual bool Frame(const uint8_t* planes) = 0;
    // After the last frame: a stage hands on what it still holds, the
    // writer makes its output complete.
    virtual bool End() = 0;
};

// Reads a stream from `fd` (kept the caller's). Memory grows with the
// bytes that arrive, never ahead of them: a header that claims huge frames
// costs nothing until their bytes come.
class Y4mStreamReader {
public:
    // `name` names the input in messages ("standard input" for a pipe).
    Y4mStreamReader(int fd, std::string name) : fd_(fd), name_(std::move(name)) {}

    // Reads the header and checks that vclip takes it: 8-bit 4:2:2 (C422),
    // an even width, sides up to kMaxSide. A stream it does not take is
    // refused with the FFmpeg option that makes one it does.
    bool ReadHeader(Y4mHeader& header);

    // Reads the next frame. Frame: `planes` holds it; End: the stream ended
    // cleanly before another FRAME line; Failed: the error line is printed
    // (naming the frame, counted from 0).
    enum class Next { Frame, End, Failed };
    Next ReadFrame(std::vector<uint8_t>& planes);

    // Hands the header and every frame to `sink`, then ends it.
    bool Pump(Y4mSink& sink);
    // The same, the frames read on a thread of their own up to `ahead`
    // frames before the sink takes them (a sink that works long on each).
    bool PumpAhead(Y4mSink& sink, int ahead);

    int64_t FramesRead() const { return frames_; }

private:
    enum class Line { Read, End, CutOff, TooLong, Failed };
    Line ReadLine(std::string& line);
    int64_t ReadBytes(uint8_t* data, int64_t bytes);
    bool Fill();
    // Up to `room` bytes from the descriptor into `to`: 0 at the end or
    // after an error (readError_).
    size_t ReadSome(uint8_t* to, size_t room);
    bool FrameError(const std::string& what);

    int fd_;
    std::string name_;
    Y4mHeader header_;
    int64_t frames_ = 0;
    std::vector<uint8_t> buffer_ = std::vector<uint8_t>(size_t{1} << 16);
    size_t begin_ = 0, end_ = 0;  // the bytes read ahead: buffer_[begin_, end_)
    int readError_ = 0;
};

// The last sink: writes the stream to an output (a file put in place when
// complete, or standard output), each frame with its FRAME line in one
// write, straight from where the frame lies.
class Y4mStreamWriter : public Y4mSink {
public:
    explicit Y4mStreamWriter(FileOutput& out) : out_(out) {}
    bool Begin(const Y4mHeader& header) override;
    bool Frame(const uint8_t* planes) override;
    bool End() override;

private:
    FileOutput& out_;
    size_t frameBytes_ = 0;
};

// Opens the stream named on a command line: "-" is standard input (it must
// not be a terminal), anything else a regular file. `fd` then holds the
// file's descriptor, or stays closed for standard input; `input` is the
// descriptor to read, `shownName` its name for messages.
bool openY4mInput(const std::string& name, UniqueFd& fd, int& input, std::string& shownName);
