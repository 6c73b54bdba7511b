// Program-error stops used by the clip store: one line on standard error,
// then abort. C linkage, callable from any translation unit.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Prints "Assertion failed: file <file>, line <line>" and aborts.
[[noreturn]] void ASSERT_ZERO(const char* file, int line);
// Returns when value is non-zero; otherwise behaves as ASSERT_ZERO.
void ASSERT_NZERO(int value, const char* file, int line);

#ifdef __cplusplus
}
#endif
