#include "tool/vclip/y4m.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <vector>

namespace {

bool parseInt(const std::string& text, int& value)
{
    if (text.empty() || text[0] < '0' || text[0] > '9')
        return false;
    char* end = nullptr;
    errno = 0;
    const long v = std::strtol(text.c_str(), &end, 10);
    if (*end != '\0' || errno != 0 || v > 1 << 30)
        return false;
    value = static_cast<int>(v);
    return true;
}

// Blank-separated words of a line; an empty word (two blanks, or a blank at
// either end) makes the line malformed.
bool splitWords(const std::string& line, std::vector<std::string>& words)
{
    words.clear();
    size_t from = 0;
    for (;;) {
        const size_t blank = line.find(' ', from);
        words.push_back(line.substr(from, blank == std::string::npos ? std::string::npos : blank - from));
        if (words.back().empty())
            return false;
        if (blank == std::string::npos)
            return true;
        from = blank + 1;
    }
}

// Text from a stream shown in a message: at most 20 characters, anything
// unprintable as '?'.
std::string shown(const std::string& text)
{
    std::string out;
    for (size_t i = 0; i < text.size() && i < 20; ++i)
        out.push_back(std::isprint(static_cast<unsigned char>(text[i])) ? text[i] : '?');
    return text.size() > 20 ? out + "..." : out;
}

std::string frameLabel(int64_t index) { return "frame " + std::to_string(index) + ": "; }

// Reads `bytes` at `at`, carrying on after short reads; the bytes read.
int64_t readAt(int fd, uint8_t* data, int64_t bytes, int64_t at)
{
    int64_t done = 0;
    while (done < bytes) {
        const ssize_t r = pread(fd, data + done, static_cast<size_t>(bytes - done), at + done);
        if (r < 0 && errno == EINTR)
            continue;
        if (r <= 0)
            return r < 0 && done == 0 ? -1 : done;
        done += r;
    }
    return done;
}

}  // namespace

bool parseY4mHeader(const std::string& line, Y4mHeader& header, std::string& error)
{
    std::vector<std::string> words;
    if (line.compare(0, 9, "YUV4MPEG2") != 0 || (line.size() > 9 && line[9] != ' ')) {
        error = "not a YUV4MPEG2 stream";
        return false;
    }
    if (!splitWords(line, words)) {
        error = "malformed header line (blanks out of place)";
        return false;
    }
    for (size_t i = 1; i < words.size(); ++i) {
        const std::string& word = words[i];
        const std::string value = word.substr(1);
        switch (word[0]) {
        case 'W':
            if (!parseInt(value, header.width) || header.width <= 0) {
                error = "bad width tag " + shown(word);
                return false;
            }
            break;
        case 'H':
            if (!parseInt(value, header.height) || header.height <= 0) {
                error = "bad height tag " + shown(word);
                return false;
            }
            break;
        case 'F': {
            // n:d, both positive; 0:0 is the format's "unknown".
            const size_t colon = value.find(':');
            int num = 0, den = 0;
            if (colon == std::string::npos || !parseInt(value.substr(0, colon), num) ||
                !parseInt(value.substr(colon + 1), den) || (num == 0) != (den == 0)) {
                error = "bad frame rate tag " + shown(word);
                return false;
            }
            header.rateNum = num;
            header.rateDen = den;
            break;
        }
        case 'I':
            if (value.size() != 1 || std::string("ptbm?").find(value[0]) == std::string::npos) {
                error = "bad interlacing tag " + shown(word);
                return false;
            }
            header.interlacing = value[0];
            break;
        case 'C':
            header.colour = value;
            break;
        default:  // A, X and unknown tags carry nothing we keep
            break;
        }
    }
    if (header.width <= 0 || header.height <= 0) {
        error = "missing width or height";
        return false;
    }
    return true;
}

bool parseY4mFrameLine(const std::string& line, std::string& error)
{
    std::vector<std::string> words;
    if (line.compare(0, 5, "FRAME") != 0 || (line.size() > 5 && line[5] != ' ')) {
        error = "no FRAME line where the frame should start (found '" + shown(line) + "')";
        return false;
    }
    if (!splitWords(line, words)) {
        error = "malformed FRAME line '" + shown(line) + "' (blanks out of place)";
        return false;
    }
    for (size_t i = 1; i < words.size(); ++i)
        if (words[i][0] != 'X') {
            error = "frame tag " + shown(words[i]) + " cannot be honoured (only X extensions are taken)";
            return false;
        }
    return true;
}

