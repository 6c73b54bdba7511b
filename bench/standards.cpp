// standards: how well and how fast 25 frames/s interlaced video becomes
// 30000/1001 frames/s. A synthetic scene (textured shapes moving at known
// speeds, horizontally, vertically and both, over a still textured
// background) is rendered at the input's field instants as the input and at
// the output's field instants as the truth; both go through the line
// conversion to 486 lines. Each method's output is compared with the truth:
// PSNR of the luma, mean over the frames and worst frame, and output frames
// per second.
//
//   standards [--frames N] [--threads N] [--rounds N] [--no-ffmpeg] [--keep-input PATH]
//
// "ours" is the field-rate converter in memory; "vclip ntsc --rate" the same
// converter as a program, reading a y4m file and writing its stream into a
// y4m file as FFmpeg does (through standard output: the bytes are left to the
// system to put on the disk); "vclip, file kept safe" writes the file itself,
// which it flushes to the disk before putting it in place.
// The FFmpeg pipelines get the input as y4m (top field first) and their
// 576-line output, read back, goes through the same line conversion.
// Each program runs --rounds times (3; once when a run takes over 10 s), and
// its median time is shown. --keep-input also writes the y4m input to PATH,
// for measuring vclip alone.
// The pipelines:
//   fps, framerate, minterpolate      the filter on the interlaced frames
//   yadif+X                           fields made frames first (yadif=1),
//                                     X at 60000/1001, then fields woven
//                                     back (interlace, no low-pass)
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "convert/Convert.h"
#include "convert/fieldRate.h"

namespace {

constexpr int width = 720, palLines = 576, ntscLines = 486;
constexpr int words = width / 2;
using Frame = std::vector<uint32_t>;

// A smooth random texture: values on a lattice `cell` pixels apart, read
// between lattice points by bilinear interpolation.
struct Texture {
    int size = 64;
    double cell = 4.0;
    std::vector<float> values;
    Texture(uint32_t seed, double amplitude, double spacing) : cell(spacing)
    {
        std::mt19937 rng(seed);
        std::uniform_real_distribution<float> d(static_cast<float>(-amplitude), static_cast<float>(amplitude));
        values.resize(static_cast<std::size_t>(size * size));
        for (auto& v : values)
            v = d(rng);
    }
    double operator()(double x, double y) const
    {
        const double gx = x / cell, gy = y / cell;
        const double fx = std::floor(gx), fy = std::floor(gy);
        const int ix = static_cast<int>(fx) & (size - 1), iy = static_cast<int>(fy) & (size - 1);
        const int jx = (ix + 1) & (size - 1), jy = (iy + 1) & (size - 1);
        auto at = [&](int cx, int cy) { return static_cast<double>(values[static_cast<std::size_t>(cy * size + cx)]); };
        const double ax = gx - fx, ay = gy - fy;
        return (at(ix, iy) * (1 - ax) + at(jx, iy) * ax) * (1 - ay) + (at(ix, jy) * (1 - ax) + at(jx, jy) * ax) * ay;
    }
};

// A shape moving at constant speed (pixels and frame lines per second),
// wrapping round the picture.
struct Shape {
    bool disc;
    double x0, y0, vx, vy, w, h;
    double luma, cb, cr;
    Texture texture;
};

double clamp01(double v) { return v < 0 ? 0 : (v > 1 ? 1 : v); }

double wrap(double v, double range) { return v - range * std::floor(v / range); }

struct Scene {
    Texture background{1, 40.0, 5.0};
    Texture backgroundChroma{2, 20.0, 12.0};
    std::vector<Shape> shapes{
        {false, 40, 60, 300, 0, 160, 120, 150, 90, 170, Texture(3, 45.0, 3.0)},       // 6 pixels a field right
        {true, 400, 100, -100, 150, 140, 140, 110, 170, 100, Texture(4, 45.0, 4.0)},  // 2 left, 3 lines down
        {false, 500, 380, -225, -75, 120, 90, 180, 110, 110, Texture(5, 40.0, 3.5)},  // 4.5 left, 1.5 up
    };

