// The area light: how much of its square a surface sees, worked out edge
// by edge, its highlight direction, its decay from the centre, and shadow
// rays that end on the square.

#include "lights/area_light.h"
#include "lights/light_test_support.h"

#include <cmath>

namespace {

using orvo_test::Batch;
using orvo_test::HalfPlaneSampler;
using orvo_test::LightRig;

TEST(AreaLight, ASurfaceSeesTheSquareEdgeByEdge) {
    // The square (corners +-1 at z = 0) shines toward -Z. From (0, 0, -1)
    // facing it, each edge spans acos(1/3) = 1.230959 and its plane makes
    // cos 45 with the normal: 4 x 1.230959 x 0.707107 = 3.481679.
    LightRig rig("areaLight");
    Batch b(rig.light, 1);
    b.point(0, 0, 0, -1);
    b.compute();
    auto* light = rig.as<TareaLightShape>();
    EXPECT_NEAR(light->integrateLambertianReflectance({0, 0, 1}, {0, 0, -1}, {0, 0, 1}, true),
                3.481679, 1e-4);
    // A share of the hemisphere: / 2 pi = 0.554126.
    EXPECT_NEAR(light->hemisphereCoverage({0, 0, 1}, {0, 0, -1}, {0, 0, 1}, true), 0.554126, 1e-4);
    // Facing away, the sum turns negative; attenuation is its size.
    EXPECT_NEAR(light->integrateLambertianReflectance({0, 0, 1}, {0, 0, -1}, {0, 0, -1}, true),
                -3.481679, 1e-4);
    EXPECT_NEAR(light->lightAttenuation({0, 0, -1}, {0, 0, -1}, true), 3.481679, 1e-4);
    // Behind the square, nothing.
    EXPECT_EQ(light->integrateLambertianReflectance({0, 0, 1}, {0, 0, 1}, {0, 0, -1}, true), 0.0f);
    // So a material must ask the square, not take the cosine itself; a
    // light from one direction lets it.
    EXPECT_FALSE(light->cosineOnly());
    LightRig directional("directionalLight");
    EXPECT_TRUE(directional.light->cosineOnly());
}

TEST(AreaLight, HighlightsAimWithinTheSquare) {
    LightRig rig("areaLight");
    Batch b(rig.light, 1);
    b.compute();
    auto* light = rig.as<TareaLightShape>();
    // From (0, 0, -2) a mirror direction toward (0.5, 0, 0) meets the
    // square there; one toward (4, 0, 0) is held at its edge (1, 0, 0).
    const T3dFltVector inside(0.5f, 0.0f, 2.0f), outside(4.0f, 0.0f, 2.0f);
    const T3Float a =
        light->maxPhongSpecularDirection({0, 0, 1}, {0, 0, -2}, {}, {0, 0, 1}, &inside);
    const T3Float c =
        light->maxPhongSpecularDirection({0, 0, 1}, {0, 0, -2}, {}, {0, 0, 1}, &outside);
    const float k = 1.0f / std::sqrt(4.25f), m = 1.0f / std::sqrt(5.0f);
    EXPECT_RGB_NEAR(&a.x, 0.5f * k, 0, 2 * k, 1e-5);
    EXPECT_RGB_NEAR(&c.x, m, 0, 2 * m, 1e-5);
}

TEST(AreaLight, DecaysFromItsCentreAndShadowRaysEndOnTheSquare) {
    LightRig rig("areaLight");
    HalfPlaneSampler sampler;
    sampler.height = -100.0f; // behind the samples: nothing in the way
    Batch b(rig.light, 1);
    b.all<int16_t>(TnonAmbientLightShape::aDecayRate, 2);
    b.all<float>(TlightShape::aIntensity, 9.0f);
    b.all<void*>(TlightShape::aRaySampler, &sampler);
    b.all<bool>(TlightShape::aUseRayTraceShadows, true);
    b.all<int16_t>(TlightShape::aNumShadowSamples, 16);
    b.point(0, 0.5f, 0.25f, -3);
    b.compute();
    // 9 / (0.25 + 0.0625 + 9).
    EXPECT_NEAR(b.record(0).intensity[0], 9.0 / 9.3125, 1e-5);
    ASSERT_EQ(sampler.calls.size(), 1u);
    ASSERT_EQ(sampler.calls[0].rays.size(), 16u);
    for (const TgenericRay& ray : sampler.calls[0].rays) {
        // origin + direction lies on the square; the ray ends there.
        const float x = ray.origin[0] + ray.direction[0];
        const float y = ray.origin[1] + ray.direction[1];
        const float z = ray.origin[2] + ray.direction[2];
        EXPECT_NEAR(z, 0.0f, 1e-5);
        EXPECT_LE(std::fabs(x), 1.0f + 1e-5f);
        EXPECT_LE(std::fabs(y), 1.0f + 1e-5f);
        EXPECT_NEAR(ray.maxDistance,
                    std::sqrt(ray.direction[0] * ray.direction[0] +
                              ray.direction[1] * ray.direction[1] +
                              ray.direction[2] * ray.direction[2]),
                    1e-5);
    }
}

} // namespace
