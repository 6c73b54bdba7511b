// Further reductions, aspect corrections and enlargements of RGB images.
//
// 32-bit images hold one pixel per word. The filters here treat the four
// lanes of a word alike (lane averages, quarter-weight blends, lane sums), so
// they work on whole words and give the same bytes in memory on any machine.
// Operations that tell the bytes of a pixel apart (24-bit repacking, alpha)
// work on the bytes in memory order instead. A source image may start at any
// byte, so its words are read with loadWord; the results come from newMem,
// aligned for words.
//
// Every operation allocates its result with newMem. A size that does not fit
// in an int, or an allocator that has nothing left, gives a null image; the
// worker never runs on a null destination. An image too small for one output
// pixel gives an empty (zero-byte) image.
#include "image/quart.h"
#include "image/pixelOps.h"
#include "util/wordAccess.h"

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

// Quarter-weight blend: a - a/4 + b/4 per lane, both quarters truncated.
// Every lane of a is at least its own quarter, so nothing borrows or carries.
constexpr uint32_t quarterBlend(uint32_t a, uint32_t b)
{
    return a - ((a & 0xFCFCFCFCu) >> 2) + ((b & 0xFCFCFCFCu) >> 2);
}

// Lane average of two single bytes, the earlier one rounded up.
constexpr unsigned char byteAverage(unsigned a, unsigned b)
{
    return static_cast<unsigned char>((a >> 1) + (b >> 1) + (a & 1u));
}

// Pixels of a w x h image, 0 when either side is empty or negative.
int64_t pixelCount(int64_t w, int64_t h) { return (w <= 0 || h <= 0) ? 0 : w * h; }

// A new image of `pixels` pixels of `bytesPerPixel` bytes, or null.
void* newImage(int64_t pixels, int bytesPerPixel)
{
    if (pixels > INT_MAX / bytesPerPixel)
        return nullptr;
    return newMem(static_cast<int>(pixels * bytesPerPixel));
}

uint32_t* newImage32(int64_t pixels) { return static_cast<uint32_t*>(newImage(pixels, 4)); }

// Per-lane sums over a block of pixels. Lanes are taken from the word's value
// and put back the same way, so the byte order never shows.
struct LaneSums {
    uint32_t lane[4] = {0, 0, 0, 0};

    void add(uint32_t p)
    {
        for (int i = 0; i < 4; ++i)
            lane[i] += (p >> (8 * i)) & 0xFFu;
    }
    uint32_t divided(uint32_t divisor) const
    {
        uint32_t w = 0;
        for (int i = 0; i < 4; ++i)
            w |= (lane[i] / divisor) << (8 * i);
        return w;
    }
};

// 24-bit images travel in the word-pointer field but may start at any byte.
unsigned char* bytesOf(uint32_t* p) { return reinterpret_cast<unsigned char*>(p); }

// Centring skip of the quarter reductions: the rows or columns left over by
// a 4-step are shared between the two edges.
int quarterSkip(int size)
{
    const int r = size % 4;
    return (r == 2 || r == 3) ? 1 : 0;
}

// The aspect corrections' walk: every line's whole groups of `in` pixels,
// centred (the pixels left over are shared between the two edges), each
// made into `out` pixels by group(first source pixel, first output pixel,
// whether it is the line's last group).
template <class Group>
void regroupLines(const uint32_t* source, uint32_t* destination, int width, int height, int in, int out, Group group)
{
    const int groups = width / in;
    const int skip = (width % in) / 2;
    const ptrdiff_t outW = out * static_cast<ptrdiff_t>(groups);
    for (int k = 0; k < height; ++k) {
        const uint32_t* s = source + static_cast<ptrdiff_t>(k) * width + skip;
        uint32_t* d = destination + k * outW;
        for (int g = 0; g < groups; ++g, s += in, d += out)
            group(s, d, g + 1 == groups);
    }
}

}  // namespace

