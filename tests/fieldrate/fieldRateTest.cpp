// The field-rate converter: still pictures pass exactly, pans come out where
// they belong at each output instant, cuts are never blended, and the bytes
// do not depend on the run or the number of threads. Its kernels against
// their plain versions.
#include <cmath>
#include <cstdint>
#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "convert/Convert.h"
#include "convert/fieldRate.h"
#include "convert/fieldRateKernels.h"
#include "convert/motionKernels.h"

namespace {

constexpr int width = 720, palLines = 576, ntscLines = 486, words = width / 2;
using Frame = std::vector<uint32_t>;

// A picture size and field order.
struct Shape {
    int width = 720, lines = 576;
    bool topFirst = true, progressive = false;
    std::size_t words() const { return static_cast<std::size_t>(width / 2); }
};

Frame randomFrame(uint32_t seed, std::size_t count = words * palLines)
{
    std::mt19937 rng(seed);
    Frame f(count);
    for (auto& w : f)
        w = static_cast<uint32_t>(rng());
    return f;
}

// Tiles of 4 x 4 random pixels: like a picture, its two fields look alike.
Frame randomTiles(uint32_t seed)
{
    const Frame tiles = randomFrame(seed);
    Frame f(words * palLines);
    for (std::size_t y = 0; y < palLines; ++y)
        for (std::size_t i = 0; i < words; ++i)
            f[y * words + i] = tiles[y / 4 * words + i / 2];
    return f;
}

Frame lineConvert(Frame pal, const Shape& shape = {})
{
    Frame ntsc(shape.words() * ntscLines);
    float fieldMode = 1.0f;
    Convert converter(shape.width, ntscLines, 1, &fieldMode);
    converter.DoConvert(pal.data(), shape.lines, ntsc.data());
    return ntsc;
}

std::vector<Frame> convertAll(const std::vector<Frame>& input, int threads, const Shape& shape = {})
{
    FieldRateSettings settings;
    settings.width = shape.width;
    settings.inputLines = shape.lines;
    settings.threads = threads;
    settings.topFieldFirst = shape.topFirst;
    settings.progressive = shape.progressive;
    std::vector<Frame> out;
    FieldRateConverter converter(settings, [&](const uint32_t* frame) {
        out.emplace_back(frame, frame + shape.words() * ntscLines);
        return 1;
    });
    for (const Frame& f : input)
        EXPECT_TRUE(converter.push(f.data()));
    EXPECT_TRUE(converter.finish());
    return out;
}

// A smooth picture moved by (dx, dy) pixels and frame lines; frame lines of
// `parity` only.
void renderPan(double dx, double dy, int parity, Frame& frame)
{
    auto luma = [&](double x, double y) {
        x -= dx;
        y -= dy;
        return 128 + 60 * std::sin(x / 9.7 + 1) * std::cos(y / 7.5) + 30 * std::sin((x + y) / 15.4);
    };
    for (int line = parity; line < palLines; line += 2)
        for (int i = 0; i < words; ++i) {
            const double x = 2 * i;
            const uint8_t b[4] = {
                uint8_t(std::lround(128 + 50 * std::sin((x - dx) / 13.2))), uint8_t(std::lround(luma(x, line))),
                uint8_t(std::lround(128 + 50 * std::cos((line - dy) / 11.1))), uint8_t(std::lround(luma(x + 1, line)))};
            std::memcpy(&frame[static_cast<std::size_t>(line * words + i)], b, 4);
        }
}

// Largest difference of any byte of lines [top, bottom) of the two frames,
// columns [margin, width - margin).
int largestDifference(const Frame& a, const Frame& b, int top, int bottom, int margin)
{
    int largest = 0;
    for (int y = top; y < bottom; ++y) {
        const auto* p = reinterpret_cast<const uint8_t*>(&a[static_cast<std::size_t>(y * words)]);
        const auto* q = reinterpret_cast<const uint8_t*>(&b[static_cast<std::size_t>(y * words)]);
        for (int i = 2 * margin; i < 4 * words - 2 * margin; ++i)
            largest = std::max(largest, std::abs(p[i] - q[i]));
    }
    return largest;
}

TEST(FieldRate, StillPicturesGiveThePlainLineConversion)
{
    // Either field order, progressive frames, and a small picture whose
    // fields end inside a block.
    for (const Shape& shape : {Shape{}, Shape{720, 576, false}, Shape{720, 576, true, true}, Shape{104, 62}}) {
        const Frame still = randomFrame(7, shape.words() * static_cast<std::size_t>(shape.lines));
        const std::vector<Frame> out = convertAll(std::vector<Frame>(12, still), 2, shape);
        // 12 frames at 25/s last as long as 14 at 30000/1001/s.
        ASSERT_EQ(out.size(), 14u);
        const Frame expected = lineConvert(still, shape);
        for (const Frame& f : out)
            EXPECT_EQ(f, expected) << shape.width << " x " << shape.lines;
    }
}

// Each output field at its own instant: field k at k * 1001 / 1200 input
// field times, the first field of each frame the top one.
struct Pan {
    double dx, dy;  // pixels and frame lines per field
};

class FieldRatePan : public testing::TestWithParam<Pan> {};

TEST_P(FieldRatePan, ReproducedWithinOneCodeAwayFromTheEdges)
{
    const Pan pan = GetParam();
    std::vector<Frame> input(10, Frame(words * palLines));
    for (int n = 0; n < 10; ++n)
        for (int field = 0; field < 2; ++field)
            renderPan(pan.dx * (2 * n + field), pan.dy * (2 * n + field), field, input[static_cast<std::size_t>(n)]);
    const std::vector<Frame> out = convertAll(input, 2);
    ASSERT_EQ(out.size(), 12u);
    for (std::size_t m = 0; m < out.size(); ++m) {
        Frame truth(words * palLines);
        for (int field = 0; field < 2; ++field) {
            const double t = double(2 * m + static_cast<std::size_t>(field)) * 1001 / 1200;
            renderPan(pan.dx * t, pan.dy * t, field, truth);
        }
        EXPECT_LE(largestDifference(out[m], lineConvert(truth), 24, ntscLines - 24, 48), 1) << "frame " << m;
    }
    // The same bytes again, and with other numbers of threads (once: the
    // diagonal pan moves every block).
    if (pan.dx && pan.dy) {
        EXPECT_EQ(convertAll(input, 2), out);
        EXPECT_EQ(convertAll(input, 1), out);
        EXPECT_EQ(convertAll(input, 3), out);
    }
}

INSTANTIATE_TEST_SUITE_P(Pans, FieldRatePan, testing::Values(Pan{4, 0}, Pan{0, 2}, Pan{-3, 1}));

// Scene a for six frames, then scene b: every output field at or after the
// first field of b is b's own field, every one before it a's.
TEST(FieldRate, CutsAreNeverBlended)
{
    const Frame a = randomTiles(1), b = randomTiles(2);
    const Frame na = lineConvert(a), nb = lineConvert(b);
    for (const bool topFirst : {true, false}) {
        std::vector<Frame> input(6, a);
        input.resize(12, b);
        const std::vector<Frame> out = convertAll(input, 2, Shape{720, 576, topFirst});
        ASSERT_EQ(out.size(), 14u);
        for (std::size_t m = 0; m < out.size(); ++m)
            for (std::size_t order = 0; order < 2; ++order) {
                // Field times 12 (b's first field) and on show b. The
                // first field in time is the top one for topFirst; the line
                // conversion makes its lines the odd ones.
                const bool late = (2 * m + order) * 1001 >= 12 * 1200;
                const std::size_t firstLine = (order == 0) == topFirst ? 1 : 0;
                const Frame& expected = late ? nb : na;
                for (std::size_t y = firstLine; y < ntscLines; y += 2)
                    ASSERT_EQ(0, std::memcmp(&out[m][y * words], &expected[y * words], words * 4))
                        << (topFirst ? "tff" : "bff") << " frame " << m << " line " << y;
            }
    }
}

TEST(MotionKernels, VectorVersionsMatchThePlainOnes)
{
    std::mt19937 rng(5);
    std::vector<uint8_t> a(64 * 40), b(64 * 40);
    for (int round = 0; round < 200; ++round) {
        for (auto& v : a)
            v = static_cast<uint8_t>(round % 4 == 0 ? (rng() & 1) * 255 : rng());
        for (auto& v : b)
            v = static_cast<uint8_t>(rng());
        const std::ptrdiff_t strideA = 16 + static_cast<std::ptrdiff_t>(rng() % 48);
        const std::ptrdiff_t strideB = 16 + static_cast<std::ptrdiff_t>(rng() % 48);
        const uint8_t* pa = a.data() + rng() % 7;
        const uint8_t* pb = b.data() + rng() % 7;
        ASSERT_EQ(sad8x8(pa, strideA, pb, strideB), sad8x8Plain(pa, strideA, pb, strideB));
        for (int h = 0; h < 4; ++h)
            ASSERT_EQ(sad8x8Half(pa, strideA, pb, strideB, h & 1, h >> 1),
                      sad8x8HalfPlain(pa, strideA, pb, strideB, h & 1, h >> 1));
    }
}

// Every path's field-rate kernels give the plain ones' results, for any
// length (short runs and line tails), taps and weight; only [0, count) counts,
// except that the planes and halves may not write past it.
TEST(FieldRateKernels, VectorVersionsMatchThePlainOnes)
{
    std::mt19937 rng(9);
    const FieldRateKernels& plain = fieldRateKernels(KernelPath::reference);
    std::vector<uint8_t> plane(64 * 8 + 2 * samplingOverrun);
    std::vector<int16_t> column(64 + 2 * samplingOverrun);
    std::vector<uint8_t> p(64 + samplingOverrun), q(64 + samplingOverrun), expected(256), got(256);
    for (int path = 1; path < kernelPathCount; ++path) {
        if (!kernelPathAvailable(static_cast<KernelPath>(path)))
            continue;
        const FieldRateKernels& vector = fieldRateKernels(static_cast<KernelPath>(path));
        for (int round = 0; round < 300; ++round) {
            for (auto& v : plane)
                v = static_cast<uint8_t>(round % 3 == 0 ? (rng() & 1) * 255 : rng());
            const int count = static_cast<int>(rng() % 61);
            // Cubic-like taps: small negative outer ones, the rest summing to 64.
            const int outer0 = -static_cast<int>(rng() % 9), outer3 = -static_cast<int>(rng() % 9);
            const int inner2 = static_cast<int>(rng() % 65);
            const int taps[4] = {outer0, 64 - outer0 - outer3 - inner2, inner2, outer3};
            const uint8_t* top = plane.data() + rng() % 8;
            const uint8_t* across = top + 24 + rng() % 8;
            unsigned plainSums[16], sums[16];
            plain.sadAcross(top, 40, across, 40, plainSums);
            vector.sadAcross(top, 40, across, 40, sums);
            ASSERT_TRUE(std::equal(plainSums, plainSums + 16, sums)) << path;
            plain.columns(top, 64, taps, count + 3, column.data());
            const std::vector<int16_t> plainColumn(column.begin(), column.begin() + count + 3);
            vector.columns(top, 64, taps, count + 3, column.data());
            ASSERT_TRUE(std::equal(plainColumn.begin(), plainColumn.end(), column.begin())) << path << " " << count;
            plain.rows(column.data(), taps, count, p.data());
            vector.rows(column.data(), taps, count, q.data());
            ASSERT_EQ(0, std::memcmp(p.data(), q.data(), static_cast<std::size_t>(count))) << path << " " << count;
            for (std::size_t i = 0; i < p.size(); ++i)
                q[i] = static_cast<uint8_t>(rng() % 4 ? p[i] + rng() % 91 - 45 : rng());
            const int weight = static_cast<int>(rng() % 257);
            plain.blend(p.data(), q.data(), count, weight, expected.data());
            vector.blend(p.data(), q.data(), count, weight, got.data());
            ASSERT_EQ(0, std::memcmp(expected.data(), got.data(), static_cast<std::size_t>(count))) << path;
            plain.pack(plane.data(), p.data(), q.data(), count, expected.data());
            vector.pack(plane.data(), p.data(), q.data(), count, got.data());
            ASSERT_EQ(expected, got) << path << " " << count;
            // Planes of the words in `plane`: luma in the first half, cb and
            // cr in the third and last quarters.
            plain.unpack(plane.data(), count, expected.data(), expected.data() + 128, expected.data() + 192);
            vector.unpack(plane.data(), count, got.data(), got.data() + 128, got.data() + 192);
            ASSERT_EQ(expected, got) << path << " " << count;
            plain.halve(top, across, count, expected.data());
            vector.halve(top, across, count, got.data());
            ASSERT_EQ(expected, got) << path << " " << count;
        }
    }
}

}  // namespace
