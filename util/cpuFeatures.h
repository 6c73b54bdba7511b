// Which implementation of the pixel kernels runs: the plain reference code or
// a vector version chosen once for this CPU. The converter reads no
// environment variable; tests and benchmarks force the reference path through
// setReferenceKernels() so that they can compare both paths in one process.
#pragma once

// In order of preference: a path also has everything of those before it.
enum class KernelPath { reference, sse2, avx2 };

// Best path this build and this CPU support (computed once).
KernelPath bestKernelPath();

// Path the kernels use now: the best one, unless limited below.
KernelPath kernelPath();

// "reference", "sse2" or "avx2".
const char* kernelPathName(KernelPath path);
const char* activeKernelPath();

// true: every kernel runs its reference version; false: back to the best path.
void setReferenceKernels(bool forced);

// Uses no path above the given one (so that tests can run an older
// instruction set on a newer CPU); setReferenceKernels(false) lifts it.
void limitKernelPath(KernelPath highest);
