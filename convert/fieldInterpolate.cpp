#include "convert/fieldInterpolate.h"

#include <cstdlib>
#include <vector>

#include "convert/motionKernels.h"

namespace {

// Where the two ends of a vector disagree by more than this, the place is
// taken to be covered or uncovered between the fields: the nearer field
// alone shows it.
constexpr int disagreement = 40;

int64_t floorDiv(int64_t n, int64_t d) { return n >= 0 ? n / d : -((d - 1 - n) / d); }
int roundDiv(int64_t n, int64_t d) { return static_cast<int>(floorDiv(2 * n + d, 2 * d)); }

// The two ends of vector v seen from a place of the field being made, in
// units of 1 / scale pixel: a at the place plus from, b at the place plus to.
struct Ends {
    int fromX, fromY, toX, toY;
};

// Vectors are in half pixels; scale 1 gives whole pixels, 16 sixteenths.
// Chroma has half the horizontal resolution: xScale is half of scale there.
Ends endsOf(MotionVector v, Fraction at, int xScale, int yScale)
{
    const int64_t rest = at.den - at.num;
    return {-roundDiv(at.num * v.x * xScale, 2 * at.den), -roundDiv(at.num * v.y * yScale, 2 * at.den),
            roundDiv(rest * v.x * xScale, 2 * at.den), roundDiv(rest * v.y * yScale, 2 * at.den)};
}

unsigned candidateCost(const FieldPicture& a, const FieldPicture& b, int x, int y, MotionVector v, Fraction at)
{
    const Ends e = endsOf(v, at, 1, 1);
    const unsigned difference =
        sad8x8(a.luma.row(y + e.fromY) + x + e.fromX, a.luma.stride, b.luma.row(y + e.toY) + x + e.toX, b.luma.stride);
    return difference + unsigned(std::abs(v.x) + std::abs(v.y)) / 2;
}

int weightOf(Fraction at) { return roundDiv(at.num * 256, at.den); }

inline int bilinear(const uint8_t* p, std::ptrdiff_t stride, int fx, int fy)
{
    const int top = p[0] * (16 - fx) + p[1] * fx;
    const int bottom = p[stride] * (16 - fx) + p[stride + 1] * fx;
    return (top * (16 - fy) + bottom * fy + 128) >> 8;
}

// Samples [x0, x1) of line y of the plane pair along one vector whose ends
// are e (sixteenths), blended with weight/256 on b.
void blendRun(const Plane& pa, const Plane& pb, int y, int x0, int x1, const Ends& e, int weight, uint8_t* out)
{
    const uint8_t* rowA = pa.row(y + (e.fromY >> 4)) + (e.fromX >> 4);
    const uint8_t* rowB = pb.row(y + (e.toY >> 4)) + (e.toX >> 4);
    const int ax = e.fromX & 15, ay = e.fromY & 15, bx = e.toX & 15, by = e.toY & 15;
    const bool nearA = weight < 128;
    for (int x = x0; x < x1; ++x) {
        const int p = bilinear(rowA + x, pa.stride, ax, ay);
        const int q = bilinear(rowB + x, pb.stride, bx, by);
        const int d = p > q ? p - q : q - p;
        const int value = d > disagreement ? (nearA ? p : q) : (p * (256 - weight) + q * weight + 128) >> 8;
        out[x] = static_cast<uint8_t>(value);
    }
}

// Disagreement of a vector's ends around luma sample x of line y.
unsigned pixelDifference(const FieldPicture& a, const FieldPicture& b, int x, int y, MotionVector v, Fraction at)
{
    const Ends e = endsOf(v, at, 1, 1);
    const uint8_t* p = a.luma.row(y + e.fromY) + x + e.fromX;
    const uint8_t* q = b.luma.row(y + e.toY) + x + e.toX;
    unsigned sum = 0;
    for (int i = -1; i <= 1; ++i)
        sum += unsigned(std::abs(p[i] - q[i]));
    return sum;
}

// The vector of each luma sample of line y: its block's, unless a
// neighbouring block's (on the sample's side) fits the sample better.
void pixelVectors(const FieldPicture& a, const FieldPicture& b, const MotionField& chosen, Fraction at, int y,
                  std::vector<MotionVector>& vectors)
{
    const int row = y / blockSize;
    const int sideY = y % blockSize < blockSize / 2 ? -1 : 1;
    for (int x = 0; x < static_cast<int>(vectors.size()); ++x) {
        const int column = x / blockSize;
        const int sideX = x % blockSize < blockSize / 2 ? -1 : 1;
        const MotionVector own = chosen.at(column, row);
        const MotionVector across = chosen.at(column + sideX, row);
        const MotionVector above = chosen.at(column, row + sideY);
        MotionVector best = own;
        if (across != own || above != own) {
            unsigned bestDifference = pixelDifference(a, b, x, y, own, at);
            for (const MotionVector& v : {across, above}) {
                const unsigned difference = v == own ? bestDifference : pixelDifference(a, b, x, y, v, at);
                if (difference < bestDifference) {
                    best = v;
                    bestDifference = difference;
                }
            }
        }
        vectors[static_cast<std::size_t>(x)] = best;
    }
}

// Runs of equal vectors along a line: run(v, from, to) for each.
template <typename Run>
void forEachRun(const std::vector<MotionVector>& vectors, int count, int step, Run run)
{
    int start = 0;
    for (int i = 1; i <= count; ++i)
        if (i == count ||
            vectors[static_cast<std::size_t>(i * step)] != vectors[static_cast<std::size_t>(start * step)]) {
            run(vectors[static_cast<std::size_t>(start * step)], start, i);
            start = i;
        }
}

}  // namespace

