#include "tool/progress.h"

#include <unistd.h>

#include <cmath>

Progress::Progress(int32_t totalFrames) : Progress(totalFrames, stderr, isatty(2) != 0) {}

Progress::Progress(int32_t totalFrames, std::FILE* stream, bool drawing)
    : total(totalFrames), out(stream), enabled(drawing), start(Clock::now()), lastDraw(start)
{}

Progress::~Progress() { Clear(); }

std::string Progress::Line(int32_t done, int32_t total, double seconds)
{
    char text[128];
    if (done <= 0 || seconds <= 0.0) {
        std::snprintf(text, sizeof text, "%d of %d frames", done, total);
        return text;
    }
    const double fps = done / seconds;
    const long left = std::lround((total - done) / fps);
    std::snprintf(text, sizeof text, "%d of %d frames, %.1f fps, %ld:%02ld left", done, total, fps, left / 60,
                  left % 60);
    return text;
}

void Progress::Update(int32_t framesDone, Clock::time_point now)
{
    if (!enabled)
        return;
    if (drawn && framesDone < total && now - lastDraw < kRedrawInterval)
        return;
    const double seconds = std::chrono::duration<double>(now - start).count();
    const std::string text = Line(framesDone, total, seconds);
    // Blanks cover what is left of a longer earlier line.
    const size_t pad = drawnWidth > text.size() ? drawnWidth - text.size() : 0;
    std::fprintf(out, "\r%s%*s", text.c_str(), static_cast<int>(pad), "");
    std::fflush(out);
    drawnWidth = text.size();
    lastDraw = now;
    drawn = true;
}

void Progress::Clear()
{
    if (!enabled || !drawn)
        return;
    std::fprintf(out, "\r%*s\r", static_cast<int>(drawnWidth), "");
    std::fflush(out);
    drawn = false;
    drawnWidth = 0;
}
