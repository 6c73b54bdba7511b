#include "tool/vclip/messages.h"

#include <cstdio>
#include <string>

void errorLine(const char* format, va_list args)
{
    va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(nullptr, 0, format, args);
    std::string line = "vclip: ";
    if (length > 0) {
        std::string text(static_cast<size_t>(length) + 1, '\0');
        std::vsnprintf(&text[0], text.size(), format, again);
        text.pop_back();
        line += text;
    }
    va_end(again);
    line += '\n';
    std::fputs(line.c_str(), stderr);
}

int failure(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    errorLine(format, args);
    va_end(args);
    return 1;
}

bool report(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    errorLine(format, args);
    va_end(args);
    return false;
}

bool badValue(const char* what, const std::string& value, const char* expected)
{
    return report("bad %s '%s' (%s)", what, value.c_str(), expected);
}
