#include "tool/vclip/vclip.h"

#include <cstdio>
#include <string>

#include "tool/vclip/arguments.h"
#include "tool/vclip/commands.h"
#include "tool/vclip/help.h"
#include "tool/vclip/messages.h"

namespace {

int runCommand(const std::string& command, const Arguments& args)
{
    if (command == "info")
        return commandInfo(args);
    if (command == "bars")
        return commandBars(args);
    if (command == "import")
        return commandImport(args);
    return commandExport(args);
}

int dispatch(int argc, char** argv)
{
    if (argc < 2) {
        std::fputs(mainHelp(), stderr);
        return 1;
    }
    const std::string command = argv[1];
    if (command == "--help" || command == "-h" || command == "help") {
        std::fputs(mainHelp(), stdout);
        return 0;
    }
    const CommandOptions* options = optionsOf(command);
    if (options == nullptr)
        return failure("unknown command '%s'; see 'vclip --help'", command.c_str());
    const Arguments args = parseArguments(argc, argv, 2, *options);
    if (args.help) {
        std::fputs(helpOf(command)->c_str(), stdout);
        return 0;
    }
    if (!args.error.empty())
        return failure("%s", args.error.c_str());
    return runCommand(command, args);
}

}  // namespace

int vclipMain(int argc, char** argv)
{
    const int status = dispatch(argc, argv);
    std::fflush(stdout);
    return status;
}
