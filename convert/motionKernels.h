// motionKernels: block differences for motion search. Each kernel has a plain
// version, the definition, and a vector version where the machine has one;
// the tests compare the two on random data.
#pragma once

#include <cstddef>
#include <cstdint>

// Sum of absolute differences of two 8 x 8 blocks of bytes.
unsigned sad8x8Plain(const uint8_t* a, std::ptrdiff_t strideA, const uint8_t* b, std::ptrdiff_t strideB);

// The same against b moved half a pixel right (hx = 1) and/or down (hy = 1):
// a half-way sample is avg(avg(p00, p01), avg(p10, p11)) with
// avg(x, y) = (x + y + 1) >> 1, one direction only when the other is 0.
unsigned sad8x8HalfPlain(const uint8_t* a, std::ptrdiff_t strideA, const uint8_t* b, std::ptrdiff_t strideB, int hx,
                         int hy);

// The versions in use: vector ones on x86-64 (SSE2 is part of every such
// processor), the plain ones elsewhere.
unsigned sad8x8(const uint8_t* a, std::ptrdiff_t strideA, const uint8_t* b, std::ptrdiff_t strideB);
unsigned sad8x8Half(const uint8_t* a, std::ptrdiff_t strideA, const uint8_t* b, std::ptrdiff_t strideB, int hx, int hy);
