#include "device/assertions.h"

#include <cstdio>
#include <cstdlib>

extern "C" void ASSERT_ZERO(const char* file, int line)
{
    std::fprintf(stderr, "Assertion failed: file %s, line %d\n", file, line);
    std::fflush(stderr);
    std::abort();
}

extern "C" void ASSERT_NZERO(int value, const char* file, int line)
{
    if (value == 0)
        ASSERT_ZERO(file, line);
}
