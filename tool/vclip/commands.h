// vclip's commands: one table row each (name, run function, options, help),
// the command itself in a file of its own. Each run function takes the
// parsed arguments of its command line and returns the exit status: 0 when
// done, 1 after its error line on standard error.
//
// A new command is a file with its run and help functions, their two
// declarations below, and one row in the table (commandTable.cpp).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/fileIdentity.h"
#include "tool/vclip/arguments.h"
#include "tool/vclip/clipAccess.h"

struct Command {
    const char* name;
    int (*run)(const Arguments& args);
    CommandOptions options;
    std::string (*help)();  // the command's whole help text
    const char* overview;   // its lines in 'vclip --help', each ending in a line end
};

// Every command, in the order the overview lists them.
const std::vector<Command>& vclipCommands();

// The command called `name`; null for a command vclip does not have.
const Command* findCommand(const std::string& name);

int commandInfo(const Arguments& args);
std::string infoHelp();
int commandBars(const Arguments& args);
std::string barsHelp();
int commandImport(const Arguments& args);
std::string importHelp();
int commandExport(const Arguments& args);
std::string exportHelp();
int commandBatch(const Arguments& args);
std::string batchHelp();
int commandVerify(const Arguments& args);
std::string verifyHelp();
int commandFramemd5(const Arguments& args);
std::string framemd5Help();
int commandNtsc(const Arguments& args);
std::string ntscHelp();
int commandSet(const Arguments& args);
std::string setHelp();

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