// The static workers: each runs the member worker of its name on the job.
void quart::zoomtoquartPart(void* job, int part, int parts) { static_cast<quart*>(job)->zoomtoquartPart(part, parts); }
void quart::zoomtohalfPart(void* job, int part, int parts) { static_cast<quart*>(job)->zoomtohalfPart(part, parts); }
void quart::zoomtohalfXPart(void* job, int part, int parts) { static_cast<quart*>(job)->zoomtohalfXPart(part, parts); }
void quart::zoomtohalfYPart(void* job, int part, int parts) { static_cast<quart*>(job)->zoomtohalfYPart(part, parts); }
void quart::zoomtohalf24Part(void* job, int part, int parts)
{
    static_cast<quart*>(job)->zoomtohalf24Part(part, parts);
}
void quart::zoomtohalf24N4Part(void* job, int part, int parts)
{
    static_cast<quart*>(job)->zoomtohalf24N4Part(part, parts);
}
void quart::correctNtscRatioPart(void* job, int part, int parts)
{
    static_cast<quart*>(job)->correctNtscRatioPart(part, parts);
}
void quart::scaleXFourThirds(void* job, int part, int parts)
{
    static_cast<quart*>(job)->scaleXFourThirds(part, parts);
}
void quart::zoomUpPart(void* job, int part, int parts) { static_cast<quart*>(job)->zoomUpPart(part, parts); }

// ---------------------------------------------------------------------------
// Quarter and half reductions by trees of lane averages
// ---------------------------------------------------------------------------

// Runs an operation that makes a new 32-bit image of outPixels pixels: stores
// the job, with the source `skip` words in, allocates the output and runs
// the worker when it has work to do. Returns the new image, null when there
// is no source or no memory.
uint32_t* quart::runImageJob(uint32_t* src, int w, int h, int64_t outPixels, void (*worker)(void*, int, int),
                             ptrdiff_t skip)
{
    width = w;
    height = h;
    source = src;
    destination = src ? newImage32(outPixels) : nullptr;
    if (destination && outPixels != 0) {
        source = src + skip;
        worker(this, 0, 1);
    }
    return destination;
}

uint32_t* quart::zoomtoquart(uint32_t* src, int w, int h)
{
    const ptrdiff_t skip = static_cast<ptrdiff_t>(quarterSkip(h)) * w + quarterSkip(w);
    return runImageJob(src, w, h, pixelCount(w >> 2, h >> 2), &zoomtoquartPart, skip);
}

void quart::zoomtoquartPart(int, int)
{
    const int outW = width >> 2;
    const int outH = height >> 2;
    const ptrdiff_t stride = width;
    // Words c to c + 3 of a line, averaged pairwise, then the pairs.
    auto fourOf = [](const uint32_t* line, int c) {
        return laneAverage(laneAverage(loadWord(line + c), loadWord(line + c + 1)),
                           laneAverage(loadWord(line + c + 2), loadWord(line + c + 3)));
    };
    for (int k = 0; k < outH; ++k) {
        const uint32_t* l0 = source + 4 * k * stride;
        const uint32_t* l1 = l0 + stride;
        const uint32_t* l2 = l1 + stride;
        const uint32_t* l3 = l2 + stride;
        uint32_t* out = destination + static_cast<ptrdiff_t>(k) * outW;
        for (int j = 0; j < outW; ++j) {
            const int c = 4 * j;
            const uint32_t a0 = fourOf(l0, c), a1 = fourOf(l1, c), a2 = fourOf(l2, c), a3 = fourOf(l3, c);
            out[j] = laneAverage(laneAverage(a0, a1), laneAverage(a2, a3));
        }
    }
}

uint32_t* quart::zoomtohalf(uint32_t* src, int w, int h)
{
    return runImageJob(src, w, h, pixelCount(w >> 1, h >> 1), &zoomtohalfPart);
}

void quart::zoomtohalfPart(int, int)
{
    const int outW = width >> 1;
    const int outH = height >> 1;
    const ptrdiff_t stride = width;
    for (int k = 0; k < outH; ++k) {
        const uint32_t* upper = source + 2 * k * stride;
        const uint32_t* lower = upper + stride;
        uint32_t* out = destination + static_cast<ptrdiff_t>(k) * outW;
        for (int j = 0; j < outW; ++j)
            out[j] = laneAverage(laneAverage(loadWord(upper + 2 * j), loadWord(upper + 2 * j + 1)),
                                 laneAverage(loadWord(lower + 2 * j), loadWord(lower + 2 * j + 1)));
    }
}

uint32_t* quart::zoomtohalfX(uint32_t* src, int w, int h)
{
    return runImageJob(src, w, h, pixelCount(w >> 1, h), &zoomtohalfXPart);
}

