#pragma once

// How the new random table was made. The table must be data, identical on
// every machine, so the generator uses nothing whose output may differ
// between standard libraries: a splitmix64 stream, doubles, and decimal
// rounding through printf. make_noise_table.cxx searches seeds from 1 upward
// for the first table with the wanted statistics and writes it out; the test
// of the table regenerates it from the recorded seed and compares bit for bit.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace orvo_noise_table {

constexpr int kSize = 65535;
// The smallest and largest entries of the table.
constexpr float kSmallest = -0.999965f;
constexpr float kLargest = 0.999958f;
// Wanted statistics: the mean is 0 to five places and the standard
// deviation 0.5773 to four.
constexpr double kMeanTolerance = 0.000005;
constexpr double kDeviation = 0.5773;
constexpr double kDeviationTolerance = 0.00005;

struct Splitmix64 {
    uint64_t state;
    uint64_t next() {
        uint64_t z = (state += 0x9E3779B97F4A7C15ULL);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
        return z ^ (z >> 31);
    }
    // Uniform on -1 .. 1, from the top 53 bits.
    double uniform() { return double(next() >> 11) * 0x1p-52 - 1.0; }
};

inline float sixDigits(double x) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", x);
    return std::strtof(text, nullptr);
}

struct Statistics {
    double mean = 0.0;
    double deviation = 0.0;
    float smallest = 0.0f;
    float largest = 0.0f;
};

inline Statistics statistics(const float* values, size_t n) {
    Statistics s;
    double sum = 0.0;
    s.smallest = s.largest = values[0];
    for (size_t i = 0; i < n; ++i) {
        sum += values[i];
        s.smallest = std::fmin(s.smallest, values[i]);
        s.largest = std::fmax(s.largest, values[i]);
    }
    s.mean = sum / double(n);
    double squares = 0.0;
    for (size_t i = 0; i < n; ++i)
        squares += (values[i] - s.mean) * (values[i] - s.mean);
    s.deviation = std::sqrt(squares / double(n));
    return s;
}

inline bool wanted(const Statistics& s) {
    return std::fabs(s.mean) < kMeanTolerance &&
           std::fabs(s.deviation - kDeviation) < kDeviationTolerance && s.smallest == kSmallest &&
           s.largest == kLargest;
}

// The raw draws of a seed: independent values, each inside the two extremes,
// then the smallest and the largest set to the extremes themselves.
inline void draw(uint64_t seed, double* out) {
    Splitmix64 random{seed};
    int lo = 0, hi = 0;
    for (int i = 0; i < kSize; ++i) {
        double x;
        do
            x = random.uniform();
        while (x < double(kSmallest) || x > double(kLargest));
        out[i] = x;
        if (x < out[lo])
            lo = i;
        if (x > out[hi])
            hi = i;
    }
    out[lo] = double(kSmallest);
    out[hi] = double(kLargest);
}

// The table of a seed, rounded to six significant digits.
inline void generate(uint64_t seed, float* out) {
    double* raw = new double[kSize];
    draw(seed, raw);
    for (int i = 0; i < kSize; ++i)
        out[i] = sixDigits(raw[i]);
    delete[] raw;
}

} // namespace orvo_noise_table