Y4mReader::Line Y4mReader::ReadLine(std::string& line)
{
    line.clear();
    if (at_ >= size_)
        return Line::End;
    const int64_t want = std::min<int64_t>(static_cast<int64_t>(kY4mLineLimit) + 1, size_ - at_);
    std::string bytes(static_cast<size_t>(want), '\0');
    const int64_t got = readAt(fd_, reinterpret_cast<uint8_t*>(&bytes[0]), want, at_);
    if (got < 0)
        return Line::Failed;
    bytes.resize(static_cast<size_t>(got));
    const size_t end = bytes.find('\n');
    if (end == std::string::npos) {
        line = bytes;
        return got > static_cast<int64_t>(kY4mLineLimit) ? Line::TooLong : Line::CutOff;
    }
    line = bytes.substr(0, end);
    at_ += static_cast<int64_t>(end) + 1;
    return Line::Read;
}

bool Y4mReader::ReadHeader(Y4mHeader& header, std::string& error)
{
    at_ = 0;
    std::string line;
    switch (ReadLine(line)) {
    case Line::Read:
        break;
    case Line::TooLong:
        error = "the header line is longer than " + std::to_string(kY4mLineLimit) + " characters";
        return false;
    case Line::Failed:
        error = std::strerror(errno);
        return false;
    default:
        error = line.compare(0, 9, "YUV4MPEG2") == 0 ? "the header line has no line end" : "not a YUV4MPEG2 stream";
        return false;
    }
    if (!parseY4mHeader(line, header, error))
        return false;
    framesStart_ = at_;
    return true;
}

bool Y4mReader::CountFrames(int64_t frameBytes, int64_t limit, int64_t& frames, std::string& error)
{
    frames = 0;
    std::string line;
    for (;;) {
        const Line read = ReadLine(line);
        if (read == Line::End)
            break;
        if (read == Line::CutOff) {
            error =
                frameLabel(frames) + "the stream ends inside its FRAME line ('" + shown(line) + "' with no line end)";
            return false;
        }
        if (read == Line::TooLong) {
            error =
                frameLabel(frames) + "its FRAME line is longer than " + std::to_string(kY4mLineLimit) + " characters";
            return false;
        }
        if (read == Line::Failed) {
            error = frameLabel(frames) + std::strerror(errno);
            return false;
        }
        if (!parseY4mFrameLine(line, error)) {
            error = frameLabel(frames) + error;
            return false;
        }
        if (size_ - at_ < frameBytes) {
            error = frameLabel(frames) + "cut short: " + std::to_string(size_ - at_) + " of its " +
                    std::to_string(frameBytes) + " bytes are there";
            return false;
        }
        at_ += frameBytes;
        if (++frames > limit) {
            error = "more than " + std::to_string(limit) + " frames";
            return false;
        }
    }
    at_ = framesStart_;
    return true;
}

bool Y4mReader::ReadFrame(int64_t index, int64_t frameBytes, uint8_t* planes, std::string& error)
{
    std::string line, ignored;
    if (ReadLine(line) != Line::Read || !parseY4mFrameLine(line, ignored) ||
        readAt(fd_, planes, frameBytes, at_) != frameBytes) {
        error = frameLabel(index) + "the stream changed while it was read";
        return false;
    }
    at_ += frameBytes;
    return true;
}

std::string formatY4mHeader(const Y4mHeader& header)
{
    std::ostringstream text;
    text << "YUV4MPEG2 W" << header.width << " H" << header.height << " F" << header.rateNum << ':' << header.rateDen
         << " I" << header.interlacing << " A0:0 C" << header.colour << '\n';
    return text.str();
}

void rateToFraction(double rate, int& num, int& den)
{
    if (!(rate > 0) || rate > 1e6) {
        num = 25;
        den = 1;
        return;
    }
    const double whole = std::round(rate);
    if (std::fabs(rate - whole) < 1e-6) {
        num = static_cast<int>(whole);
        den = 1;
        return;
    }
    const double ntscStyle = std::round(rate * 1.001);
    if (std::fabs(rate * 1.001 - ntscStyle) < 1e-3) {
        num = static_cast<int>(ntscStyle) * 1000;
        den = 1001;
        return;
    }
    num = static_cast<int>(std::lround(rate * 1000));
    den = 1000;
}

char interlacingTag(int interlacing) { return interlacing == 1 ? 't' : interlacing == 2 ? 'b' : 'p'; }

int interlacingFromTag(char tag) { return tag == 't' ? 1 : tag == 'b' ? 2 : 0; }
