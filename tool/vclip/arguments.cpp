#include "tool/vclip/arguments.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>

namespace {

bool listed(const std::vector<std::string>& names, const std::string& name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

Arguments parseArguments(int argc, char** argv, int from, const CommandOptions& known)
{
    Arguments args;
    bool operandsOnly = false;
    for (int i = from; i < argc; ++i) {
        const std::string word = argv[i];
        if (operandsOnly || word.compare(0, 2, "--") != 0) {
            if (word == "-h" && !operandsOnly)
                args.help = true;
            else
                args.operands.push_back(word);
        } else if (word == "--") {
            operandsOnly = true;
        } else if (word == "--help") {
            args.help = true;
        } else {
            const size_t equals = word.find('=');
            const std::string name = word.substr(2, equals == std::string::npos ? std::string::npos : equals - 2);
            if (listed(known.flags, name) && equals == std::string::npos) {
                args.flags.insert(name);
            } else if (listed(known.flags, name)) {
                args.error = "option --" + name + " takes no value";
                return args;
            } else if (!listed(known.values, name)) {
                args.error = "unknown option --" + name;
                return args;
            } else if (equals != std::string::npos) {
                args.options[name] = word.substr(equals + 1);
            } else if (i + 1 >= argc) {
                args.error = "option " + word + " needs a value";
                return args;
            } else {
                args.options[name] = argv[++i];
            }
        }
    }
    return args;
}

bool toInt(const std::string& text, int low, int high, int& value)
{
    if (text.empty())
        return false;
    char* end = nullptr;
    errno = 0;
    const long v = std::strtol(text.c_str(), &end, 10);
    if (*end != '\0' || errno != 0 || v < low || v > high)
        return false;
    value = static_cast<int>(v);
    return true;
}
