// vclip ntsc --rate: the stage that brings a stream to another frame rate,
// each output field showing the scene at its own instant, before the line
// conversion (convert/fieldRate.h).
#pragma once

#include <memory>
#include <string>

#include "tool/vclip/arguments.h"
#include "tool/vclip/y4mStream.h"

struct NtscRate {
    Ratio rate{0, 1};     // 0: no --rate, the frames keep their rate
    int fieldOrder = -1;  // --field-order as the clip's interlacing value, -1 from the header
};

// Reads --rate and --field-order. False after the error line.
bool ntscRateOptions(const Arguments& args, NtscRate& rate);

// The stage: takes the input stream's header and frames and hands 486-line
// frames at the new rate to `next`. `inputName` names the input in messages.
std::unique_ptr<Y4mSink> fieldRateStage(Y4mSink& next, const NtscRate& rate, const std::string& inputName);
