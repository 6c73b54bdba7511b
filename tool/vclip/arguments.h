// vclip's command line: each command's options, the words of one command
// split into options, flags and operands, and numbers read strictly.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

// Arguments of one command: "--name value" options, "--name" flags and
// plain operands.
struct Arguments {
    std::map<std::string, std::string> options;
    std::set<std::string> flags;
    std::vector<std::string> operands;
    bool help = false;
    std::string error;

    bool Has(const std::string& name) const { return options.count(name) != 0; }
    const std::string& Get(const std::string& name) const { return options.at(name); }
    bool Flag(const std::string& name) const { return flags.count(name) != 0; }
};

struct CommandOptions {
    std::vector<std::string> values;  // options that take a value
    std::vector<std::string> flags;   // options that stand alone
};

// Splits argv[from..argc) by the options a command knows. An option's
// value follows it as the next word or after '=' ("--frames=3"). A word
// that does not start with "--" is an operand ("-" too: standard input or
// output), and so is every word after "--".
// "--help" and "-h" before "--" ask for the command's help; an unknown
// option, one missing its value, or a value given to a flag is an error.
Arguments parseArguments(int argc, char** argv, int from, const CommandOptions& known);

// A whole decimal number in [low, high].
bool toInt(const std::string& text, int low, int high, int& value);
