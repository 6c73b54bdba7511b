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

// "vclip help [COMMAND]": the overview, or the command's own help text,
// the same as "vclip COMMAND --help".
int help(int argc, char** argv)
{
    if (argc < 3) {
        std::fputs(mainHelp(), stdout);
        return 0;
    }
    if (argc > 3)
        return failure("help takes one command; see 'vclip --help'");
    const std::string* text = helpOf(argv[2]);
    if (text == nullptr)
        return failure("unknown command '%s'; see 'vclip --help'", argv[2]);
    std::fputs(text->c_str(), stdout);
    return 0;
}

int dispatch(int argc, char** argv)
{
    if (argc < 2) {
        std::fputs(mainHelp(), stderr);
        return 1;
    }
    const std::string command = argv[1];
    if (command == "--help" || command == "-h") {
        std::fputs(mainHelp(), stdout);
        return 0;
    }
    if (command == "help")
        return help(argc, argv);
    if (command == "--version") {
        std::printf("vclip %s\n", PAL2NTSC_VERSION);
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
