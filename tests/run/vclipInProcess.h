// vclip run in this process, through the same entry as the executable, with
// what it prints captured.
#pragma once

#include "tests/run/runSupport.h"
#include "tool/vclip/vclip.h"

namespace run {

inline RunResult VclipInProcess(std::vector<std::string> args)
{
    return InProcess("vclip", vclipMain, std::move(args));
}

}  // namespace run