void quart::zoomtohalfXPart(int, int)
{
    const int outW = width >> 1;
    for (int k = 0; k < height; ++k) {
        const uint32_t* in = source + static_cast<ptrdiff_t>(k) * width;
        uint32_t* out = destination + static_cast<ptrdiff_t>(k) * outW;
        for (int j = 0; j < outW; ++j)
            out[j] = laneAverage(loadWord(in + 2 * j), loadWord(in + 2 * j + 1));
    }
}

uint32_t* quart::zoomtohalfY(uint32_t* src, int w, int h)
{
    return runImageJob(src, w, h, pixelCount(w, h >> 1), &zoomtohalfYPart);
}

void quart::zoomtohalfYPart(int, int)
{
    const int outH = height >> 1;
    const ptrdiff_t stride = width;
    for (int k = 0; k < outH; ++k) {
        const uint32_t* upper = source + 2 * k * stride;
        const uint32_t* lower = upper + stride;
        uint32_t* out = destination + k * stride;
        for (int j = 0; j < width; ++j)
            out[j] = laneAverage(loadWord(upper + j), loadWord(lower + j));
    }
}

// ---------------------------------------------------------------------------
// 24-bit half and quarter reductions
// ---------------------------------------------------------------------------

// The word path takes whole runs of 8 pixels (six words) from a word-aligned
// start; anything else goes byte by byte. The two round differently (a tree
// of lane averages against a rounded mean of four), so the choice depends on
// nothing but the width and the address.
uint32_t* quart::zoomtohalf24(uint32_t* src, int w, int h)
{
    if (!src)
        return nullptr;
    width = w;
    height = h;
    source = src;
    const int64_t pixels = pixelCount(w >> 1, h >> 1);
    destination = static_cast<uint32_t*>(newImage(pixels, 3));
    if (!destination || pixels == 0)
        return destination;
    const bool wordPath = (w % 8 == 0) && (reinterpret_cast<uintptr_t>(src) % 4 == 0);
    if (wordPath)
        zoomtohalf24Part(this, 0, 1);
    else
        zoomtohalf24N4Part(this, 0, 1);
    return destination;
}

void quart::zoomtohalf24Part(int, int)
{
    const int runs = width / 8;
    const int outH = height >> 1;
    const ptrdiff_t inWords = 6 * static_cast<ptrdiff_t>(runs);    // 3 * width bytes
    const ptrdiff_t outBytes = 12 * static_cast<ptrdiff_t>(runs);  // 3 * (width >> 1) bytes
    for (int k = 0; k < outH; ++k) {
        const uint32_t* upper = source + 2 * k * inWords;
        const uint32_t* lower = upper + inWords;
        unsigned char* out = bytesOf(destination) + k * outBytes;
        for (int r = 0; r < runs; ++r) {
            uint32_t rows[6];
            for (int i = 0; i < 6; ++i)
                rows[i] = laneAverage(loadWord(upper + 6 * r + i), loadWord(lower + 6 * r + i));
            unsigned char run[24];
            std::memcpy(run, rows, sizeof run);
            unsigned char* o = out + 12 * r;
            for (int p = 0; p < 4; ++p)
                for (int c = 0; c < 3; ++c)
                    o[3 * p + c] = byteAverage(run[6 * p + c], run[6 * p + 3 + c]);
        }
    }
}

void quart::zoomtohalf24N4Part(int, int)
{
    const int outW = width >> 1;
    const int outH = height >> 1;
    const ptrdiff_t inBytes = 3 * static_cast<ptrdiff_t>(width);
    const ptrdiff_t outBytes = 3 * static_cast<ptrdiff_t>(outW);
    for (int k = 0; k < outH; ++k) {
        const unsigned char* upper = bytesOf(source) + 2 * k * inBytes;
        const unsigned char* lower = upper + inBytes;
        unsigned char* out = bytesOf(destination) + k * outBytes;
        for (int i = 0; i < outW; ++i) {
            const int b = 6 * i;
            for (int c = 0; c < 3; ++c) {
                const unsigned sum = upper[b + c] + upper[b + 3 + c] + lower[b + c] + lower[b + 3 + c];
                out[3 * i + c] = static_cast<unsigned char>((sum + 2) >> 2);
            }
        }
    }
}