    // Luma, Cb and Cr at point (x, y) of the picture at time t seconds.
    void sample(double x, double y, double t, double out[3]) const
    {
        out[0] = 125 + background(x, y);
        out[1] = 128 + backgroundChroma(x, y);
        out[2] = 128 - backgroundChroma(y, x);
        for (const Shape& s : shapes) {
            const double left = wrap(s.x0 + s.vx * t, width + s.w) - s.w;
            const double top = wrap(s.y0 + s.vy * t, palLines + s.h) - s.h;
            const double u = x - left, v = y - top;
            double cover;
            if (s.disc) {
                const double r = s.w / 2, dx = u - r, dy = v - r;
                cover = clamp01(r - std::sqrt(dx * dx + dy * dy) + 0.5);
            } else {
                cover = clamp01(std::min(u, s.w - u) + 0.5) * clamp01(std::min(v, s.h - v) + 0.5);
            }
            if (cover <= 0)
                continue;
            const double mine[3] = {s.luma + s.texture(u, v), s.cb, s.cr};
            for (int c = 0; c < 3; ++c)
                out[c] = out[c] * (1 - cover) + mine[c] * cover;
        }
    }

    // Frame lines of `parity` at time t into a 576-line frame.
    void renderField(double t, int parity, Frame& frame) const
    {
        for (int line = parity; line < palLines; line += 2)
            for (int i = 0; i < words; ++i) {
                double a[3], b[3];
                sample(2 * i, line, t, a);
                sample(2 * i + 1, line, t, b);
                auto byte = [](double v) { return static_cast<uint32_t>(std::lround(std::clamp(v, 16.0, 240.0))); };
                const uint32_t bytes[4] = {byte((a[1] + b[1]) / 2), byte(a[0]), byte((a[2] + b[2]) / 2), byte(b[0])};
                uint8_t raw[4] = {uint8_t(bytes[0]), uint8_t(bytes[1]), uint8_t(bytes[2]), uint8_t(bytes[3])};
                std::memcpy(&frame[static_cast<std::size_t>(line * words + i)], raw, 4);
            }
    }
};

Frame lineConvert(Frame& pal)
{
    Frame ntsc(static_cast<std::size_t>(words * ntscLines));
    float fieldMode = 1.0f;
    Convert converter(width, ntscLines, 1, &fieldMode);
    converter.DoConvert(pal.data(), palLines, ntsc.data());
    return ntsc;
}

double psnrY(const Frame& a, const Frame& b)
{
    double sum = 0;
    const auto* p = reinterpret_cast<const uint8_t*>(a.data());
    const auto* q = reinterpret_cast<const uint8_t*>(b.data());
    for (std::size_t i = 1; i < a.size() * 4; i += 2) {
        const double d = double(p[i]) - double(q[i]);
        sum += d * d;
    }
    const double mse = sum / double(a.size() * 2);
    return mse == 0 ? 99.0 : 10 * std::log10(255.0 * 255.0 / mse);
}

struct Result {
    std::string name;
    double mean = 0, worst = 0, fps = 0;
    std::size_t frames = 0;
    double cpuPerFrame = 0;  // milliseconds of processor time, all threads
};

Result score(const std::string& name, const std::vector<Frame>& out, const std::vector<Frame>& truth, double seconds,
             double cpuSeconds)
{
    Result r{name, 0, 99, 0, out.size(), 1000 * cpuSeconds / double(out.size() ? out.size() : 1)};
    const std::size_t n = std::min(out.size(), truth.size());
    for (std::size_t i = 0; i < n; ++i) {
        const double p = psnrY(out[i], truth[i]);
        r.mean += p / double(n);
        r.worst = std::min(r.worst, p);
    }
    r.fps = double(out.size()) / seconds;
    return r;
}

double now() { return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count(); }

// Processor time of this process (all its threads) or of its finished
// children.
double cpuTime(int who)
{
    rusage usage{};
    getrusage(who, &usage);
    auto seconds = [](const timeval& t) { return double(t.tv_sec) + double(t.tv_usec) / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

Result runOurs(const std::vector<Frame>& input, const std::vector<Frame>& truth, int threads)
{
    FieldRateSettings settings;
    settings.threads = threads;
    // Room for every frame made before the clock starts, so that only the
    // conversion is timed.
    std::vector<Frame> out(truth.size() + 1, Frame(words * ntscLines));
    std::size_t made = 0;
    FieldRateConverter converter(settings, [&](const uint32_t* frame) {
        if (made < out.size())
            std::memcpy(out[made].data(), frame, words * ntscLines * sizeof(uint32_t));
        ++made;
        return 1;
    });
    const double start = now(), cpuStart = cpuTime(RUSAGE_SELF);
    for (const Frame& f : input)
        converter.push(f.data());
    converter.finish();
    const double seconds = now() - start, cpu = cpuTime(RUSAGE_SELF) - cpuStart;
    out.resize(std::min(made, out.size()));
    return score("ours, " + std::to_string(threads) + (threads == 1 ? " thread" : " threads"), out, truth, seconds,
                 cpu);
}

// y4m with planar 4:2:2, as FFmpeg reads and writes it.
bool writeY4m(const std::string& path, const std::vector<Frame>& frames)
{
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f)
        return false;
    std::fprintf(f, "YUV4MPEG2 W%d H%d F25:1 It A16:15 C422\n", width, palLines);
    std::vector<uint8_t> planes(static_cast<std::size_t>(width * palLines * 2));
    for (const Frame& frame : frames) {
        const auto* p = reinterpret_cast<const uint8_t*>(frame.data());
        uint8_t* y = planes.data();
        uint8_t* cb = y + width * palLines;
        uint8_t* cr = cb + words * palLines;
        for (std::size_t i = 0; i < frame.size(); ++i) {
            cb[i] = p[4 * i];
            y[2 * i] = p[4 * i + 1];
            cr[i] = p[4 * i + 2];
            y[2 * i + 1] = p[4 * i + 3];
        }
        std::fputs("FRAME\n", f);
        std::fwrite(planes.data(), 1, planes.size(), f);
    }
    // On the disk before any program is timed, so that none of them shares
    // the disk with the writing of the input.
    const bool flushed = std::fflush(f) == 0 && fsync(fileno(f)) == 0;
    return std::fclose(f) == 0 && flushed;
}

// Frames of a 4:2:2 stream of `lines` lines, 576-line ones through the line
// conversion.
std::vector<Frame> readY4m(const std::string& path, int lines)
{
    std::vector<Frame> frames;
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f)
        return frames;
    auto skipLine = [&] {
        int c;
        while ((c = std::fgetc(f)) != EOF && c != '\n') {
        }
        return c != EOF;
    };
    const std::size_t count = static_cast<std::size_t>(words * lines);
    std::vector<uint8_t> planes(4 * count);
    if (skipLine())
        while (skipLine() && std::fread(planes.data(), 1, planes.size(), f) == planes.size()) {
            Frame frame(count);
            const uint8_t* y = planes.data();
            const uint8_t* cb = y + 2 * count;
            const uint8_t* cr = cb + count;
            for (std::size_t i = 0; i < count; ++i) {
                const uint8_t raw[4] = {cb[i], y[2 * i], cr[i], y[2 * i + 1]};
                std::memcpy(&frame[i], raw, 4);
            }
            frames.push_back(lines == palLines ? lineConvert(frame) : frame);
        }
    std::fclose(f);
    return frames;
}

bool haveFfmpeg() { return std::system("ffmpeg -version > /dev/null 2>&1") == 0; }

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

// A program that reads dir/in.y4m and writes dir/out.y4m of `lines` lines,
// run `rounds` times (once when a run takes over 10 s): the median time and
// processor time, and the last run's pictures.
Result runProgram(const std::string& name, const std::string& command, const std::string& dir, int lines,
                  const std::vector<Frame>& truth, int rounds)
{
    const std::string out = dir + "/out.y4m";
    std::vector<double> times, cpus;
    for (int round = 0; round < rounds; ++round) {
        std::remove(out.c_str());
        const double start = now(), cpuStart = cpuTime(RUSAGE_CHILDREN);
        const int status = std::system(command.c_str());
        times.push_back(now() - start);
        cpus.push_back(cpuTime(RUSAGE_CHILDREN) - cpuStart);
        if (status != 0)
            std::fprintf(stderr, "standards: %s failed\n", command.c_str());
        if (times.back() > 10)
            break;
    }
    Result r = score(name, readY4m(out, lines), truth, median(times), median(cpus));
    std::remove(out.c_str());
    return r;
}

std::string ffmpegCommand(const std::string& filter, const std::string& dir, int threads)
{
    const std::string t = std::to_string(threads);
    return "ffmpeg -v error -y -threads " + t + " -i " + dir + "/in.y4m -filter_threads " + t + " -vf '" + filter +
           "' -pix_fmt yuv422p -f yuv4mpegpipe " + dir + "/out.y4m";
}

void print(const Result& r)
{
    std::printf("%-26s %6zu %9.2f %9.2f %9.1f %9.2f\n", r.name.c_str(), r.frames, r.mean, r.worst, r.fps,
                r.cpuPerFrame);
}

// The same input through vclip ntsc (the program beside this one: the
// converter with its stream reading and writing) and FFmpeg's pipelines.
int runPrograms(const std::vector<Frame>& input, const std::vector<Frame>& truth, int threads, int rounds,
                const char* self)
{
    if (!haveFfmpeg()) {
        std::printf("ffmpeg: skipped: ffmpeg not installed\n");
        return 0;
    }
    char dir[] = "/tmp/standardsXXXXXX";
    if (!mkdtemp(dir) || !writeY4m(std::string(dir) + "/in.y4m", input)) {
        std::fprintf(stderr, "standards: cannot write the y4m input in /tmp\n");
        return 1;
    }
    const char* pipelines[][2] = {
        {"ffmpeg fps", "fps=30000/1001"},
        {"ffmpeg framerate", "framerate=fps=30000/1001"},
        {"ffmpeg minterpolate", "minterpolate=fps=30000/1001:mi_mode=mci"},
        {"ffmpeg yadif+fps", "yadif=1,fps=60000/1001,interlace=scan=tff:lowpass=off"},
        {"ffmpeg yadif+framerate", "yadif=1,framerate=fps=60000/1001,interlace=scan=tff:lowpass=off"},
        {"ffmpeg yadif+minterpolate", "yadif=1,minterpolate=fps=60000/1001:mi_mode=mci,interlace=scan=tff:lowpass=off"},
    };
    std::string vclip = self;
    vclip = vclip.substr(0, vclip.rfind('/') + 1) + "vclip";
    if (access(vclip.c_str(), X_OK) == 0) {
        const std::string command = vclip + " ntsc " + dir + "/in.y4m ";
        print(runProgram("vclip ntsc --rate", command + "- --rate 30000/1001 > " + dir + "/out.y4m", dir, ntscLines,
                         truth, rounds));
        print(runProgram("vclip, file kept safe", command + dir + "/out.y4m --rate 30000/1001", dir, ntscLines, truth,
                         rounds));
    }
    for (const auto& p : pipelines)
        print(runProgram(p[0], ffmpegCommand(p[1], dir, threads), dir, palLines, truth, rounds));
    std::remove((std::string(dir) + "/in.y4m").c_str());
    rmdir(dir);
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    int inputFrames = 50, threads = 2, rounds = 3;
    bool ffmpeg = true;
    std::string keepInput;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--frames" && i + 1 < argc)
            inputFrames = std::max(2, std::atoi(argv[++i]));
        else if (a == "--threads" && i + 1 < argc)
            threads = std::max(1, std::atoi(argv[++i]));
        else if (a == "--rounds" && i + 1 < argc)
            rounds = std::max(1, std::atoi(argv[++i]));
        else if (a == "--no-ffmpeg")
            ffmpeg = false;
        else if (a == "--keep-input" && i + 1 < argc)
            keepInput = argv[++i];
        else {
            std::fprintf(
                stderr, "usage: standards [--frames N] [--threads N] [--rounds N] [--no-ffmpeg] [--keep-input PATH]\n");
            return 2;
        }
    }
    const Scene scene;
    std::vector<Frame> input(static_cast<std::size_t>(inputFrames), Frame(words * palLines));
    for (int n = 0; n < inputFrames; ++n)
        for (int field = 0; field < 2; ++field)
            scene.renderField((2 * n + field) / 50.0, field, input[static_cast<std::size_t>(n)]);
    if (!keepInput.empty() && !writeY4m(keepInput, input)) {
        std::fprintf(stderr, "standards: cannot write %s\n", keepInput.c_str());
        return 1;
    }
    // As many output frames as keep the duration; field k at k * 1001 / 60000 s.
    const int outputFrames = (2 * inputFrames * 1200 + 1001) / 2002;
    std::vector<Frame> truth;
    for (int m = 0; m < outputFrames; ++m) {
        Frame pal(words * palLines);
        for (int field = 0; field < 2; ++field)
            scene.renderField((2 * m + field) * 1001 / 60000.0, field, pal);
        truth.push_back(lineConvert(pal));
    }

    std::printf("%d input frames (25/s, top field first) to %d output frames (30000/1001/s), 720 x 486 luma\n",
                inputFrames, outputFrames);
    std::printf("%-26s %6s %9s %9s %9s %9s\n", "method", "frames", "PSNR-Y", "worst", "frames/s", "cpu ms/f");
    print(runOurs(input, truth, 1));
    if (threads > 1)
        print(runOurs(input, truth, threads));
    if (!ffmpeg)
        return 0;
    return runPrograms(input, truth, threads, rounds, argv[0]);
}
