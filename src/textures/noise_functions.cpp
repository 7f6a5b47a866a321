#include "textures/noise_functions.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "host/env.h"
#include "textures/noise_table_pvt.h"

const float* Tnoise::fsTable = kOrvoNewNoiseTable;
std::atomic<Tnoise::Noise3Fn> Tnoise::pfNoise3Compute{nullptr};
std::mutex Tnoise::fsCS;

// clang-format off
const uint8_t Tnoise::fsPermArray[256] = {
    0xe1, 0x9b, 0xd2, 0x6c, 0xaf, 0xc7, 0xdd, 0x90, 0xcb, 0x74, 0x46, 0xd5, 0x45, 0x9e, 0x21, 0xfc,
    0x05, 0x52, 0xad, 0x85, 0xde, 0x8b, 0xae, 0x1b, 0x09, 0x47, 0x5a, 0xf6, 0x4b, 0x82, 0x5b, 0xbf,
    0xa9, 0x8a, 0x02, 0x97, 0xc2, 0xeb, 0x51, 0x07, 0x19, 0x71, 0xe4, 0x9f, 0xcd, 0xfd, 0x86, 0x8e,
    0xf8, 0x41, 0xe0, 0xd9, 0x16, 0x79, 0xe5, 0x3f, 0x59, 0x67, 0x60, 0x68, 0x9c, 0x11, 0xc9, 0x81,
    0x24, 0x08, 0xa5, 0x6e, 0xed, 0x75, 0xe7, 0x38, 0x84, 0xd3, 0x98, 0x14, 0xb5, 0x6f, 0xef, 0xda,
    0xaa, 0xa3, 0x33, 0xac, 0x9d, 0x2f, 0x50, 0xd4, 0xb0, 0xfa, 0x57, 0x31, 0x63, 0xf2, 0x88, 0xbd,
    0xa2, 0x73, 0x2c, 0x2b, 0x7c, 0x5e, 0x96, 0x10, 0x8d, 0xf7, 0x20, 0x0a, 0xc6, 0xdf, 0xff, 0x48,
    0x35, 0x83, 0x54, 0x39, 0xdc, 0xc5, 0x3a, 0x32, 0xd0, 0x0b, 0xf1, 0x1c, 0x03, 0xc0, 0x3e, 0xca,
    0x12, 0xd7, 0x99, 0x18, 0x4c, 0x29, 0x0f, 0xb3, 0x27, 0x2e, 0x37, 0x06, 0x80, 0xa7, 0x17, 0xbc,
    0x6a, 0x22, 0xbb, 0x8c, 0xa4, 0x49, 0x70, 0xb6, 0xf4, 0xc3, 0xe3, 0x0d, 0x23, 0x4d, 0xc4, 0xb9,
    0x1a, 0xc8, 0xe2, 0x77, 0x1f, 0x7b, 0xa8, 0x7d, 0xf9, 0x44, 0xb7, 0xe6, 0xb1, 0x87, 0xa0, 0xb4,
    0x0c, 0x01, 0xf3, 0x94, 0x66, 0xa6, 0x26, 0xee, 0xfb, 0x25, 0xf0, 0x7e, 0x40, 0x4a, 0xa1, 0x28,
    0xb8, 0x95, 0xab, 0xb2, 0x65, 0x42, 0x1d, 0x3b, 0x92, 0x3d, 0xfe, 0x6b, 0x2a, 0x56, 0x9a, 0x04,
    0xec, 0xe8, 0x78, 0x15, 0xe9, 0xd1, 0x2d, 0x62, 0xc1, 0x72, 0x4e, 0x13, 0xce, 0x0e, 0x76, 0x7f,
    0x30, 0x4f, 0x93, 0x55, 0x1e, 0xcf, 0xdb, 0x36, 0x58, 0xea, 0xbe, 0x7a, 0x5f, 0x43, 0x8f, 0x6d,
    0x89, 0xd6, 0x91, 0x5d, 0x5c, 0x64, 0xf5, 0x00, 0xd8, 0xba, 0x3c, 0x53, 0x69, 0x61, 0xcc, 0x34,
};
// clang-format on

