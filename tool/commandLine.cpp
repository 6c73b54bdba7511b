#include "tool/commandLine.h"

#include "platform/fileIdentity.h"
#include "tool/conversionRun.h"
#include "util/vString.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int kDefaultScale = 4;
constexpr int kDefaultAlignment = 128;

void printUsage(const char* program) {
    std::printf("Use: %s -P pal_file_name -N ntsc_file_name [-n scaled_ntsc_file_name] [-s scale]\n",
                program);
}

// True when both paths exist and lead to one file (hard links, symlinks,
// "./x" against "x" and the like). A path that does not exist yet is a new
// file and cannot be the other one. Only a first look: the run compares the
// files it has open before it changes any of them.
bool sameFile(const char* a, const char* b) { return fsSameFile(fsIdentityOfPath(a), fsIdentityOfPath(b)); }

bool sameName(const vString& a, const vString& b) {
    return std::strcmp(a, b) == 0 || sameFile(a, b);
}

// Checks beyond the plain name comparison, so that the run can never open
// the input clip for writing, nor write both outputs into one file: output
// names are compared with the input by the file they lead to, not only by
// their text. A reduced clip also needs a scale that a reducer exists for;
// any other scale would leave its frames unwritten (and 0 cannot divide the
// picture size), so it is refused before any file is touched. Without a
// reduced clip the scale is not used and not checked.
// Returns false after printing the reason.
bool namesAreSafe(const vString& palName, const vString& ntscName, const vString& reducedName,
                  int scale) {
    if (sameFile(palName, ntscName)) {
        std::printf("PAL file and NTSC file are the same\n");
        return false;
    }
    if (reducedName.c_str()[0] == '\0')
        return true;
    if (sameName(palName, reducedName)) {
        std::printf("PAL file and scaled file are the same\n");
        return false;
    }
    if (sameName(ntscName, reducedName)) {
        std::printf("NTSC file and scaled file are the same\n");
        return false;
    }
    if (scale != 2 && scale != 4) {
        std::printf("Scale %d is not supported for the scaled file (use 2 or 4)\n", scale);
        return false;
    }
    return true;
}

}  // namespace

// Every way out returns 0 to main, so the names are destroyed and standard
// output is flushed by the normal program exit.
int pal2ntscMain(int argc, char** argv) {
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
            printUsage(program);
            return 0;
        }
    }

    if (std::strcmp(palName, "") == 0) {
        std::printf("PAL file not defined\n");
        return 0;
    }
    if (std::strcmp(ntscName, "") == 0) {
        std::printf("NTSC file not defined\n");
        return 0;
    }
    if (std::strcmp(palName, ntscName) == 0) {
        std::printf("PAL file and NTSC file are the same\n");
        return 0;
    }
    if (!namesAreSafe(palName, ntscName, reducedName, scale))
        return 0;

    runConversion(palName, ntscName, reducedName, scale, alignment);
    return 0;
}
