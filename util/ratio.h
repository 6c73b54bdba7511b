// A ratio of two ints, num / den: a frame rate in frames per second or a
// pixel aspect. A den of 0 (0:0) means unknown where a format allows it.
#pragma once

struct Ratio {
    int num = 0;
    int den = 1;
};
