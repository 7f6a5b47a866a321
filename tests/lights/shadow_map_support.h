#pragma once

// Shadow maps made by hand for the tests: depth buffers filled by a rule,
// face cameras written out, lookups of single points.

#include <cstring>
#include <functional>
#include <memory>

#include "cache/render_cache.h"
#include "host/arena.h"
#include "host/mmap_alloc.h"
#include "lights/shadow_map.h"

namespace orvo_test {

// A diagonal projection: view x and y scaled, z left alone.
inline T4dFltMatrix scaleXY(float sx, float sy) {
    T4dFltMatrix m;
    m.m[0][0] = sx;
    m.m[1][1] = sy;
    return m;
}

// A depth buffer of width x height from depth(x, y), rows from the bottom.
inline float* depthBuffer(int width, int height, const std::function<float(int, int)>& depth) {
    auto* b = static_cast<float*>(mmapAlloc(size_t(width) * size_t(height) * 4, "test depth"));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            b[size_t(y) * size_t(width) + size_t(x)] = depth(x, y);
    return b;
}

struct MapRig {
    TrenderCache cache{TrenderCache::kPrivateCacheSize, theMallocAllocator()};
    std::unique_ptr<TuseShadowMap> map;

    // One orthographic map looking down -Z from the origin's plane: a point
    // (x, y, z) lies at depth -z, on texel (x * sx + 1) * width / 2.
    MapRig(int width, int height, float sx, float sy, const std::function<float(int, int)>& depth,
           bool mid = false, const std::function<float(int, int)>& second = {}) {
        map = std::make_unique<TuseShadowMap>(T3dFltPoint{0, 0, 0}, false, 0, mid);
        map->setFaceCamera(0, T4dFltMatrix(), scaleXY(sx, sy));
        map->setDepthBuffers(0, width, height, depthBuffer(width, height, depth),
                             second ? depthBuffer(width, height, second) : nullptr);
        const float bias = 0.0f;
        map->initMap(0, &cache, &bias);
    }
    MapRig() = default;

    // The fraction at each point, with the filter size and bias given.
    void sample(const T3dFltPoint* points, unsigned count, float* out, int16_t filter, float bias,
                bool surface = true) {
        ShadowMapVecSamples s;
        s.count = count;
        s.fractions = out;
        s.surface = true;
        s.points = TvectorDataHandle(
            TdataHandle(nullptr, nullptr, const_cast<T3dFltPoint*>(points)), sizeof(T3dFltPoint));
        if (!surface) {
            // A fog segment of one step at each point: the first-surface map.
            s.surface = false;
            s.pointWorld = s.farPointWorld = s.points;
        }
        map->sampleShadow(s, TvectorDataHandle(TdataHandle(nullptr, nullptr, &filter)),
                          TvectorDataHandle(TdataHandle(nullptr, nullptr, &bias)), 1);
    }
    float at(const T3dFltPoint& p, int16_t filter = 0, float bias = 0.0f, bool surface = true) {
        float f = -1.0f;
        sample(&p, 1, &f, filter, bias, surface);
        return f;
    }
};

} // namespace orvo_test
