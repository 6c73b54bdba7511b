// One entry per fuzz target: each takes one input, exercises the code under
// test and aborts (through fuzzCheck) when a property that must hold does
// not. The libFuzzer entry points call them; the regression suite replays
// kept inputs through the same functions with the ordinary compiler.
#pragma once

#include <cstddef>
#include <cstdint>

// Clip header reading: the bytes become a file that is opened for reading,
// a few frames are read, and the file is opened for writing as an existing
// clip. A refused open must leave the file as it was.
int fuzzClipHeader(const uint8_t* data, size_t size);

// The whole conversion on a tiny clip built from the bytes (see
// conversionTarget.cpp for the input layout).
int fuzzConversion(const uint8_t* data, size_t size);

// Wildcard matching and alignment of vString on fuzzed text, each compared
// with a plain reference.
int fuzzStringMatch(const uint8_t* data, size_t size);

// Stops the process with a line naming the property that failed.
void fuzzCheck(bool ok, const char* what);
