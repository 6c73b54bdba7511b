#include "convert/motionSearch.h"

#include <cstdlib>

#include "convert/fieldRateKernels.h"
#include "convert/motionKernels.h"

namespace {

// A little cost per pixel of length, so that flat areas keep no motion.
constexpr unsigned lengthCost = 2;
constexpr int coarseRangeX = 6;  // quarter pixels; 2 * 6 + 1 within a row of 16 differences
constexpr int coarseRangeY = 3;

unsigned lengthPenalty(MotionVector v) { return lengthCost * unsigned(std::abs(v.x) + std::abs(v.y)) / 2; }

MotionVector clampVector(MotionVector v)
{
    v.x = v.x < -maxVectorX ? -maxVectorX : (v.x > maxVectorX ? maxVectorX : v.x);
    v.y = v.y < -maxVectorY ? -maxVectorY : (v.y > maxVectorY ? maxVectorY : v.y);
    return v;
}

// Floor of a half-pixel value in whole pixels.
int wholePart(int half) { return half >= 0 ? half / 2 : -((1 - half) / 2); }

// Difference of block (x, y) of a from b moved by v, any half-pixel v.
unsigned blockDifference(const Plane& a, const Plane& b, int x, int y, MotionVector v)
{
    const int wx = wholePart(v.x), wy = wholePart(v.y);
    const uint8_t* pa = a.row(y) + x;
    const uint8_t* pb = b.row(y + wy) + x + wx;
    if ((v.x | v.y) & 1)
        return sad8x8Half(pa, a.stride, pb, b.stride, v.x & 1, v.y & 1);
    return sad8x8(pa, a.stride, pb, b.stride);
}

struct Best {
    MotionVector v;
    unsigned cost;
    unsigned difference;
};

void consider(const Plane& a, const Plane& b, int x, int y, MotionVector v, Best& best)
{
    v = clampVector(v);
    // Its length alone may already cost as much as the best.
    if (lengthPenalty(v) >= best.cost)
        return;
    const unsigned difference = blockDifference(a, b, x, y, v);
    const unsigned cost = difference + lengthPenalty(v);
    if (cost < best.cost)
        best = {v, cost, difference};
}

// Each of the vectors after the first `seen` (already looked at) in turn,
// those met before left out: a vector looked at again cannot be better than
// the best a second time.
void considerOnce(const Plane& a, const Plane& b, int x, int y, MotionVector* vectors, int count, int seen, Best& best)
{
    for (int i = 0; i < count; ++i) {
        vectors[i] = clampVector(vectors[i]);
        int j = 0;
        while (j < i && vectors[j] != vectors[i])
            ++j;
        if (j == i && i >= seen)
            consider(a, b, x, y, vectors[i], best);
    }
}

// Steps of `step` half pixels around the best until none is better. A
// perfect match cannot be beaten; after a move, the places the last round
// looked at around the old centre are not looked at again (none was better
// than the old best, so none beats the new one).
void refine(const Plane& a, const Plane& b, int x, int y, int step, int rounds, Best& best)
{
    MotionVector last{1 << 20, 0};  // no round yet
    for (int round = 0; round < rounds && best.cost; ++round) {
        const MotionVector centre = best.v;
        for (int dy = -step; dy <= step; dy += step)
            for (int dx = -step; dx <= step; dx += step) {
                const MotionVector v{centre.x + dx, centre.y + dy};
                const bool seen = std::abs(v.x - last.x) <= step && std::abs(v.y - last.y) <= step;
                if ((dx || dy) && !seen)
                    consider(a, b, x, y, v, best);
            }
        if (best.v == centre)
            break;
        last = centre;
    }
}

}  // namespace

