// Which implementation of the pixel kernels runs: the plain reference code or
// a vector version chosen once for this CPU. The converter reads no
// environment variable; tests and benchmarks force the reference path through
// setReferenceKernels() so that they can compare both paths in one process.
#pragma once

// In order of preference. A machine has the reference path and the vector
// paths of its own family (x86: SSE2, AVX2, AVX-512; AArch64: NEON); an x86
// path also has everything of the x86 paths before it. AVX-512 here means
// the F, BW and VL subsets, with the operating system saving the registers.
enum class KernelPath { reference, sse2, avx2, avx512, neon };

constexpr int kernelPathCount = 5;

// Best path this build and this CPU support (computed once).
KernelPath bestKernelPath();

// Whether this build and this CPU can run the path.
bool kernelPathAvailable(KernelPath path);

// Path the kernels use now: the best one, unless limited below.
KernelPath kernelPath();

// "reference", "sse2", "avx2", "avx512" or "neon".
const char* kernelPathName(KernelPath path);
const char* activeKernelPath();

// true: every kernel runs its reference version; false: back to the best path.
void setReferenceKernels(bool forced);

// Uses the best available path no higher than the given one (so that tests
// can run an older instruction set on a newer CPU); setReferenceKernels(false)
// lifts it.
void limitKernelPath(KernelPath highest);