// Two half reductions in a row. When the height leaves 2 or 3 lines over, the
// first line is skipped and two lines fewer are used; the skipped start may
// then lie at any byte, which sends the first pass down the byte path.
uint32_t* quart::zoomtoquart24(uint32_t* src, int w, int h)
{
    if (!src)
        return nullptr;
    unsigned char* start = bytesOf(src);
    int used = h;
    if (w > 0 && quarterSkip(h)) {
        start += 3 * static_cast<ptrdiff_t>(w);
        used = h - 2;
    }
    uint32_t* half = zoomtohalf24(reinterpret_cast<uint32_t*>(start), w, used);
    if (!half)
        return nullptr;
    uint32_t* result = zoomtohalf24(half, w / 2, used / 2);
    delMem(half);
    return result;
}

// ---------------------------------------------------------------------------
// Exact means: thirds, and the NTSC quarter on a 4.5-pixel step
// ---------------------------------------------------------------------------

uint32_t* quart::zoomtothird(uint32_t* src, int w, int h)
{
    if (!src)
        return nullptr;
    const int outW = w / 3;
    const int outH = h / 3;
    uint32_t* out = newImage32(pixelCount(outW, outH));
    if (!out || pixelCount(outW, outH) == 0)
        return out;
    const ptrdiff_t stride = w;
    const uint32_t* in = src + (h % 3 == 2 ? stride : 0) + (w % 3 == 2 ? 1 : 0);
    for (int k = 0; k < outH; ++k) {
        for (int j = 0; j < outW; ++j) {
            LaneSums sums;
            for (int dy = 0; dy < 3; ++dy) {
                const uint32_t* p = in + (3 * k + dy) * stride + 3 * j;
                sums.add(loadWord(p));
                sums.add(loadWord(p + 1));
                sums.add(loadWord(p + 2));
            }
            out[static_cast<ptrdiff_t>(k) * outW + j] = sums.divided(9);
        }
    }
    return out;
}

// Every nine input pixels give two output pixels of four columns each,
// starting at 4j + j/2; the ninth column of each group is never read.
uint32_t* quart::zoomtoquartNTSC(uint32_t* src, int w, int h)
{
    if (!src)
        return nullptr;
    const int outW = static_cast<int>((2 * static_cast<int64_t>(w)) / 9);
    const int outH = h >> 2;
    uint32_t* out = newImage32(pixelCount(outW, outH));
    if (!out || pixelCount(outW, outH) == 0)
        return out;
    const ptrdiff_t stride = w;
    const uint32_t* in = src + quarterSkip(h) * stride + quarterSkip(w);
    for (int k = 0; k < outH; ++k) {
        for (int j = 0; j < outW; ++j) {
            const int c = 4 * j + (j >> 1);
            LaneSums sums;
            for (int dy = 0; dy < 4; ++dy) {
                const uint32_t* p = in + (4 * k + dy) * stride + c;
                for (int dx = 0; dx < 4; ++dx)
                    sums.add(loadWord(p + dx));
            }
            out[static_cast<ptrdiff_t>(k) * outW + j] = sums.divided(16);
        }
    }
    return out;
}

// ---------------------------------------------------------------------------
// Horizontal aspect corrections
// ---------------------------------------------------------------------------

uint32_t* quart::correctNtscRatio(uint32_t* src, int w, int h)
{
    return runImageJob(src, w, h, pixelCount(w / 9 * 8, h), &correctNtscRatioPart);
}

void quart::correctNtscRatioPart(int, int)
{
    regroupLines(source, destination, width, height, 9, 8, [](const uint32_t* s, uint32_t* d, bool) {
        uint32_t p[9];
        for (int i = 0; i < 9; ++i)
            p[i] = loadWord(s + i);
        d[0] = p[0];
        d[1] = quarterBlend(p[1], p[2]);
        d[2] = quarterBlend(p[2], p[3]);
        d[3] = laneAverage(p[3], p[4]);
        d[4] = laneAverage(p[4], p[5]);
        d[5] = quarterBlend(p[6], p[5]);
        d[6] = quarterBlend(p[7], p[6]);
        d[7] = p[8];
    });
}

uint32_t* quart::scaleXFourThirds(uint32_t* src, int w, int h)
{
    return runImageJob(src, w, h, pixelCount(w / 3 * 4, h), &scaleXFourThirds);
}

