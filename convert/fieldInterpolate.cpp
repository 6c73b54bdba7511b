#include "convert/fieldInterpolate.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "convert/fieldRateKernels.h"
#include "convert/motionKernels.h"

namespace {

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

// Line y of a plane moved by (fromX, fromY) 64ths where both are whole
// pixels: the plane's own samples, from x = 0; null where they are not.
const uint8_t* wholeLine(const Plane& plane, int y, int fromX, int fromY)
{
    if ((fromX | fromY) & (subpixel - 1))
        return nullptr;
    return plane.row(y + (fromY >> subpixelBits)) + (fromX >> subpixelBits);
}

// Samples [x0, x1) of line y of a plane moved by (fromX, fromY) 64ths into
// out (and up to samplingOverrun past x1): the columns a vertical pass
// leaves in `column`, then a horizontal one.
void sampleRun(const FieldRateKernels& kernels, const Plane& plane, int y, int x0, int x1, int fromX, int fromY,
               int16_t* column, uint8_t* out)
{
    if (const uint8_t* whole = wholeLine(plane, y, fromX, fromY)) {
        std::memcpy(out + x0, whole + x0, static_cast<std::size_t>(x1 - x0));
        return;
    }
    const uint8_t* top = plane.row(y + (fromY >> subpixelBits) - 1) + (fromX >> subpixelBits) + x0;
    kernels.columns(top - 1, plane.stride, taps.c[fromY & (subpixel - 1)], x1 - x0 + 3, column);
    kernels.rows(column, taps.c[fromX & (subpixel - 1)], x1 - x0, out + x0);
}

// Luma samples [from, next run's from) of a line share vector v.
struct Run {
    int from;
    MotionVector v;
};

// The blocks of one half of a block row (the lines nearer the row above or
// the one below), as steps: a run of blocks with one vector all along (most
// of them) or a block whose neighbours on the lines' side differ from it.
// The same for every line of the half, so made once for them.
struct HalfCandidates {
    // The block's own vector, then those of its neighbours across and above
    // (or below) that differ from the ones before, with their ends in whole
    // pixels.
    int count;
    MotionVector v[3];
    Ends e[3];
};

struct BlockStep {
    int column;
    bool mixed;
    MotionVector own;
    HalfCandidates halves[2];  // left and right half of the block
};

// One line of a plane of each field along the runs' vectors, and the blend.
struct LinePair {
    std::vector<uint8_t> p, q, out;
};

// Lines a thread works in, kept from one band to the next; nothing in them
// outlives the line it is used for. Each has room for the sampling kernels
// to run past its end.
struct Scratch {
    std::vector<int16_t> column;
    std::vector<Run> runs;
    std::vector<BlockStep> steps;
    LinePair luma, cb, cr;
    void size(int samples)
    {
        const auto n = static_cast<std::size_t>(samples);
        if (luma.out.size() == n)
            return;
        column.assign(n + 3 + 2 * samplingOverrun, 0);
        for (LinePair* pair : {&luma, &cb, &cr}) {
            const std::size_t count = pair == &luma ? n : n / 2;
            pair->p.assign(count + samplingOverrun, 0);
            pair->q.assign(count + samplingOverrun, 0);
            pair->out.assign(count, 0);
        }
    }
};

// Samples [x0, x1) of line y of the plane pair along one vector whose ends
// are e (64ths).
void sampleRuns(const FieldRateKernels& kernels, const Plane& pa, const Plane& pb, int y, int x0, int x1, const Ends& e,
                Scratch& scratch, LinePair& line)
{
    sampleRun(kernels, pa, y, x0, x1, e.fromX, e.fromY, scratch.column.data(), line.p.data());
    sampleRun(kernels, pb, y, x0, x1, e.toX, e.toY, scratch.column.data(), line.q.data());
}

// Luma samples that share one vector where blocks of different motion meet.
constexpr int segment = 2;

void extend(std::vector<Run>& runs, int from, MotionVector v)
{
    if (runs.empty() || runs.back().v != v)
        runs.push_back({from, v});
}

// Luma samples [x0, end) of one half of a block (at most blockSize / 2 wide):
// for each segment the first of the candidates whose ends agree best over
// the segment's samples and one more on each side.
void halfBlockRuns(const FieldPicture& a, const FieldPicture& b, int y, int x0, int end, const HalfCandidates& c,
                   std::vector<Run>& runs)
{
    if (c.count == 1) {
        extend(runs, x0, c.v[0]);
        return;
    }
    constexpr int most = blockSize / 2 + 2;
    unsigned d[3][most] = {};  // |a - b| at each candidate's ends, from x0 - 1 to end
    for (int i = 0; i < c.count; ++i) {
        const uint8_t* p = a.luma.row(y + c.e[i].fromY) + c.e[i].fromX + x0 - 1;
        const uint8_t* q = b.luma.row(y + c.e[i].toY) + c.e[i].toX + x0 - 1;
        for (int k = 0; k <= end - x0 + 1; ++k)
            d[i][k] = unsigned(std::abs(p[k] - q[k]));
    }
    for (int k = 0; x0 + k < end; k += segment) {
        int best = 0;
        unsigned bestDifference = d[0][k] + d[0][k + 1] + d[0][k + 2] + d[0][k + 3];
        for (int i = 1; i < c.count; ++i) {
            const unsigned difference = d[i][k] + d[i][k + 1] + d[i][k + 2] + d[i][k + 3];
            if (difference < bestDifference) {
                best = i;
                bestDifference = difference;
            }
        }
        extend(runs, x0 + k, c.v[best]);
    }
}

// The distinct vectors of own, across and above, own first, with their ends.
HalfCandidates halfCandidates(MotionVector own, MotionVector across, MotionVector above, Share at)
{
    HalfCandidates c{1, {own}, {}};
    for (const MotionVector& v : {across, above}) {
        int j = 0;
        while (j < c.count && c.v[j] != v)
            ++j;
        if (j == c.count)
            c.v[c.count++] = v;
    }
    for (int i = 0; i < c.count; ++i)
        c.e[i] = endsOf(c.v[i], at, 1, 1);
    return c;
}

void planHalfRow(const MotionField& chosen, Share at, int row, int sideY, int count, std::vector<BlockStep>& steps)
{
    steps.clear();
    // The block row's vectors and the one above or below it (itself at the
    // picture's edge).
    const MotionVector* vectors = &chosen.at(0, row);
    const MotionVector* aside = &chosen.at(0, row + sideY);
    for (int column = 0; column * blockSize < count; ++column) {
        const MotionVector own = vectors[column], above = aside[column];
        const MotionVector left = vectors[column > 0 ? column - 1 : 0];
        const MotionVector right = vectors[column + 1 < chosen.columns ? column + 1 : column];
        const bool mixed = left != own || right != own || above != own;
        if (!mixed && !steps.empty() && !steps.back().mixed && steps.back().own == own)
            continue;
        BlockStep step{column, mixed, own, {}};
        if (mixed) {
            step.halves[0] = halfCandidates(own, left, above, at);
            step.halves[1] = halfCandidates(own, right, above, at);
        }
        steps.push_back(step);
    }
}

// The vector of each luma sample of line y, as runs: its block's, unless a
// neighbouring block's (on the sample's side) fits the samples around it
// better, decided for `segment` samples at a time. Ends with a run at the
// line's end.
void pixelRuns(const FieldPicture& a, const FieldPicture& b, const std::vector<BlockStep>& steps, int y, int count,
               std::vector<Run>& runs)
{
    runs.clear();
    for (const BlockStep& step : steps) {
        const int x0 = step.column * blockSize;
        if (!step.mixed) {
            extend(runs, x0, step.own);
            continue;
        }
        const int middle = x0 + blockSize / 2;
        const int end = x0 + blockSize < count ? x0 + blockSize : count;
        halfBlockRuns(a, b, y, x0, middle < end ? middle : end, step.halves[0], runs);
        if (middle < end)
            halfBlockRuns(a, b, y, middle, end, step.halves[1], runs);
    }
    runs.push_back({count, {}});
}

// The distinct vectors among a block's own (first), its neighbours' and
// that of the block the own vector comes from, in that order; their number.
int candidatesOf(const MotionField& searched, Share share, int column, int row, MotionVector (&out)[10])
{
    const MotionVector* lines[3] = {&searched.at(0, row - 1), &searched.at(0, row), &searched.at(0, row + 1)};
    const int columns[3] = {column > 0 ? column - 1 : 0, column, column + 1 < searched.columns ? column + 1 : column};
    const MotionVector own = lines[1][column];
    int count = 0;
    out[count++] = own;
    // Most blocks move with all their neighbours; a still block's vector
    // comes from itself.
    bool alike = true;
    for (const MotionVector* line : lines)
        alike = alike && line[columns[0]] == own && line[columns[1]] == own && line[columns[2]] == own;
    if (alike && own == MotionVector{})
        return count;
    const Ends e = endsOf(own, share, 1, 1);
    const MotionVector source =
        searched.at((column * blockSize + e.fromX) / blockSize, (row * blockSize + e.fromY) / blockSize);
    if (alike && source == own)
        return count;
    auto add = [&](MotionVector v) {
        for (int j = 0; j < count; ++j)
            if (out[j] == v)
                return;
        out[count++] = v;
    };
    for (const MotionVector* line : lines)
        for (int c : columns)
            if (line[c] != own)
                add(line[c]);
    if (source != own)
        add(source);
    return count;
}

// Whether block rows row - 1 to row + 1 (as far as they go) have no motion
// at all.
bool stillAround(const MotionField& searched, int row)
{
    for (int r = row - 1; r <= row + 1; ++r) {
        const MotionVector* line = &searched.at(0, r);
        for (int column = 0; column < searched.columns; ++column)
            if (line[column] != MotionVector{})
                return false;
    }
    return true;
}

}  // namespace

