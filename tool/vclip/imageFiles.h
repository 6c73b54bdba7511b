// Picture files written by vclip, with no library beyond the C++ one:
// PNG (24-bit RGB, zlib stored blocks), binary PPM, and 24-bit BMP.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "tool/vclip/pictures.h"

uint32_t crc32(const uint8_t* data, size_t size, uint32_t crc = 0);
uint32_t adler32(const uint8_t* data, size_t size, uint32_t adler = 1);

// Each returns false with errno set when the file cannot be written.
bool writePng(const std::string& path, const RgbImage& image);
bool writePpm(const std::string& path, const RgbImage& image);
bool writeBmp(const std::string& path, const RgbImage& image);

// Writes by the file name's ending: .png, .ppm or .bmp (any case). An
// unknown ending gives false with errno EINVAL.
bool writeImage(const std::string& path, const RgbImage& image);
