#pragma once

// The texture and the coordinates that the texture benchmarks share.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <stdlib.h>
#include <string>
#include <vector>

#include "host/pixel_map.h"

namespace orvo_bench {

constexpr unsigned kSide = 4096;
constexpr size_t kPoints = size_t(1) << 20;

struct Coords {
    std::vector<float> u, v;
};

// Random points on a grid of 2^-24, so that 1 - v, the row coordinate of a
// library whose rows run from the top, is exact too; none on a texel's edge,
// where the texel above and the one below are equally right.
inline Coords randomCoords(size_t count = kPoints) {
    Coords c;
    std::mt19937 random(17);
    auto coordinate = [&] {
        uint32_t k;
        do
            k = uint32_t(random() >> 8);
        while (k % (uint32_t(1 << 24) / kSide) == 0);
        return float(k) * 0x1p-24f;
    };
    for (size_t i = 0; i < count; ++i) {
        c.u.push_back(coordinate());
        c.v.push_back(coordinate());
    }
    return c;
}

// A 1024 x 1024 grid over the texture visited in 16 x 16 buckets, as a
// renderer's tiles do.
inline Coords coherentCoords() {
    Coords c;
    constexpr unsigned grid = 1024, bucket = 16;
    for (unsigned by = 0; by < grid; by += bucket)
        for (unsigned bx = 0; bx < grid; bx += bucket)
            for (unsigned y = by; y < by + bucket; ++y)
                for (unsigned x = bx; x < bx + bucket; ++x) {
                    c.u.push_back((x + 0.37f) / grid);
                    c.v.push_back((y + 0.61f) / grid);
                }
    return c;
}

// The picture, channel c of texel (x, y) from the top: soft colour waves
// with fine detail, so that levels differ.
inline uint8_t texel(unsigned x, unsigned y, unsigned c) {
    const double fx = x / double(kSide), fy = y / double(kSide);
    const double wave = 0.5 + 0.25 * std::sin(fx * 37.0 + c * 2.0) + 0.15 * std::cos(fy * 23.0 - c);
    uint32_t h = x * 73856093u ^ y * 19349663u ^ c * 83492791u;
    h ^= h >> 13;
    h *= 0x5bd1e995u;
    h ^= h >> 15;
    return uint8_t(std::clamp(wave * 220.0 + double(h & 31), 0.0, 255.0));
}

// The picture as RGB bytes, rows from the top as files hold them.
inline std::vector<uint8_t> texturePixels() {
    std::vector<uint8_t> pixels(size_t(kSide) * kSide * 3);
    for (unsigned y = 0; y < kSide; ++y)
        for (unsigned x = 0; x < kSide; ++x)
            for (unsigned c = 0; c < 3; ++c)
                pixels[(size_t(y) * kSide + x) * 3 + c] = texel(x, y, c);
    return pixels;
}

// The picture as a pixel map, rows from the bottom.
inline TpixelMap textureMap() {
    TpixelMap map(kSide, kSide, 3);
    for (unsigned y = 0; y < kSide; ++y)
        for (unsigned x = 0; x < kSide; ++x)
            map.setRGBA(x, kSide - 1 - y, texel(x, y, 0), texel(x, y, 1), texel(x, y, 2), 255);
    return map;
}

// A folder for the benchmark's files, removed at the end.
struct BenchFolder {
    std::string path;
    BenchFolder() {
        path = (std::filesystem::temp_directory_path() / "orvo-bench-XXXXXX").string();
        if (!::mkdtemp(path.data()))
            throw std::runtime_error("cannot make a temporary folder");
    }
    ~BenchFolder() {
        std::error_code ec;
        std::filesystem::remove_all(path, ec);
    }
    std::string file(const std::string& name) const { return path + "/" + name; }
};

} // namespace orvo_bench
