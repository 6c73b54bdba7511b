// Fuzz target: vString's wildcard match and Align.
//
// Input layout: byte 0 picks the depth (0 or not) for match; the rest is
// "text NUL pattern" (a missing NUL makes the pattern empty). The same text
// is then aligned with a mode, width and fill taken from the pattern's first
// bytes. Both results are compared with plain reference code.
#include "fuzz/fuzzTargets.h"

#include <cstring>
#include <string>
#include <vector>

#include "util/vString.h"

namespace {

// Glob match by dynamic programming over (text position, pattern position):
// slow and obviously right.
bool referenceGlob(const std::string& text, const std::string& pattern)
{
    const size_t n = text.size(), m = pattern.size();
    // row[j]: pattern[j..] matches text[i..], for the current i.
    std::vector<char> next(m + 1, 0), row(m + 1, 0);
    next[m] = 1;  // i == n: empty text
    for (size_t j = m; j-- > 0;)
        next[j] = pattern[j] == '*' && next[j + 1];
    for (size_t i = n; i-- > 0;) {
        row[m] = 0;
        for (size_t j = m; j-- > 0;) {
            if (pattern[j] == '*')
                row[j] = row[j + 1] || next[j];
            else
                row[j] = (pattern[j] == '?' || pattern[j] == text[i]) && next[j + 1];
        }
        next.swap(row);
    }
    return next[0] != 0;
}

std::string referenceAlign(const std::string& text, int mode, int width, char fill)
{
    const int surplus = width - static_cast<int>(text.size());
    switch (mode) {
    case vString::Right:
        return std::string(static_cast<size_t>(surplus), fill) + text;
    case vString::Left:
        return text + std::string(static_cast<size_t>(surplus), fill);
    case vString::Center:
        return std::string(static_cast<size_t>(surplus / 2), fill) + text +
               std::string(static_cast<size_t>(surplus - surplus / 2), fill);
    default:
        return std::string();
    }
}

}  // namespace

int fuzzStringMatch(const uint8_t* data, size_t size)
{
    if (size < 1)
        return 0;
    const int depth = data[0] & 1;
    const char* rest = reinterpret_cast<const char*>(data + 1);
    const size_t restSize = size - 1;
    const void* nul = std::memchr(rest, '\0', restSize);
    const size_t textSize = nul ? static_cast<const char*>(nul) - rest : restSize;
    const std::string text(rest, textSize);
    std::string pattern;
    if (nul) {
        const char* p = rest + textSize + 1;
        pattern.assign(p, strnlen(p, restSize - textSize - 1));
    }

    const int got = vString::match(text.c_str(), pattern.c_str(), depth);
    const bool want = (depth != 0 && pattern.empty()) || referenceGlob(text, pattern);
    fuzzCheck(got == (want ? 1 : 0), "match disagrees with the reference glob");

    // Align: every mode the enumeration can hold (3 is the invalid one; a
    // value outside 0..3 would not be a Justify at all), and a width around
    // the text's length, negative ones included.
    const unsigned char a = pattern.size() > 0 ? pattern[0] : 0;
    const unsigned char b = pattern.size() > 1 ? pattern[1] : 0;
    const char fill = pattern.size() > 2 ? pattern[2] : '.';
    const int mode = a % 4;
    const int width = static_cast<int>(text.size()) + static_cast<int>(b) - 64;

    vString s(text.c_str());
    const int aligned = s.Align(static_cast<vString::Justify>(mode), width, fill);
    if (width < static_cast<int>(text.size())) {
        fuzzCheck(aligned == 0, "Align accepted a width shorter than the text");
        fuzzCheck(text == s.c_str(), "a refused Align changed the text");
    } else {
        fuzzCheck(aligned == 1, "Align refused a valid width");
        const std::string alignedText = referenceAlign(text, mode, width, fill);
        // A NUL fill ends the text early; compare what a C string shows.
        fuzzCheck(std::string(alignedText.c_str()) == s.c_str(), "Align disagrees with the reference");
    }
    return 0;
}
