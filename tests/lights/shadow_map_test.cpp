// Shadow maps: compressed tiles, and lookups against maps made by hand,
// with the expected fractions worked out from the filter's rules.

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <thread>
#include <vector>

#include "framework/allocation_count.h"
#include "lights/shadow_map_support.h"

namespace {

using orvo_test::MapRig;
using orvo_test::scaleXY;

std::vector<unsigned char> compress(const std::vector<float>& values) {
    std::vector<unsigned char> out(TuseShadowMap::compressBound(values.size()));
    out.resize(
        TuseShadowMap::floatArrayCompress(values.data(), values.size(), out.data(), out.size()));
    return out;
}

float floatAt(const std::vector<unsigned char>& bytes, size_t at) {
    float f;
    std::memcpy(&f, bytes.data() + at, 4);
    return f;
}

TEST(FloatArrays, DifferencesRunsAndLiterals) {
    std::vector<float> v = {1, 2, 4, 4};
    TuseShadowMap::floatArrayConvertToDiff(v.data(), v.size());
    EXPECT_EQ(v, (std::vector<float>{1, 1, 2, 0}));

    // 5 | 0 0 0 | 1 2: a literal of one (5 stops before the pair 0 0), a
    // run of three zeros (131 = 128 + 3), then a literal of two.
    const std::vector<unsigned char> b = compress({5, 0, 0, 0, 1, 2});
    ASSERT_EQ(b.size(), 5u + 5u + 9u);
    EXPECT_EQ(b[0], 1);
    EXPECT_EQ(floatAt(b, 1), 5.0f);
    EXPECT_EQ(b[5], 131);
    EXPECT_EQ(floatAt(b, 6), 0.0f);
    EXPECT_EQ(b[10], 2);
    EXPECT_EQ(floatAt(b, 11), 1.0f);
    EXPECT_EQ(floatAt(b, 15), 2.0f);

    // 300 equal values: runs of 127, 127 and 46 (255, 255, 174).
    const std::vector<unsigned char> runs = compress(std::vector<float>(300, 0.5f));
    ASSERT_EQ(runs.size(), 15u);
    EXPECT_EQ(runs[0], 255);
    EXPECT_EQ(runs[5], 255);
    EXPECT_EQ(runs[10], 174);

    // A run takes values within 1e-7 of its first and stores their mean:
    // 1, 1, 1 - 2^-24 (6e-8 away) average to 1 - 2^-24 / 3, which rounds
    // to 1 in float. 1 + 2^-21 (4.8e-7 away) ends the run.
    const float near = 1.0f - std::ldexp(1.0f, -24), far = 1.0f + std::ldexp(1.0f, -21);
    const std::vector<unsigned char> tolerant = compress({1, 1, near, far});
    ASSERT_EQ(tolerant.size(), 10u);
    EXPECT_EQ(tolerant[0], 128 + 3);
    EXPECT_EQ(floatAt(tolerant, 1), 1.0f);
    EXPECT_EQ(tolerant[5], 1);
    EXPECT_EQ(floatAt(tolerant, 6), far);
}

TEST(FloatArrays, UncompressSumsTheDifferencesBack) {
    const std::vector<unsigned char> b = compress({5, 0, 0, 0, 1, 2});
    float out[6];
    ASSERT_TRUE(TuseShadowMap::floatArrayUncompressConvertFromDiff(b.data(), b.size(), out, 6));
    const float expected[6] = {5, 5, 5, 5, 6, 8};
    EXPECT_EQ(std::memcmp(out, expected, sizeof out), 0);
    // Too few or too many values, or a group cut short, is refused.
    EXPECT_FALSE(TuseShadowMap::floatArrayUncompressConvertFromDiff(b.data(), b.size(), out, 5));
    EXPECT_FALSE(
        TuseShadowMap::floatArrayUncompressConvertFromDiff(b.data(), b.size() - 1, out, 6));
    const unsigned char zeroGroup[1] = {128};
    EXPECT_FALSE(TuseShadowMap::floatArrayUncompressConvertFromDiff(zeroGroup, 1, out, 1));
}

TEST(ShadowMapTiles, LayoutKeepsEachTileBelow16000Texels) {
    struct Case {
        int width, height;
        int tileWidth, tileHeight, across, down;
    };
    // 512 x 512: 2 rows of 256; 16000 / 256 = 62 texels across at most, so
    // ceil(512 / 62) = 9 columns of ceil(512 / 9) = 57 (the last 56).
    // 2048 x 300: 2 rows of 150; 16000 / 150 = 106, ceil(2048 / 106) = 20
    // columns of ceil(2048 / 20) = 103. 64 x 512: 2 columns of 32.
    const Case cases[] = {{512, 512, 57, 256, 9, 2},
                          {2048, 300, 103, 150, 20, 2},
                          {64, 512, 32, 256, 2, 2},
                          {16, 16, 16, 16, 1, 1}};
    for (const Case& c : cases) {
        MapRig rig(c.width, c.height, 1.0f, 1.0f, [](int x, int) { return x == 3 ? 2.0f : 0.0f; });
        const TshadowMapInfo& info = *rig.map->map(0);
        EXPECT_EQ(info.tileWidth, c.tileWidth) << c.width;
        EXPECT_EQ(info.tileHeight, c.tileHeight) << c.width;
        EXPECT_EQ(info.tilesAcross, c.across) << c.width;
        EXPECT_EQ(info.tilesDown, c.down) << c.width;
        EXPECT_LT(info.tileWidth * info.tileHeight, TshadowMapInfo::kTileTexels);
        // Only texel column 3 sees something: one column of tiles holds it.
        EXPECT_EQ(info.left, 3);
        EXPECT_EQ(info.right, 3);
        EXPECT_EQ(info.bottom, 0);
        EXPECT_EQ(info.top, c.height - 1);
        for (int t = 0; t < info.tileCount; ++t)
            EXPECT_EQ(info.tiles[t]->empty(), t % info.tilesAcross != 0) << t;
    }
    // 512: the larger half size 256, int(256 * 0.66) = 168, squared.
    MapRig rig(512, 512, 1.0f, 1.0f, [](int, int) { return 0.0f; });
    EXPECT_EQ(rig.map->map(0)->centreLimit, 28224);
}

TEST(ShadowMapTiles, AnEmptyTileIsNeverDecompressedAndACopyServesAgain) {
    // 64 x 512 in four tiles of 32 x 256 (texel x = world x + 32, y = world
    // y + 256); the bottom left and top right tiles see something at depth
    // 1, the other two nothing.
    MapRig m(64, 512, 1.0f / 32, 1.0f / 256,
             [](int x, int y) { return (x < 32) == (y < 256) ? 1.0f : 0.0f; });
    EXPECT_TRUE(m.map->map(0)->tiles[1]->empty());
    TshadowMapInfo::releaseFLC();
    const uint64_t before = TshadowMapInfo::tilesDecompressed();
    EXPECT_EQ(m.at({8, -156, -5}, 1), 0.0f); // texels about (40, 100): the bottom right tile
    EXPECT_EQ(TshadowMapInfo::tilesDecompressed(), before);
    EXPECT_EQ(m.at({-22, -246, -5}, 1), 1.0f); // about (10, 10), bottom left
    EXPECT_EQ(m.at({-20, -240, -5}, 1), 1.0f); // its neighbour: the same copy
    EXPECT_EQ(TshadowMapInfo::tilesDecompressed(), before + 1);
}

// An 8 x 8 map whose texel x is world x + 4 (scale 1/4), y likewise, with
// an occluder at depth 2 over the left half (texels 0 to 3).
struct HalfMap : MapRig {
    HalfMap() : MapRig(8, 8, 0.25f, 0.25f, [](int x, int) { return x < 4 ? 2.0f : 0.0f; }) {}
};

TEST(ShadowMapLookups, InFrontBehindAndAtTheBiasEdge) {
    HalfMap m;
    EXPECT_EQ(m.at({-2, 0, -1}), 0.0f); // depth 1, in front of the occluder at 2
    EXPECT_EQ(m.at({-2, 0, -5}), 1.0f); // behind it
    EXPECT_EQ(m.at({2, 0, -5}), 0.0f);  // where the map saw nothing
    // Orthographic: the reference is depth - bias; a texel shadows when it
    // holds less. Depth 2.5 with bias 0.5 is exactly 2: not less.
    EXPECT_EQ(m.at({-2, 0, -2.5f}, 0, 0.5f), 0.0f);
    EXPECT_EQ(m.at({-2, 0, -2.625f}, 0, 0.5f), 1.0f);
    // Off the map, and behind the view plane (depth below 0): no shadow.
    EXPECT_EQ(m.at({-4.5f, 0, -5}), 0.0f);
    EXPECT_EQ(m.at({-2, 0, 1}), 0.0f);
}

TEST(ShadowMapLookups, PerspectiveBiasScalesWithTheDepth) {
    // Looking down -Z from the origin, 90 degrees wide: (0, 0, -2) is the
    // centre texel (4, 4) at 1/z = 0.5. The reference with bias 0.5 is
    // 0.5 + 0.5 * 0.5 = 0.75, and a texel shadows when it holds more.
    for (const float stored : {0.75f, 0.8125f}) {
        MapRig rig;
        rig.map = std::make_unique<TuseShadowMap>(T3dFltPoint{0, 0, 0}, true, 0, false);
        rig.map->setFaceCamera(0, T4dFltMatrix(), T4dFltMatrix());
        rig.map->setDepthBuffers(
            0, 8, 8, orvo_test::depthBuffer(8, 8, [&](int, int) { return stored; }), nullptr);
        rig.map->initMap(0, &rig.cache, nullptr);
        EXPECT_EQ(rig.at({0, 0, -2}, 0, 0.5f), stored > 0.75f ? 1.0f : 0.0f) << stored;
    }
}

TEST(ShadowMapLookups, ANarrowFilterTakesTheNearerTexel) {
    // Filter 0: r2 = 1 and one texel; x = 3.5 stays on texel 3 (in the
    // occluder's half), x = 3.75 goes to texel 4 (clear). The lone texel
    // decides the fraction alone, whatever its weight.
    HalfMap m;
    EXPECT_EQ(m.at({-0.5f, 0, -5}), 1.0f);
    EXPECT_EQ(m.at({-0.25f, 0, -5}), 0.0f);
}

TEST(ShadowMapLookups, FilterWeightsAcrossATileCorner) {
    // 64 x 512: four tiles of 32 x 256, the corner between them at texel
    // (31.5, 255.5). Only the bottom left tile sees something (depth 1).
    // The point sits on texel (31.25, 255.5) at depth 5: x = -0.75 / 32 * 32
    // + 32, y = -0.5 / 256 * 256 + 256.
    MapRig m(64, 512, 1.0f / 32, 1.0f / 256,
             [](int x, int y) { return x < 32 && y < 256 ? 1.0f : 0.0f; });
    // Filter 1: r2 = 2, texels 30..32 by 254..256. Squared distances below
    // 2: (30, 255|256) 1.5625 + 0.25, (31, 255|256) 0.0625 + 0.25,
    // (32, 255|256) 0.5625 + 0.25; row 254 is 2.25 away and more. Weights
    // 1 - e / 2: 0.09375, 0.84375, 0.59375, each twice, 3.0625 in all; in
    // shadow (30, 255) and (31, 255): 0.9375. 0.9375 / 3.0625 = 15 / 49.
    EXPECT_NEAR(m.at({-0.75f, -0.5f, -5}, 1), 15.0f / 49.0f, 1e-6);
    // A filter of 25 acts as 20: a ring of shadow 21 texels and more from
    // the point is out of its reach.
    MapRig ring(64, 64, 1.0f / 32, 1.0f / 32, [](int x, int y) {
        return (x - 32) * (x - 32) + (y - 32) * (y - 32) >= 21 * 21 ? 1.0f : 0.0f;
    });
    EXPECT_EQ(ring.at({0, 0, -5}, 25), 0.0f);
    EXPECT_GT(ring.at({-12, 0, -5}, 25), 0.0f); // nearer the ring, it reaches it
}

// The six faces of a cube map around a light at the origin, 8 x 8 each,
// in the order +X, +Y, +Z, -X, -Y, -Z. A face looks along its axis; the
// projection's 0.8 makes each a little wider than 90 degrees, so that
// neighbours overlap at the edges.
std::unique_ptr<TuseShadowMap> cube(TrenderCache& cache, const float* stored) {
    auto map = std::make_unique<TuseShadowMap>(T3dFltPoint{0, 0, 0}, true, 1, false);
    float* buffers[6] = {};
    float* mids[6] = {};
    int widths[6], heights[6];
    T4dFltMatrix views[6], projections[6];
    for (int face = 0; face < 6; ++face) {
        const int axis = face % 3;
        const float sign = face < 3 ? 1.0f : -1.0f;
        T3Float z{0, 0, 0}, up{0, 0, 0};
        z[axis] = -sign;
        up[axis == 1 ? 2 : 1] = 1.0f;
        const T3Float x = OrvoCross(up, z), y = OrvoCross(z, x);
        for (int i = 0; i < 3; ++i) {
            views[face].m[i][0] = x[i];
            views[face].m[i][1] = y[i];
            views[face].m[i][2] = z[i];
        }
        projections[face] = scaleXY(0.8f, 0.8f);
        widths[face] = heights[face] = 8;
        buffers[face] = orvo_test::depthBuffer(8, 8, [&](int, int) { return stored[face]; });
    }
    for (int face = 0; face < 6; ++face)
        map->initMap(face, &cache, widths, heights, nullptr, buffers, mids, views, projections);
    return map;
}

TEST(ShadowMapLookups, APointOnACubeEdgeMergesBothFaces) {
    TrenderCache cache(TrenderCache::kPrivateCacheSize, theMallocAllocator());
    // The +X face sees a wall at distance 1 (1/z = 1); the others nothing.
    const float stored[6] = {1, 0, 0, 0, 0, 0};
    auto map = cube(cache, stored);
    ASSERT_EQ(map->mapCount(), 6);
    MapRig rig;
    rig.map = std::move(map);
    // (2, 2, 0.5) lies on the edge of +X and +Y: in each it is at 1/z = 0.5,
    // 0.25 * 0.8 off the axis one way and 1 * 0.8 the other, texel (4.8,
    // 7.2) of one and (7.2, 4.8) of the other. Filter 0 takes texel (5, 7)
    // and (7, 5), each 0.2^2 * 2 = 0.08 away, weight 0.92. The +X one is in
    // shadow: 0.92 / (0.92 + 0.92).
    EXPECT_FLOAT_EQ(rig.at({2, 2, 0.5f}), 0.5f);
    // Straight along +X the point is in +X alone, in shadow; along +Y, in
    // +Y alone, clear. Then the edge again, with +Y tried first now.
    EXPECT_EQ(rig.at({3, 0.1f, 0.1f}), 1.0f);
    EXPECT_EQ(rig.at({0.1f, 3, 0.1f}), 0.0f);
    EXPECT_FLOAT_EQ(rig.at({2, 2, 0.5f}), 0.5f);
    // Nearer to the light than the wall: clear.
    EXPECT_EQ(rig.at({0.5f, 0.01f, 0.01f}), 0.0f);
}

TEST(ShadowMapLookups, MidDistanceMapsServeSurfacesAndFirstSurfacesFog) {
    // First surfaces at 2, second ones at 6: the surfaces' map holds 4. A
    // point at depth 3 is clear on a surface and shadowed in fog.
    MapRig m(
        8, 8, 0.25f, 0.25f, [](int, int) { return 2.0f; }, true,
        [](int x, int) { return x < 4 ? 6.0f : 0.0f; });
    EXPECT_EQ(m.at({-2, 0, -3}), 0.0f);
    EXPECT_EQ(m.at({-2, 0, -3}, 0, 0.0f, false), 1.0f);
    // Where no second surface was seen the merged map holds 1.
    EXPECT_EQ(m.at({2, 0, -3}), 1.0f);
    EXPECT_EQ(m.at({2, 0, -0.5f}), 0.0f);

    float first[3] = {0, 2, 2}, second[3] = {5, 0, 4}, out[3];
    TuseShadowMap::mergeDepthBuffers(3, 1, first, second, out);
    EXPECT_EQ(out[0], 0.0f);
    EXPECT_EQ(out[1], 1.0f);
    EXPECT_EQ(out[2], 3.0f);
}

TEST(ShadowMapLookups, FogMarchesItsSegmentInSteps) {
    // The occluder at depth 2 everywhere; a segment from depth 0 to 4 in 4
    // steps from the volume sequence's value at instance 0 (0): depths 0,
    // 1, 2 and 3. Only 3 lies beyond 2: a mean of 1/4, times the
    // intensity.
    MapRig m(8, 8, 0.25f, 0.25f, [](int, int) { return 2.0f; });
    T3dFltPoint from{0, 0, 0}, to{0, 0, -4};
    int16_t steps = 4, filter = 0;
    int32_t instance = 0;
    float bias = 0.0f;
    for (const short intensity : {2, 10}) {
        float fraction = -1;
        ShadowMapVecSamples s;
        s.count = 1;
        s.fractions = &fraction;
        s.surface = false;
        s.pointWorld = TvectorDataHandle(TdataHandle(nullptr, nullptr, &from));
        s.farPointWorld = TvectorDataHandle(TdataHandle(nullptr, nullptr, &to));
        s.volumeShadowSamples = TvectorDataHandle(TdataHandle(nullptr, nullptr, &steps));
        s.rayInstance = TvectorDataHandle(TdataHandle(nullptr, nullptr, &instance));
        ASSERT_EQ(m.map->sampleShadow(s, TvectorDataHandle(TdataHandle(nullptr, nullptr, &filter)),
                                      TvectorDataHandle(TdataHandle(nullptr, nullptr, &bias)),
                                      intensity),
                  0);
        EXPECT_EQ(fraction, intensity == 2 ? 0.5f : 1.0f) << intensity; // limited to 1
    }
    ShadowMapVecSamples none;
    EXPECT_EQ(m.map->sampleShadow(none, {}, {}, 1), -1);
}

// A 256 x 256 map with a depth that varies texel by texel: a staircase of
// boxes. A point over texel (x, y) at depth d is shadowed when the stored
// depth is less than d.
float staircase(int x, int y) {
    return (x / 16 + y / 16) % 5 == 0 ? 0.0f : 2.0f + float((x * 7 + y * 3) % 11);
}

TEST(ShadowMapTiles, TilesSentToSwapComeBackForLookupsFromManyThreads) {
    MapRig m(256, 256, 1.0f / 128, 1.0f / 128, staircase);
    TrenderCache& cache = m.cache;
    // Everything out: each tile goes to the swap file.
    while (cache.reclaim(nullptr) == 0) {
    }
    const TshadowMapInfo& info = *m.map->map(0);
    int swapped = 0;
    for (int t = 0; t < info.tileCount; ++t)
        swapped += info.tiles[t]->inSwap();
    EXPECT_GT(swapped, 0);
    // A target that keeps a tile or two in memory: lookups evict as they go.
    cache.reallySetMaximumMemorySize(cache.usedSize() + 8192);
    cache.setGrowthEnabled(false);

    std::atomic<int> wrong{0};
    auto work = [&](int seed) {
        TshadowMapInfo::releaseFLC();
        for (int k = 0; k < 2000; ++k) {
            const int x = (k * 37 + seed * 101) % 256, y = (k * 53 + seed * 17) % 256;
            const float depth = 2.5f + float(k % 11);
            const float expected = staircase(x, y) != 0.0f && staircase(x, y) < depth ? 1.0f : 0.0f;
            if (m.at({float(x - 128), float(y - 128), -depth}) != expected)
                ++wrong;
        }
        TshadowMapInfo::releaseFLC();
    };
    std::thread a(work, 1), b(work, 2);
    work(3);
    a.join();
    b.join();
    EXPECT_EQ(wrong.load(), 0);
}

TEST(ShadowMapLookups, ABatchAllocatesNothing) {
    if (!OrvoTestAllocationsAreCounted())
        GTEST_SKIP() << "allocations are counted in the ordinary build only";
    MapRig m(256, 256, 1.0f / 128, 1.0f / 128, staircase);
    T3dFltPoint points[64];
    for (int i = 0; i < 64; ++i)
        points[i] = {float(i % 8) * 3 - 12, float(i / 8) * 3 - 12, -6};
    float out[64];
    m.sample(points, 64, out, 2, 0.01f); // the thread's tile copies are made here
    OrvoTestStartCountingAllocations();
    m.sample(points, 64, out, 2, 0.01f);
    EXPECT_EQ(OrvoTestStopCountingAllocations(), 0);
}

} // namespace
