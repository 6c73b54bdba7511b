// Block motion search between two fields of the same parity: for every
// 8 x 8 block of the earlier field, the displacement (in half pixels) that
// finds it in the later one. A full search on the quartered luma gives one
// vector per 16 x 16 area; each block then tries those of its area and its
// neighbours, its own vector of the previous pair, its left neighbour's and
// no motion, refines the best by whole and then half pixels.
#pragma once

#include <cstdint>
#include <vector>

#include "convert/fieldPlanes.h"

struct MotionVector {
    int x = 0;  // half pixels
    int y = 0;  // half field lines
    bool operator==(const MotionVector& o) const { return x == o.x && y == o.y; }
    bool operator!=(const MotionVector& o) const { return !(*this == o); }
};

struct MotionField {
    int columns = 0;
    int rows = 0;
    std::vector<MotionVector> vectors;
    std::vector<unsigned> costs;  // the block's difference at its vector
    const MotionVector& at(int column, int row) const
    {
        column = column < 0 ? 0 : (column >= columns ? columns - 1 : column);
        row = row < 0 ? 0 : (row >= rows ? rows - 1 : row);
        return vectors[static_cast<std::size_t>(row * columns + column)];
    }
};

constexpr int blockSize = 8;
constexpr int areaSize = 16;

// Sizes the fields for a luma plane of width x height.
void shapeMotion(MotionField& coarse, MotionField& fine, int width, int height);

// Coarse vectors of area rows [from, to), in half pixels.
void searchCoarse(const FieldPicture& a, const FieldPicture& b, MotionField& coarse, int from, int to);

// Block vectors of block rows [from, to); previous may be null.
void searchFine(const FieldPicture& a, const FieldPicture& b, const MotionField& coarse, const MotionField* previous,
                MotionField& fine, int from, int to);

// Vectors are kept short enough for every read to stay in the planes' border.
constexpr int maxVectorX = 2 * 36;
constexpr int maxVectorY = 2 * 18;
