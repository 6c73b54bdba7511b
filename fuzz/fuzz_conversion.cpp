// libFuzzer entry of the conversion target.
#include "fuzz/fuzzTargets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) { return fuzzConversion(data, size); }
