#include <csignal>

#include "tool/vclip/vclip.h"

int main(int argc, char** argv)
{
    // A file grown past the size limit fails its write with EFBIG, which is
    // reported, rather than ending the process half way.
    std::signal(SIGXFSZ, SIG_IGN);
    return vclipMain(argc, argv);
}
