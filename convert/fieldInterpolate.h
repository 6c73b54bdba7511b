// Motion-compensated interpolation of one field between two fields of the
// same parity, at a fraction of the way from the earlier (a) to the later (b).
#pragma once

#include <cstdint>

#include "convert/fieldPlanes.h"
#include "convert/motionSearch.h"

// The fraction num / den of the way from a to b, 0 <= num; beyond b (num > den)
// only at the end of the input.
struct Fraction {
    int64_t num;
    int64_t den;
};

// For each 8 x 8 block of the field to be made, the vector through it: the
// one of the search's vectors near it (and of the block it comes from) whose
// two ends, in a and in b, agree best. Block rows [from, to).
void chooseVectors(const FieldPicture& a, const FieldPicture& b, const MotionField& searched, Fraction at,
                   MotionField& chosen, int from, int to);

// Field lines [from, to) of the field at `at`, written as YUV 4:2:2 words
// into frame line 2 * y + parity of a frame width / 2 words wide (any byte).
void interpolateLines(const FieldPicture& a, const FieldPicture& b, const MotionField& chosen, Fraction at,
                      uint8_t* frame, int width, int parity, int from, int to);
