// YUV4MPEG2 streams: a header line "YUV4MPEG2" and blank-separated tags
// (W width, H height, F rate as n:d, I interlacing, A pixel aspect, C colour
// space, X extensions); each frame is a line "FRAME" (with optional tags),
// then the planes.
#pragma once

#include <cstdint>
#include <string>

struct Y4mHeader {
    int width = 0;
    int height = 0;
    int rateNum = 25;
    int rateDen = 1;
    char interlacing = '?';          // p, t, b, m or ?
    std::string colour = "420jpeg";  // the format's default when C is absent
};

// Longest header or FRAME line taken, line end excluded.
constexpr size_t kY4mLineLimit = 4096;

// Parses the header line (without its line end). False with a reason.
bool parseY4mHeader(const std::string& line, Y4mHeader& header, std::string& error);
// The header line, line end included, for a 4:2:2 stream.
std::string formatY4mHeader(const Y4mHeader& header);

// Checks a frame's marker line (without its line end): "FRAME" and tags we
// can honour, which are X extensions only (a per-frame I tag would change
// what the clip's header says for all frames). False with a reason.
bool parseY4mFrameLine(const std::string& line, std::string& error);

// A stream in a regular file, read by position, so that the whole stream can
// be checked before anything is made from it and then read again.
class Y4mReader {
public:
    // `fd` stays the caller's; `size` is the file's size when opened.
    Y4mReader(int fd, int64_t size) : fd_(fd), size_(size) {}

    // Reads and checks the header line. False with a reason.
    bool ReadHeader(Y4mHeader& header, std::string& error);

    // Walks every frame from the current place to the end of the file,
    // checking each marker line and that each frame's planes are all there,
    // and counts them; the place is then back at the first frame. A stream
    // that ends in a cut-off line or frame is refused, naming the frame.
    bool CountFrames(int64_t frameBytes, int64_t limit, int64_t& frames, std::string& error);

    // Reads frame `index` (the next one) into `planes` (frameBytes bytes).
    bool ReadFrame(int64_t index, int64_t frameBytes, uint8_t* planes, std::string& error);

private:
    enum class Line { Read, End, CutOff, TooLong, Failed };
    Line ReadLine(std::string& line);

    int fd_;
    int64_t size_;
    int64_t at_ = 0;
    int64_t framesStart_ = 0;
};

// Frame rate to n:d: whole rates as n:1, the 1000/1001 family exactly,
// anything else to a thousandth; 25:1 when the rate is unknown (0 or less).
void rateToFraction(double rate, int& num, int& den);

// Clip interlacing value (0 none or unknown, 1 top field first, 2 bottom
// field first) to and from the I tag.
char interlacingTag(int interlacing);
int interlacingFromTag(char tag);
