// Ray traced shadows toward a light's sphere, on an ambient light (the point
// form with its shadowRadius), against an opaque half plane z = 5 over x < 0.
// The rays of a sample go out in a cone about the direction to the light's
// centre; which of them the half plane stops is worked out from the
// Hammersley values of their instances: h1 the base-2 radical inverse (the
// angle about the axis), h2 the base-3 one (the opening).

#include "lights/ambient_light.h"
#include "lights/light_test_support.h"

namespace {

using orvo_test::Batch;
using orvo_test::HalfPlaneSampler;
using orvo_test::LightRig;
using orvo_test::PassGuard;

// A light 10 above the origin with a sphere of radius 3, flat, of colour
// (2, 1, 0.5) with intensity; shadow colour (0.1, 0.2, 0.3).
struct SphereRig : LightRig {
    HalfPlaneSampler sampler;
    Batch b;
    int surfaces[3] = {};

    explicit SphereRig(unsigned count)
        : LightRig("ambientLight", "set t.translate 0 0 10\n"), b(light, count) {
        b.all<float>(TambientLightShape::aAmbientShade, 0.0f);
        b.all<float>(TambientLightShape::aShadowRadius, 3.0f);
        b.all<float>(TlightShape::aIntensity, 2.0f);
        b.all<void*>(TlightShape::aRaySampler, &sampler);
        b.all<bool>(TlightShape::aUseRayTraceShadows, true);
        b.all<int16_t>(TlightShape::aNumShadowSamples, 4);
        b.all<int16_t>(TlightShape::aRayDepthLimit, 2);
        b.all<int32_t>(TrenderLightShape::aRayInstance, 1);
        for (unsigned e = 0; e < count; ++e) {
            b.set3(TlightShape::aColor, e, 1, 0.5f, 0.25f);
            b.set3(TlightShape::aShadowColor, e, 0.1f, 0.2f, 0.3f);
            b.at<void*>(TlightShape::aObjectId, e) = &surfaces[e % 3];
            b.at<int32_t>(TlightShape::aPrimitiveId, e) = int32_t(10 + e);
        }
    }
};

TEST(LightShadows, PenumbraSamplesGetASecondStageAndTheMixOfBoth) {
    SphereRig rig(3);
    Batch& b = rig.b;
    b.point(0, 0, 0, 0);   // right under the occluder's edge
    b.point(1, -10, 0, 0); // under the occluder: every ray crosses at x < -2
    b.point(2, 10, 0, 0);  // beside it: every ray crosses at x > 2
    b.compute();

    // Stage 1: 4 rays for each of the three samples, in one call. Stage 2:
    // 16 rays for the penumbra sample alone, in one more call.
    ASSERT_EQ(rig.sampler.calls.size(), 2u);
    const auto& one = rig.sampler.calls[0];
    ASSERT_EQ(one.rays.size(), 12u);
    EXPECT_EQ(rig.sampler.calls[1].rays.size(), 16u);
    EXPECT_EQ(one.light, rig.light);
    EXPECT_EQ(one.depthLimit, 2);
    EXPECT_EQ(one.objectId, &rig.surfaces[0]);

    // The first sample's rays: from the origin toward the centre 10 away,
    // cosMax = sqrt(1 - 0.3^2); the cosine to the axis is
    // 1 - h2 (1 - cosMax), h2 = 1/3, 2/3, 1/9, 4/9 for instances 1 to 4.
    const float cosMax = std::sqrt(0.91f);
    const float h2[4] = {1.0f / 3, 2.0f / 3, 1.0f / 9, 4.0f / 9};
    for (unsigned j = 0; j < 4; ++j) {
        const TgenericRay& ray = one.rays[j];
        EXPECT_RGB_NEAR(ray.origin, 0, 0, 0, 0);
        EXPECT_NEAR(ray.direction[2], 1.0f - h2[j] * (1.0f - cosMax), 1e-6) << j;
        EXPECT_NEAR(std::hypot(ray.direction[0], ray.direction[1], ray.direction[2]), 1.0f, 1e-6);
        EXPECT_EQ(ray.maxDistance, 10.0f);
        EXPECT_EQ(ray.depth, 1);
        EXPECT_EQ(ray.instance, int32_t(1 + j));
        EXPECT_EQ(ray.medium, 1.0f);
        EXPECT_EQ(ray.objectId, &rig.surfaces[0]);
        EXPECT_EQ(ray.primitiveId, 10);
    }
    EXPECT_EQ(one.rays[4].objectId, &rig.surfaces[1]);
    EXPECT_NEAR(one.rays[4].maxDistance, std::sqrt(200.0f), 1e-5);

    // Stage 1 of the first sample: h1 = 1/2, 1/4, 3/4, 1/8; only 1/2 leans
    // toward -X (1/4 and 3/4 go sideways): 3 of 4 get through. Stage 2,
    // instances 1 to 16: h1 strictly between 1/4 and 3/4 for 1, 5, 6, 9, 10,
    // 13, 14: 9 of 16 through. Mix 0.2 * 3/4 + 0.8 * 9/16 = 0.6, and the
    // colour (2, 1, 0.5) * 0.6 + (0.1, 0.2, 0.3) * 0.4.
    EXPECT_RGB_NEAR(b.record(0).intensity, 1.24, 0.68, 0.42, 1e-5);
    EXPECT_FLOAT_EQ(b.record(0).shadowFraction, 7.0f / 16.0f);
    // Shadows come after the pre-shadow intensity.
    EXPECT_NEAR(b.record(0).preShadowIntensity, 1.245f, 1e-6);

    EXPECT_RGB_NEAR(b.record(1).intensity, 0.1, 0.2, 0.3, 1e-6);
    EXPECT_EQ(b.record(1).shadowFraction, 1.0f);
    EXPECT_RGB_NEAR(b.record(2).intensity, 2, 1, 0.5, 1e-6);
    EXPECT_EQ(b.record(2).shadowFraction, 0.0f);
}

TEST(LightShadows, NoRaysAndNoShadowWhenNothingAsksForThem) {
    auto expectUnshadowed = [](SphereRig& rig, const char* what) {
        rig.b.point(0, -10, 0, 0);
        rig.b.compute();
        EXPECT_TRUE(rig.sampler.calls.empty()) << what;
        EXPECT_RGB_NEAR(rig.b.record(0).intensity, 2, 1, 0.5, 1e-6);
        EXPECT_EQ(rig.b.record(0).shadowFraction, 0.0f) << what;
    };
    {
        SphereRig rig(1);
        rig.b.all<int16_t>(TlightShape::aNumShadowSamples, 0);
        expectUnshadowed(rig, "no shadow samples");
    }
    {
        SphereRig rig(1);
        rig.b.all<bool>(TlightShape::aUseRayTraceShadows, false);
        expectUnshadowed(rig, "ray traced shadows off");
    }
    {
        SphereRig rig(1);
        rig.b.all<int16_t>(TlightShape::aRayDepth, 2); // at the limit
        expectUnshadowed(rig, "depth limit reached");
    }
    {
        SphereRig rig(1);
        rig.b.all<void*>(TlightShape::aRaySampler, nullptr);
        expectUnshadowed(rig, "no sampler");
    }
    {
        SphereRig rig(1);
        rig.b.all<bool>(TambientLightShape::aReceiveShadows, false);
        expectUnshadowed(rig, "receiveShadows off");
    }
    for (int pass = 1; pass <= 4; ++pass) {
        PassGuard guard(pass);
        SphereRig rig(1);
        expectUnshadowed(rig, "pass 1 to 4");
    }
}

TEST(LightShadows, InsideTheSphereRaysFillTheHemisphere) {
    SphereRig rig(1);
    rig.sampler.edge = -1e9f; // nothing blocks
    rig.b.all<int16_t>(TlightShape::aNumShadowSamples, 2);
    rig.b.point(0, 0, 0, 9); // 1 from the centre, within the radius 3
    rig.b.compute();
    ASSERT_EQ(rig.sampler.calls.size(), 1u);
    const auto& rays = rig.sampler.calls[0].rays;
    ASSERT_EQ(rays.size(), 2u);
    // The distance counts as the radius and cosMax is 0: the cosine to +Z is
    // 1 - h2, h2 = 1/3 and 2/3.
    EXPECT_NEAR(rays[0].direction[2], 2.0f / 3.0f, 1e-6);
    EXPECT_NEAR(rays[1].direction[2], 1.0f / 3.0f, 1e-6);
    EXPECT_EQ(rays[0].maxDistance, 3.0f);
}

} // namespace
