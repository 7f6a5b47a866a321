#pragma once

// Tnoise: lattice and gradient noise over one shared table of random numbers,
// and the cheap random generators that textures use. Plain static functions:
// nothing here knows about nodes or graphs.

#include <atomic>
#include <cstdint>
#include <mutex>

#include "host/types.h"

// The 48-bit linear congruential generator of srand48/drand48 (multiplier
// 0x5DEECE66D, increment 0xB), held privately so that building a table never
// disturbs, or depends on, anyone else's use of the C runtime generator.
class Trand48 {
public:
    static constexpr uint64_t kMultiplier = 0x5DEECE66DULL;
    static constexpr uint64_t kIncrement = 0xB;
    static constexpr uint64_t kMask = (uint64_t(1) << 48) - 1;

    // The state an unseeded drand48 starts from.
    Trand48() : fState(0x1234ABCD330EULL) {}
    explicit Trand48(long seed) { srand48(seed); }

    // As srand48: the seed's low 32 bits above the constant 0x330E.
    void srand48(long seed) { fState = ((uint64_t(uint32_t(seed)) << 16) | 0x330E) & kMask; }
    // As drand48: the next state as a fraction of 2^48.
    double drand48() {
        fState = (fState * kMultiplier + kIncrement) & kMask;
        return double(fState) * 0x1p-48;
    }

private:
    uint64_t fState;
};

class Tnoise {
public:
    static constexpr int kTableSize = 65535;
    static constexpr int kCubeSide = 32;
    static constexpr int kInitialSeed = 2413;
    // The seed of the generator that made the shipped new table (see
    // textures/tools/noise_table_generator.h).
    static constexpr uint64_t kNewTableSeed = 10421;

    // floor(x) without a library call (on baseline x86-64 floorf is one):
    // exact for every float, through an integer below 1e9 in size.
    static float fastFloor(float x) {
        if (!(x > -1e9f && x < 1e9f))
            return floorLarge(x);
        const float t = float(int(x));
        return t > x ? t - 1.0f : t;
    }

    // ---- lattice noise: quadratic B-spline over the table, 32 cells per unit
    static float noise1(float x);
    static float noise2(float u, float v);
    static float noise3(float x, float y, float z);
    // Animated lattice noise: each lattice node moves smoothly to a new
    // random value at each of `steps` time steps per unit of t.
    static float noise4(float x, float y, float z, float t, int steps);
    // noise2 in doubles with its slopes: out[0] the slope along u, out[1]
    // half the slope along v (both unscaled), out[2] the value.
    static void DNoise2(double u, double v, float out[3]);
    // Gradient noise over the permutation and the gradient table.
    static float gNoise3(float x, float y, float z);

    // ---- the table
    static double randomNoise(int i);
    static float fastRandomNoiseFloat(int i);
    static float reallyFastRandomNoiseFloat(int i) { return fsTable[i]; }
    static float valueInNoiseTable(int i);
    static T3Float valuesInNoiseTable(int i);
    static int noiseTableSize() { return kTableSize; }
    static int noiseTableCubeSide() { return kCubeSide; }
    static int initialSeedValue() { return kInitialSeed; }

    // ---- generators
    // The 16-bit generator of the old table: s = (s * 25173 + 13849) & 0xFFFF,
    // result s / 65535.
    static double nDrand(int& seed);
    static float nFrand(int& seed);
    // The 48-bit generator on a caller-held state, low word first.
    static double erand48_r(unsigned short xsubi[3]);
    // The next of a fixed ring of 3,731 drand48 values. The counter is
    // shared by every caller.
    static double rRand();
    static void initNoiseState();
    static void purge() {}

    // ---- tables and their choice
    // The table every function above reads: 65,535 values in -1 .. 1 and a
    // 65,536th entry of 0.
    static const float* fsTable;
    static const float* oldTable();
    static const float* newTable();
    // Points fsTable at the old table when ORVO_RENDERER_OLD_RANDOM_TABLE is
    // a nonzero integer, else at the new one. Runs at load.
    static void chooseTable();

    // The permutation of 0 .. 255 behind gNoise3.
    static const uint8_t fsPermArray[256];
    // 65,535 unit vectors, built on first use (only the first 256 are
    // reached, through the permutation).
    static const T3Float* gradientTable();

    // The function behind noise3, installed on first use; any function of
    // the same form may replace it.
    using Noise3Fn = float (*)(float, float, float);
    static std::atomic<Noise3Fn> pfNoise3Compute;
    static void initNoiseTable();
    // The lattice noise3 itself, the default of pfNoise3Compute.
    static float latticeNoise3(float x, float y, float z);

    static float floorLarge(float x);

    // Guards the lazily built tables.
    static std::mutex fsCS;
};
