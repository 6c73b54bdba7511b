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

// Vectors are in half pixels; scale 1 gives whole pixels, 64 64ths.
// Chroma has half the horizontal resolution: xScale is half of scale there.
// How far along the vector the field being made lies, in 65536ths from a
// (early) and to b (late); worked out once per field.
struct Share {
    int64_t early;
    int64_t late;
};

Share shareOf(Fraction at)
{
    const int64_t early = floorDiv(at.num * 65536 + at.den / 2, at.den);
    return {early, 65536 - early};
}

// share * v / 2 (half pixels to pixels) in units of 1 / scale, rounded.
int part(int64_t share, int v, int scale) { return static_cast<int>((share * v * scale + 65536) >> 17); }

Ends endsOf(MotionVector v, Share s, int xScale, int yScale)
{
    return {-part(s.early, v.x, xScale), -part(s.early, v.y, yScale), part(s.late, v.x, xScale),
            part(s.late, v.y, yScale)};
}

unsigned candidateCost(const FieldPicture& a, const FieldPicture& b, int x, int y, MotionVector v, Share at)
{
    const Ends e = endsOf(v, at, 1, 1);
    const unsigned difference =
        sad8x8(a.luma.row(y + e.fromY) + x + e.fromX, a.luma.stride, b.luma.row(y + e.toY) + x + e.toX, b.luma.stride);
    return difference + unsigned(std::abs(v.x) + std::abs(v.y)) / 2;
}

// Past either field (at the ends of the input) the nearer field alone.
int weightOf(Fraction at) { return at.num <= 0 ? 0 : (at.num >= at.den ? 256 : roundDiv(at.num * 256, at.den)); }

// Positions are kept in 64ths of a pixel.
constexpr int subpixel = 64;
constexpr int subpixelBits = 6;

// Cubic (Catmull-Rom) taps in 64ths for offsets of 0 to 63 64ths, as
// integers summing to 64; offset 0 is (0, 64, 0, 0), an exact copy.
struct Taps {
    int c[subpixel][4];
    Taps()
    {
        for (int i = 0; i < subpixel; ++i) {
            const double f = i / double(subpixel);
            const double w[4] = {(-f + 2 * f * f - f * f * f) / 2, (2 - 5 * f * f + 3 * f * f * f) / 2,
                                 (f + 4 * f * f - 3 * f * f * f) / 2, (-f * f + f * f * f) / 2};
            int sum = 0;
            for (int j = 0; j < 4; ++j)
                sum += c[i][j] = static_cast<int>(w[j] * 64 + (w[j] < 0 ? -0.5 : 0.5));
            c[i][1] += 64 - sum;
        }
    }
};
const Taps taps;

// Samples [x0, x1) of line y of a plane moved by (fromX, fromY) 64ths:
// the columns a vertical pass leaves in `column`, then a horizontal one.
void sampleRun(const Plane& plane, int y, int x0, int x1, int fromX, int fromY, std::vector<int>& column, int* out)
{
    const int* cy = taps.c[fromY & (subpixel - 1)];
    const int* cx = taps.c[fromX & (subpixel - 1)];
    const uint8_t* top = plane.row(y + (fromY >> subpixelBits) - 1) + (fromX >> subpixelBits);
    const std::ptrdiff_t s = plane.stride;
    if (!((fromX | fromY) & (subpixel - 1))) {  // whole pixels: the samples themselves
        for (int x = x0; x < x1; ++x)
            out[x] = top[x + s];
        return;
    }
    int* col = column.data() + 1 - x0;
    for (int x = x0 - 1; x < x1 + 2; ++x)
        col[x] = cy[0] * top[x] + cy[1] * top[x + s] + cy[2] * top[x + 2 * s] + cy[3] * top[x + 3 * s];
    for (int x = x0; x < x1; ++x) {
        const int v = (cx[0] * col[x - 1] + cx[1] * col[x] + cx[2] * col[x + 1] + cx[3] * col[x + 2] + 2048) >> 12;
        out[x] = v < 0 ? 0 : (v > 255 ? 255 : v);
    }
}

// Luma samples [from, next run's from) of a line share vector v.
struct Run {
    int from;
    MotionVector v;
};

// Lines a thread works in, kept from one band to the next; nothing in them
// outlives the line it is used for.
struct Scratch {
    std::vector<int> column, p, q;
    std::vector<Run> runs;
    std::vector<uint8_t> luma, cb, cr;
    void size(int samples)
    {
        const auto n = static_cast<std::size_t>(samples);
        if (p.size() == n)
            return;
        column.assign(n + 3, 0);
        p.assign(n, 0);
        q.assign(n, 0);
        luma.assign(n, 0);
        cb.assign(n / 2, 0);
        cr.assign(n / 2, 0);
    }
};

// Each output sample the blend of p and q with weight/256 on q, or the
// sample of the nearer field where the two disagree.
void blendSamples(const int* p, const int* q, int count, int weight, uint8_t* out)
{
    const int* nearer = weight < 128 ? p : q;
    for (int i = 0; i < count; ++i) {
        const int d = p[i] > q[i] ? p[i] - q[i] : q[i] - p[i];
        const int blend = (p[i] * (256 - weight) + q[i] * weight + 128) >> 8;
        out[i] = static_cast<uint8_t>(d > disagreement ? nearer[i] : blend);
    }
}

