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

// Reads "n:d" of non-negative numbers, both zero or neither.
bool parseRatio(const std::string& text, int& num, int& den)
{
    const size_t colon = text.find(':');
    return colon != std::string::npos && parseInt(text.substr(0, colon), num) &&
           parseInt(text.substr(colon + 1), den) && (num == 0) == (den == 0);
}

}  // namespace

std::string shownText(const std::string& text)
{
    std::string out;
    for (size_t i = 0; i < text.size() && i < 20; ++i)
        out.push_back(std::isprint(static_cast<unsigned char>(text[i])) ? text[i] : '?');
    return text.size() > 20 ? out + "..." : out;
}

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
                error = "bad width tag " + shownText(word);
                return false;
            }
            break;
        case 'H':
            if (!parseInt(value, header.height) || header.height <= 0) {
                error = "bad height tag " + shownText(word);
                return false;
            }
            break;
        case 'F':
            // n:d, both positive; 0:0 is the format's "unknown".
            if (!parseRatio(value, header.rate.num, header.rate.den)) {
                error = "bad frame rate tag " + shownText(word);
                return false;
            }
            break;
        case 'A':
            if (!parseRatio(value, header.aspect.num, header.aspect.den)) {
                error = "bad pixel aspect tag " + shownText(word);
                return false;
            }
            break;
        case 'I':
            if (value.size() != 1 || std::string("ptbm?").find(value[0]) == std::string::npos) {
                error = "bad interlacing tag " + shownText(word);
                return false;
            }
            header.interlacing = value[0];
            break;
        case 'C':
            header.colour = value;
            break;
        default:  // X and unknown tags carry nothing we keep
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
        error = "no FRAME line where the frame should start (found '" + shownText(line) + "')";
        return false;
    }
    if (!splitWords(line, words)) {
        error = "malformed FRAME line '" + shownText(line) + "' (blanks out of place)";
        return false;
    }
    for (size_t i = 1; i < words.size(); ++i)
        if (words[i][0] != 'X') {
            error = "frame tag " + shownText(words[i]) + " cannot be honoured (only X extensions are taken)";
            return false;
        }
    return true;
}

std::string formatY4mHeader(const Y4mHeader& header)
{
    std::ostringstream text;
    text << "YUV4MPEG2 W" << header.width << " H" << header.height << " F" << header.rate.num << ':' << header.rate.den
         << " I" << header.interlacing << " A" << header.aspect.num << ':' << header.aspect.den << " C" << header.colour
         << '\n';
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
