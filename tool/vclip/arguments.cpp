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

const CommandOptions* optionsOf(const std::string& command)
{
    static const std::map<std::string, CommandOptions> kOptions = {
        {"info", {}},
        {"bars", {{"frames", "width", "height"}, {"force"}}},
        {"import", {{"uyvy", "y4m", "width", "height", "rate"}, {"force"}}},
        {"export", {{"y4m", "frame", "image"}, {"force"}}},
    };
    const auto found = kOptions.find(command);
    return found == kOptions.end() ? nullptr : &found->second;
}

Arguments parseArguments(int argc, char** argv, int from, const CommandOptions& known)
{
    Arguments args;
    for (int i = from; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--help" || word == "-h") {
            args.help = true;
        } else if (word.size() > 2 && word.compare(0, 2, "--") == 0) {
            const std::string name = word.substr(2);
            if (listed(known.flags, name)) {
                args.flags.insert(name);
                continue;
            }
            if (!listed(known.values, name)) {
                args.error = "unknown option " + word;
                return args;
            }
            if (i + 1 >= argc) {
                args.error = "option " + word + " needs a value";
                return args;
            }
            args.options[name] = argv[++i];
        } else {
            args.operands.push_back(word);
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
