// vclip's help texts: the overview, and one text per command. The manual
// page says the same things; keep the two in step.
#pragma once

#include <string>

// The overview: every command in one line or two.
const char* mainHelp();

// The help text of `command`; null for a command vclip does not have.
const std::string* helpOf(const std::string& command);
