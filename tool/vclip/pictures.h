// Picture work of vclip: test pictures, and turning the store's frames into
// RGB for viewing. Packed 4:2:2 frames are lines of (width >> 1) four-byte
// groups Cb Y0 Cr Y1, top line first; reduced frames are 24-bit B, G, R
// pixels, bottom line first. Samples are 8-bit, BT.601 studio range.
#pragma once

#include <cstdint>
#include <vector>

// Top-down RGB picture, three bytes per pixel in the order R, G, B.
struct RgbImage {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> rgb;
};

// Bytes of one packed 4:2:2 picture.
inline int64_t yuv422Bytes(int width, int height) { return int64_t{width >> 1} * 4 * height; }

// 75% colour bars over three quarters of the height, a luma ramp below, and
// a white box that stands at one place in the even lines and further right
// in the odd lines (the later field), moving on from frame to frame: a
// conversion that mixes the fields shows it as a double edge.
void makeBars(uint8_t* frame, int width, int height, int frameIndex);

// Left edge of the moving box in the even and in the odd lines of a frame.
int barsBoxLeft(int width, int frameIndex, bool oddLine);

void yuv422ToRgb(const uint8_t* frame, int width, int height, RgbImage& out);
void bgrBottomUpToRgb(const uint8_t* frame, int width, int height, RgbImage& out);

// Planar 4:2:2 (a Y plane of width x height, then Cb and Cr planes of
// width / 2 x height) to and from packed words. The width is even.
void planarToPacked(const uint8_t* planes, int width, int height, uint8_t* packed);
void packedToPlanar(const uint8_t* packed, int width, int height, uint8_t* planes);