void chooseVectors(const FieldPicture& a, const FieldPicture& b, const MotionField& searched, Fraction at,
                   MotionField& chosen, int from, int to)
{
    for (int row = from; row < to; ++row)
        for (int column = 0; column < chosen.columns; ++column) {
            const int x = column * blockSize, y = row * blockSize;
            MotionVector candidates[10];
            int count = 0;
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx)
                    candidates[count++] = searched.at(column + dx, row + dy);
            // The block the own vector comes from.
            const Ends e = endsOf(candidates[4], at, 1, 1);
            candidates[count++] = searched.at((x + e.fromX) / blockSize, (y + e.fromY) / blockSize);
            MotionVector best = candidates[4];
            unsigned bestCost = candidateCost(a, b, x, y, best, at);
            for (int i = 0; i < count; ++i) {
                if (candidates[i] == best)
                    continue;
                const unsigned cost = candidateCost(a, b, x, y, candidates[i], at);
                if (cost < bestCost) {
                    best = candidates[i];
                    bestCost = cost;
                }
            }
            chosen.vectors[static_cast<std::size_t>(row * chosen.columns + column)] = best;
            chosen.costs[static_cast<std::size_t>(row * chosen.columns + column)] = bestCost;
        }
}

void interpolateLines(const FieldPicture& a, const FieldPicture& b, const MotionField& chosen, Fraction at,
                      uint8_t* frame, int width, int parity, int from, int to)
{
    const int words = width >> 1;
    const int weight = weightOf(at);
    std::vector<MotionVector> vectors(static_cast<std::size_t>(2 * words));
    std::vector<uint8_t> luma(static_cast<std::size_t>(2 * words)), cb(static_cast<std::size_t>(words)),
        cr(static_cast<std::size_t>(words));
    for (int y = from; y < to; ++y) {
        pixelVectors(a, b, chosen, at, y, vectors);
        forEachRun(vectors, 2 * words, 1, [&](MotionVector v, int x0, int x1) {
            blendRun(a.luma, b.luma, y, x0, x1, endsOf(v, at, 16, 16), weight, luma.data());
        });
        // A chroma sample follows the vector of the first of its two pixels.
        forEachRun(vectors, words, 2, [&](MotionVector v, int x0, int x1) {
            const Ends e = endsOf(v, at, 8, 16);
            blendRun(a.cb, b.cb, y, x0, x1, e, weight, cb.data());
            blendRun(a.cr, b.cr, y, x0, x1, e, weight, cr.data());
        });
        uint8_t* out = frame + static_cast<std::ptrdiff_t>(2 * y + parity) * words * 4;
        for (int i = 0; i < words; ++i, out += 4) {
            out[0] = cb[static_cast<std::size_t>(i)];
            out[1] = luma[static_cast<std::size_t>(2 * i)];
            out[2] = cr[static_cast<std::size_t>(i)];
            out[3] = luma[static_cast<std::size_t>(2 * i + 1)];
        }
    }
}
