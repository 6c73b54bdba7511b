// YUV4MPEG2 streams: a header line "YUV4MPEG2" and blank-separated tags
// (W width, H height, F rate as n:d, I interlacing, A pixel aspect, C colour
// space, X extensions); each frame is a line "FRAME" (with optional tags),
// then the planes.
#pragma once

#include <cstdint>
#include <string>

#include "util/ratio.h"

struct Y4mHeader {
    int width = 0;
    int height = 0;
    Ratio rate{25, 1};
    char interlacing = '?';          // p, t, b, m or ?
    Ratio aspect{0, 0};              // pixel aspect; 0:0 unknown
    std::string colour = "420jpeg";  // the format's default when C is absent
};

// Longest header or FRAME line taken, line end excluded.
constexpr size_t kY4mLineLimit = 4096;

// Parses the header line (without its line end). False with a reason.
bool parseY4mHeader(const std::string& line, Y4mHeader& header, std::string& error);
// The header line, line end included, for a 4:2:2 stream.
std::string formatY4mHeader(const Y4mHeader& header);

// Text from a stream shown in a message: at most 20 characters, anything
// unprintable as '?'.
std::string shownText(const std::string& text);

// Checks a frame's marker line (without its line end): "FRAME" and tags we
// can honour, which are X extensions only (a per-frame I tag would change
// what the clip's header says for all frames). False with a reason.
bool parseY4mFrameLine(const std::string& line, std::string& error);

// Frame rate to n:d: whole rates as n:1, the 1000/1001 family exactly,
// anything else to a thousandth; 25:1 when the rate is unknown (0 or less).
void rateToFraction(double rate, int& num, int& den);

// Clip interlacing value (0 none or unknown, 1 top field first, 2 bottom
// field first) to and from the I tag.
char interlacingTag(int interlacing);
int interlacingFromTag(char tag);
