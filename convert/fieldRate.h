// FieldRateConverter: changes the field rate of interlaced (or progressive)
// YUV 4:2:2 video, 25 to 30000/1001 frames per second by default, each output
// field showing the scene at its own instant, and then the number of lines
// with the line converter (Convert, field mode), as the block converter does.
//
// Output field k lies at k * inRate / outRate input field times; it is made
// from the two input fields of its own parity around that instant by motion
// compensated interpolation, or is the input field itself when the instants
// coincide. A scene cut between the two is never blended across: the field
// is the earlier one before the first field of the new scene, the later one
// from there on. The output keeps the input's order of fields in time; the
// line conversion swaps the lines of the two fields, so top field first input
// gives bottom field first output.
//
// Frames go in one at a time; finished output frames go to the sink as soon
// as the input they need has arrived, so memory stays at a few frames. The
// work is cut into fixed bands taken in turn by `threads` threads; the
// output bytes are the same for any number of threads.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "util/ratio.h"

struct FieldRateSettings {
    int width = 720;
    int inputLines = 576;
    int outputLines = 486;
    Ratio inputRate{25, 1};  // frames per second
    Ratio outputRate{30000, 1001};
    bool topFieldFirst = true;
    // Both fields of an input frame show one instant.
    bool progressive = false;
    int threads = 2;
};

class FieldRateConverter {
public:
    // Takes each output frame (width / 2 words by outputLines lines); a zero
    // result stops the conversion and is passed on.
    using Sink = std::function<int(const uint32_t* frame)>;

    FieldRateConverter(const FieldRateSettings& settings, Sink sink);
    ~FieldRateConverter();
    FieldRateConverter(const FieldRateConverter&) = delete;
    FieldRateConverter& operator=(const FieldRateConverter&) = delete;

    // The next input frame (width / 2 words by inputLines lines, at any
    // byte). Nonzero on success, 0 when the sink refused a frame.
    int push(const void* frame);
    // The same frame as three planes: luma of width bytes by inputLines
    // lines, cb and cr of width / 2 bytes by inputLines lines.
    int pushPlanes(const uint8_t* luma, const uint8_t* cb, const uint8_t* cr);

    // Sends the remaining frames: as many in all as keep the input's
    // duration, rounded to the nearest frame.
    int finish();

    int64_t framesIn() const;
    int64_t framesOut() const;

    // Whether the settings can be converted (even line count of at least 4,
    // width of at least 16 pixels, positive rates); 0 when not.
    static int usable(const FieldRateSettings& settings);

private:
    struct State;
    std::unique_ptr<State> state_;
};
