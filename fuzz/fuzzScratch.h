// A private directory for the files a fuzz input becomes, made once per
// process on the real disk (clips want a file system with direct I/O) and
// removed when the process ends normally.
#pragma once

#include <string>
#include <vector>

const std::string& fuzzScratchDir();

// Writes bytes to path, replacing it; false when the file cannot be written.
bool fuzzWriteFile(const std::string& path, const void* data, size_t size);

// The whole content of path; empty when it cannot be read.
std::vector<unsigned char> fuzzReadFile(const std::string& path);

// Names in the directory other than those given (scratch files left behind).
std::vector<std::string> fuzzStrayFiles(const std::vector<std::string>& known);
