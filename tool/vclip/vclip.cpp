#include "tool/vclip/vclip.h"

#include <cstdio>
#include <string>

#include "tool/vclip/arguments.h"
#include "tool/vclip/commands.h"
#include "tool/vclip/help.h"
#include "tool/vclip/messages.h"

namespace {

// "vclip help [COMMAND]": the overview, or the command's own help text,
// the same as "vclip COMMAND --help".
int help(int argc, char** argv)
{
    if (argc < 3) {
        std::fputs(mainHelp().c_str(), stdout);
        return 0;
    }
    if (argc > 3)
        return failure("help takes one command; see 'vclip --help'");
    const Command* command = findCommand(argv[2]);
    if (command == nullptr)
        return failure("unknown command '%s'; see 'vclip --help'", argv[2]);
    std::fputs(command->help().c_str(), stdout);
    return 0;
}

int dispatch(int argc, char** argv)
{
    if (argc < 2) {
        std::fputs(mainHelp().c_str(), stderr);
        return 1;
    }
    const std::string command = argv[1];
    if (command == "--help" || command == "-h") {
        std::fputs(mainHelp().c_str(), stdout);
        return 0;
    }
    if (command == "help")
        return help(argc, argv);
    if (command == "--version") {
        std::printf("vclip %s\n", PAL2NTSC_VERSION);
        return 0;
    }
    const Command* found = findCommand(command);
    if (found == nullptr)
        return failure("unknown command '%s'; see 'vclip --help'", command.c_str());
    const Arguments args = parseArguments(argc, argv, 2, found->options);
    if (args.help) {
        std::fputs(found->help().c_str(), stdout);
        return 0;
    }
    if (!args.error.empty())
        return failure("%s", args.error.c_str());
    return found->run(args);
}

}  // namespace

int vclipMain(int argc, char** argv)
{
    const int status = dispatch(argc, argv);
    std::fflush(stdout);
    return status;
}
