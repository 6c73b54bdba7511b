#include "tool/vclip/arguments.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "tool/vclip/messages.h"

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

bool toRate(const std::string& text, double& rate)
{
    const size_t slash = text.find_first_of("/:");
    if (slash != std::string::npos) {
        int num = 0, den = 0;
        if (!toInt(text.substr(0, slash), 1, 999999999, num) || !toInt(text.substr(slash + 1), 1, 999999999, den))
            return false;
        rate = double(num) / den;
    } else {
        char* end = nullptr;
        rate = std::strtod(text.c_str(), &end);
        if (text.empty() || *end != '\0')
            return false;
    }
    return rate > 0 && rate < 1e6;
}

bool toFieldOrder(const std::string& text, int& interlacing)
{
    static const std::map<std::string, int> kOrders = {{"progressive", 0}, {"tff", 1}, {"bff", 2}};
    const auto found = kOrders.find(text);
    if (found == kOrders.end())
        return false;
    interlacing = found->second;
    return true;
}

bool oneOperand(const Arguments& args, const char* command, const char* operand)
{
    return args.operands.size() == 1 || report("%s takes %s; see 'vclip %s --help'", command, operand, command);
}

bool oneOperandAndOneOf(const Arguments& args, const char* command, const char* operand, const char* first,
                        const char* second)
{
    if (!oneOperand(args, command, operand))
        return false;
    auto name = [](const char* option) {
        const std::string text = option + 2;
        return text.substr(0, text.find(' '));
    };
    if (args.Has(name(first)) == args.Has(name(second)))
        return report("%s needs one of %s and %s", command, first, second);
    return true;
}
