// vString: one owned, NUL-terminated buffer from array new; no length kept.
//
// Every operation that replaces the text builds the new buffer completely
// before giving back the old one. That keeps assignment from the string
// itself, or from a pointer into its own text, correct: the source is still
// alive while it is copied.
#include "util/vString.h"

#include <cctype>
#include <cstring>
#include <utility>

namespace {

// Size of the buffer an empty string gets from the default constructor and
// from the constructor with a null pointer.
constexpr int kEmptyBufferSize = 8;

// Scratch size for the "%d" form of a number.
constexpr int kNumberScratch = 256;

char* newEmptyBuffer()
{
    char* buffer = new char[kEmptyBufferSize];
    buffer[0] = '\0';
    return buffer;
}

// A buffer of exactly n + 1 bytes holding the first n bytes of s and a NUL.
char* newCopy(const char* s, size_t n)
{
    char* buffer = new char[n + 1];
    if (n > 0)
        std::memcpy(buffer, s, n);
    buffer[n] = '\0';
    return buffer;
}

char* newCopy(const char* s) { return newCopy(s, std::strlen(s)); }

// first followed by second, in a buffer of both lengths plus one.
char* newConcat(const char* first, const char* second)
{
    size_t a = std::strlen(first);
    size_t b = std::strlen(second);
    char* buffer = new char[a + b + 1];
    std::memcpy(buffer, first, a);
    std::memcpy(buffer + a, second, b);
    buffer[a + b] = '\0';
    return buffer;
}

bool isSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

int textLength(const char* s) { return static_cast<int>(std::strlen(s)); }

}  // namespace

// ---------------------------------------------------------------------------
// Construction, assignment, destruction

vString::vString() : text(newEmptyBuffer()) {}

vString::vString(const char* s) : text(s ? newCopy(s) : newEmptyBuffer()) {}

vString::vString(int n) : text(nullptr)
{
    char digits[kNumberScratch];
    std::snprintf(digits, sizeof digits, "%d", n);
    text = newCopy(digits);
}

vString::vString(const vString& other) : text(newCopy(other.text)) {}

// Exactly the first n bytes of s; s need not be terminated. A negative count
// or a null s gives the empty text rather than a copy of unknown memory.
vString::vString(const char* s, int n) : text(s && n > 0 ? newCopy(s, static_cast<size_t>(n)) : newCopy("", 0)) {}

// One fread of up to n bytes; a short read, end of file and a read error all
// leave whatever was read. A null file or a negative count reads nothing.
vString::vString(FILE* file, int n) : text(nullptr)
{
    size_t want = n > 0 ? static_cast<size_t>(n) : 0;
    text = new char[want + 1];
    size_t got = (file && want > 0) ? std::fread(text, 1, want, file) : 0;
    text[got] = '\0';
}

vString::~vString() { delete[] text; }

vString& vString::operator=(const vString& other)
{
    char* fresh = newCopy(other.text);
    delete[] text;
    text = fresh;
    return *this;
}

vString& vString::operator=(const char* s)
{
    // A null pointer empties the string, as the constructor does.
    char* fresh = s ? newCopy(s) : newEmptyBuffer();
    delete[] text;
    text = fresh;
    return *this;
}

vString& vString::operator=(char* s) { return *this = static_cast<const char*>(s); }

vString& vString::operator=(int n)
{
    char digits[kNumberScratch];
    std::snprintf(digits, sizeof digits, "%d", n);
    return *this = static_cast<const char*>(digits);
}

vString& vString::operator+=(const char* s)
{
    char* fresh = newConcat(text, s ? s : "");
    delete[] text;
    text = fresh;
    return *this;
}

vString& vString::operator+=(char* s) { return *this += static_cast<const char*>(s); }

vString& vString::operator+=(int n)
{
    char digits[kNumberScratch];
    std::snprintf(digits, sizeof digits, "%d", n);
    return *this += static_cast<const char*>(digits);
}

vString operator+(const vString& a, const vString& b)
{
    vString result(a);
    result += b.c_str();
    return result;
}

// ---------------------------------------------------------------------------
// Search

int vString::Find(char c) const
{
    for (int i = 0; text[i] != '\0'; ++i)
        if (text[i] == c)
            return i;
    return -1;
}

int vString::Find(const char* s) const
{
    const char* hit = std::strstr(text, s);
    return hit ? static_cast<int>(hit - text) : -1;
}

vString vString::FindOneOf(const char* set) const
{
    const char* hit = std::strpbrk(text, set);
    return vString(hit ? hit : "");
}

// ---------------------------------------------------------------------------
// In-place edits

void vString::TrimLeft()
{
    const char* first = text;
    while (isSpace(*first))
        ++first;
    if (first != text)
        std::memmove(text, first, std::strlen(first) + 1);
}

void vString::TrimRight()
{
    int end = textLength(text);
    while (end > 0 && isSpace(text[end - 1]))
        --end;
    text[end] = '\0';
}

void vString::TrimSpace()
{
    TrimLeft();
    TrimRight();
}

