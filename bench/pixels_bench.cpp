// Frames per second of the line conversion, the reducers and the block
// converter, on the reference path (vector:0) and the selected vector path
// (vector:1), with a plain memcpy of the same frames as the memory baseline.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>

#include <benchmark/benchmark.h>

#include "convert/Convert.h"
#include "image/quart.h"
#include "tool/blockConvert.h"
#include "util/cpuFeatures.h"

namespace {

constexpr int width = 720, palLines = 576, ntscLines = 486;
constexpr int palPicture = width * 2 * palLines, ntscPicture = width * 2 * ntscLines;
constexpr int palSlot = 831488, ntscSlot = 700416, quarterSlot = 65536;
constexpr int manyFrames = 250;

// A page-aligned buffer, every page touched before any timing.
struct Buffer {
    explicit Buffer(std::size_t bytes)
    {
        if (posix_memalign(&data, 4096, bytes) != 0)
            std::abort();
        std::mt19937 rng(static_cast<unsigned>(bytes));
        auto* words = static_cast<uint32_t*>(data);
        for (std::size_t i = 0; i < bytes / 4; ++i)
            words[i] = static_cast<uint32_t>(rng());
    }
    ~Buffer() { std::free(data); }
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;
    uint32_t* words() const { return static_cast<uint32_t*>(data); }
    void* data = nullptr;
};

struct Blocks {
    explicit Blocks(int frames)
        : pal(static_cast<std::size_t>(frames) * palSlot), ntsc(static_cast<std::size_t>(frames) * ntscSlot),
          reduced(static_cast<std::size_t>(frames) * quarterSlot), copy(static_cast<std::size_t>(frames) * palSlot)
    {}
    Buffer pal, ntsc, reduced, copy;
};

Blocks& blocks(int frames)
{
    static Blocks few(5);
    if (frames <= 5)
        return few;
    static Blocks many(manyFrames);
    return many;
}

void selectPath(benchmark::State& state)
{
    setReferenceKernels(state.range(0) == 0);
    state.SetLabel(activeKernelPath());
}

void countFrames(benchmark::State& state, int framesPerIteration)
{
    state.counters["frames/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * framesPerIteration, benchmark::Counter::kIsRate);
    setReferenceKernels(false);
}

void BM_LineConversion(benchmark::State& state)
{
    selectPath(state);
    Blocks& b = blocks(1);
    float field = 1.0f;
    Convert converter(width, ntscLines, 1, &field);
    for (auto _ : state) {
        converter.DoConvert(b.pal.words(), palLines, b.ntsc.words());
        benchmark::ClobberMemory();
    }
    countFrames(state, 1);
}

// One NTSC frame reduced into a buffer of the caller, as the block converter
// does it.
void reduceFrame(benchmark::State& state, uint32_t* (quart::*reducer)(uint32_t*, int, int, uint32_t*))
{
    selectPath(state);
    Blocks& b = blocks(1);
    quart q{};
    for (auto _ : state) {
        (q.*reducer)(b.ntsc.words(), width, ntscLines, b.copy.words());
        benchmark::ClobberMemory();
    }
    countFrames(state, 1);
}

void BM_QuarterReducer(benchmark::State& state) { reduceFrame(state, &quart::zoomYUVtoQuartRGB); }

void BM_HalfReducer(benchmark::State& state) { reduceFrame(state, &quart::zoomYUVtoHalfRGB); }

void convertBlock(benchmark::State& state, int frames, bool reduce)
{
    selectPath(state);
    Blocks& b = blocks(frames);
    for (auto _ : state) {
        convert(b.pal.data, b.ntsc.data, reduce ? b.reduced.data : nullptr, frames, width, palLines, ntscLines, 4,
                palSlot, ntscSlot, reduce ? quarterSlot : 0);
        benchmark::ClobberMemory();
    }
    countFrames(state, frames);
}

void BM_ConvertBlockOf5(benchmark::State& state) { convertBlock(state, 5, true); }

void BM_Convert250Frames(benchmark::State& state) { convertBlock(state, manyFrames, true); }

void BM_Convert250FramesNoReduction(benchmark::State& state) { convertBlock(state, manyFrames, false); }

// The physical baseline: every PAL picture copied once, as many bytes read
// as the converter reads and about as many written.
void BM_Memcpy250Frames(benchmark::State& state)
{
    Blocks& b = blocks(manyFrames);
    auto* from = static_cast<unsigned char*>(b.pal.data);
    auto* to = static_cast<unsigned char*>(b.copy.data);
    for (auto _ : state) {
        for (int i = 0; i < manyFrames; ++i)
            std::memcpy(to + static_cast<std::size_t>(i) * palSlot, from + static_cast<std::size_t>(i) * palSlot,
                        palPicture);
        benchmark::ClobberMemory();
    }
    state.counters["frames/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * manyFrames, benchmark::Counter::kIsRate);
}

}  // namespace

BENCHMARK(BM_LineConversion)->ArgName("vector")->Arg(0)->Arg(1);
BENCHMARK(BM_QuarterReducer)->ArgName("vector")->Arg(0)->Arg(1);
BENCHMARK(BM_HalfReducer)->ArgName("vector")->Arg(0)->Arg(1);
BENCHMARK(BM_ConvertBlockOf5)->ArgName("vector")->Arg(0)->Arg(1);
BENCHMARK(BM_Convert250Frames)->ArgName("vector")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Convert250FramesNoReduction)->ArgName("vector")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Memcpy250Frames)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
