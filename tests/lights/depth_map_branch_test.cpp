// The depth map branch of the light pipeline, with a light type of this
// test whose shadow map lookup gives fixed fractions: the branch runs only
// with a shadow map, the cached useDepthMapShadows and a batch that may be
// shadowed, and mixes each sample's colour toward shadowColor.

#include "host/node_pattern.h"
#include "lights/directional_light.h"
#include "lights/light_test_support.h"

#define ORVO_SCHEMA_TtestDepthMapLight(A, C2, C3)
ORVO_NODE(TtestDepthMapLight, TdirectionalLightShape, "testDepthMapLight", "TDML", 9110,
          "kTestDepthMapLight", "test/depthMapLight", "n_testDepthMapLight")

class TtestDepthMapLight : public TdnPattern<TtestDepthMapLight, TdirectionalLightShape> {
public:
    static inline float sFractions[2] = {0.25f, 1.0f};
    static inline int sLookups = 0;

protected:
    bool sampleDepthMapShadows(LightBatch& b, float* fractions) override {
        ++sLookups;
        for (unsigned i = 0; i < b.count; ++i)
            fractions[i] = sFractions[i % 2];
        return true;
    }
};

ORVO_REGISTER_NODE(TtestDepthMapLight)
ORVO_DEPENDENCIES(TtestDepthMapLight) {}

namespace {

using orvo_test::Batch;
using orvo_test::LightRig;
using orvo_test::PassGuard;

struct DepthMapRig : LightRig {
    Batch b;
    // Never read: the branch only asks whether there is a map.
    alignas(8) unsigned char fakeMap[8] = {};

    DepthMapRig()
        : LightRig("testDepthMapLight", "set light.useDepthMapShadows true\n"), b(light, 2) {
        as<TnonExtendedLightShape>()->setShadowMap(reinterpret_cast<TuseShadowMap*>(fakeMap));
        b.all<float>(TlightShape::aIntensity, 2.0f);
        for (unsigned e = 0; e < 2; ++e) {
            b.set3(TlightShape::aColor, e, 1, 1, 1);
            b.set3(TlightShape::aShadowColor, e, 0, 0.5f, 1);
        }
        b.at<int16_t>(TnonExtendedLightShape::aVolumeShadowSamples, 0) = 0;
        TtestDepthMapLight::sLookups = 0;
    }
};

TEST(DepthMapBranch, TheFractionMixesTheColourTowardShadowColor) {
    DepthMapRig rig;
    rig.b.compute();
    EXPECT_EQ(TtestDepthMapLight::sLookups, 1);
    // f = 0.25: (0.25 * (0, 0.5, 1) + 0.75 * (1, 1, 1)) * 2.
    EXPECT_RGB_NEAR(rig.b.record(0).intensity, 1.5, 1.75, 2.0, 1e-6);
    EXPECT_EQ(rig.b.record(0).shadowFraction, 0.25f);
    // f = 1: the shadow colour times the intensity.
    EXPECT_RGB_NEAR(rig.b.record(1).intensity, 0, 1, 2, 1e-6);
    EXPECT_EQ(rig.b.record(1).shadowFraction, 1.0f);
    // The pre-shadow intensity is the light's before the map: 1 * 2.
    EXPECT_NEAR(rig.b.record(1).preShadowIntensity, 2.0f, 1e-6);
    // Fog marching takes at least one step.
    EXPECT_EQ(rig.b.at<int16_t>(TnonExtendedLightShape::aVolumeShadowSamples, 0), 1);
    EXPECT_EQ(rig.b.at<int16_t>(TnonExtendedLightShape::aVolumeShadowSamples, 1), 20);
}

TEST(DepthMapBranch, NeedsAMapTheSettingAndAShadowedPass) {
    {
        DepthMapRig rig;
        rig.as<TnonExtendedLightShape>()->setShadowMap(nullptr);
        rig.b.compute();
        EXPECT_RGB_NEAR(rig.b.record(0).intensity, 2, 2, 2, 0);
    }
    {
        // The branch follows the setting as the frame's first compute cached
        // it.
        DepthMapRig rig;
        rig.set("light.useDepthMapShadows", {"false"});
        rig.b.compute();
        EXPECT_RGB_NEAR(rig.b.record(0).intensity, 2, 2, 2, 0);
        EXPECT_FALSE(rig.as<TnonExtendedLightShape>()->cachedUseDepthMapShadows());
    }
    {
        PassGuard guard(4);
        DepthMapRig rig;
        rig.b.compute();
        EXPECT_RGB_NEAR(rig.b.record(0).intensity, 2, 2, 2, 0);
        EXPECT_EQ(TtestDepthMapLight::sLookups, 0);
    }
}

} // namespace
