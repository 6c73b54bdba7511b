#include "tool/vclip/imageFiles.h"

#include <algorithm>
#include <cctype>
#include <vector>

#ifdef VCLIP_HAVE_PNG
#include <png.h>
#endif

#include "tool/vclip/messages.h"

namespace {

void putLittle(std::vector<uint8_t>& out, uint32_t v, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        out.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

#ifdef VCLIP_HAVE_PNG
void appendToVector(png_structp png, png_bytep data, png_size_t length)
{
    auto* out = static_cast<std::vector<uint8_t>*>(png_get_io_ptr(png));
    out->insert(out->end(), data, data + length);
}

// libpng reports errors by jumping back here; nothing in this function
// owns anything across the jump.
bool pngInto(png_structp png, png_infop info, const RgbImage& image, png_bytep* rows, std::vector<uint8_t>& out)
{
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_set_write_fn(png, &out, appendToVector, nullptr);
    png_set_IHDR(png, info, static_cast<png_uint_32>(image.width), static_cast<png_uint_32>(image.height), 8,
                 PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_rows(png, info, rows);
    png_write_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    return true;
}

bool encodePng(const RgbImage& image, std::vector<uint8_t>& out)
{
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
    std::vector<png_bytep> rows(static_cast<size_t>(image.height));
    const size_t row = static_cast<size_t>(image.width) * 3;
    for (size_t y = 0; y < rows.size(); ++y)
        rows[y] = const_cast<png_bytep>(image.rgb.data() + y * row);
    const bool done = info != nullptr && pngInto(png, info, image, rows.data(), out);
    png_destroy_write_struct(&png, &info);
    return done || report("libpng could not make the picture");
}
#else
// Without libpng (a cross build): PNG in stored, uncompressed deflate
// blocks, which every reader takes.
void putBig32(std::vector<uint8_t>& out, uint32_t v)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        out.push_back(static_cast<uint8_t>(v >> shift));
}

uint32_t crc32(const uint8_t* data, size_t size, uint32_t crc = 0)
{
    static const auto table = [] {
        std::vector<uint32_t> t(256);
        for (uint32_t n = 0; n < 256; ++n) {
            uint32_t c = n;
            for (int k = 0; k < 8; ++k)
                c = c & 1 ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            t[n] = c;
        }
        return t;
    }();
    crc = ~crc;
    for (size_t i = 0; i < size; ++i)
        crc = table[(crc ^ data[i]) & 0xFF] ^ (crc >> 8);
    return ~crc;
}

uint32_t adler32(const uint8_t* data, size_t size, uint32_t adler = 1)
{
    uint32_t a = adler & 0xFFFF, b = adler >> 16;
    for (size_t i = 0; i < size; ++i) {
        a = (a + data[i]) % 65521;
        b = (b + a) % 65521;
    }
    return (b << 16) | a;
}

void appendChunk(std::vector<uint8_t>& png, const char type[4], const std::vector<uint8_t>& body)
{
    putBig32(png, static_cast<uint32_t>(body.size()));
    const size_t typeAt = png.size();
    png.insert(png.end(), type, type + 4);
    png.insert(png.end(), body.begin(), body.end());
    putBig32(png, crc32(png.data() + typeAt, png.size() - typeAt));
}

bool encodePng(const RgbImage& image, std::vector<uint8_t>& png)
{
    // Scanlines, each after its filter byte (0: none).
    const size_t row = static_cast<size_t>(image.width) * 3;
    std::vector<uint8_t> raw;
    raw.reserve((row + 1) * image.height);
    for (int y = 0; y < image.height; ++y) {
        raw.push_back(0);
        raw.insert(raw.end(), image.rgb.begin() + y * row, image.rgb.begin() + (y + 1) * row);
    }

    // zlib stream of stored (uncompressed) deflate blocks.
    std::vector<uint8_t> z{0x78, 0x01};
    size_t at = 0;
    do {
        const size_t len = std::min<size_t>(65535, raw.size() - at);
        const bool last = at + len == raw.size();
        z.push_back(last ? 1 : 0);
        putLittle(z, static_cast<uint32_t>(len), 2);
        putLittle(z, static_cast<uint32_t>(~len & 0xFFFF), 2);
        z.insert(z.end(), raw.begin() + at, raw.begin() + at + len);
        at += len;
    } while (at < raw.size());
    putBig32(z, adler32(raw.data(), raw.size()));

    png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    std::vector<uint8_t> ihdr;
    putBig32(ihdr, static_cast<uint32_t>(image.width));
    putBig32(ihdr, static_cast<uint32_t>(image.height));
    ihdr.insert(ihdr.end(), {8, 2, 0, 0, 0});  // 8 bits, RGB, deflate, no filter set, no interlace
    appendChunk(png, "IHDR", ihdr);
    appendChunk(png, "IDAT", z);
    appendChunk(png, "IEND", {});
    return true;
}
#endif

}  // namespace

std::vector<uint8_t> encodePpm(const RgbImage& image)
{
    const std::string head = "P6\n" + std::to_string(image.width) + " " + std::to_string(image.height) + "\n255\n";
    std::vector<uint8_t> ppm(head.begin(), head.end());
    ppm.insert(ppm.end(), image.rgb.begin(), image.rgb.end());
    return ppm;
}

std::vector<uint8_t> encodeBmp(const RgbImage& image)
{
    const uint32_t row = static_cast<uint32_t>(image.width) * 3;
    const uint32_t stride = (row + 3) & ~3u;
    const uint32_t pixels = stride * static_cast<uint32_t>(image.height);
    std::vector<uint8_t> bmp{'B', 'M'};
    putLittle(bmp, 54 + pixels, 4);
    putLittle(bmp, 0, 4);
    putLittle(bmp, 54, 4);
    putLittle(bmp, 40, 4);  // BITMAPINFOHEADER
    putLittle(bmp, static_cast<uint32_t>(image.width), 4);
    putLittle(bmp, static_cast<uint32_t>(image.height), 4);  // positive: bottom line first
    putLittle(bmp, 1, 2);
    putLittle(bmp, 24, 2);
    putLittle(bmp, 0, 4);  // no compression
    putLittle(bmp, pixels, 4);
    putLittle(bmp, 2835, 4);  // 72 dpi
    putLittle(bmp, 2835, 4);
    putLittle(bmp, 0, 4);
    putLittle(bmp, 0, 4);
    for (int y = image.height - 1; y >= 0; --y) {
        const uint8_t* px = image.rgb.data() + static_cast<size_t>(y) * row;
        for (int x = 0; x < image.width; ++x) {
            bmp.push_back(px[3 * x + 2]);
            bmp.push_back(px[3 * x + 1]);
            bmp.push_back(px[3 * x + 0]);
        }
        bmp.insert(bmp.end(), stride - row, 0);
    }
    return bmp;
}

bool encodeImage(ImageKind kind, const RgbImage& image, std::vector<uint8_t>& bytes)
{
    if (kind == ImageKind::Png)
        return encodePng(image, bytes);
    bytes = kind == ImageKind::Ppm ? encodePpm(image) : encodeBmp(image);
    return true;
}

ImageKind imageKindOf(const std::string& path)
{
    std::string ending = path.size() >= 4 ? path.substr(path.size() - 4) : "";
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (ending == ".png")
        return ImageKind::Png;
    if (ending == ".ppm")
        return ImageKind::Ppm;
    if (ending == ".bmp")
        return ImageKind::Bmp;
    return ImageKind::None;
}

bool startsAsImage(ImageKind kind, const std::string& head)
{
    switch (kind) {
    case ImageKind::Png:
        return head.compare(0, 8, std::string("\x89PNG\r\n\x1A\n", 8)) == 0;
    case ImageKind::Ppm:
        return head.size() >= 3 && head[0] == 'P' && (head[1] == '6' || head[1] == '3') &&
               std::isspace(static_cast<unsigned char>(head[2]));
    case ImageKind::Bmp:
        return head.compare(0, 2, "BM") == 0;
    default:
        return false;
    }
}

std::string SequenceName::Of(int frame) const
{
    const std::string number = std::to_string(frame);
    const size_t pad = static_cast<size_t>(width) > number.size() ? static_cast<size_t>(width) - number.size() : 0;
    return before + std::string(pad, zeros ? '0' : ' ') + number + after;
}

bool parseSequenceName(const std::string& pattern, SequenceName& name, std::string& why)
{
    const size_t at = pattern.find('%');
    size_t end = at + 1;
    name.zeros = at != std::string::npos && pattern.compare(end, 1, "0") == 0;
    end += name.zeros ? 1 : 0;
    size_t digits = end;
    while (digits < pattern.size() && std::isdigit(static_cast<unsigned char>(pattern[digits])))
        ++digits;
    if (at == std::string::npos || digits - end > 2 || pattern.compare(digits, 1, "d") != 0 ||
        pattern.find('%', digits) != std::string::npos) {
        why = "a sequence needs a name with exactly one %d, %Nd or %0Nd (N up to 99) and no other '%', "
              "as f%04d.png";
        return false;
    }
    name.width = digits > end ? std::stoi(pattern.substr(end, digits - end)) : 0;
    name.before = pattern.substr(0, at);
    name.after = pattern.substr(digits + 1);
    return true;
}
