// The point light: decay at each rate, its spherical map projection, its
// fog glow by hand, its shadow rays toward a sphere of lightRadius, and
// its cube of depth maps.

#include "lights/light_test_support.h"
#include "lights/point_light.h"
#include "lights/shadow_map_support.h"

#include <cmath>

namespace {

using orvo_test::Batch;
using orvo_test::HalfPlaneSampler;
using orvo_test::LightRig;

TEST(PointLight, DecaysByEachRateBeyondAUnit) {
    // 2 away along +X from a light at (1, 0, 0); intensity 8.
    const float expected[4] = {8.0f, 4.0f, 2.0f, 1.0f};
    for (int16_t rate = 0; rate < 4; ++rate) {
        LightRig rig("pointLight", "set t.translate 1 0 0\n");
        Batch b(rig.light, 2);
        b.all<float>(TlightShape::aIntensity, 8.0f);
        b.all<int16_t>(TnonAmbientLightShape::aDecayRate, rate);
        b.point(0, 3, 0, 0);
        b.point(1, 1, 0.5f, 0);
        b.compute();
        EXPECT_NEAR(b.record(0).intensity[0], expected[rate], 1e-5) << rate;
        EXPECT_RGB_NEAR(b.record(0).direction, -1, 0, 0, 1e-6);
        EXPECT_NEAR(b.record(1).intensity[0], 8.0f, 1e-5) << rate;
        EXPECT_NEAR(b.record(0).preShadowIntensity, expected[rate], 1e-5);
    }
}

TEST(PointLight, MapsAroundTheLightByLongitudeAndLatitude) {
    // +X: longitude atan2(1, 0) = pi/2, so u = 1/4 + 1/2; on the equator.
    const T2Float x = TpointLightShape::projection({2, 0, 0});
    EXPECT_NEAR(x.x, 0.75f, 1e-6);
    EXPECT_NEAR(x.y, 0.5f, 1e-6);
    // Up and back: latitude atan2(0.7071, 0.7071) = pi/4, v = 3/4; x is 0,
    // which leaves the longitude at 0: u = 1/2.
    const T2Float up = TpointLightShape::projection({0, 1, 1});
    EXPECT_NEAR(up.x, 0.5f, 1e-6);
    EXPECT_NEAR(up.y, 0.75f, 1e-6);
    // Straight up the XZ radius is 0, which leaves the latitude at 0 too.
    EXPECT_NEAR(TpointLightShape::projection({0, 3, 0}).y, 0.5f, 1e-6);
}

TEST(PointLight, FogGlowsByTheChordItsRayCrosses) {
    // A chord of 1 in a sphere of radius 1: h = 0.5, w = 1 - 0.25 + 1 =
    // 1.75, t = 1 / 3.5 = 0.285714.
    const float t = 1.0f / 3.5f;
    using K = TpointLightShape;
    EXPECT_NEAR(K::fogAmount(1, 1, K::kNormal, 0), t, 1e-6);
    EXPECT_NEAR(K::fogAmount(1, 1, K::kNormal, 2), t * t, 1e-6);
    EXPECT_NEAR(K::fogAmount(1, 1, K::kNormal, 3), t * t * t, 1e-6);
    EXPECT_NEAR(K::fogAmount(1, 1, K::kLinear, 1), t * t, 1e-6);
    // Linear at rate 2, exponential at rate 0: (1 - sqrt(1 - t))^2.
    EXPECT_NEAR(K::fogAmount(1, 1, K::kLinear, 2), 0.0239772, 1e-6);
    EXPECT_NEAR(K::fogAmount(1, 1, K::kExponential, 0), 0.0239772, 1e-6);
    // Longer than the sphere is wide: all of it.
    EXPECT_EQ(K::fogAmount(2.5f, 1, K::kNormal, 2), 1.0f);

    // A sample of the fog object: 3 x fogIntensity 2 x t, whatever its
    // distance and decay.
    LightRig rig("pointLight", "node transform f\nnode mesh fogShape -parent f\n"
                               "connect fogShape.message light.fogGeometry\n");
    Batch b(rig.light, 2);
    b.all<float>(TpointLightShape::aFogIntensity, 2.0f);
    b.all<float>(TlightShape::aIntensity, 3.0f);
    b.all<int16_t>(TnonAmbientLightShape::aDecayRate, 2);
    void* fog = rig.g.findNode("fogShape");
    b.at<void*>(TlightShape::aObjectId, 0) = fog;
    for (unsigned e = 0; e < 2; ++e) {
        b.set3(TpointLightShape::aPointWorld, e, 0, 0, 4);
        b.set3(TpointLightShape::aFarPointWorld, e, 0, 0, 5);
        b.point(e, 0, 0, 4.5f);
    }
    b.compute();
    EXPECT_NEAR(b.record(0).intensity[0], 3 * 2 * t * t, 1e-5);
    // The other sample is a surface 4.5 away: 3 / 4.5^2.
    EXPECT_NEAR(b.record(1).intensity[0], 3 / 20.25, 1e-5);
}

TEST(PointLight, ShadowRaysAimAtItsSphere) {
    // The light 10 above the origin, radius 6: from the origin the sphere
    // fills a cone of cosine sqrt(1 - 0.36) = 0.8 about +Z.
    LightRig rig("pointLight", "set t.translate 0 0 10\nset light.lightRadius 6\n");
    HalfPlaneSampler sampler;
    sampler.height = 100.0f; // beyond the light: nothing is in the way
    Batch b(rig.light, 1);
    b.all<void*>(TlightShape::aRaySampler, &sampler);
    b.all<bool>(TlightShape::aUseRayTraceShadows, true);
    b.all<int16_t>(TlightShape::aNumShadowSamples, 8);
    b.compute();
    ASSERT_EQ(sampler.calls.size(), 1u);
    ASSERT_EQ(sampler.calls[0].rays.size(), 8u);
    for (const TgenericRay& ray : sampler.calls[0].rays) {
        EXPECT_EQ(ray.maxDistance, 10.0f);
        EXPECT_GE(ray.direction[2], 0.8f - 1e-5f);
    }
    EXPECT_RGB_NEAR(b.record(0).intensity, 1, 1, 1, 1e-6);
}

TEST(PointLight, CubeFacesOfAHandMadeMapShadowPointsAllRound) {
    // A cube around the origin, each face a 90 degree view down its axis
    // with a wall 2 away: 1/z = 0.5 everywhere. Points 3 away are behind
    // the walls, points 1 away in front.
    LightRig rig("pointLight", "set light.useDepthMapShadows true\n");
    auto* light = rig.as<TpointLightShape>();
    TrenderCache cache(TrenderCache::kPrivateCacheSize, theMallocAllocator());
    TdepthMapSetup setup;
    setup.perspective = true;
    setup.cubeFlag = 1;
    setup.faceCount = 6;
    setup.width = setup.height = 16;
    // Face k looks down +X, +Y, +Z, -X, -Y, -Z: world to view turns that
    // axis into -Z (rows are where each world axis goes).
    const float views[6][3][3] = {
        {{0, 0, -1}, {0, 1, 0}, {1, 0, 0}},  {{1, 0, 0}, {0, 0, -1}, {0, 1, 0}},
        {{-1, 0, 0}, {0, 1, 0}, {0, 0, -1}}, {{0, 0, 1}, {0, 1, 0}, {-1, 0, 0}},
        {{1, 0, 0}, {0, 0, 1}, {0, -1, 0}},  {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
    for (int f = 0; f < 6; ++f)
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j)
                setup.worldToView[f].m[i][j] = views[f][i][j];
    light->prepareShadowMap(&cache, setup, false, nullptr, nullptr);
    for (int f = 0; f < 6; ++f)
        light->shadowMap()->setDepthBuffers(
            f, 16, 16, orvo_test::depthBuffer(16, 16, [](int, int) { return 0.5f; }), nullptr);
    EXPECT_EQ(light->createShadowMap(&cache), 6);

    Batch b(light, 8);
    b.all<bool>(TlightShape::aUseRayTraceShadows, false);
    b.all<int16_t>(TnonExtendedLightShape::aDmapFilterSize, 0);
    b.all<float>(TnonExtendedLightShape::aDmapBias, 0.0f);
    const float points[8][3] = {{3, 0, 0}, {0, -3, 0}, {0, 0, 3},          {-1, 0, 0},
                                {0, 1, 0}, {0, 0, -1}, {2.2f, 2.0f, 0.3f}, {0.9f, 0.85f, 0.1f}};
    for (unsigned e = 0; e < 8; ++e)
        b.point(e, points[e][0], points[e][1], points[e][2]);
    b.compute();
    // The last two lie just off the edge between the +X and +Y faces.
    const float fraction[8] = {1, 1, 1, 0, 0, 0, 1, 0};
    for (unsigned e = 0; e < 8; ++e)
        EXPECT_EQ(b.record(e).shadowFraction, fraction[e]) << e;
    light->deleteShadowMap();
}

} // namespace
