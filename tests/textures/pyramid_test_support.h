#pragma once

// Helpers of the pyramid tests: pixel maps from functions, a folder of the
// test's own, and a capture of what the pyramid code reports.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

#include "host/pixel_map.h"
#include "support/message_capture.h"
#include "support/temp_folder.h"

namespace orvo_test {

// A grey map: fn(x, y) with y from the bottom.
inline TpixelMap greyMap(unsigned w, unsigned h,
                         const std::function<uint8_t(unsigned, unsigned)>& fn) {
    TpixelMap map(w, h, 1);
    for (unsigned y = 0; y < h; ++y)
        for (unsigned x = 0; x < w; ++x) {
            const uint8_t g = fn(x, y);
            map.setRGBA(x, y, g, g, g, g);
        }
    return map;
}

// A map of `channels` (3 or 4) whose channel c at (x, y) is fn(x, y, c).
inline TpixelMap colourMap(unsigned w, unsigned h, unsigned channels,
                           const std::function<uint8_t(unsigned, unsigned, unsigned)>& fn) {
    TpixelMap map(w, h, channels);
    for (unsigned y = 0; y < h; ++y)
        for (unsigned x = 0; x < w; ++x)
            map.setRGBA(x, y, fn(x, y, 0), fn(x, y, 1), fn(x, y, 2),
                        channels == 4 ? fn(x, y, 3) : 255);
    return map;
}

// A pseudo-random byte of (x, y, c, seed), with some runs of equal values
// so that coding meets long and short runs alike.
inline uint8_t noiseByte(unsigned x, unsigned y, unsigned c, unsigned seed = 1) {
    uint32_t h = x * 73856093u ^ y * 19349663u ^ c * 83492791u ^ seed * 2654435761u;
    h ^= h >> 13;
    h *= 0x5bd1e995u;
    h ^= h >> 15;
    return (h & 0x300) ? uint8_t(h) : uint8_t((x / 7 + y / 5) * 40 + c);
}

// The pyramid's reports go to the console reporter.
using ReportCapture = MessageCapture;

} // namespace orvo_test
