#include "util/cpuFeatures.h"

#include <atomic>

namespace {

constexpr KernelPath highestPath = KernelPath::neon;

std::atomic<int> highestAllowed{static_cast<int>(highestPath)};

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
#elif defined(__aarch64__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    // Every AArch64 processor has NEON; the kernels take the bytes of a
    // word as its lanes from the low end, so they are built for the
    // little-endian form only.
    return KernelPath::neon;
#endif
    return KernelPath::reference;
}

}  // namespace

KernelPath bestKernelPath()
{
    static const KernelPath best = detect();
    return best;
}

bool kernelPathAvailable(KernelPath path)
{
    const KernelPath best = bestKernelPath();
    if (path == KernelPath::reference || path == best)
        return true;
    // Below the best path, only the older ones of its own family.
    return best == KernelPath::avx2 && path == KernelPath::sse2;
}

KernelPath kernelPath()
{
    for (int p = highestAllowed.load(std::memory_order_relaxed); p > 0; --p)
        if (kernelPathAvailable(static_cast<KernelPath>(p)))
            return static_cast<KernelPath>(p);
    return KernelPath::reference;
}

const char* kernelPathName(KernelPath path)
{
    static const char* const names[kernelPathCount] = {"reference", "sse2", "avx2", "neon"};
    return names[static_cast<int>(path)];
}

const char* activeKernelPath() { return kernelPathName(kernelPath()); }

void setReferenceKernels(bool forced) { limitKernelPath(forced ? KernelPath::reference : highestPath); }

void limitKernelPath(KernelPath highest) { highestAllowed.store(static_cast<int>(highest), std::memory_order_relaxed); }
