// Entry of vclip, the clip store keeper's companion to pal2ntsc: shows what
// a clip file holds, makes test clips, and moves pictures in and out of the
// store.
#pragma once

// The whole tool: reads the command line, runs the command, and returns the
// exit status: 0 when done, 1 after an error line "vclip: ..." on standard
// error. What a command reports goes to standard output, flushed before it
// returns. Nothing of the process is changed (signals, limits), so that it
// can run inside another program.
int vclipMain(int argc, char** argv);
