#include "tool/vclip/help.h"

#include "tool/vclip/commands.h"

std::string mainHelp()
{
    std::string text = "Usage: vclip COMMAND [ARGUMENTS]\n"
                       "       vclip help [COMMAND]\n"
                       "       vclip --version\n"
                       "Looks after clip files of the store (vclip " PAL2NTSC_VERSION ").\n"
                       "\n"
                       "Commands:\n";
    for (const Command& command : vclipCommands())
        text += command.overview;
    return text + "\n"
                  "'vclip COMMAND --help' or 'vclip help COMMAND' describes a command;\n"
                  "'vclip --version' prints the version. The exit status is 0 when the command\n"
                  "did its work, 1 after an error (one line on standard error, \"vclip: ...\").\n";
}

std::string replacesText(const std::string& ownKind)
{
    return ownKind + "--force replaces any other regular file too. Never replaced, even with --force:\n"
                     "a preserved clip, a file the command reads, a directory, anything that is not\n"
                     "a regular file. A symbolic link is written through (its target is replaced and\n"
                     "the link kept); a link that leads nowhere is refused.\n";
}
