// vclip's commands, each in a file of its own. Each takes the parsed
// arguments of its command line and returns the exit status: 0 when done,
// 1 after its error line on standard error.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/fileIdentity.h"
#include "tool/vclip/arguments.h"
#include "tool/vclip/clipAccess.h"

int commandInfo(const Arguments& args);
int commandBars(const Arguments& args);
int commandImport(const Arguments& args);
int commandExport(const Arguments& args);

// Largest width or height of a picture vclip makes.
constexpr int kMaxSide = 16384;

// Bytes of a raw or planar 4:2:2 picture.
inline int64_t rawFrameBytes(int width, int height) { return int64_t{width} * height * 2; }

// What the command's output may replace: any regular file with --force,
// never one of the files it reads.
inline OutputRules outputRules(const Arguments& args, const std::vector<FileIdentity>& inputs = {})
{
    OutputRules rules;
    rules.force = args.Flag("force");
    rules.inputs = inputs;
    return rules;
}
