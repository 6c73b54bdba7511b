#include "util/cpuFeatures.h"

#include <atomic>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

namespace {

constexpr KernelPath highestPath = KernelPath::neon;

std::atomic<int> highestAllowed{static_cast<int>(highestPath)};

#if defined(__x86_64__) || defined(__i386__)
// AVX-512 F, BW and VL in the CPU, and the operating system saving what they
// use (XCR0): the SSE and AVX halves (bits 1, 2), the mask registers (5) and
// the upper halves and upper sixteen of the 512-bit registers (6, 7).
bool avx512Usable()
{
    unsigned a = 0, b = 0, c = 0, d = 0;
    if (!__get_cpuid(1, &a, &b, &c, &d) || !(c & bit_OSXSAVE))
        return false;
    unsigned xcr0 = 0, xcr0High = 0;
    __asm__("xgetbv" : "=a"(xcr0), "=d"(xcr0High) : "c"(0));
    constexpr unsigned zmmState = (1u << 1) | (1u << 2) | (1u << 5) | (1u << 6) | (1u << 7);
    if ((xcr0 & zmmState) != zmmState)
        return false;
    constexpr unsigned subsets = bit_AVX512F | bit_AVX512BW | bit_AVX512VL;
    return __get_cpuid_count(7, 0, &a, &b, &c, &d) && (b & subsets) == subsets;
}
#endif

KernelPath detect()
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_cpu_init();
#if defined(PAL2NTSC_AVX512_KERNELS)
    if (__builtin_cpu_supports("avx2") && avx512Usable())
        return KernelPath::avx512;
#endif
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
    auto x86 = [](KernelPath p) { return p >= KernelPath::sse2 && p <= KernelPath::avx512; };
    return x86(best) && x86(path) && path < best;
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
    static const char* const names[kernelPathCount] = {"reference", "sse2", "avx2", "avx512", "neon"};
    return names[static_cast<int>(path)];
}

const char* activeKernelPath() { return kernelPathName(kernelPath()); }

void setReferenceKernels(bool forced) { limitKernelPath(forced ? KernelPath::reference : highestPath); }

void limitKernelPath(KernelPath highest) { highestAllowed.store(static_cast<int>(highest), std::memory_order_relaxed); }
