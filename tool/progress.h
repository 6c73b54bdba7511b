// Progress line of a long conversion, for a person watching a terminal:
// frames done of the total, frames per second and the time left, redrawn in
// place a few times a second on standard error. Silent when standard error
// is not a terminal, so logs and pipes only ever see the tool's own output.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>

class Progress {
public:
    using Clock = std::chrono::steady_clock;

    // Draws on stderr, only when it is a terminal.
    explicit Progress(int32_t totalFrames);
    // Draws on `out` when `enabled`; for callers that decide themselves.
    Progress(int32_t totalFrames, std::FILE* out, bool enabled);
    ~Progress();  // clears the line
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Records that `framesDone` frames are finished; redraws when the last
    // drawing is old enough (or the work is complete).
    void Update(int32_t framesDone) { Update(framesDone, Clock::now()); }
    void Update(int32_t framesDone, Clock::time_point now);

    // Removes the line, so that what follows starts on a clean line.
    void Clear();

    bool Enabled() const { return enabled; }

    // The text of one drawing, without the leading carriage return.
    static std::string Line(int32_t done, int32_t total, double seconds);

    static constexpr std::chrono::milliseconds kRedrawInterval{250};

private:
    int32_t total;
    std::FILE* out;
    bool enabled;
    Clock::time_point start;
    Clock::time_point lastDraw;
    bool drawn = false;
    size_t drawnWidth = 0;
};
