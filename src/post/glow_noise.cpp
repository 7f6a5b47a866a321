#include "post/glow_noise.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace orvo::post {

namespace {

constexpr int kTableSize = 65535;

double fractionOf(double x) {
    return x - std::floor(x);
}

// The quadratic B-spline through three lattice values, doubled: at fu = 0
// it gives a + b, at fu = 1 b + c. The caller halves it once per axis.
double spline(double a, double b, double c, double fu) {
    return ((a - 2.0 * b + c) * fu - 2.0 * (a - b)) * fu + a + b;
}

} // namespace

const double* glowNoiseTable() {
    static const std::vector<double> table = [] {
        std::vector<double> values(kTableSize);
        uint32_t state = 2413;
        for (double& v : values) {
            state = (state * 25173u + 13849u) & 0xFFFFu;
            v = 2.0 * double(state) / 65535.0 - 1.0;
        }
        return values;
    }();
    return table.data();
}

float glowNoise(double x1, double x2) {
    const double* table = glowNoiseTable();
    const double u = fractionOf(x1) * 32.0;
    const double v = fractionOf(x2) * 32.0;
    const int i = int(std::floor(u));
    const int j = int(std::floor(v));
    const double fu = u - i;
    const double fv = v - j;
    double rows[3];
    for (int k = 0; k < 3; ++k) {
        const int row = (j - 1 + k) & 31;
        const double a = table[row * 32 + ((i - 1) & 31)];
        const double b = table[row * 32 + (i & 31)];
        const double c = table[row * 32 + ((i + 1) & 31)];
        rows[k] = spline(a, b, c, fu);
    }
    return float(spline(rows[0], rows[1], rows[2], fv) * 0.25);
}

float radialGlowNoise(double y, double x, float star, float points, float noise, float frequency,
                      float rotation) {
    if (star == 0.0f && noise == 0.0f)
        return 1.0f;
    double a = (y == 0.0 && x == 0.0) ? 0.0 : std::atan2(y, x) / 6.283185307179586 + 0.5;
    const double whole = std::trunc(double(rotation));
    a += ((double(rotation) - whole) + std::fmod(whole, 360.0)) / 360.0;
    if (a > 1.0)
        a -= 1.0;
    else if (a < 0.0)
        a += 1.0;
    a = std::min(a, 0.999995);
    double f = 1.0;
    if (star != 0.0f)
        f = std::max(0.0, 1.0 - std::fabs(std::sin(points * a * 3.141592653589793)) * star);
    if (noise == 0.0f)
        return float(f);
    const double s = fractionOf(a) * frequency;
    double v = glowNoise(s, s) + 0.5;
    if (a < 0.1) {
        // Blend with the noise seen from the other side of the seam at
        // a = 0, so the pattern closes around the circle.
        const double s2 = fractionOf(1.0 - a) * frequency;
        v = (glowNoise(s2, s2) + 0.5) * (1.0 - 10.0 * a) + v * 10.0 * a;
    }
    const double d = 1.0 - noise * v;
    return float(d * d * f);
}

double randomNoise(long i) {
    return glowNoiseTable()[std::labs(i) % kTableSize];
}

} // namespace orvo::post