void chooseVectors(const FieldPicture& a, const FieldPicture& b, const MotionField& searched, Fraction at,
                   MotionField& chosen, int from, int to)
{
    const Share share = shareOf(at);
    for (int row = from; row < to; ++row) {
        MotionVector* out = &chosen.vectors[static_cast<std::size_t>(row * chosen.columns)];
        // A still row among still rows: every block's candidates are all
        // no motion.
        if (stillAround(searched, row)) {
            std::fill(out, out + chosen.columns, MotionVector{});
            continue;
        }
        for (int column = 0; column < chosen.columns; ++column) {
            const int x = column * blockSize, y = row * blockSize;
            // A vector met before cannot be better than the best now; where
            // all agree there is nothing to compare. The chosen field's
            // costs stay those of the search.
            MotionVector candidates[10];
            const int count = candidatesOf(searched, share, column, row, candidates);
            MotionVector best = candidates[0];
            if (count > 1) {
                unsigned bestCost = candidateCost(a, b, x, y, best, share);
                for (int i = 1; i < count; ++i) {
                    const unsigned cost = candidateCost(a, b, x, y, candidates[i], share);
                    if (cost < bestCost) {
                        best = candidates[i];
                        bestCost = cost;
                    }
                }
            }
            out[column] = best;
        }
    }
}

