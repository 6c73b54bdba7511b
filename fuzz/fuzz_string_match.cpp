// libFuzzer entry of the string_match target.
#include "fuzz/fuzzTargets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) { return fuzzStringMatch(data, size); }
