// Entry of the pal2ntsc tool: options, name checks, then the conversion run.
#pragma once

#include <string>

// The tool's whole work: parses argv, checks the clip names, plans and runs
// the conversion. Returns the line the run ends with (the usage text, a
// refusal or a failure), or an empty text when the conversion ran to its
// end. The information line and the clip store's messages are printed as
// they come; getopt starts afresh only when the caller resets optind.
std::string runPal2ntsc(int argc, char** argv);

// runPal2ntsc, then the line it ends with on standard output. The result
// is the exit status, always 0.
int pal2ntscMain(int argc, char** argv);