namespace {

// A line moved by one vector all along (most lines of a still or evenly
// moving picture): each plane's samples are the fields' own lines where the
// vector's ends are whole pixels, and where those lines are the same the
// blend of the two is the line itself.
void oneRunLine(const FieldRateKernels& kernels, const FieldPicture& a, const FieldPicture& b, MotionVector v,
                Share share, int weight, int y, Scratch& scratch, const uint8_t* (&made)[3])
{
    const Plane* planes[3][2] = {{&a.luma, &b.luma}, {&a.cb, &b.cb}, {&a.cr, &b.cr}};
    LinePair* lines[3] = {&scratch.luma, &scratch.cb, &scratch.cr};
    for (int k = 0; k < 3; ++k) {
        LinePair& line = *lines[k];
        const int count = static_cast<int>(line.out.size());
        const Ends e = endsOf(v, share, k ? subpixel / 2 : subpixel, subpixel);
        const uint8_t* p = wholeLine(*planes[k][0], y, e.fromX, e.fromY);
        const uint8_t* q = wholeLine(*planes[k][1], y, e.toX, e.toY);
        if (!p || !q) {
            sampleRuns(kernels, *planes[k][0], *planes[k][1], y, 0, count, e, scratch, line);
            p = line.p.data();
            q = line.q.data();
        }
        if (std::memcmp(p, q, static_cast<std::size_t>(count)) == 0) {
            made[k] = p;
        } else {
            kernels.blend(p, q, count, weight, line.out.data());
            made[k] = line.out.data();
        }
    }
}

}  // namespace

void interpolateLines(const FieldPicture& a, const FieldPicture& b, const MotionField& chosen, Fraction at,
                      uint8_t* frame, int width, int parity, int from, int to)
{
    const FieldRateKernels& kernels = fieldRateKernels();
    const int words = width >> 1;
    const int weight = weightOf(at);
    const Share share = shareOf(at);
    static thread_local Scratch scratch;
    scratch.size(2 * words);
    for (int y = from; y < to; ++y) {
        const int sideY = y % blockSize < blockSize / 2 ? -1 : 1;
        if (y == from || y % (blockSize / 2) == 0)
            planHalfRow(chosen, share, y / blockSize, sideY, 2 * words, scratch.steps);
        pixelRuns(a, b, scratch.steps, y, 2 * words, scratch.runs);
        uint8_t* target = frame + static_cast<std::ptrdiff_t>(2 * y + parity) * words * 4;
        const uint8_t* made[3] = {scratch.luma.out.data(), scratch.cb.out.data(), scratch.cr.out.data()};
        if (scratch.runs.size() == 2) {
            oneRunLine(kernels, a, b, scratch.runs[0].v, share, weight, y, scratch, made);
            kernels.pack(made[0], made[1], made[2], words, target);
            continue;
        }
        for (std::size_t r = 0; r + 1 < scratch.runs.size(); ++r) {
            const MotionVector v = scratch.runs[r].v;
            const int x0 = scratch.runs[r].from, x1 = scratch.runs[r + 1].from;
            // Runs go from left to right, each over what the one before
            // left past its end.
            sampleRuns(kernels, a.luma, b.luma, y, x0, x1, endsOf(v, share, subpixel, subpixel), scratch, scratch.luma);
            // Runs start on even samples: a chroma sample and its two pixels
            // share one vector.
            const Ends e = endsOf(v, share, subpixel / 2, subpixel);
            sampleRuns(kernels, a.cb, b.cb, y, x0 / 2, x1 / 2, e, scratch, scratch.cb);
            sampleRuns(kernels, a.cr, b.cr, y, x0 / 2, x1 / 2, e, scratch, scratch.cr);
        }
        for (LinePair* line : {&scratch.luma, &scratch.cb, &scratch.cr})
            kernels.blend(line->p.data(), line->q.data(), static_cast<int>(line->out.size()), weight, line->out.data());
        kernels.pack(made[0], made[1], made[2], words, target);
    }
}