// Samples [x0, x1) of line y of the plane pair along one vector whose ends
// are e (64ths), blended with weight/256 on b.
void blendRun(const Plane& pa, const Plane& pb, int y, int x0, int x1, const Ends& e, int weight, Scratch& scratch,
              uint8_t* out)
{
    sampleRun(pa, y, x0, x1, e.fromX, e.fromY, scratch.column, scratch.p.data());
    sampleRun(pb, y, x0, x1, e.toX, e.toY, scratch.column, scratch.q.data());
    blendSamples(scratch.p.data() + x0, scratch.q.data() + x0, x1 - x0, weight, out + x0);
}

// Luma samples that share one vector where blocks of different motion meet.
constexpr int segment = 2;

// Disagreement of a vector's ends over luma samples [x0 - 1, x1] of line y.
unsigned segmentDifference(const FieldPicture& a, const FieldPicture& b, int x0, int x1, int y, MotionVector v,
                           Share at)
{
    const Ends e = endsOf(v, at, 1, 1);
    const uint8_t* p = a.luma.row(y + e.fromY) + e.fromX;
    const uint8_t* q = b.luma.row(y + e.toY) + e.toX;
    unsigned sum = 0;
    for (int x = x0 - 1; x <= x1; ++x)
        sum += unsigned(std::abs(p[x] - q[x]));
    return sum;
}

void extend(std::vector<Run>& runs, int from, MotionVector v)
{
    if (runs.empty() || runs.back().v != v)
        runs.push_back({from, v});
}

// The vector of each luma sample of line y, as runs: its block's, unless a
// neighbouring block's (on the sample's side) fits the samples around it
// better, decided for `segment` samples at a time. Ends with a run at the
// line's end.
void pixelRuns(const FieldPicture& a, const FieldPicture& b, const MotionField& chosen, Share at, int y, int count,
               std::vector<Run>& runs)
{
    const int row = y / blockSize;
    const int sideY = y % blockSize < blockSize / 2 ? -1 : 1;
    runs.clear();
    for (int column = 0; column * blockSize < count; ++column) {
        const MotionVector own = chosen.at(column, row), above = chosen.at(column, row + sideY);
        const MotionVector left = chosen.at(column - 1, row), right = chosen.at(column + 1, row);
        const int end = (column + 1) * blockSize < count ? (column + 1) * blockSize : count;
        for (int x0 = column * blockSize; x0 < end; x0 += segment) {
            const MotionVector across = x0 % blockSize < blockSize / 2 ? left : right;
            MotionVector best = own;
            if (across != own || above != own) {
                const int x1 = x0 + segment < count ? x0 + segment : count;
                unsigned bestDifference = segmentDifference(a, b, x0, x1, y, own, at);
                for (const MotionVector& v : {across, above}) {
                    const unsigned difference = v == own ? bestDifference : segmentDifference(a, b, x0, x1, y, v, at);
                    if (difference < bestDifference) {
                        best = v;
                        bestDifference = difference;
                    }
                }
            }
            extend(runs, x0, best);
        }
    }
    runs.push_back({count, {}});
}

}  // namespace

void chooseVectors(const FieldPicture& a, const FieldPicture& b, const MotionField& searched, Fraction at,
                   MotionField& chosen, int from, int to)
{
    const Share share = shareOf(at);
    for (int row = from; row < to; ++row)
        for (int column = 0; column < chosen.columns; ++column) {
            const int x = column * blockSize, y = row * blockSize;
            MotionVector candidates[10];
            int count = 0;
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx)
                    candidates[count++] = searched.at(column + dx, row + dy);
            // The block the own vector comes from.
            const Ends e = endsOf(candidates[4], share, 1, 1);
            candidates[count++] = searched.at((x + e.fromX) / blockSize, (y + e.fromY) / blockSize);
            MotionVector best = candidates[4];
            unsigned bestCost = candidateCost(a, b, x, y, best, share);
            for (int i = 0; i < count; ++i) {
                if (candidates[i] == best)
                    continue;
                const unsigned cost = candidateCost(a, b, x, y, candidates[i], share);
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
    const Share share = shareOf(at);
    static thread_local Scratch scratch;
    scratch.size(2 * words);
    std::vector<uint8_t>&luma = scratch.luma, &cb = scratch.cb, &cr = scratch.cr;
    for (int y = from; y < to; ++y) {
        pixelRuns(a, b, chosen, share, y, 2 * words, scratch.runs);
        for (std::size_t r = 0; r + 1 < scratch.runs.size(); ++r) {
            const MotionVector v = scratch.runs[r].v;
            const int x0 = scratch.runs[r].from, x1 = scratch.runs[r + 1].from;
            blendRun(a.luma, b.luma, y, x0, x1, endsOf(v, share, subpixel, subpixel), weight, scratch, luma.data());
            // Runs start on even samples: a chroma sample and its two pixels
            // share one vector.
            const Ends e = endsOf(v, share, subpixel / 2, subpixel);
            blendRun(a.cb, b.cb, y, x0 / 2, x1 / 2, e, weight, scratch, cb.data());
            blendRun(a.cr, b.cr, y, x0 / 2, x1 / 2, e, weight, scratch, cr.data());
        }
        uint8_t* out = frame + static_cast<std::ptrdiff_t>(2 * y + parity) * words * 4;
        for (int i = 0; i < words; ++i, out += 4) {
            out[0] = cb[static_cast<std::size_t>(i)];
            out[1] = luma[static_cast<std::size_t>(2 * i)];
            out[2] = cr[static_cast<std::size_t>(i)];
            out[3] = luma[static_cast<std::size_t>(2 * i + 1)];
        }
    }
}
