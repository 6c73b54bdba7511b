#include "tool/commandLine.h"

#include "platform/fileIdentity.h"
#include "tool/conversionRun.h"
#include "util/vString.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr int kDefaultScale = 4;
constexpr int kDefaultAlignment = 128;

std::string usage(const char* program)
{
    return std::string("Use: ") + program +
           " -P pal_file_name -N ntsc_file_name [-n scaled_ntsc_file_name] [-s scale]\n";
}

// True when both paths exist and lead to one file (hard links, symlinks,
// "./x" against "x" and the like). A path that does not exist yet is a new
// file and cannot be the other one. Only a first look: the run compares the
// files it has open before it changes any of them.
bool sameFile(const char* a, const char* b) { return fsSameFile(fsIdentityOfPath(a), fsIdentityOfPath(b)); }

bool sameName(const vString& a, const vString& b) { return std::strcmp(a, b) == 0 || sameFile(a, b); }

// Checks beyond the plain name comparison, so that the run can never open
// the input clip for writing, nor write both outputs into one file: output
// names are compared with the input by the file they lead to, not only by
// their text (the run compares the open files again before it changes
// anything). A reduced clip also needs a scale that a reducer exists for;
// any other scale would leave its frames unwritten (and 0 cannot divide the
// picture size), so it is refused before any file is touched. Without a
// reduced clip the scale is not used and not checked.
// Returns the refusal line, or an empty text.
std::string checkNames(const vString& palName, const vString& ntscName, const vString& reducedName, int scale)
{
    if (std::strcmp(palName, "") == 0)
        return "PAL file not defined\n";
    if (std::strcmp(ntscName, "") == 0)
        return "NTSC file not defined\n";
    if (sameName(palName, ntscName))
        return "PAL file and NTSC file are the same\n";
    if (reducedName.c_str()[0] == '\0')
        return {};
    if (sameName(palName, reducedName))
        return "PAL file and scaled file are the same\n";
    if (sameName(ntscName, reducedName))
        return "NTSC file and scaled file are the same\n";
    if (scale != 2 && scale != 4)
        return "Scale " + std::to_string(scale) + " is not supported for the scaled file (use 2 or 4)\n";
    return {};
}

}  // namespace

std::string runPal2ntsc(int argc, char** argv)
{
    vString palName("");
    vString ntscName("");
    vString reducedName("");
    int scale = kDefaultScale;
    int alignment = kDefaultAlignment;
    const char* program = argc > 0 && argv[0] ? argv[0] : "pal2ntsc";

    int option;
    while ((option = getopt(argc, argv, "P:N:n:s:ha:")) != -1) {
        switch (option) {
        case 'P':
            palName = optarg;
            break;
        case 'N':
            ntscName = optarg;
            break;
        case 'n':
            reducedName = optarg;
            break;
        case 's':
            scale = std::atoi(optarg);
            break;
        case 'a':
            alignment = std::atoi(optarg);
            break;
        default:  // -h, an unknown option, or a missing argument
            return usage(program);
        }
    }

    if (std::string refusal = checkNames(palName, ntscName, reducedName, scale); !refusal.empty())
        return refusal;
    RunSettings settings;
    settings.palName = palName;
    settings.ntscName = ntscName;
    settings.reducedName = reducedName;
    settings.scale = scale;
    settings.alignment = alignment;
    ConversionPlan plan;
    if (std::string refusal = planConversion(settings, plan); !refusal.empty())
        return refusal;
    return executeConversion(plan);
}

// The one place that prints the line a run ends with. Every way out gives
// exit status 0.
int pal2ntscMain(int argc, char** argv)
{
    const std::string last = runPal2ntsc(argc, argv);
    std::fputs(last.c_str(), stdout);
    std::fflush(stdout);
    return 0;
}
