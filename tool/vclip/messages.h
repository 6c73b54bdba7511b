// vclip's errors: one line on standard error, "vclip: " and the text.
#pragma once

#include <cstdarg>
#include <string>

// Prints the line for `format` and its arguments in one write.
__attribute__((format(printf, 1, 0))) void errorLine(const char* format, va_list args);

// errorLine, then 1: the exit status of a failed command.
__attribute__((format(printf, 1, 2))) int failure(const char* format, ...);

// errorLine, then false: for the functions that say whether they succeeded.
__attribute__((format(printf, 1, 2))) bool report(const char* format, ...);

// "bad WHAT 'VALUE' (EXPECTED)", then false.
bool badValue(const char* what, const std::string& value, const char* expected);
