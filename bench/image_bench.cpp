// Frames per second of the image operations that the store's programs run
// once per frame, on 720 x 486 pictures of random pixels.
#include <cstdint>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include "image/FromToRGB.h"
#include "image/quart.h"

namespace {

constexpr int width = 720, height = 486;

std::vector<uint32_t> randomWords(std::size_t n)
{
    std::mt19937 rng(static_cast<unsigned>(n));
    std::vector<uint32_t> v(n);
    for (auto& w : v)
        w = static_cast<uint32_t>(rng());
    return v;
}

void countFrames(benchmark::State& state)
{
    state.counters["fps"] = benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

// The quart reductions allocate their result; giving it back is part of the
// per-frame cost a caller pays.
template <uint32_t* (quart::*Op)(uint32_t*, int, int)>
void BM_quart(benchmark::State& state)
{
    std::vector<uint32_t> frame = randomWords(std::size_t(width) * height);
    quart q;
    for (auto _ : state) {
        uint32_t* out = (q.*Op)(frame.data(), width, height);
        benchmark::DoNotOptimize(out);
        delMem(out);
    }
    countFrames(state);
}

void BM_RGBXtoYUVFrame(benchmark::State& state)
{
    std::vector<uint32_t> rgbx = randomWords(std::size_t(width) * height);
    std::vector<uint32_t> yuv(std::size_t(width / 2) * height);
    FromToRGB f;
    for (auto _ : state) {
        f.RGBXtoYUVFrame(rgbx.data(), width, height, 4, yuv.data());
        benchmark::ClobberMemory();
    }
    countFrames(state);
}

void BM_YUVtoSIRYUV(benchmark::State& state)
{
    std::vector<uint32_t> yuv = randomWords(std::size_t(width / 2) * height);
    std::vector<uint32_t> odd(yuv.size() / 2), even(yuv.size() / 2);
    FromToRGB f;
    for (auto _ : state) {
        f.YUVtoSIRYUV(odd.data(), even.data(), yuv.data(), width, height);
        benchmark::ClobberMemory();
    }
    countFrames(state);
}

}  // namespace

BENCHMARK_TEMPLATE(BM_quart, &quart::zoomtohalf)->Name("zoomtohalf/720x486");
BENCHMARK_TEMPLATE(BM_quart, &quart::zoomtoquart)->Name("zoomtoquart/720x486");
BENCHMARK_TEMPLATE(BM_quart, &quart::correctNtscRatio)->Name("correctNtscRatio/720x486");
BENCHMARK(BM_RGBXtoYUVFrame)->Name("RGBXtoYUVFrame/720x486");
BENCHMARK(BM_YUVtoSIRYUV)->Name("YUVtoSIRYUV/720x486");

BENCHMARK_MAIN();
