#include "tool/vclip/pictures.h"

#include <algorithm>
#include <cmath>

#include "convert/fieldRateKernels.h"

namespace {

struct Yuv {
    uint8_t y, cb, cr;
};

// Studio-range BT.601 sample of an RGB colour given in 0..1.
Yuv studio(double r, double g, double b)
{
    const double luma = 0.299 * r + 0.587 * g + 0.114 * b;
    auto byte = [](double v) { return static_cast<uint8_t>(std::lround(std::clamp(v, 0.0, 255.0))); };
    return {byte(16 + 219 * luma), byte(128 + 224 * (b - luma) / 1.772), byte(128 + 224 * (r - luma) / 1.402)};
}

uint8_t clampByte(int v) { return static_cast<uint8_t>(std::clamp(v, 0, 255)); }

}  // namespace

int barsBoxLeft(int width, int frameIndex, bool oddLine)
{
    const int boxWidth = std::max(2, std::min(64, width / 4)) & ~1;
    const int travel = std::max(2, width - boxWidth - 16) & ~1;
    const int left = (frameIndex * 16) % travel;
    return oddLine ? left + 8 : left;
}

void makeBars(uint8_t* frame, int width, int height, int frameIndex)
{
    static const double kBars[8][3] = {{1, 1, 1}, {1, 1, 0}, {0, 1, 1}, {0, 1, 0},
                                       {1, 0, 1}, {1, 0, 0}, {0, 0, 1}, {0, 0, 0}};
    Yuv bars[8];
    for (int i = 0; i < 8; ++i)
        bars[i] = studio(0.75 * kBars[i][0], 0.75 * kBars[i][1], 0.75 * kBars[i][2]);

    const int pairs = width >> 1;
    const int barsEnd = height * 3 / 4;
    const int boxTop = height / 2 - height / 8;
    const int boxBottom = height / 2 + height / 8;
    const int boxWidth = std::max(2, std::min(64, width / 4)) & ~1;
    for (int line = 0; line < height; ++line) {
        uint8_t* out = frame + int64_t{line} * pairs * 4;
        const int boxLeft = barsBoxLeft(width, frameIndex, line & 1);
        for (int p = 0; p < pairs; ++p) {
            const int x = 2 * p;
            uint8_t y0, y1, cb = 128, cr = 128;
            if (line < barsEnd) {
                const Yuv& c = bars[std::min(7, x * 8 / width)];
                const Yuv& c1 = bars[std::min(7, (x + 1) * 8 / width)];
                y0 = c.y;
                y1 = c1.y;
                cb = c.cb;
                cr = c.cr;
            } else {
                y0 = static_cast<uint8_t>(16 + 219 * x / std::max(1, width - 1));
                y1 = static_cast<uint8_t>(16 + 219 * (x + 1) / std::max(1, width - 1));
            }
            if (line >= boxTop && line < boxBottom && x >= boxLeft && x < boxLeft + boxWidth) {
                y0 = y1 = 235;
                cb = cr = 128;
            }
            out[4 * p + 0] = cb;
            out[4 * p + 1] = y0;
            out[4 * p + 2] = cr;
            out[4 * p + 3] = y1;
        }
    }
}

void yuv422ToRgb(const uint8_t* frame, int width, int height, RgbImage& out)
{
    out.width = width & ~1;
    out.height = height;
    out.rgb.assign(static_cast<size_t>(out.width) * height * 3, 0);
    const int pairs = width >> 1;
    for (int line = 0; line < height; ++line) {
        const uint8_t* in = frame + int64_t{line} * pairs * 4;
        uint8_t* px = out.rgb.data() + static_cast<size_t>(line) * out.width * 3;
        for (int p = 0; p < pairs; ++p) {
            const int d = in[4 * p] - 128, e = in[4 * p + 2] - 128;
            for (int k = 0; k < 2; ++k) {
                const int c = in[4 * p + 1 + 2 * k] - 16;
                *px++ = clampByte((298 * c + 409 * e + 128) >> 8);
                *px++ = clampByte((298 * c - 100 * d - 208 * e + 128) >> 8);
                *px++ = clampByte((298 * c + 516 * d + 128) >> 8);
            }
        }
    }
}

void bgrBottomUpToRgb(const uint8_t* frame, int width, int height, RgbImage& out)
{
    out.width = width;
    out.height = height;
    out.rgb.resize(static_cast<size_t>(width) * height * 3);
    for (int line = 0; line < height; ++line) {
        const uint8_t* in = frame + int64_t{height - 1 - line} * width * 3;
        uint8_t* px = out.rgb.data() + static_cast<size_t>(line) * width * 3;
        for (int x = 0; x < width; ++x) {
            px[3 * x + 0] = in[3 * x + 2];
            px[3 * x + 1] = in[3 * x + 1];
            px[3 * x + 2] = in[3 * x + 0];
        }
    }
}

// Planes and words hold their lines one after another: a whole frame goes
// through the field-rate kernels' line packing as one long line.
void planarToPacked(const uint8_t* planes, int width, int height, uint8_t* packed)
{
    const size_t lumaSize = static_cast<size_t>(width) * static_cast<size_t>(height);
    fieldRateKernels().pack(planes, planes + lumaSize, planes + lumaSize + lumaSize / 2, static_cast<int>(lumaSize / 2),
                            packed);
}

void packedToPlanar(const uint8_t* packed, int width, int height, uint8_t* planes)
{
    const size_t lumaSize = static_cast<size_t>(width) * static_cast<size_t>(height);
    fieldRateKernels().unpack(packed, static_cast<int>(lumaSize / 2), planes, planes + lumaSize,
                              planes + lumaSize + lumaSize / 2);
}
