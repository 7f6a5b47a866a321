#pragma once

// A turbulence field: a divergence-free random vector field in space and
// time, made once by spectral synthesis on a 16^4 grid and read back by
// interpolation. The field repeats with period 2 in space and in time.

#include <atomic>
#include <cstdint>
#include <mutex>

#include "host/types.h"

class T4dVectorNoise {
public:
    // Cells per axis in space and in time.
    static constexpr int fsNs = 16;
    static constexpr int fsNt = 16;
    // Spectrum shape: energy falls as k^-fsEpsilon above the cut-off fsKc, and
    // the temporal spread grows with fsSigma k^2.
    static constexpr double fsEpsilon = 0.5;
    static constexpr double fsSigma = 0.5;
    static constexpr double fsKc = 1.0;

    T4dVectorNoise();
    ~T4dVectorNoise();
    T4dVectorNoise(const T4dVectorNoise&) = delete;
    T4dVectorNoise& operator=(const T4dVectorNoise&) = delete;

    // Builds the field once; later calls return at once.
    static void initTable();

    // The field at p and t, each component in -1 .. 1: linear in all four
    // axes, cubic in all four, or cubic in time only.
    T3Float getNoise(const T3Float& p, float t) const;
    T3Float getNoiseSmooth(const T3Float& p, float t) const;
    T3Float getNoiseSmoothTime(const T3Float& p, float t) const;

    // Four signed bytes per cell (three components and a spare), x fastest,
    // then y, z, t; null when the field could not be built.
    static const int8_t* data() { return fsData; }
    static float maxMagnitude() { return fsMaxMagnitude; }
    static int instances() { return fsClassCounter.load(); }

private:
    enum class Blend { Linear, Cubic, CubicTime };
    static T3Float sample(const T3Float& p, float t, Blend blend);

    static void InitGauss();
    static double NGauss();
    static double Unif(double a, double b);

    static int8_t* fsData;
    static float fsMaxMagnitude;
    static double fsGaussAdd;
    static double fsGaussFac;
    static std::mutex fsCS;
    static std::atomic<bool> fsFirstTime;
    static std::atomic<int> fsClassCounter;
};
