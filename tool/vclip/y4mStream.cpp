#include "tool/vclip/y4mStream.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <thread>

#include "tool/vclip/commands.h"
#include "tool/vclip/frameQueue.h"
#include "tool/vclip/messages.h"

namespace {

// Frame bytes are taken in pieces of at most this much, so that memory
// follows what has arrived.
constexpr int64_t kFramePiece = int64_t{1} << 20;

bool refused(const std::string& name, const std::string& what)
{
    failure("%s: %s", name.c_str(), what.c_str());
    return false;
}

// What the reader says of a stream vclip does not take, with the FFmpeg
// option that makes one it does.
std::string notTaken(const Y4mHeader& header)
{
    if (header.colour != "422")
        return "colour space C" + shownText(header.colour) +
               ": only 8-bit 4:2:2 (C422) is taken; FFmpeg writes it with -pix_fmt yuv422p";
    if (header.width % 2 != 0 || header.width > kMaxSide || header.height > kMaxSide)
        return "unsupported picture size " + std::to_string(header.width) + "x" + std::to_string(header.height) +
               " (even widths up to " + std::to_string(kMaxSide) + ", heights up to " + std::to_string(kMaxSide) +
               "; FFmpeg changes the size with -vf scale=W:H)";
    return "";
}

}  // namespace

bool Y4mStreamReader::Fill()
{
    if (begin_ > 0) {
        std::copy(buffer_.begin() + static_cast<std::ptrdiff_t>(begin_),
                  buffer_.begin() + static_cast<std::ptrdiff_t>(end_), buffer_.begin());
        end_ -= begin_;
        begin_ = 0;
    }
    const size_t got = ReadSome(buffer_.data() + end_, buffer_.size() - end_);
    end_ += got;
    return got > 0;
}

size_t Y4mStreamReader::ReadSome(uint8_t* to, size_t room)
{
    for (;;) {
        const ssize_t r = read(fd_, to, room);
        if (r >= 0)
            return static_cast<size_t>(r);
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            // A descriptor left non-blocking by whoever made it: wait.
            pollfd wait{fd_, POLLIN, 0};
            poll(&wait, 1, -1);
        } else if (errno != EINTR) {
            readError_ = errno;
            return 0;
        }
    }
}

Y4mStreamReader::Line Y4mStreamReader::ReadLine(std::string& line)
{
    line.clear();
    for (;;) {
        const auto from = buffer_.begin() + static_cast<std::ptrdiff_t>(begin_);
        const auto to = buffer_.begin() + static_cast<std::ptrdiff_t>(end_);
        const auto newline = std::find(from, to, uint8_t{'\n'});
        const size_t take = std::min(static_cast<size_t>(newline - from), kY4mLineLimit + 1 - line.size());
        line.append(from, from + static_cast<std::ptrdiff_t>(take));
        begin_ += take;
        if (line.size() > kY4mLineLimit)
            return Line::TooLong;
        if (newline != to) {
            ++begin_;
            return Line::Read;
        }
        if (!Fill())
            return readError_ != 0 ? Line::Failed : line.empty() ? Line::End : Line::CutOff;
    }
}

int64_t Y4mStreamReader::ReadBytes(uint8_t* data, int64_t bytes)
{
    int64_t done = 0;
    while (done < bytes) {
        // What the read-ahead does not hold goes straight to its place
        // when there is more of it than the read-ahead takes.
        if (begin_ == end_ && bytes - done >= static_cast<int64_t>(buffer_.size())) {
            const size_t got = ReadSome(data + done, static_cast<size_t>(bytes - done));
            if (got == 0)
                break;
            done += static_cast<int64_t>(got);
            continue;
        }
        if (begin_ == end_ && !Fill())
            break;
        const size_t take = static_cast<size_t>(std::min<int64_t>(bytes - done, static_cast<int64_t>(end_ - begin_)));
        std::memcpy(data + done, buffer_.data() + begin_, take);
        begin_ += take;
        done += static_cast<int64_t>(take);
    }
    return done;
}

bool Y4mStreamReader::ReadHeader(Y4mHeader& header)
{
    std::string line, error;
    switch (ReadLine(line)) {
    case Line::Read:
        break;
    case Line::TooLong:
        return refused(name_, "the header line is longer than " + std::to_string(kY4mLineLimit) + " characters");
    case Line::Failed:
        return refused(name_, std::strerror(readError_));
    default:
        return refused(name_, line.compare(0, 9, "YUV4MPEG2") == 0 ? "the header line has no line end"
                                                                   : "not a YUV4MPEG2 stream");
    }
    if (!parseY4mHeader(line, header, error))
        return refused(name_, error);
    const std::string refusal = notTaken(header);
    if (!refusal.empty())
        return refused(name_, refusal);
    header_ = header;
    return true;
}