namespace {

constexpr int kMask = Tnoise::kCubeSide - 1;

// The kernel of every lattice noise: a uniform quadratic B-spline through the
// taps at cells i - 1, i, i + 1, scaled by 2; t is the position in cell i.
template <class F>
inline F spline(F a, F b, F c, F t) {
    return ((a - F(2) * b + c) * t - F(2) * (a - b)) * t + a + b;
}

// Half the slope of the spline in t.
inline double halfSlope(double a, double b, double c, double t) {
    return (a - 2.0 * b + c) * t - (a - b);
}

// A lattice coordinate: 32 cells per unit, repeating with period 1. Values
// past 1e9 have no fraction left in a float; they count as 0.
struct Cell {
    int i;
    float t;
};
inline Cell reduce(float x) {
    if (x > 1e9f)
        x = 0.0f;
    const float g = (x - Tnoise::fastFloor(x)) * float(Tnoise::kCubeSide);
    const int i = int(g); // g is in 0 .. 32
    return {i, g - float(i)};
}

// The noise2 form: past 1e9 a coordinate holds at 1e9.
inline Cell reduceClamped(float x) {
    return reduce(x > 1e9f ? 1e9f : x);
}

// Rounds to six significant decimal digits, the precision the tables hold.
float sixDigits(double x) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", x);
    return std::strtof(text, nullptr);
}

unsigned absIndex(int i) {
    return i < 0 ? 0u - unsigned(i) : unsigned(i);
}

// The 27 taps around a cell of noise3 and noise4, entry (x, y, z) at
// table[z * 1024 + y * 32 + x], reduced along x, then y, then z.
template <class Tap>
float reduce3(const Cell& cx, const Cell& cy, const Cell& cz, Tap&& tap) {
    float alongY[3];
    for (int dz = 0; dz < 3; ++dz) {
        const int z = ((cz.i + dz - 1) & kMask) * Tnoise::kCubeSide * Tnoise::kCubeSide;
        float alongX[3];
        for (int dy = 0; dy < 3; ++dy) {
            const int row = z + ((cy.i + dy - 1) & kMask) * Tnoise::kCubeSide;
            alongX[dy] = spline(tap(row + ((cx.i - 1) & kMask)), tap(row + (cx.i & kMask)),
                                tap(row + ((cx.i + 1) & kMask)), cx.t);
        }
        alongY[dz] = spline(alongX[0], alongX[1], alongX[2], cy.t);
    }
    return spline(alongY[0], alongY[1], alongY[2], cz.t);
}

} // namespace

// ---------------------------------------------------------------- tables

float Tnoise::floorLarge(float x) {
    return std::floor(x);
}

const float* Tnoise::newTable() {
    return kOrvoNewNoiseTable;
}

const float* Tnoise::oldTable() {
    // The rule of the old table, run once.
    static const std::unique_ptr<float[]> table = [] {
        auto t = std::make_unique<float[]>(kTableSize + 1);
        int s = kInitialSeed;
        for (int i = 0; i < kTableSize; ++i)
            t[i] = sixDigits(2.0 * nDrand(s) - 1.0);
        t[kTableSize] = 0.0f;
        return t;
    }();
    return table.get();
}

void Tnoise::chooseTable() {
    fsTable = OrvoGetEnvInt("ORVO_RENDERER_OLD_RANDOM_TABLE", 0) != 0 ? oldTable() : newTable();
}

namespace {
const bool sTableChosen = (Tnoise::chooseTable(), true);
} // namespace

const T3Float* Tnoise::gradientTable() {
    static std::atomic<T3Float*> table{nullptr};
    T3Float* t = table.load(std::memory_order_acquire);
    if (t)
        return t;
    std::lock_guard<std::mutex> lock(fsCS);
    t = table.load(std::memory_order_relaxed);
    if (!t) {
        // Lives until the process ends, as every lazily built table here.
        t = new T3Float[kTableSize];
        Trand48 random(1);
        for (int i = 0; i < kTableSize; ++i) {
            const double z = 1.0 - 2.0 * random.drand48();
            const double a = 2.0 * M_PI * random.drand48();
            const double r = std::sqrt(1.0 - z * z);
            t[i] = {float(r * std::cos(a)), float(r * std::sin(a)), float(z)};
        }
        table.store(t, std::memory_order_release);
    }
    return t;
}

double Tnoise::randomNoise(int i) {
    return double(fsTable[absIndex(i) % unsigned(kTableSize)]);
}

float Tnoise::fastRandomNoiseFloat(int i) {
    if (i >= kTableSize)
        i %= kTableSize;
    return fsTable[i];
}

