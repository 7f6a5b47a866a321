// The directional light: its direction, no decay, the plane through its
// position, its planar map projection, and its shadow rays.

#include "lights/directional_light.h"
#include "lights/light_test_support.h"

namespace {

using orvo_test::Batch;
using orvo_test::HalfPlaneSampler;
using orvo_test::LightRig;
using orvo_test::PassGuard;

TEST(DirectionalLight, ShinesAlongMinusZOfItsTransformAndDoesNotDecay) {
    LightRig rig("directionalLight", "set t.rotate 90 0 0\n");
    Batch b(rig.light, 2);
    b.all<int16_t>(TnonAmbientLightShape::aDecayRate, 3);
    b.all<float>(TlightShape::aIntensity, 4.0f);
    b.set3(TlightShape::aColor, 0, 1, 0.5f, 0.25f);
    b.set3(TlightShape::aColor, 1, 1, 0.5f, 0.25f);
    b.point(0, 0, -100, 0);
    b.point(1, 3, 0.5f, 7);
    b.compute();
    // 90 degrees about X takes +Y to +Z and +Z to -Y: the light travels
    // along +Y, so the direction to it is (0, -1, 0), wherever the sample is.
    for (unsigned e = 0; e < 2; ++e) {
        EXPECT_RGB_NEAR(b.record(e).direction, 0, -1, 0, 1e-6);
        EXPECT_RGB_NEAR(b.record(e).intensity, 4, 2, 1, 1e-6);
        EXPECT_TRUE(b.record(e).diffuse && b.record(e).specular);
    }
    T3Float position, direction;
    EXPECT_TRUE(rig.light->canSee({5, 5, 5}, position, direction));
    EXPECT_RGB_NEAR(&position.x, 0, 0, 0, 0);
    EXPECT_RGB_NEAR(&direction.x, 0, -1, 0, 1e-6);
}

TEST(DirectionalLight, DebugDumpShowsTheDirection) {
    LightRig rig("directionalLight");
    Batch b(rig.light, 1);
    b.compute();
    TdebugOutput out;
    rig.light->debugMembers(out);
    EXPECT_EQ(out.text(), "directionalLightShape.lightDirection = [0, 0, 1]\n");
}

TEST(DirectionalLight, WithUseLightPositionNothingBehindItsPlaneIsLit) {
    // The light at the origin shines toward -Z: its plane is z = 0 and the
    // lit side is z < 0.
    LightRig rig("directionalLight");
    Batch b(rig.light, 4);
    b.all<bool>(TdirectionalLightShape::aUseLightPosition, true);
    b.all<float>(TlightShape::aIntensity, 3.0f);
    b.point(0, 0, 0, -1); // in front
    b.point(1, 0, 0, 1);  // behind
    b.point(2, 1, 0, 0);  // on the plane: dot = 0 counts as behind
    b.point(3, 0, 0, 1);
    b.at<bool>(TdirectionalLightShape::aUseLightPosition, 3) = false;
    b.compute();
    EXPECT_RGB_NEAR(b.record(0).intensity, 3, 3, 3, 0);
    EXPECT_NEAR(b.record(0).preShadowIntensity, 3.0f, 1e-6);
    for (unsigned e : {1u, 2u}) {
        const TlightData& r = b.record(e);
        EXPECT_RGB_NEAR(r.intensity, 0, 0, 0, 0);
        EXPECT_RGB_NEAR(r.direction, 0, 0, 1, 0);
        EXPECT_FALSE(r.diffuse);
        EXPECT_FALSE(r.specular);
        EXPECT_EQ(r.preShadowIntensity, 0.0f);
        EXPECT_EQ(r.blindData, rig.light->blindData());
    }
    EXPECT_RGB_NEAR(b.record(3).intensity, 3, 3, 3, 0);
}

TEST(DirectionalLight, WithAnInputNetworkTheMapLiesInTheLightsXYPlane) {
    LightRig rig("directionalLight", "set t.translate 1 2 3\n"
                                     "node checker c\nconnect c.outColorR light.intensity\n");
    rig.light->shadingNodeInit(nullptr);
    Batch b(rig.light, 2);
    b.set3(TdirectionalLightShape::aPointWorld, 0, 2, 4, 3);
    b.set3(TdirectionalLightShape::aPointWorld, 1, 2, 4, 3);
    b.at<bool>(TdirectionalLightShape::aUseLightPosition, 1) = true;
    b.point(1, 0, 0, 10); // behind the light's plane z = 3
    b.at<float>(TlightShape::aUCoord, 1) = -5.0f;
    b.compute();
    // (2, 4, 3) less the light's (1, 2, 3) is (1, 2, 0) in its space.
    EXPECT_FLOAT_EQ(b.at<float>(TlightShape::aUCoord, 0), 1.0f);
    EXPECT_FLOAT_EQ(b.at<float>(TlightShape::aVCoord, 0), 2.0f);
    // A skipped sample gets no coordinates.
    EXPECT_EQ(b.at<float>(TlightShape::aUCoord, 1), -5.0f);
}

// Rays from below toward an opaque half plane z = 5 over x < 0.
struct ShadowRig : LightRig {
    HalfPlaneSampler sampler;
    Batch b;
    explicit ShadowRig(unsigned count, const std::string& setup = {})
        : LightRig("directionalLight", setup), b(light, count) {
        b.all<void*>(TlightShape::aRaySampler, &sampler);
        b.all<bool>(TlightShape::aUseRayTraceShadows, true);
        b.all<int32_t>(TrenderLightShape::aRayInstance, 1);
        b.all<float>(TlightShape::aIntensity, 2.0f);
        for (unsigned e = 0; e < count; ++e) {
            b.set3(TlightShape::aColor, e, 1, 0.5f, 0.25f);
            b.set3(TlightShape::aShadowColor, e, 0.1f, 0.2f, 0.3f);
        }
    }
};

TEST(DirectionalLight, WithoutAnAngleEveryRayGoesStraightToTheLight) {
    ShadowRig rig(2);
    Batch& b = rig.b;
    int first = 0, second = 0;
    b.at<void*>(TlightShape::aObjectId, 0) = &first;
    b.at<void*>(TlightShape::aObjectId, 1) = &second;
    b.at<int32_t>(TlightShape::aPrimitiveId, 0) = 7;
    b.all<int16_t>(TlightShape::aNumShadowSamples, 3);
    b.point(0, -1, 0, 0); // under the occluder
    b.point(1, 1, 0, 0);  // beside it
    b.compute();
    // Nothing in the penumbra: one stage, one call, 3 rays a sample.
    ASSERT_EQ(rig.sampler.calls.size(), 1u);
    ASSERT_EQ(rig.sampler.calls[0].rays.size(), 6u);
    for (const TgenericRay& ray : rig.sampler.calls[0].rays) {
        EXPECT_RGB_NEAR(ray.direction, 0, 0, 1, 0);
        EXPECT_EQ(ray.maxDistance, 1e10f);
        // The surface's ids are read once for the batch.
        EXPECT_EQ(ray.objectId, &first);
        EXPECT_EQ(ray.primitiveId, 7);
    }
    EXPECT_EQ(rig.sampler.calls[0].rays[3].origin[0], 1.0f);
    EXPECT_EQ(b.record(0).shadowFraction, 1.0f);
    EXPECT_RGB_NEAR(b.record(0).intensity, 0.1, 0.2, 0.3, 1e-6);
    EXPECT_EQ(b.record(1).shadowFraction, 0.0f);
    EXPECT_RGB_NEAR(b.record(1).intensity, 2, 1, 0.5, 1e-6);
}

TEST(DirectionalLight, AnAngleGivesAPenumbraSampledInTwoStages) {
    // The light 20 up; lightAngle 60 degrees: rays within a cone of cosine
    // 0.5 around +Z. From the origin, right under the occluder's edge, a ray
    // is blocked when it leans toward -X: cos(2 pi h1) < 0, h1 the base-2
    // radical inverse of its instance.
    ShadowRig rig(2, "set t.translate 0 0 20\n");
    Batch& b = rig.b;
    b.all<float>(TdirectionalLightShape::aShadowAngle, 60.0f);
    b.all<int16_t>(TlightShape::aNumShadowSamples, 4);
    b.all<bool>(TdirectionalLightShape::aUseLightPosition, true);
    b.point(0, 0, 0, 0);
    b.point(1, 0, 0, 25); // behind the light: no light, no rays
    b.compute();
    // Stage 1, instances 1 to 4: h1 = 1/2, 1/4, 3/4, 1/8; only 1/2 leans to
    // -X (1/4 and 3/4 are straight sideways). 1 of 4 blocked: penumbra, 3/4.
    // Stage 2, instances 1 to 16: h1 strictly between 1/4 and 3/4 for
    // instances 1, 5, 6, 9, 10, 13, 14: 7 of 16 blocked, 9/16 through.
    ASSERT_EQ(rig.sampler.calls.size(), 2u);
    EXPECT_EQ(rig.sampler.calls[0].rays.size(), 4u);
    EXPECT_EQ(rig.sampler.calls[1].rays.size(), 16u);
    // 0.2 * 3/4 + 0.8 * 9/16 = 0.6 of the light, 0.4 of the shadow colour.
    EXPECT_RGB_NEAR(b.record(0).intensity, 0.04 + 1.2, 0.08 + 0.6, 0.12 + 0.3, 1e-5);
    EXPECT_FLOAT_EQ(b.record(0).shadowFraction, 7.0f / 16.0f);
    EXPECT_RGB_NEAR(b.record(1).intensity, 0, 0, 0, 0);
    EXPECT_EQ(b.record(1).shadowFraction, 0.0f);
}

TEST(DirectionalLight, AStageTooBigForTheStackGoesInSeveralCallsWithTheSameRays) {
    // Records of 100,000 bytes: two fit the stage's stack budget, so the
    // 2 x 3 rays go in three calls, the second starting in the middle of
    // the first sample's rays. Each ray must be the one a single call gets.
    struct BulkySampler : HalfPlaneSampler {
        size_t rayRecordSize(unsigned) const override { return 100000; }
    };
    auto run = [](TraySampler* bulky) {
        ShadowRig rig(2, "set t.translate 0 0 20\n");
        rig.sampler.edge = -1e9f; // nothing blocks: one stage
        if (bulky)
            rig.b.all<void*>(TlightShape::aRaySampler, bulky);
        rig.b.all<float>(TdirectionalLightShape::aShadowAngle, 60.0f);
        rig.b.all<int16_t>(TlightShape::aNumShadowSamples, 3);
        rig.b.at<int32_t>(TrenderLightShape::aRayInstance, 1) = 5;
        rig.b.point(0, 1, 0, 0);
        rig.b.point(1, 2, 0, 0);
        rig.b.compute();
        return rig.sampler.calls;
    };
    BulkySampler bulky;
    bulky.edge = -1e9f;
    const auto whole = run(nullptr);
    run(&bulky);
    ASSERT_EQ(whole.size(), 1u);
    ASSERT_EQ(bulky.calls.size(), 3u);
    std::vector<TgenericRay> split;
    for (const auto& call : bulky.calls) {
        EXPECT_EQ(call.rays.size(), 2u);
        split.insert(split.end(), call.rays.begin(), call.rays.end());
    }
    ASSERT_EQ(split.size(), 6u);
    for (size_t k = 0; k < 6; ++k) {
        const TgenericRay& a = whole[0].rays[k];
        const TgenericRay& b = split[k];
        // Sample 0 numbers its rays from 1, sample 1 from 5.
        EXPECT_EQ(b.instance, int32_t(k < 3 ? 1 + k : 5 + k - 3)) << k;
        EXPECT_EQ(a.instance, b.instance) << k;
        EXPECT_EQ(b.origin[0], k < 3 ? 1.0f : 2.0f) << k;
        for (int c = 0; c < 3; ++c)
            EXPECT_EQ(a.direction[c], b.direction[c]) << k;
    }
    // Ray 1 of sample 0 (instance 2, h1 = 1/4) and ray 0 of sample 1
    // (instance 5, h1 = 5/8) lean different ways.
    EXPECT_NE(split[1].direction[0], split[3].direction[0]);
}

TEST(DirectionalLight, NoRaysInPassesOneToFour) {
    for (int pass = 1; pass <= 4; ++pass) {
        PassGuard guard(pass);
        ShadowRig rig(1);
        rig.b.point(0, -1, 0, 0);
        rig.b.compute();
        EXPECT_TRUE(rig.sampler.calls.empty()) << pass;
        EXPECT_RGB_NEAR(rig.b.record(0).intensity, 2, 1, 0.5, 1e-6);
    }
}

} // namespace
