// The cost of our noise beside two widely used noise libraries, on the same
// points: stb's gradient noise (stb_perlin.h) and libnoise. The three are
// different noises, so only the cost is compared: each line gives
// nanoseconds per evaluation and our cost as a fraction of each peer's.
// Before timing, every function is run over the points once and its values
// must be finite and bounded, so that nothing timed is a degenerate path.
//
// Rows: our 2D lattice noise (noise2) beside the peers' 3D noise at z = 0
// (neither peer has a 2D form), our 3D lattice and gradient noise beside the
// peers' 3D noise, and fractal sums of 1 to 8 octaves (our TperlinTexture,
// which the noise texture runs, with frequency ratio 2 and amplitude ratio
// 0.5) beside stb_perlin_fbm_noise3 and libnoise's Perlin module with the
// same lacunarity and persistence.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#define STB_PERLIN_IMPLEMENTATION
#include <stb/stb_perlin.h>

#include <libnoise/noise.h>

#include "textures/noise_functions.h"
#include "textures/volume_texture.h"

namespace {

struct Point {
    float x, y, z;
};

std::vector<Point> makePoints(size_t n) {
    std::vector<Point> points(n);
    Trand48 random(7);
    for (Point& p : points)
        p = {float(random.drand48() * 8.0), float(random.drand48() * 8.0),
             float(random.drand48() * 8.0)};
    return points;
}

using Eval = std::function<float(const Point&)>;

// The best of several timed passes over all points, in ns per evaluation.
double nsPerEval(const std::vector<Point>& points, const Eval& f) {
    volatile float sink = 0.0f;
    double best = 1e30;
    for (int pass = 0; pass < 7; ++pass) {
        const auto start = std::chrono::steady_clock::now();
        float sum = 0.0f;
        for (const Point& p : points)
            sum += f(p);
        const auto end = std::chrono::steady_clock::now();
        sink = sink + sum;
        best = std::min(best, std::chrono::duration<double, std::nano>(end - start).count());
    }
    return best / double(points.size());
}

// Runs f over the points and checks its values are finite and bounded.
bool sane(const std::vector<Point>& points, const Eval& f, const char* name) {
    float lo = 1e30f, hi = -1e30f;
    for (const Point& p : points) {
        const float v = f(p);
        if (!std::isfinite(v)) {
            std::printf("%s: value not finite at (%g, %g, %g)\n", name, double(p.x), double(p.y),
                        double(p.z));
            return false;
        }
        lo = std::min(lo, v);
        hi = std::max(hi, v);
    }
    if (lo < -4.0f || hi > 4.0f || hi - lo < 1e-3f) {
        std::printf("%s: values %g .. %g are out of range or flat\n", name, double(lo), double(hi));
        return false;
    }
    return true;
}

struct Row {
    std::string name;
    Eval ours, stb, lib;
};

} // namespace

int main() {
    const std::vector<Point> points = makePoints(1 << 15);
    std::vector<Row> rows;
    rows.push_back({"2D noise", [](const Point& p) { return Tnoise::noise2(p.x, p.y); },
                    [](const Point& p) { return stb_perlin_noise3(p.x, p.y, 0.0f, 0, 0, 0); },
                    [](const Point& p) {
                        return float(noise::GradientCoherentNoise3D(p.x, p.y, 0.0));
                    }});
    rows.push_back({"3D lattice noise",
                    [](const Point& p) { return Tnoise::noise3(p.x, p.y, p.z); },
                    [](const Point& p) { return stb_perlin_noise3(p.x, p.y, p.z, 0, 0, 0); },
                    [](const Point& p) {
                        return float(noise::GradientCoherentNoise3D(p.x, p.y, p.z));
                    }});
    rows.push_back({"3D gradient noise",
                    [](const Point& p) { return Tnoise::gNoise3(p.x, p.y, p.z); },
                    [](const Point& p) { return stb_perlin_noise3(p.x, p.y, p.z, 0, 0, 0); },
                    [](const Point& p) {
                        return float(noise::GradientCoherentNoise3D(p.x, p.y, p.z));
                    }});
    // Fractal sums. The texture objects live for the whole run, as a node's
    // do for a batch.
    std::vector<TperlinTexture> ours(8);
    std::vector<noise::module::Perlin> theirs(8);
    for (int octaves = 1; octaves <= 8; ++octaves) {
        TperlinTexture& t = ours[size_t(octaves - 1)];
        t.setHarmonics(int16_t(octaves));
        t.setRatio(0.5f);
        t.setAmpRatio(0.5f);
        t.setGain(1.0f);
        noise::module::Perlin& m = theirs[size_t(octaves - 1)];
        m.SetOctaveCount(octaves);
        m.SetLacunarity(2.0);
        m.SetPersistence(0.5);
        m.SetFrequency(1.0);
        rows.push_back(
            {"fractal, " + std::to_string(octaves) + " octave" + (octaves > 1 ? "s" : ""),
             [&t](const Point& p) { return t.getValue(p.x, p.y, p.z, 0.0f); },
             [octaves](const Point& p) {
                 return stb_perlin_fbm_noise3(p.x, p.y, p.z, 2.0f, 0.5f, octaves);
             },
             [&m](const Point& p) {
                 return float(m.GetValue(p.x, p.y, p.z));
             }});
    }

    for (const Row& r : rows)
        if (!sane(points, r.ours, (r.name + " (ours)").c_str()) ||
            !sane(points, r.stb, (r.name + " (stb)").c_str()) ||
            !sane(points, r.lib, (r.name + " (libnoise)").c_str()))
            return 1;

    std::printf("%zu points; ns per evaluation, best of 7 passes; ratio = our cost / theirs\n",
                points.size());
    std::printf("%-22s %9s %9s %9s %11s %14s\n", "", "ours", "stb", "libnoise", "ours/stb",
                "ours/libnoise");
    for (const Row& r : rows) {
        const double o = nsPerEval(points, r.ours);
        const double s = nsPerEval(points, r.stb);
        const double l = nsPerEval(points, r.lib);
        std::printf("%-22s %9.2f %9.2f %9.2f %11.2f %14.2f\n", r.name.c_str(), o, s, l, o / s,
                    o / l);
    }
    return 0;
}
