// Entry of the pal2ntsc tool: options, name checks, then the conversion run.
#pragma once

// Parses argv, checks the clip names and runs the conversion. Every message
// goes to standard output; the result is the exit status, always 0.
int pal2ntscMain(int argc, char** argv);
