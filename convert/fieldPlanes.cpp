#include "convert/fieldPlanes.h"

#include <cstring>

#include "convert/fieldRateKernels.h"

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
void halve(const FieldRateKernels& kernels, const Plane& from, Plane& to)
{
    for (int y = 0; y < to.height; ++y)
        kernels.halve(from.row(2 * y), from.row(2 * y + 1), to.width, to.row(y));
    to.extendBorders();
}

}  // namespace

void takeField(const FrameBytes& frame, int width, int lines, int parity, FieldPicture& field)
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
    const FieldRateKernels& kernels = fieldRateKernels();
    const auto chromaBytes = static_cast<std::size_t>(words);
    for (int y = 0; y < fieldLines; ++y) {
        const auto line = static_cast<std::ptrdiff_t>(2 * y + parity);
        if (frame.packed) {
            kernels.unpack(frame.packed + line * words * 4, words, field.luma.row(y), field.cb.row(y), field.cr.row(y));
        } else {
            std::memcpy(field.luma.row(y), frame.luma + line * words * 2, 2 * chromaBytes);
            std::memcpy(field.cb.row(y), frame.cb + line * words, chromaBytes);
            std::memcpy(field.cr.row(y), frame.cr + line * words, chromaBytes);
        }
    }
    field.luma.extendBorders();
    field.cb.extendBorders();
    field.cr.extendBorders();
    halve(kernels, field.luma, field.half);
    halve(kernels, field.half, field.quarter);
}
