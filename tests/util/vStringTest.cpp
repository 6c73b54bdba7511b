#include "util/vString.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <random>
#include <string>

namespace {

// The wildcard matcher as first written: a star tries every suffix starting
// at a character, recursively. Exponential, but the reference for results.
int recursiveMatch(const char* t, const char* p, int depth) {
    if (!*p && depth)
        return 1;
    while (*t && *p) {
        if (*p == '*') {
            for (; *t; ++t)
                if (recursiveMatch(t, p + 1, depth + 1))
                    return 1;
        } else if (*p == '?' || *p == *t) {
            ++t;
            ++p;
        } else {
            break;
        }
    }
    if (*t)
        return 0;
    while (*p == '*')
        ++p;
    return *p == '\0';
}

TEST(vStringMatch, Examples) {
    struct Case { const char* text; const char* pattern; int depth, want; };
    for (const Case& c : {Case{"abc", "a?c", 0, 1}, Case{"abc", "A*", 0, 0}, Case{"abc", "abc*", 0, 1},
                          Case{"abcdef", "abc*", 0, 1}, Case{"axb", "a*b", 0, 1},
                          Case{"axbyc", "a*b", 0, 0}, Case{"x", "?", 0, 1}, Case{"", "?", 0, 0},
                          Case{"", "*", 0, 1}, Case{"", "", 0, 1}, Case{"a", "", 0, 0},
                          Case{"a", "", 1, 1}})  // below the top, an empty pattern matches
        EXPECT_EQ(vString::match(c.text, c.pattern, c.depth), c.want) << c.text << " " << c.pattern;
}

TEST(vStringMatch, AgreesWithRecursionOnRandomInputs) {
    // Texts may hold '*' and '?' too: there they are ordinary characters.
    std::mt19937 rng(12345);
    auto randomString = [&](size_t maxLen) {
        std::string s(rng() % (maxLen + 1), 'a');
        for (char& c : s)
            c = "ab*?"[rng() % 4];
        return s;
    };
    for (int i = 0; i < 200000; ++i) {
        std::string t = randomString(10), p = randomString(8);
        int depth = i % 2;
        ASSERT_EQ(vString::match(t.c_str(), p.c_str(), depth), recursiveMatch(t.c_str(), p.c_str(), depth))
            << "text '" << t << "' pattern '" << p << "' depth " << depth;
    }
}

TEST(vStringMatch, ManyStarsAgainstLongTextFinish) {
    // The recursion needs exponential time here; the matcher must not.
    std::string text(20000, 'a');
    std::string pattern;
    for (int i = 0; i < 40; ++i)
        pattern += "*a";
    EXPECT_EQ(vString::match(text.c_str(), (pattern + "*b").c_str(), 0), 0);
    EXPECT_EQ(vString::match((text + "b").c_str(), (pattern + "*b").c_str(), 0), 1);
    EXPECT_EQ(vString::match(text.c_str(), (pattern + "?").c_str(), 0), 1);
}

TEST(vStringConstruct, NumbersAppendsAndFirstBytes) {
    EXPECT_STREQ(vString(INT_MIN).c_str(), "-2147483648");
    vString s(-42);
    s += 7;
    s += "cd";
    s = s + vString("!");
    EXPECT_STREQ(s.c_str(), "-427cd!");
    s = 12;
    EXPECT_STREQ(s.c_str(), "12");
    EXPECT_STREQ(vString(static_cast<const char*>(nullptr)).c_str(), "");
    const char raw[3] = {'x', 'y', 'z'};  // no NUL: an over-read trips the sanitizer
    EXPECT_STREQ(vString(raw, 3).c_str(), "xyz");
    EXPECT_STREQ(vString(raw, 2).c_str(), "xy");
    EXPECT_STREQ(vString(raw, -5).c_str(), "");
}

TEST(vStringConstruct, SelfAndOwnTextAssignmentKeepText) {
    vString s("hello");
    vString& alias = s;
    s = alias;
    EXPECT_STREQ(s.c_str(), "hello");
    s = s.c_str() + 2;  // pointer into its own text
    EXPECT_STREQ(s.c_str(), "llo");
    s = const_cast<char*>(s.c_str()) + 1;
    EXPECT_STREQ(s.c_str(), "lo");
    s += s.c_str();
    EXPECT_STREQ(s.c_str(), "lolo");
    vString copy(s);
    s = "x";
    EXPECT_STREQ(copy.c_str(), "lolo");
}

TEST(vStringConstruct, FromFileReadsUpToCountThenWhatIsLeft) {
    FILE* f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    std::fputs("hello world", f);
    std::rewind(f);
    EXPECT_STREQ(vString(f, 5).c_str(), "hello");
    EXPECT_STREQ(vString(f, 100).c_str(), " world");  // short read
    EXPECT_STREQ(vString(f, 10).c_str(), "");         // end of file
    std::fclose(f);
}

TEST(vStringSearchAndEdit, FindTrimAndCase) {
    vString s("key;val,x");
    EXPECT_EQ(s.Find('x'), 8);
    EXPECT_EQ(vString("abc").Find('x'), -1);
    EXPECT_EQ(s.Find(""), 0);
    EXPECT_EQ(s.Find("val"), 4);
    EXPECT_STREQ(s.FindOneOf(",;").c_str(), ";val,x");
    EXPECT_STREQ(vString("keyval").FindOneOf(",;").c_str(), "");
    struct Case { const char* in; const char* want; };
    for (const Case& c : {Case{"  a b \t\n", "a b"}, Case{"   ", ""}, Case{"", ""}, Case{"x", "x"}}) {
        vString t(c.in);
        t.TrimSpace();
        EXPECT_STREQ(t.c_str(), c.want) << "'" << c.in << "'";
    }
    vString words("hELLO wORLD");
    words.Capitalize();
    EXPECT_STREQ(words.c_str(), "Hello world");
    vString none;
    none.Capitalize();
    EXPECT_STREQ(none.c_str(), "");
}

TEST(vStringAlign, ModesAndErrors) {
    struct Case { vString::Justify mode; int width; const char* want; };
    for (const Case& c : {Case{vString::Right, 5, "...ab"}, Case{vString::Left, 5, "ab..."},
                          Case{vString::Center, 5, ".ab.."}, Case{vString::Center, 2, "ab"},
                          Case{vString::Center, 6, "..ab.."}}) {
        vString s("ab");
        EXPECT_EQ(s.Align(c.mode, c.width, '.'), 1);
        EXPECT_STREQ(s.c_str(), c.want) << "mode " << c.mode << " width " << c.width;
    }
    vString s("ab");
    testing::internal::CaptureStderr();
    EXPECT_EQ(s.Align(vString::Left, 1, '.'), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "vString: Align: bad argument: 1 (2)\n");
    EXPECT_STREQ(s.c_str(), "ab");
    testing::internal::CaptureStderr();
    EXPECT_EQ(s.Align(static_cast<vString::Justify>(3), 4, '.'), 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "vString: Align: invalid mode: 3)\n");
    EXPECT_STREQ(s.c_str(), "");
}

TEST(vStringSubstring, OutOfRangeGivesEmpty) {
    vString h("hello");
    struct Case { vString got; const char* want; };
    for (const Case& c : {Case{h.GetSubStringPos(2), "llo"}, Case{h.GetSubStringPos(5), ""},
                          Case{h.GetSubStringPos(6), ""}, Case{h.GetSubStringPos(-1), ""},
                          Case{h.GetSubStringPos(3, 1), "el"}, Case{h.GetSubStringPos(0, 5), "hello"},
                          Case{h.GetSubStringPos(0, 6), ""}, Case{h.GetSubStringPos(-2, 3), ""},
                          Case{h.GetSubStringLen(1, 4), "ello"}, Case{h.GetSubStringLen(1, 5), ""},
                          Case{h.GetSubStringLen(-1, 3), ""}, Case{h.GetSubStringLen(2, INT_MAX), ""},
                          Case{h.getSubStr(2, 100), "llo"}, Case{h.getSubStr(1, 0), ""},
                          Case{h.getSubStr(6, 1), ""}, Case{h.getSubStr(-1, 2), ""}})
        EXPECT_STREQ(c.got.c_str(), c.want);
}

TEST(vStringSubstring, DelSubStr) {
    struct Case { int a, b; const char* want; };
    for (const Case& c : {Case{0, 2, "cdef"}, Case{2, 2, "aef"}, Case{3, 0, "abdef"},
                          Case{6, 0, "abcde"}, Case{0, 6, ""},
                          // outside the text: unchanged
                          Case{4, 3, "abcdef"}, Case{-1, 2, "abcdef"}, Case{2, -1, "abcdef"},
                          Case{INT_MAX, INT_MAX, "abcdef"}}) {
        vString s("abcdef");
        s.delSubStr(c.a, c.b);
        EXPECT_STREQ(s.c_str(), c.want) << "a " << c.a << " b " << c.b;
    }
}

}  // namespace
