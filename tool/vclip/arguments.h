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

// A frame rate: a decimal ("25", "29.97") or a fraction ("30000/1001",
// "30000:1001"), more than 0 and less than 1000000.
bool toRate(const std::string& text, double& rate);

// A field order, "tff", "bff" or "progressive", as the clip header's
// interlacing value (1, 2 or 0).
bool toFieldOrder(const std::string& text, int& interlacing);

// Exactly one operand (`operand` says what, for the message). False after
// the error line.
bool oneOperand(const Arguments& args, const char* command, const char* operand);

// The checks import and export start with: one operand (`operand` says
// what, for the message), and exactly one of two options, each given as
// "--name VALUE". False after the error line.
bool oneOperandAndOneOf(const Arguments& args, const char* command, const char* operand, const char* first,
                        const char* second);
