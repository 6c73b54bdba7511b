#include "tool/vclip/y4m.h"

#include <cmath>
#include <cstdlib>
#include <sstream>

namespace {

bool parseInt(const std::string& text, int& value)
{
    if (text.empty())
        return false;
    char* end = nullptr;
    const long v = std::strtol(text.c_str(), &end, 10);
    if (*end != '\0' || v < 0 || v > 1 << 30)
        return false;
    value = static_cast<int>(v);
    return true;
}

}  // namespace

bool parseY4mHeader(const std::string& line, Y4mHeader& header, std::string& error)
{
    std::istringstream words(line);
    std::string word;
    if (!(words >> word) || word != "YUV4MPEG2") {
        error = "not a YUV4MPEG2 stream";
        return false;
    }
    while (words >> word) {
        const std::string value = word.substr(1);
        switch (word[0]) {
        case 'W':
            if (!parseInt(value, header.width)) {
                error = "bad width tag " + word;
                return false;
            }
            break;
        case 'H':
            if (!parseInt(value, header.height)) {
                error = "bad height tag " + word;
                return false;
            }
            break;
        case 'F': {
            const size_t colon = value.find(':');
            if (colon == std::string::npos || !parseInt(value.substr(0, colon), header.rateNum) ||
                !parseInt(value.substr(colon + 1), header.rateDen)) {
                error = "bad frame rate tag " + word;
                return false;
            }
            break;
        }
        case 'I':
            header.interlacing = value.empty() ? '?' : value[0];
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

std::string formatY4mHeader(const Y4mHeader& header)
{
    std::ostringstream text;
    text << "YUV4MPEG2 W" << header.width << " H" << header.height << " F" << header.rateNum << ':'
         << header.rateDen << " I" << header.interlacing << " A0:0 C" << header.colour << '\n';
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

char interlacingTag(int interlacing)
{
    return interlacing == 1 ? 't' : interlacing == 2 ? 'b' : 'p';
}

int interlacingFromTag(char tag)
{
    return tag == 't' ? 1 : tag == 'b' ? 2 : 0;
}
