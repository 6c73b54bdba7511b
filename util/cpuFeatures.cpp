#include "util/cpuFeatures.h"

#include <atomic>

namespace {

std::atomic<bool> referenceForced{false};

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
    return referenceForced.load(std::memory_order_relaxed) ? KernelPath::reference : bestKernelPath();
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
    referenceForced.store(forced, std::memory_order_relaxed);
}
