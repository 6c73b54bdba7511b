#include "convert/fieldPlanes.h"

#include <cstring>

void Plane::allocate(int w, int h)
{
    width = w;
    height = h;
    stride = w + 2 * padX;
    // The bytes after the last line are for vector kernels that read whole
    // vectors past a line's end.
    data.assign(static_cast<std::size_t>(stride) * static_cast<std::size_t>(h + 2 * padY) + 64, 0);
}

void Plane::extendBorders()
{
    for (int y = 0; y < height; ++y) {
        uint8_t* line = row(y);
        std::memset(line - padX, line[0], padX);
        std::memset(line + width, line[width - 1], padX);
    }
    const std::size_t bytes = static_cast<std::size_t>(stride);
    for (int y = 1; y <= padY; ++y) {
        std::memcpy(row(-y) - padX, row(0) - padX, bytes);
        std::memcpy(row(height - 1 + y) - padX, row(height - 1) - padX, bytes);
    }
}

namespace {

// Each sample of `to` the rounded mean of a 2 x 2 square of `from`.
void halve(const Plane& from, Plane& to)
{
    for (int y = 0; y < to.height; ++y) {
        const uint8_t* a = from.row(2 * y);
        const uint8_t* b = from.row(2 * y + 1);
        uint8_t* out = to.row(y);
        for (int x = 0; x < to.width; ++x)
            out[x] = static_cast<uint8_t>((a[2 * x] + a[2 * x + 1] + b[2 * x] + b[2 * x + 1] + 2) >> 2);
    }
    to.extendBorders();
}

}  // namespace

void takeField(const uint8_t* frame, int width, int lines, int parity, FieldPicture& field)
{
    const int words = width >> 1;
    const int fieldLines = lines >> 1;
    if (field.luma.width != 2 * words || field.luma.height != fieldLines) {
        field.luma.allocate(2 * words, fieldLines);
        field.cb.allocate(words, fieldLines);
        field.cr.allocate(words, fieldLines);
        field.half.allocate(words, fieldLines / 2);
        field.quarter.allocate(words / 2, fieldLines / 4);
    }
    for (int y = 0; y < fieldLines; ++y) {
        const uint8_t* in = frame + static_cast<std::ptrdiff_t>(2 * y + parity) * words * 4;
        uint8_t* luma = field.luma.row(y);
        uint8_t* cb = field.cb.row(y);
        uint8_t* cr = field.cr.row(y);
        for (int i = 0; i < words; ++i, in += 4) {
            cb[i] = in[0];
            luma[2 * i] = in[1];
            cr[i] = in[2];
            luma[2 * i + 1] = in[3];
        }
    }
    field.luma.extendBorders();
    field.cb.extendBorders();
    field.cr.extendBorders();
    halve(field.luma, field.half);
    halve(field.half, field.quarter);
}
