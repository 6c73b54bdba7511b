// libFuzzer entry of the clip_header target.
#include "fuzz/fuzzTargets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) { return fuzzClipHeader(data, size); }
