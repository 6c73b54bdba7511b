// vString: the store's own small owned string (file names and the like).
// One NUL-terminated buffer, no length kept: every operation measures anew.
#pragma once

#include <cstdio>

class vString {
public:
    enum Justify { Right = 0, Center = 1, Left = 2 };

    vString();
    vString(const char* s);
    vString(int n);
    vString(const vString& other);
    vString(const char* s, int n);
    vString(FILE* file, int n);
    ~vString();

    vString& operator=(const vString& other);
    vString& operator=(char* s);
    vString& operator=(const char* s);
    vString& operator=(int n);
    vString& operator+=(char* s);
    vString& operator+=(const char* s);
    vString& operator+=(int n);

    // Read access to the text, for C interfaces.
    const char* c_str() const { return text; }
    operator const char*() const { return text; }

    int Find(char c) const;
    int Find(const char* s) const;
    vString FindOneOf(const char* set) const;

    void TrimLeft();
    void TrimRight();
    void TrimSpace();
    void MakeLower();
    void MakeUpper();
    void Capitalize();
    void delSubStr(int a, int b);

    int Align(Justify mode, int width, char fill);

    vString GetSubStringPos(int pos) const;
    vString GetSubStringPos(int a, int b) const;
    vString GetSubStringLen(int pos, int n) const;
    vString getSubStr(int pos, int n) const;

    static int compare(const char* a, const char* b);
    static int match(const char* text, const char* pattern, int depth);

private:
    char* text;
};

vString operator+(const vString& a, const vString& b);