void shapeMotion(MotionField& coarse, MotionField& fine, int width, int height)
{
    coarse.columns = (width + areaSize - 1) / areaSize;
    coarse.rows = (height + areaSize - 1) / areaSize;
    fine.columns = (width + blockSize - 1) / blockSize;
    fine.rows = (height + blockSize - 1) / blockSize;
    for (MotionField* f : {&coarse, &fine}) {
        f->vectors.assign(static_cast<std::size_t>(f->columns * f->rows), MotionVector{});
        f->costs.assign(f->vectors.size(), 0);
    }
}

void searchCoarse(const FieldPicture& a, const FieldPicture& b, MotionField& coarse, int from, int to)
{
    const FieldRateKernels& kernels = fieldRateKernels();
    const Plane& qa = a.quarter;
    const Plane& qb = b.quarter;
    for (int row = from; row < to; ++row)
        for (int column = 0; column < coarse.columns; ++column) {
            // An 8 x 8 window of quarter pixels centred on the 4 x 4 area.
            const int x = column * 4 - 2, y = row * 4 - 2;
            Best best{{}, ~0u, 0};
            // Without motion first: a perfect match there costs nothing and
            // every other offset costs its length.
            unsigned still[16];
            kernels.sadAcross(qa.row(y) + x, qa.stride, qb.row(y) + x - coarseRangeX, qb.stride, still);
            if (still[coarseRangeX] == 0)
                best.cost = 0;
            for (int vy = -coarseRangeY; vy <= coarseRangeY && best.cost; ++vy) {
                unsigned rowSums[16];
                const unsigned* across = still;
                if (vy) {
                    kernels.sadAcross(qa.row(y) + x, qa.stride, qb.row(y + vy) + x - coarseRangeX, qb.stride, rowSums);
                    across = rowSums;
                }
                for (int vx = -coarseRangeX; vx <= coarseRangeX; ++vx) {
                    const unsigned difference = across[vx + coarseRangeX];
                    const unsigned cost = difference + 4 * lengthCost * unsigned(std::abs(vx) + std::abs(vy));
                    if (cost < best.cost)
                        best = {{8 * vx, 8 * vy}, cost, difference};
                }
            }
            const std::size_t at = static_cast<std::size_t>(row * coarse.columns + column);
            coarse.vectors[at] = best.v;
            coarse.costs[at] = best.difference;
        }
}

void searchFine(const FieldPicture& a, const FieldPicture& b, const MotionField& coarse, const MotionField* previous,
                MotionField& fine, int from, int to)
{
    for (int row = from; row < to; ++row)
        for (int column = 0; column < fine.columns; ++column) {
            const int x = column * blockSize, y = row * blockSize;
            const std::size_t at = static_cast<std::size_t>(row * fine.columns + column);
            // No motion first: where it matches perfectly (a still picture)
            // nothing can do better.
            Best best{{}, ~0u, 0};
            consider(a.luma, b.luma, x, y, {}, best);
            if (best.cost == 0) {
                fine.vectors[at] = {};
                fine.costs[at] = 0;
                continue;
            }
            const int cx = column / 2, cy = row / 2;
            // No motion, then the area's neighbours on the block's side.
            const int sx = column & 1 ? 1 : -1, sy = row & 1 ? 1 : -1;
            MotionVector starts[7] = {
                {}, coarse.at(cx, cy), coarse.at(cx + sx, cy), coarse.at(cx, cy + sy), coarse.at(cx + sx, cy + sy)};
            int count = 5;
            if (previous) {
                const MotionVector& p = previous->at(column, row);
                starts[count++] = {p.x & ~1, p.y & ~1};
            }
            if (column > 0) {
                const MotionVector& left = fine.at(column - 1, row);
                starts[count++] = {left.x & ~1, left.y & ~1};
            }
            considerOnce(a.luma, b.luma, x, y, starts, count, 1, best);
            refine(a.luma, b.luma, x, y, 2, 3, best);
            refine(a.luma, b.luma, x, y, 1, 1, best);
            fine.vectors[at] = best.v;
            fine.costs[at] = best.difference;
        }
}
