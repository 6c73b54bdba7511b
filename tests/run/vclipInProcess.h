// vclip run in this process, through the same entry as the executable, with
// what it prints captured.
#pragma once

#include "tests/run/runSupport.h"
#include "tool/vclip/vclip.h"

namespace run {

inline RunResult VclipInProcess(std::vector<std::string> args)
{
    args.insert(args.begin(), "vclip");
    std::vector<char*> argv;
    for (std::string& a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    RunResult result;
    result.err = StderrOf(
        [&] { result.out = StdoutOf([&] { result.status = vclipMain(static_cast<int>(args.size()), argv.data()); }); });
    return result;
}

}  // namespace run
