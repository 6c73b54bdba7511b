#include "util/cpuFeatures.h"

#include <atomic>

namespace {

std::atomic<int> highestAllowed{static_cast<int>(KernelPath::avx2)};

KernelPath detect()
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_cpu_init();
    // The compiler's check covers the operating system's support for the
    // wide registers as well as the instruction set itself.
    if (__builtin_cpu_supports("avx2"))
        return KernelPath::avx2;
    if (__builtin_cpu_supports("sse2"))
        return KernelPath::sse2;
#endif
    return KernelPath::reference;
}

} // namespace

KernelPath bestKernelPath()
{
    static const KernelPath best = detect();
    return best;
}

KernelPath kernelPath()
{
    const int best = static_cast<int>(bestKernelPath());
    const int allowed = highestAllowed.load(std::memory_order_relaxed);
    return static_cast<KernelPath>(best < allowed ? best : allowed);
}

const char* kernelPathName(KernelPath path)
{
    switch (path) {
    case KernelPath::avx2:
        return "avx2";
    case KernelPath::sse2:
        return "sse2";
    case KernelPath::reference:
        break;
    }
    return "reference";
}

const char* activeKernelPath()
{
    return kernelPathName(kernelPath());
}

void setReferenceKernels(bool forced)
{
    limitKernelPath(forced ? KernelPath::reference : KernelPath::avx2);
}

void limitKernelPath(KernelPath highest)
{
    highestAllowed.store(static_cast<int>(highest), std::memory_order_relaxed);
}