void quart::scaleXFourThirds(int, int)
{
    regroupLines(source, destination, width, height, 3, 4, [](const uint32_t* s, uint32_t* d, bool last) {
        const uint32_t p0 = loadWord(s), p1 = loadWord(s + 1), p2 = loadWord(s + 2);
        d[0] = p0;
        d[1] = quarterBlend(p1, p0);
        d[2] = laneAverage(p1, p2);
        // The last group of a line has no next pixel to lean towards.
        d[3] = last ? p2 : quarterBlend(p2, loadWord(s + 3));
    });
}

// ---------------------------------------------------------------------------
// Enlargement by pixel repetition
// ---------------------------------------------------------------------------

uint32_t* quart::zoomUp(uint32_t* src, int w, int h, int r)
{
    if (r != 2 && r != 4) {
        printf("zoomUp error: ratio %d not implemented\n", r);
        return nullptr;
    }
    if (!src)
        return nullptr;
    const int64_t outW = static_cast<int64_t>(w) * r;
    const int64_t outH = static_cast<int64_t>(h) * r;
    if (outW > INT_MAX || outH > INT_MAX)
        return nullptr;
    width = w;
    height = h;
    ratio = r;
    source = src;
    const int64_t pixels = pixelCount(outW, outH);
    destination = newImage32(pixels);
    if (!destination || pixels == 0)
        return destination;
    zoomUpPart(this, 0, 1);
    return destination;
}

void quart::zoomUpPart(int, int)
{
    const ptrdiff_t outW = static_cast<ptrdiff_t>(width) * ratio;
    for (int k = 0; k < height; ++k) {
        const uint32_t* in = source + static_cast<ptrdiff_t>(k) * width;
        uint32_t* first = destination + k * ratio * outW;
        for (int j = 0; j < width; ++j)
            for (int i = 0; i < ratio; ++i)
                first[j * ratio + i] = loadWord(in + j);
        for (int i = 1; i < ratio; ++i)
            std::memcpy(first + i * outW, first, static_cast<size_t>(outW) * 4);
    }
}

// ---------------------------------------------------------------------------
// 24-bit <-> 32-bit repacking and alpha
// ---------------------------------------------------------------------------

// Pixels are repacked in groups of four (three source words of 24-bit
// pixels). When the pixel count is not a multiple of four, the last one to
// three pixels are not converted: they come out with all bytes 0, and the
// source is never read past its last whole group.
uint32_t* quart::pass24to32(unsigned char* src, int w, int h)
{
    if (!src)
        return nullptr;
    const int64_t pixels = pixelCount(w, h);
    uint32_t* out = newImage32(pixels);
    if (!out)
        return nullptr;
    const int64_t whole = pixels / 4 * 4;
    unsigned char* o = bytesOf(out);
    for (int64_t i = 0; i < whole; ++i) {
        o[4 * i] = 255;
        o[4 * i + 1] = src[3 * i];
        o[4 * i + 2] = src[3 * i + 1];
        o[4 * i + 3] = src[3 * i + 2];
    }
    std::memset(o + 4 * whole, 0, static_cast<size_t>(4 * (pixels - whole)));
    return out;
}

unsigned char* quart::pass32to24(uint32_t* src, int w, int h)
{
    if (!src)
        return nullptr;
    const int64_t pixels = pixelCount(w, h);
    unsigned char* out = static_cast<unsigned char*>(newImage(pixels, 3));
    if (!out)
        return nullptr;
    const int64_t whole = pixels / 4 * 4;
    const unsigned char* s = bytesOf(src);
    for (int64_t i = 0; i < whole; ++i) {
        out[3 * i] = s[4 * i + 1];
        out[3 * i + 1] = s[4 * i + 2];
        out[3 * i + 2] = s[4 * i + 3];
    }
    std::memset(out + 3 * whole, 0, static_cast<size_t>(3 * (pixels - whole)));
    return out;
}

// The alpha byte (first in memory) of every pixel takes the matte's middle
// byte, which holds the grey value of a grey matte.
void quart::linkImgWithAlpha(uint32_t* image, unsigned char* matte, int w, int h)
{
    if (!image || !matte)
        return;
    const int64_t pixels = pixelCount(w, h);
    unsigned char* p = bytesOf(image);
    for (int64_t i = 0; i < pixels; ++i)
        p[4 * i] = matte[3 * i + 1];
}