float Tnoise::valueInNoiseTable(int i) {
    const int k = i % kTableSize;
    return fsTable[k < 0 ? k + kTableSize : k];
}

T3Float Tnoise::valuesInNoiseTable(int i) {
    return {valueInNoiseTable(i), valueInNoiseTable(i + 1), valueInNoiseTable(i + 2)};
}

// ---------------------------------------------------------------- generators

double Tnoise::nDrand(int& seed) {
    seed = (seed * 25173 + 13849) & 0xFFFF;
    return double(seed) / 65535.0;
}

float Tnoise::nFrand(int& seed) {
    seed = (seed * 25173 + 13849) & 0xFFFF;
    return float(seed) / 65535.0f;
}

double Tnoise::erand48_r(unsigned short xsubi[3]) {
    uint64_t x = uint64_t(xsubi[0]) | (uint64_t(xsubi[1]) << 16) | (uint64_t(xsubi[2]) << 32);
    x = (x * Trand48::kMultiplier + Trand48::kIncrement) & Trand48::kMask;
    xsubi[0] = uint16_t(x);
    xsubi[1] = uint16_t(x >> 16);
    xsubi[2] = uint16_t(x >> 32);
    return std::ldexp(double(xsubi[0]), -48) + std::ldexp(double(xsubi[1]), -32) +
           std::ldexp(double(xsubi[2]), -16);
}

namespace {
constexpr int kRingSize = 3731;
// Unsynchronised in effect: callers on several threads share one position.
std::atomic<int> sRingPosition{0};
} // namespace

double Tnoise::rRand() {
    static std::atomic<const double*> ring{nullptr};
    const double* r = ring.load(std::memory_order_acquire);
    if (!r) {
        std::lock_guard<std::mutex> lock(fsCS);
        r = ring.load(std::memory_order_relaxed);
        if (!r) {
            auto* values = new double[kRingSize];
            Trand48 random;
            for (int i = 0; i < kRingSize; ++i)
                values[i] = random.drand48();
            ring.store(values, std::memory_order_release);
            r = values;
        }
    }
    int at = sRingPosition.load(std::memory_order_relaxed);
    const double value = r[at];
    if (++at >= kRingSize)
        at = 0;
    sRingPosition.store(at, std::memory_order_relaxed);
    return value;
}

void Tnoise::initNoiseState() {
    sRingPosition.store(0, std::memory_order_relaxed);
}

// ---------------------------------------------------------------- lattice noise

float Tnoise::noise1(float x) {
    if (x > 1e9f)
        x = 0.0f;
    const float g = (x - fastFloor(x)) * float(kCubeSide);
    // The first cell borrows the second's taps, so t runs from -1 there.
    const int i = std::max(1, int(g));
    const float t = g - float(i);
    const float* tab = fsTable;
    return spline(tab[(i - 1) % kTableSize], tab[i % kTableSize], tab[(i + 1) % kTableSize], t) *
           0.25f;
}

float Tnoise::noise2(float u, float v) {
    const Cell cu = reduceClamped(u);
    const Cell cv = reduceClamped(v);
    const float* tab = fsTable;
    const int c0 = (cu.i - 1) & kMask, c1 = cu.i & kMask, c2 = (cu.i + 1) & kMask;
    float rows[3];
    for (int d = 0; d < 3; ++d) {
        const int row = ((cv.i + d - 1) & kMask) * kCubeSide;
        rows[d] = spline(tab[row + c0], tab[row + c1], tab[row + c2], cu.t);
    }
    return spline(rows[0], rows[1], rows[2], cv.t) * 0.25f;
}

void Tnoise::DNoise2(double u, double v, float out[3]) {
    auto cell = [](double x, int& i, double& t) {
        if (x > 1e9)
            x = 1e9;
        const double g = (x - std::floor(x)) * double(kCubeSide);
        const double fi = std::floor(g);
        i = int(fi);
        t = g - fi;
    };
    int iu, iv;
    double tu, tv;
    cell(u, iu, tu);
    cell(v, iv, tv);
    const float* tab = fsTable;
    const int c0 = (iu - 1) & kMask, c1 = iu & kMask, c2 = (iu + 1) & kMask;
    double r[3], g[3];
    for (int d = 0; d < 3; ++d) {
        const int row = ((iv + d - 1) & kMask) * kCubeSide;
        const double a = tab[row + c0], b = tab[row + c1], c = tab[row + c2];
        r[d] = spline(a, b, c, tu);
        g[d] = halfSlope(a, b, c, tu);
    }
    out[0] = float(spline(g[0], g[1], g[2], tv));
    out[1] = float(halfSlope(r[0], r[1], r[2], tv));
    out[2] = float(spline(r[0], r[1], r[2], tv) * 0.25);
}