void vString::MakeLower()
{
    for (char* p = text; *p; ++p)
        *p = static_cast<char>(std::tolower(static_cast<unsigned char>(*p)));
}

void vString::MakeUpper()
{
    for (char* p = text; *p; ++p)
        *p = static_cast<char>(std::toupper(static_cast<unsigned char>(*p)));
}

void vString::Capitalize()
{
    MakeLower();
    if (text[0] != '\0')
        text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
}

// Keeps the first a - 1 characters and the text from index a + b onwards:
// with a = 0 the first b characters go, with a >= 1 the b + 1 characters from
// index a - 1 through a + b - 1.
// Arguments that do not describe a run inside the text (a or b negative, or
// a + b past the end) leave the text unchanged: nothing is read outside the
// buffer and nothing is duplicated.
void vString::delSubStr(int a, int b)
{
    int length = textLength(text);
    if (a < 0 || b < 0 || static_cast<long long>(a) + b > length)
        return;
    vString head = getSubStr(0, a - 1);
    char* fresh = newConcat(head.text, text + a + b);
    delete[] text;
    text = fresh;
}

// ---------------------------------------------------------------------------
// Alignment

int vString::Align(Justify mode, int width, char fill)
{
    int length = textLength(text);
    if (width < length) {
        std::fprintf(stderr, "vString: Align: bad argument: %d (%d)\n", width, length);
        return 0;
    }
    char* fresh = new char[static_cast<size_t>(width) + 1];
    int surplus = width - length;
    int before = 0;
    switch (mode) {
    case Right:
        before = surplus;
        break;
    case Center:
        before = surplus / 2;
        break;
    case Left:
        before = 0;
        break;
    default:
        std::fprintf(stderr, "vString: Align: invalid mode: %d)\n", static_cast<int>(mode));
        fresh[0] = '\0';
        delete[] text;
        text = fresh;
        return 1;
    }
    std::memset(fresh, fill, static_cast<size_t>(before));
    std::memcpy(fresh + before, text, static_cast<size_t>(length));
    std::memset(fresh + before + length, fill, static_cast<size_t>(surplus - before));
    fresh[width] = '\0';
    delete[] text;
    text = fresh;
    return 1;
}

// ---------------------------------------------------------------------------
// Substrings by position. Positions outside the text (negative, or past its
// end) give the empty string; nothing outside the buffer is ever read.

vString vString::GetSubStringPos(int pos) const
{
    if (pos < 0 || pos > textLength(text))
        return vString("");
    return vString(text + pos);
}

vString vString::GetSubStringPos(int a, int b) const
{
    int length = textLength(text);
    if (a < 0 || b < 0 || a > length || b > length)
        return vString("");
    int low = a < b ? a : b;
    int high = a < b ? b : a;
    return vString(text + low, high - low);
}

vString vString::GetSubStringLen(int pos, int n) const
{
    if (pos < 0 || n < 0 || static_cast<long long>(pos) + n > textLength(text))
        return vString("");
    return vString(text + pos, n);
}

vString vString::getSubStr(int pos, int n) const
{
    int length = textLength(text);
    if (n <= 0 || pos < 0 || pos > length)
        return vString("");
    int available = length - pos;
    return vString(text + pos, n < available ? n : available);
}

// ---------------------------------------------------------------------------
// Static helpers

int vString::compare(const char* a, const char* b) { return std::strcmp(a, b); }

// Wildcard match: '*' any run (the empty one included), '?' any one
// character, anything else itself, byte for byte. The whole text must match.
//
// The matcher was first a recursion: a star tried the rest of the pattern
// against every suffix of the text that starts at a character, recursing with
// depth + 1, and an empty pattern matched anything at depth != 0 (that is how
// a trailing star swallows the rest of the text). Its results are exactly
// those of plain glob matching, except that at depth != 0 an empty pattern
// matches any text; but its cost grows exponentially with the number of stars.
//
// This is the same result computed by backtracking to the most recent star
// only: when a later star is reached, every way of spending the earlier
// stars that got here is as good as any other, because the later star can
// absorb whatever they leave; so only the last star's run ever needs to grow.
// Each text position is passed at most once per pattern position: O(text x
// pattern) time in the worst case, no memory.
int vString::match(const char* text, const char* pattern, int depth)
{
    if (*pattern == '\0' && depth != 0)
        return 1;

    const char* t = text;
    const char* p = pattern;
    const char* starPattern = nullptr;  // pattern just after the last star seen
    const char* starText = nullptr;     // where that star's run currently ends

    while (*t != '\0') {
        if (*p == '*') {
            starPattern = ++p;
            starText = t;
        } else if (*p != '\0' && (*p == '?' || *p == *t)) {
            ++p;
            ++t;
        } else if (starPattern) {
            // Let the last star take one more character and retry.
            p = starPattern;
            t = ++starText;
        } else {
            return 0;
        }
    }
    while (*p == '*')
        ++p;
    return *p == '\0' ? 1 : 0;
}
