// Field pictures for motion work: one field of a YUV 4:2:2 frame taken apart
// into a luma plane and two chroma planes (half the width), with the luma
// halved and quartered for the coarse search. Every plane carries a border
// of repeated edge pixels wide enough for the longest vector, so that no
// read near the picture's edge needs a check.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

struct Plane {
    static constexpr int padX = 64;
    static constexpr int padY = 32;

    int width = 0;
    int height = 0;
    std::ptrdiff_t stride = 0;
    std::vector<uint8_t> data;

    void allocate(int w, int h);
    uint8_t* row(int y) { return data.data() + (y + padY) * stride + padX; }
    const uint8_t* row(int y) const { return data.data() + (y + padY) * stride + padX; }
    // Fills the border from the picture's edge pixels.
    void extendBorders();
};

struct FieldPicture {
    Plane luma;
    Plane cb;
    Plane cr;
    Plane half;     // luma, 2 x 2 averages
    Plane quarter;  // luma, 4 x 4 averages
};

// A YUV 4:2:2 frame as it comes: either `packed`, lines of width / 2 words
// (bytes cb, luma, cr, luma), or three planes, lines of width luma bytes and
// of width / 2 cb and cr bytes. Each may lie at any byte.
struct FrameBytes {
    const uint8_t* packed = nullptr;
    const uint8_t* luma = nullptr;
    const uint8_t* cb = nullptr;
    const uint8_t* cr = nullptr;
};

// Takes field `parity` (0: lines 0, 2, 4 ...; 1: lines 1, 3, 5 ...) of a frame
// of `lines` lines apart.
void takeField(const FrameBytes& frame, int width, int lines, int parity, FieldPicture& field);
