// vclip's errors: one line on standard error, "vclip: " and the text.
#pragma once

#include <cstdarg>

// Prints the line for `format` and its arguments in one write.
__attribute__((format(printf, 1, 0))) void errorLine(const char* format, va_list args);

// errorLine, then 1: the exit status of a failed command.
__attribute__((format(printf, 1, 2))) int failure(const char* format, ...);
