#include "convert/fieldRateKernels.h"

#include "convert/motionKernels.h"

namespace {

void plainSadAcross(const uint8_t* a, std::ptrdiff_t strideA, const uint8_t* b, std::ptrdiff_t strideB, unsigned* sums)
{
    for (int i = 0; i < 16; ++i)
        sums[i] = sad8x8Plain(a, strideA, b + i, strideB);
}

void plainColumns(const uint8_t* top, std::ptrdiff_t stride, const int* taps, int count, int16_t* column)
{
    for (int i = 0; i < count; ++i)
        column[i] = static_cast<int16_t>(taps[0] * top[i] + taps[1] * top[i + stride] + taps[2] * top[i + 2 * stride] +
                                         taps[3] * top[i + 3 * stride]);
}

void plainRows(const int16_t* column, const int* taps, int count, uint8_t* out)
{
    for (int i = 0; i < count; ++i) {
        const int v = (taps[0] * column[i] + taps[1] * column[i + 1] + taps[2] * column[i + 2] +
                       taps[3] * column[i + 3] + 2048) >>
                      12;
        out[i] = static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
    }
}

void plainBlend(const uint8_t* p, const uint8_t* q, int count, int weight, uint8_t* out)
{
    const uint8_t* nearer = weight < 128 ? p : q;
    for (int i = 0; i < count; ++i) {
        const int d = p[i] > q[i] ? p[i] - q[i] : q[i] - p[i];
        const int blend = (p[i] * (256 - weight) + q[i] * weight + 128) >> 8;
        out[i] = static_cast<uint8_t>(d > interpolateDisagreement ? nearer[i] : blend);
    }
}

void plainPack(const uint8_t* luma, const uint8_t* cb, const uint8_t* cr, int words, uint8_t* out)
{
    for (int i = 0; i < words; ++i, out += 4) {
        out[0] = cb[i];
        out[1] = luma[2 * i];
        out[2] = cr[i];
        out[3] = luma[2 * i + 1];
    }
}

void plainUnpack(const uint8_t* in, int words, uint8_t* luma, uint8_t* cb, uint8_t* cr)
{
    for (int i = 0; i < words; ++i, in += 4) {
        cb[i] = in[0];
        luma[2 * i] = in[1];
        cr[i] = in[2];
        luma[2 * i + 1] = in[3];
    }
}

void plainHalve(const uint8_t* a, const uint8_t* b, int count, uint8_t* out)
{
    for (int i = 0; i < count; ++i)
        out[i] = static_cast<uint8_t>((a[2 * i] + a[2 * i + 1] + b[2 * i] + b[2 * i + 1] + 2) >> 2);
}

constexpr FieldRateKernels plainKernels{&plainSadAcross, &plainColumns, &plainRows, &plainBlend,
                                        &plainPack,      &plainUnpack,  &plainHalve};

// Every path's table, made once: the plain kernels, with each vector path's
// own in place of them. Every x86 path has the kernels of the x86 paths
// before it.
struct PathTables {
    FieldRateKernels byPath[kernelPathCount];

    PathTables()
    {
        for (int p = 0; p < kernelPathCount; ++p) {
            byPath[p] = plainKernels;
#if defined(PAL2NTSC_X86_KERNELS)
            const auto path = static_cast<KernelPath>(p);
            if (path == KernelPath::reference || path == KernelPath::neon)
                continue;
            addSse2FieldRate(byPath[p]);
            // Filled only where the CPU has AVX2: the filling code is built
            // for it and may use it.
            if (path != KernelPath::sse2 && kernelPathAvailable(KernelPath::avx2))
                addAvx2FieldRate(byPath[p]);
#endif
        }
    }
};

const PathTables& tables()
{
    static const PathTables made;
    return made;
}

}  // namespace

const FieldRateKernels& fieldRateKernels() { return fieldRateKernels(kernelPath()); }

const FieldRateKernels& fieldRateKernels(KernelPath path) { return tables().byPath[static_cast<int>(path)]; }