bool Y4mStreamReader::FrameError(const std::string& what)
{
    return refused(name_, "frame " + std::to_string(frames_) + ": " + what);
}

Y4mStreamReader::Next Y4mStreamReader::ReadFrame(std::vector<uint8_t>& planes)
{
    std::string line, error;
    switch (ReadLine(line)) {
    case Line::Read:
        break;
    case Line::End:
        return Next::End;
    case Line::CutOff:
        FrameError("the stream ends inside its FRAME line ('" + shownText(line) + "' with no line end)");
        return Next::Failed;
    case Line::TooLong:
        FrameError("its FRAME line is longer than " + std::to_string(kY4mLineLimit) + " characters");
        return Next::Failed;
    case Line::Failed:
        FrameError(std::strerror(readError_));
        return Next::Failed;
    }
    if (!parseY4mFrameLine(line, error)) {
        FrameError(error);
        return Next::Failed;
    }
    // The planes come in pieces, the buffer growing with them.
    const auto frameBytes = static_cast<int64_t>(y4mFrameBytes(header_));
    int64_t got = 0;
    while (got < frameBytes) {
        const int64_t piece = std::min(kFramePiece, frameBytes - got);
        if (planes.size() < static_cast<size_t>(got + piece))
            planes.resize(static_cast<size_t>(got + piece));
        const int64_t read = ReadBytes(planes.data() + got, piece);
        got += read;
        if (read < piece) {
            FrameError(readError_ != 0 ? std::string(std::strerror(readError_))
                                       : "cut short: " + std::to_string(got) + " of its " + std::to_string(frameBytes) +
                                             " bytes are there");
            return Next::Failed;
        }
    }
    ++frames_;
    return Next::Frame;
}

bool Y4mStreamReader::Pump(Y4mSink& sink)
{
    if (!sink.Begin(header_))
        return false;
    std::vector<uint8_t> planes;
    for (;;) {
        switch (ReadFrame(planes)) {
        case Next::Frame:
            if (!sink.Frame(planes.data()))
                return false;
            break;
        case Next::End:
            return sink.End();
        case Next::Failed:
            return false;
        }
    }
}

bool Y4mStreamReader::PumpAhead(Y4mSink& sink, int ahead)
{
    if (!sink.Begin(header_))
        return false;
    FrameQueue queue(ahead);
    Next last = Next::Frame;
    std::thread reading([&] {
        while (std::vector<uint8_t>* planes = queue.Fill()) {
            last = ReadFrame(*planes);
            if (last != Next::Frame)
                break;
            queue.Filled();
        }
        queue.Finish();
    });
    // Stops the reading when the sink refuses a frame, and waits for it.
    struct Joined {
        FrameQueue& queue;
        std::thread& thread;
        ~Joined()
        {
            queue.Stop();
            thread.join();
        }
    };
    bool taken = true;
    {
        const Joined joined{queue, reading};
        while (taken) {
            const std::vector<uint8_t>* planes = queue.Take();
            if (!planes)
                break;
            taken = sink.Frame(planes->data());
            queue.Done();
        }
    }
    return taken && last == Next::End && sink.End();
}

bool Y4mStreamWriter::Begin(const Y4mHeader& header)
{
    const std::string head = formatY4mHeader(header);
    frameBytes_ = y4mFrameBytes(header);
    return out_.Write(head.data(), head.size());
}

bool Y4mStreamWriter::Frame(const uint8_t* planes)
{
    static const char kMark[] = "FRAME\n";
    return out_.Write(kMark, 6, planes, frameBytes_);
}

bool Y4mStreamWriter::End() { return out_.Finish(); }

bool openY4mInput(const std::string& name, UniqueFd& fd, int& input, std::string& shownName)
{
    if (name != "-") {
        int64_t size = 0;
        if (!openInput(name, "a YUV4MPEG2 stream", fd, size))
            return false;
        input = fd.Get();
        shownName = name;
        return true;
    }
    shownName = "standard input";
    input = STDIN_FILENO;
    if (isatty(STDIN_FILENO) == 1) {
        failure("standard input is a terminal; a YUV4MPEG2 stream was expected (pipe one in: "
                "ffmpeg -i IN -pix_fmt yuv422p -f yuv4mpegpipe - | vclip ...)");
        return false;
    }
    return true;
}
