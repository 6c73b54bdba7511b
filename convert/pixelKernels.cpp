#include "convert/pixelKernels.h"

#include "convert/mixLineWord.h"
#include "image/reducerRows.h"

namespace {

template <int K>
void plainMixLine(uint32_t* first, uint32_t* second, uint32_t* out, int words)
{
    mixLineWords<K>(first, second, out, 0, words);
}

struct PlainMixLines {
    template <int K>
    static constexpr MixLineKernel* of = &plainMixLine<K>;
};

void plainQuartRow(const uint32_t* lines, std::ptrdiff_t stride, unsigned char* out, int pixels)
{
    quartRowPlain(lines, stride, out, 0, pixels);
}

void plainHalfRow(const uint32_t* lines, std::ptrdiff_t stride, unsigned char* out, int pixels)
{
    halfRowPlain(lines, stride, out, 0, pixels);
}

void plainStreamFence() {}

constexpr PixelKernels plainKernels{mixLineTable<PlainMixLines>(), mixLineTable<PlainMixLines>(), &plainQuartRow,
                                    &plainHalfRow, &plainStreamFence};

// Every path's table, made once: the reference kernels, with each vector
// path's own in place of them where it has some.
struct PathTables {
    PixelKernels byPath[kernelPathCount];

    // A path's table is filled only where the CPU has the path: the code
    // that fills it is built for those instructions and may use them.
    PathTables()
    {
        for (PixelKernels& table : byPath)
            table = plainKernels;
#if defined(PAL2NTSC_X86_KERNELS)
        addSse2MixLine(byPath[static_cast<int>(KernelPath::sse2)]);
        addSse2Reducers(byPath[static_cast<int>(KernelPath::sse2)]);
        if (kernelPathAvailable(KernelPath::avx2)) {
            addAvx2MixLine(byPath[static_cast<int>(KernelPath::avx2)]);
            addAvx2Reducers(byPath[static_cast<int>(KernelPath::avx2)]);
        }
#endif
#if defined(PAL2NTSC_X86_KERNELS) && defined(PAL2NTSC_AVX512_KERNELS)
        if (kernelPathAvailable(KernelPath::avx512)) {
            addAvx512MixLine(byPath[static_cast<int>(KernelPath::avx512)]);
            addAvx512Reducers(byPath[static_cast<int>(KernelPath::avx512)]);
        }
#endif
#if defined(PAL2NTSC_NEON_KERNELS)
        addNeonMixLine(byPath[static_cast<int>(KernelPath::neon)]);
        addNeonReducers(byPath[static_cast<int>(KernelPath::neon)]);
#endif
    }
};

}  // namespace

const PixelKernels& pixelKernels()
{
    static const PathTables tables;
    return tables.byPath[static_cast<int>(kernelPath())];
}

const PixelKernels& referencePixelKernels() { return plainKernels; }
