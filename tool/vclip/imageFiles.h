// Picture files written by vclip: PNG (24-bit RGB, compressed by libpng; a
// build without libpng, as a cross build is, writes it uncompressed), binary
// PPM, and 24-bit BMP. The
// encoders give the file's bytes; the caller decides where they go.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tool/vclip/pictures.h"

enum class ImageKind { None, Png, Ppm, Bmp };

std::vector<uint8_t> encodePpm(const RgbImage& image);
std::vector<uint8_t> encodeBmp(const RgbImage& image);
// The picture's file bytes; false after an error line (libpng failed).
bool encodeImage(ImageKind kind, const RgbImage& image, std::vector<uint8_t>& bytes);

// A name for each frame of a sequence, made from a printf-style pattern
// with exactly one decimal conversion and no other '%': "f%04d.png",
// "f%d.png", "f%6d.png" (the padding is spaces then, as printf pads).
struct SequenceName {
    std::string before, after;
    int width = 0;
    bool zeros = false;
    std::string Of(int frame) const;
};
bool parseSequenceName(const std::string& pattern, SequenceName& name, std::string& why);

// The kind a file name asks for by its ending: .png, .ppm or .bmp (any
// case); None for any other name.
ImageKind imageKindOf(const std::string& path);

// Whether a file that starts with `head` is a picture of this kind (its
// signature: PNG's eight bytes, P6 or P3 and a blank for PPM, BM for BMP).
bool startsAsImage(ImageKind kind, const std::string& head);