float Tnoise::latticeNoise3(float x, float y, float z) {
    const float* tab = fsTable;
    const float total =
        reduce3(reduce(x), reduce(y), reduce(z), [tab](int index) { return tab[index]; });
    return float(double(total) * 0.125);
}

void Tnoise::initNoiseTable() {
    std::lock_guard<std::mutex> lock(fsCS);
    if (!pfNoise3Compute.load(std::memory_order_relaxed))
        pfNoise3Compute.store(&latticeNoise3, std::memory_order_release);
}

float Tnoise::noise3(float x, float y, float z) {
    Noise3Fn compute = pfNoise3Compute.load(std::memory_order_acquire);
    if (!compute) {
        initNoiseTable();
        compute = pfNoise3Compute.load(std::memory_order_acquire);
    }
    return compute(x, y, z);
}

float Tnoise::noise4(float x, float y, float z, float t, int steps) {
    if (t > 1e9f)
        t = 0.0f;
    const float g = (t - fastFloor(t)) * float(steps);
    const float fk = fastFloor(g);
    const float s = g - fk;
    // Time steps past the table's end wrap, as every other table index does.
    int k = int(fk) % kTableSize;
    if (k < 0)
        k += kTableSize;
    const float* tab = fsTable;
    // Each time step hashes each lattice node to a new value.
    const double c0 = (double(tab[k]) + 1.0) * 21568.16;
    const double c1 = (double(tab[(k + 1) % kTableSize]) + 1.0) * 21568.16;
    const double c2 = (double(tab[(k + 2) % kTableSize]) + 1.0) * 21568.16;
    auto fract = [](double a) {
        return float(a - std::trunc(a));
    };
    const float total = reduce3(reduce(x), reduce(y), reduce(z), [&](int index) {
        const double L = double(tab[index]) + 2.0;
        return spline(fract(L * c0), fract(L * c1), fract(L * c2), s);
    });
    return float(double(total) * 0.125 - 1.0);
}

// ---------------------------------------------------------------- gradient noise

float Tnoise::gNoise3(float x, float y, float z) {
    // Only the cell modulo 256 matters, so the integer part is taken from a
    // value reduced into 0 .. 256 first: no coordinate can overflow an int.
    auto cell = [](float c, int& i, float& f) {
        if (c > 1e9f)
            c = 0.0f;
        const float fl = fastFloor(c);
        f = c - fl;
        if (fl > -1e9f && fl < 1e9f) {
            i = int(fl) & 255;
        } else {
            const float wrapped = fl - 256.0f * fastFloor(fl / 256.0f);
            i = int(wrapped) & 255;
        }
    };
    int ix, iy, iz;
    float fx, fy, fz;
    cell(x, ix, fx);
    cell(y, iy, fy);
    cell(z, iz, fz);
    const uint8_t* P = fsPermArray;
    const T3Float* G = gradientTable();
    auto lattice = [&](int i, int j, int k, float dx, float dy, float dz) {
        const T3Float& g = G[P[(P[(P[k & 255] + j) & 255] + i) & 255]];
        return g.x * dx + g.y * dy + g.z * dz;
    };
    auto blend = [](float a, float b, float t) {
        return a + (b - a) * t;
    };
    const float sx = fx * fx * (3.0f - 2.0f * fx);
    const float sy = fy * fy * (3.0f - 2.0f * fy);
    const float sz = fz * fz * (3.0f - 2.0f * fz);
    float alongZ[2];
    for (int dk = 0; dk < 2; ++dk) {
        float alongY[2];
        for (int dj = 0; dj < 2; ++dj) {
            const float n0 = lattice(ix, iy + dj, iz + dk, fx, fy - float(dj), fz - float(dk));
            const float n1 =
                lattice(ix + 1, iy + dj, iz + dk, fx - 1.0f, fy - float(dj), fz - float(dk));
            alongY[dj] = blend(n0, n1, sx);
        }
        alongZ[dk] = blend(alongY[0], alongY[1], sy);
    }
    return blend(alongZ[0], alongZ[1], sz);
}
