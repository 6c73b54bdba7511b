// vclip's help texts: the overview, built from the command table, and the
// pieces the commands' own texts share. The manual page says the same
// things; keep the two in step.
#pragma once

#include <string>

// The overview: every command in one line or two.
std::string mainHelp();

// What every command that writes says about what it writes over, after
// the lines that name its own kind of output.
std::string replacesText(const std::string& ownKind);
