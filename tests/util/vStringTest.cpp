#include "util/vString.h"

#include <climits>
#include <random>

#include "tests/common/testSupport.h"

namespace {

// The wildcard matcher as first written: a star tries every suffix starting
// at a character, recursively. Exponential, but the reference for results.
int recursiveMatch(const char* t, const char* p, int depth)
{
    if (!*p && depth)
        return 1;
    for (; *t && *p; ++t, ++p) {
        if (*p == '*') {
            for (; *t; ++t)
                if (recursiveMatch(t, p + 1, depth + 1))
                    return 1;
            break;
        }
        if (*p != '?' && *p != *t)
            break;
    }
    if (*t)
        return 0;
    while (*p == '*')
        ++p;
    return *p == '\0';
}

TEST(vStringMatch, AgreesWithRecursionOnRandomInputsAndStaysFast)
{
    // Texts may hold '*' and '?' too: there they are ordinary characters.
    std::mt19937 rng(12345);
    for (int i = 0; i < 200000; ++i) {
        std::string t, p;
        for (size_t n = rng() % 11; n > 0; --n)
            t += "ab*?"[rng() % 4];
        for (size_t n = rng() % 9; n > 0; --n)
            p += "ab*?"[rng() % 4];
        ASSERT_EQ(vString::match(t.c_str(), p.c_str(), i % 2), recursiveMatch(t.c_str(), p.c_str(), i % 2))
            << "text '" << t << "' pattern '" << p << "' depth " << i % 2;
    }
    // The recursion needs exponential time here; the matcher must not.
    const std::string text(20000, 'a');
    std::string stars;
    for (int i = 0; i < 40; ++i)
        stars += "*a";
    EXPECT_EQ(vString::match(text.c_str(), (stars + "*b").c_str(), 0), 0);
    EXPECT_EQ(vString::match((text + "b").c_str(), (stars + "*b").c_str(), 0), 1);
}

TEST(vStringConstruct, NumbersAppendsFirstBytesAndFiles)
{
    EXPECT_STREQ(vString(INT_MIN).c_str(), "-2147483648");
    vString s(-42);
    s += 7;
    s = s + vString("cd");
    EXPECT_STREQ(s.c_str(), "-427cd");
    EXPECT_STREQ(vString(static_cast<const char*>(nullptr)).c_str(), "");
    const char raw[3] = {'x', 'y', 'z'};  // no NUL: an over-read trips the sanitizer
    EXPECT_STREQ(vString(raw, 3).c_str(), "xyz");
    EXPECT_STREQ(vString(raw, -5).c_str(), "");

    FILE* f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    std::fputs("hello world", f);
    std::rewind(f);
    EXPECT_STREQ(vString(f, 5).c_str(), "hello");
    EXPECT_STREQ(vString(f, 100).c_str(), " world");  // short read
    EXPECT_STREQ(vString(f, 10).c_str(), "");         // end of file
    std::fclose(f);
}

TEST(vStringConstruct, SelfAndOwnTextAssignmentKeepText)
{
    vString s("hello");
    vString& alias = s;
    s = alias;
    EXPECT_STREQ(s.c_str(), "hello");
    s = s.c_str() + 2;  // pointer into its own text
    EXPECT_STREQ(s.c_str(), "llo");
    s += s.c_str();
    EXPECT_STREQ(s.c_str(), "llollo");
    vString copy(s);
    s = "x";
    EXPECT_STREQ(copy.c_str(), "llollo");  // a copy owns its own text
}

TEST(vStringEdit, AlignWithBothMessages)
{
    struct Case {
        vString::Justify mode;
        int width, result;
        const char* text;
        const char* err;
    };
    for (const Case& c : {Case{vString::Right, 5, 1, "...ab", ""}, Case{vString::Left, 5, 1, "ab...", ""},
                          Case{vString::Center, 5, 1, ".ab..", ""}, Case{vString::Center, 2, 1, "ab", ""},
                          Case{vString::Left, 1, 0, "ab", "vString: Align: bad argument: 1 (2)\n"},
                          Case{vString::Justify(3), 4, 1, "", "vString: Align: invalid mode: 3)\n"}}) {
        vString s("ab");
        EXPECT_EQ(tsupport::StderrOf([&] { EXPECT_EQ(s.Align(c.mode, c.width, '.'), c.result); }), c.err);
        EXPECT_STREQ(s.c_str(), c.text) << "mode " << c.mode << " width " << c.width;
    }
}

TEST(vStringEdit, TrimAndCase)
{
    for (auto [in, want] : {std::pair{"  a b \t\n", "a b"}, std::pair{"   ", ""}}) {
        vString t(in);
        t.TrimSpace();
        EXPECT_STREQ(t.c_str(), want) << "'" << in << "'";
    }
    vString words("hELLO wORLD");
    words.Capitalize();
    EXPECT_STREQ(words.c_str(), "Hello world");
}

TEST(vStringEdit, SubstringsAndDeletionOutOfRange)
{
    const vString h("hello");
    struct Case {
        vString got;
        const char* want;
    };
    for (const Case& c :
         {Case{h.GetSubStringPos(2), "llo"}, Case{h.GetSubStringPos(6), ""}, Case{h.GetSubStringPos(-1), ""},
          Case{h.GetSubStringPos(3, 1), "el"}, Case{h.GetSubStringPos(0, 6), ""}, Case{h.GetSubStringLen(1, 4), "ello"},
          Case{h.GetSubStringLen(1, 5), ""}, Case{h.GetSubStringLen(2, INT_MAX), ""}, Case{h.getSubStr(2, 100), "llo"},
          Case{h.getSubStr(-1, 2), ""}})
        EXPECT_STREQ(c.got.c_str(), c.want);
    struct Del {
        int a, b;
        const char* want;
    };
    for (const Del& c : {Del{0, 2, "cdef"}, Del{2, 2, "aef"}, Del{6, 0, "abcde"}, Del{0, 6, ""}, Del{4, 3, "abcdef"},
                         Del{-1, 2, "abcdef"}, Del{INT_MAX, INT_MAX, "abcdef"}}) {
        vString s("abcdef");
        s.delSubStr(c.a, c.b);
        EXPECT_STREQ(s.c_str(), c.want) << "a " << c.a << " b " << c.b;
    }
}

}  // namespace
