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

// Every string of length 0..maxLen over the alphabet.
std::vector<std::string> allStrings(const std::string& alphabet, size_t maxLen) {
    std::vector<std::string> out{""};
    for (size_t from = 0; from < out.size(); ++from)
        if (out[from].size() < maxLen)
            for (char c : alphabet)
                out.push_back(out[from] + c);
    return out;
}

TEST(vStringMatch, Examples) {
    EXPECT_EQ(vString::match("abc", "a?c", 0), 1);
    EXPECT_EQ(vString::match("abc", "A*", 0), 0);
    EXPECT_EQ(vString::match("abc", "abc*", 0), 1);
    EXPECT_EQ(vString::match("abcdef", "abc*", 0), 1);
    EXPECT_EQ(vString::match("axb", "a*b", 0), 1);
    EXPECT_EQ(vString::match("axbyc", "a*b", 0), 0);
    EXPECT_EQ(vString::match("x", "?", 0), 1);
    EXPECT_EQ(vString::match("", "?", 0), 0);
    EXPECT_EQ(vString::match("", "*", 0), 1);
    EXPECT_EQ(vString::match("", "", 0), 1);
    EXPECT_EQ(vString::match("a", "", 0), 0);
    EXPECT_EQ(vString::match("a", "", 1), 1);  // depth != 0: empty pattern matches
}

TEST(vStringMatch, AgreesWithRecursionExhaustively) {
    // Texts may hold '*' and '?' too: there they are ordinary characters.
    auto strings = allStrings("ab*?", 4);
    for (const auto& t : strings)
        for (const auto& p : strings)
            for (int depth : {0, 1})
                ASSERT_EQ(vString::match(t.c_str(), p.c_str(), depth),
                          recursiveMatch(t.c_str(), p.c_str(), depth))
                    << "text '" << t << "' pattern '" << p << "' depth " << depth;
}

TEST(vStringMatch, AgreesWithRecursionOnRandomLongerInputs) {
    std::mt19937 rng(12345);
    const char alphabet[] = "ab*?";
    auto randomString = [&](size_t maxLen, int letters) {
        std::string s(rng() % (maxLen + 1), 'a');
        for (char& c : s)
            c = alphabet[rng() % letters];
        return s;
    };
    for (int i = 0; i < 100000; ++i) {
        std::string t = randomString(10, 2);
        std::string p = randomString(8, 4);
        ASSERT_EQ(vString::match(t.c_str(), p.c_str(), 0), recursiveMatch(t.c_str(), p.c_str(), 0))
            << "text '" << t << "' pattern '" << p << "'";
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

TEST(vStringConstruct, NumbersAndAppends) {
    EXPECT_STREQ(vString(-42).c_str(), "-42");
    EXPECT_STREQ(vString(INT_MIN).c_str(), "-2147483648");
    vString s("ab");
    s += 7;
    EXPECT_STREQ(s.c_str(), "ab7");
    s += "cd";
    s = s + vString("!");
    EXPECT_STREQ(s.c_str(), "ab7cd!");
    s = 12;
    EXPECT_STREQ(s.c_str(), "12");
    EXPECT_STREQ(vString(static_cast<const char*>(nullptr)).c_str(), "");
    EXPECT_STREQ(vString().c_str(), "");
}

TEST(vStringConstruct, FirstBytesNeedNoTerminator) {
    const char raw[3] = {'x', 'y', 'z'};  // no NUL: an over-read trips the sanitizer
    EXPECT_STREQ(vString(raw, 3).c_str(), "xyz");
    EXPECT_STREQ(vString(raw, 2).c_str(), "xy");
    EXPECT_STREQ(vString(raw, 0).c_str(), "");
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

TEST(vStringSearch, FindAndFindOneOf) {
    vString s("key;val,x");
    EXPECT_EQ(s.Find('x'), 8);
    EXPECT_EQ(vString("abc").Find('x'), -1);
    EXPECT_EQ(s.Find(""), 0);
    EXPECT_EQ(s.Find("val"), 4);
    EXPECT_EQ(s.Find("vax"), -1);
    EXPECT_STREQ(s.FindOneOf(",;").c_str(), ";val,x");
    EXPECT_STREQ(vString("keyval").FindOneOf(",;").c_str(), "");
}

TEST(vStringEdit, TrimAndCase) {
    vString s("  a b \t\n");
    s.TrimSpace();
    EXPECT_STREQ(s.c_str(), "a b");
    vString blank("   ");
    blank.TrimSpace();
    EXPECT_STREQ(blank.c_str(), "");
    vString empty;
    empty.TrimSpace();
    EXPECT_STREQ(empty.c_str(), "");
    vString left("\t x ");
    left.TrimLeft();
    EXPECT_STREQ(left.c_str(), "x ");
    vString words("hELLO wORLD");
    words.Capitalize();
    EXPECT_STREQ(words.c_str(), "Hello world");
    words.MakeUpper();
    EXPECT_STREQ(words.c_str(), "HELLO WORLD");
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

TEST(vStringSubstring, ByPositionAndLength) {
    vString h("hello");
    EXPECT_STREQ(h.GetSubStringPos(2).c_str(), "llo");
    EXPECT_STREQ(h.GetSubStringPos(5).c_str(), "");
    EXPECT_STREQ(h.GetSubStringPos(6).c_str(), "");
    EXPECT_STREQ(h.GetSubStringPos(-1).c_str(), "");
    EXPECT_STREQ(h.GetSubStringPos(3, 1).c_str(), "el");
    EXPECT_STREQ(h.GetSubStringPos(1, 3).c_str(), "el");
    EXPECT_STREQ(h.GetSubStringPos(0, 5).c_str(), "hello");
    EXPECT_STREQ(h.GetSubStringPos(0, 6).c_str(), "");
    EXPECT_STREQ(h.GetSubStringPos(-2, 3).c_str(), "");
    EXPECT_STREQ(h.GetSubStringLen(1, 4).c_str(), "ello");
    EXPECT_STREQ(h.GetSubStringLen(1, 5).c_str(), "");
    EXPECT_STREQ(h.GetSubStringLen(-1, 3).c_str(), "");
    EXPECT_STREQ(h.GetSubStringLen(2, INT_MAX).c_str(), "");
    EXPECT_STREQ(h.getSubStr(2, 100).c_str(), "llo");
    EXPECT_STREQ(h.getSubStr(1, 0).c_str(), "");
    EXPECT_STREQ(h.getSubStr(6, 1).c_str(), "");
    EXPECT_STREQ(h.getSubStr(-1, 2).c_str(), "");
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

TEST(vStringCompare, IsStrcmp) {
    EXPECT_EQ(vString::compare("a", "a"), 0);
    EXPECT_LT(vString::compare("a", "b"), 0);
    EXPECT_GT(vString::compare("b", "a"), 0);
}

}  // namespace
