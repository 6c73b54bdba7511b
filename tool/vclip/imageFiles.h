// Picture files written by vclip, with no library beyond the C++ one:
// PNG (24-bit RGB, zlib stored blocks), binary PPM, and 24-bit BMP. The
// encoders give the file's bytes; the caller decides where they go.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tool/vclip/pictures.h"

enum class ImageKind { None, Png, Ppm, Bmp };

uint32_t crc32(const uint8_t* data, size_t size, uint32_t crc = 0);
uint32_t adler32(const uint8_t* data, size_t size, uint32_t adler = 1);

std::vector<uint8_t> encodePng(const RgbImage& image);
std::vector<uint8_t> encodePpm(const RgbImage& image);
std::vector<uint8_t> encodeBmp(const RgbImage& image);
std::vector<uint8_t> encodeImage(ImageKind kind, const RgbImage& image);

// The kind a file name asks for by its ending: .png, .ppm or .bmp (any
// case); None for any other name.
ImageKind imageKindOf(const std::string& path);

// Whether a file that starts with `head` is a picture of this kind (its
// signature: PNG's eight bytes, P6 or P3 and a blank for PPM, BM for BMP).
bool startsAsImage(ImageKind kind, const std::string& head);
