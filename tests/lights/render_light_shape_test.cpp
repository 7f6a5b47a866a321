// The pipeline every light follows, on the lights of the base classes:
// matrices and position, decay, pre-shadow intensity, emit flags, shadow
// eligibility, the input-network flag, exclusive shadow kinds, analysis and
// the depth map settings. Expected values are worked out in the comments.

#include "host/arena.h"
#include "lights/directional_light.h"
#include "lights/light_test_support.h"
#include "lights/non_extended_light_shape.h"

namespace {

using orvo_test::Batch;
using orvo_test::LightRig;
using orvo_test::PassGuard;

T4dFltMatrix translation(float x, float y, float z) {
    T4dFltMatrix m;
    m.m[3][0] = x;
    m.m[3][1] = y;
    m.m[3][2] = z;
    return m;
}

TEST(LightShape, PositionAndDirectionComeFromThePathAndTheEyeMatrices) {
    LightRig rig("nonExtendedLightShapeNode", "set t.translate 1 2 3\nset t.rotate 0 90 0\n");
    Batch b(rig.light, 1);
    // The camera at z = 5 in the world: eye = world - (0, 0, 5).
    b.at<T4dFltMatrix>(TlightShape::aWorldToEye, 0) = translation(0, 0, -5);
    b.at<T4dFltMatrix>(TlightShape::aEyeToWorld, 0) = translation(0, 0, 5);
    b.point(0, 1, 2, -6);
    b.compute();
    // The origin goes to (1, 2, 3) in the world, (1, 2, -2) in eye space.
    const T3Float p = rig.light->lightPosition();
    EXPECT_NEAR(p.x, 1, 1e-5);
    EXPECT_NEAR(p.y, 2, 1e-5);
    EXPECT_NEAR(p.z, -2, 1e-5);
    // 90 degrees about Y takes +X to -Z, and so -Z to -X; a vector ignores
    // the translations.
    const T3dFltVector d = rig.light->lightDirection();
    EXPECT_NEAR(d.x, -1, 1e-5);
    EXPECT_NEAR(d.y, 0, 1e-5);
    EXPECT_NEAR(d.z, 0, 1e-5);
    EXPECT_NEAR(rig.light->lightDistance(T4dFltPoint(1, 2, 2)), 4.0f, 1e-5);
    // The sample 4 below the light sees it straight up (+Z in eye space).
    EXPECT_RGB_NEAR(b.record(0).direction, 0, 0, 1, 1e-6);
    EXPECT_EQ(b.record(0).blindData, rig.light->blindData());
}

TEST(LightShape, DecayDividesByDistancePowersOnlyBeyondOneUnit) {
    // Within a unit nothing changes, so a light never gets brighter.
    EXPECT_EQ(TnonAmbientLightShape::decay(8.0f, 0.5f, 3), 8.0f);
    EXPECT_EQ(TnonAmbientLightShape::decay(8.0f, 1.0f, 2), 8.0f);
    EXPECT_EQ(TnonAmbientLightShape::decay(8.0f, 2.0f, 0), 8.0f);
    EXPECT_EQ(TnonAmbientLightShape::decay(8.0f, 2.0f, 1), 4.0f);
    EXPECT_EQ(TnonAmbientLightShape::decay(8.0f, 2.0f, 2), 2.0f);
    EXPECT_EQ(TnonAmbientLightShape::decay(8.0f, 2.0f, 3), 1.0f);

    // Through a compute: intensity 8, quadratic decay, samples at distances
    // 0.5, 2 and 4 below the light.
    LightRig rig("nonExtendedLightShapeNode",
                 "set light.intensity 8\nset light.decayRate 2\nset light.color 1 0.5 0.25\n");
    Batch b(rig.light, 3);
    b.all<int16_t>(TnonAmbientLightShape::aDecayRate, 2);
    b.all<float>(TlightShape::aIntensity, 8.0f);
    for (unsigned e = 0; e < 3; ++e)
        b.set3(TlightShape::aColor, e, 1, 0.5f, 0.25f);
    b.point(0, 0, 0, -0.5f);
    b.point(1, 0, 0, -2);
    b.point(2, 0, 0, -4);
    b.compute();
    // I = 8, 8 / 4 = 2, 8 / 16 = 0.5; colour = I * (1, 0.5, 0.25).
    EXPECT_RGB_NEAR(b.record(0).intensity, 8, 4, 2, 1e-5);
    EXPECT_RGB_NEAR(b.record(1).intensity, 2, 1, 0.5, 1e-5);
    EXPECT_RGB_NEAR(b.record(2).intensity, 0.5, 0.25, 0.125, 1e-6);
    // Luminance of (1, 0.5, 0.25) = 0.3 + 0.295 + 0.0275 = 0.6225, times I.
    EXPECT_NEAR(b.record(2).preShadowIntensity, 0.6225f * 0.5f, 1e-6);
    for (unsigned e = 0; e < 3; ++e) {
        EXPECT_RGB_NEAR(b.record(e).direction, 0, 0, 1, 1e-6);
        EXPECT_EQ(b.record(e).shadowFraction, 0.0f);
    }
}

TEST(LightShape, PreShadowIntensityWeighsRedGreenBlueAndEmitFlagsFollowTheSample) {
    LightRig rig("nonExtendedLightShapeNode");
    Batch b(rig.light, 3);
    b.all<float>(TlightShape::aIntensity, 2.0f);
    b.set3(TlightShape::aColor, 0, 1, 0, 0);
    b.set3(TlightShape::aColor, 1, 0, 1, 0);
    b.set3(TlightShape::aColor, 2, 0, 0, 1);
    b.at<bool>(TnonAmbientLightShape::aEmitDiffuse, 1) = false;
    b.at<bool>(TnonAmbientLightShape::aEmitSpecular, 2) = false;
    for (unsigned e = 0; e < 3; ++e)
        b.point(e, 0, 0, -1);
    b.compute();
    // 0.3, 0.59, 0.11 times I = 2.
    EXPECT_NEAR(b.record(0).preShadowIntensity, 0.6f, 1e-6);
    EXPECT_NEAR(b.record(1).preShadowIntensity, 1.18f, 1e-6);
    EXPECT_NEAR(b.record(2).preShadowIntensity, 0.22f, 1e-6);
    EXPECT_TRUE(b.record(0).diffuse && b.record(0).specular);
    EXPECT_FALSE(b.record(1).diffuse);
    EXPECT_TRUE(b.record(1).specular);
    EXPECT_TRUE(b.record(2).diffuse);
    EXPECT_FALSE(b.record(2).specular);
    for (unsigned e = 0; e < 3; ++e)
        EXPECT_FALSE(b.record(e).ambient);
}

TEST(LightShape, ShadowsOnlyInPassesZeroAndFiveAndForEligibleObjects) {
    LightRig rig("directionalLight");
    Batch b(rig.light, 1);
    for (int pass = 0; pass <= 5; ++pass) {
        PassGuard guard(pass);
        EXPECT_EQ(rig.light->batchGetsShadows(b.block, 0), pass == 0 || pass == 5) << pass;
    }
    PassGuard guard(0);
    // Particles (object type 4) only with bit 1 of their render state.
    b.at<char>(TdirectionalLightShape::aObjectType, 0) = 4;
    b.at<int32_t>(TlightShape::aRenderState, 0) = 1;
    EXPECT_FALSE(rig.light->batchGetsShadows(b.block, 0));
    b.at<int32_t>(TlightShape::aRenderState, 0) = 2;
    EXPECT_TRUE(rig.light->batchGetsShadows(b.block, 0));
    b.at<bool>(TnonExtendedLightShape::aReceiveShadows, 0) = false;
    EXPECT_FALSE(rig.light->batchGetsShadows(b.block, 0));
}

TEST(LightShape, AConnectedInputMarksAnInputNetworkButAMessageDoesNot) {
    LightRig rig("nonExtendedLightShapeNode");
    // The light is already connected to its transform, through its message.
    rig.light->shadingNodeInit(nullptr);
    EXPECT_FALSE(rig.light->shadingFlag(TrenderLightShape::kInputNetworkFlag));
    orvo_test::runScene(rig.g, "node checker c\nconnect c.message light.message\n");
    rig.light->shadingNodeInit(nullptr);
    EXPECT_FALSE(rig.light->shadingFlag(TrenderLightShape::kInputNetworkFlag));
    orvo_test::runScene(rig.g, "connect c.outColorR light.colorG\n");
    rig.light->shadingNodeInit(nullptr);
    EXPECT_TRUE(rig.light->shadingFlag(TrenderLightShape::kInputNetworkFlag));
    orvo_test::runScene(rig.g, "disconnect c.outColorR light.colorG\n");
    rig.light->shadingNodeInit(nullptr);
    EXPECT_FALSE(rig.light->shadingFlag(TrenderLightShape::kInputNetworkFlag));
}

TEST(LightShape, DepthMapAndRayTracedShadowsExcludeEachOther) {
    LightRig rig("directionalLight");
    auto* light = rig.as<TnonExtendedLightShape>();
    rig.set("light.useRayTraceShadows", {"true"});
    rig.set("light.useDepthMapShadows", {"true"});
    EXPECT_TRUE(light->useDepthMapShadows());
    EXPECT_FALSE(light->useRayTraceShadows());
    rig.set("light.useRayTraceShadows", {"true"});
    EXPECT_TRUE(light->useRayTraceShadows());
    EXPECT_FALSE(light->useDepthMapShadows());
    // Turning one off leaves the other as it is.
    rig.set("light.useRayTraceShadows", {"false"});
    EXPECT_FALSE(light->useRayTraceShadows());
    EXPECT_FALSE(light->useDepthMapShadows());
    // A connection that drives the other one wins over the exclusion.
    orvo_test::runScene(rig.g, "node directionalLight other -parent t\n"
                               "set other.useRayTraceShadows true\n"
                               "connect other.useRayTraceShadows light.useRayTraceShadows\n");
    EXPECT_NO_THROW(light->setUseDepthMapShadows(true));
    EXPECT_TRUE(light->useDepthMapShadows());
    EXPECT_TRUE(rig.g.evaluateToWords(rig.g.findPlug("light.useRayTraceShadows"))[0] == "true");
}

TEST(LightShape, SomeChangesStaleTheViewportLightAndSomeTheShadowMap) {
    LightRig rig("directionalLight");
    auto* light = rig.as<TnonExtendedLightShape>();
    rig.set("light.intensity", {"3"});
    EXPECT_FALSE(light->shadingFlag(TrenderLightShape::kRebuildGlLightFlag));
    EXPECT_FALSE(light->needsRefresh());
    rig.set("light.decayRate", {"1"});
    EXPECT_TRUE(light->shadingFlag(TrenderLightShape::kRebuildGlLightFlag));
    EXPECT_TRUE(light->needsRefresh());
    light->setShadingFlag(TrenderLightShape::kRebuildGlLightFlag, false);
    light->clearRefresh();
    rig.set("light.dmapResolution", {"1024"});
    EXPECT_TRUE(light->shadingFlag(TrenderLightShape::kRebuildGlLightFlag));

    EXPECT_TRUE(light->affectsShadows(&TnonExtendedLightShape::aDmapResolution));
    EXPECT_TRUE(light->affectsShadows(&TnonExtendedLightShape::aReuseDmap));
    EXPECT_TRUE(light->affectsShadows(&TdirectionalLightShape::aShadowAngle));
    EXPECT_TRUE(light->affectsShadows(&TlightShape::aShadowColor));
    EXPECT_FALSE(light->affectsShadows(&TlightShape::aIntensity));
    EXPECT_FALSE(light->affectsShadows(&TnonAmbientLightShape::aEmitDiffuse));
}

TEST(LightShape, WithoutRayTracingAnalysisDropsTheRayFields) {
    LightRig rig("directionalLight");
    const uint64_t all = ~uint64_t(0);
    TbitField64 fields(all);
    rig.light->analyse(nullptr, nullptr, nullptr, fields);
    EXPECT_EQ(fields.bits(), all);

    // A render whose frame has ray tracing off.
    TstackArena arena(theMallocAllocator(), 4096);
    TframeConstants frame(arena);
    frame.setRayTracing(false);
    const TframeConstants::Scope current(&frame);
    rig.light->analyse(nullptr, nullptr, nullptr, fields);
    // rayDepth (36), rayInstance (37), primitiveId (45); not the medium's
    // refractive index (46).
    EXPECT_EQ(fields.bits(),
              all & ~((uint64_t(1) << 36) | (uint64_t(1) << 37) | (uint64_t(1) << 45)));
    TrenderLightShape::setPreviewFileMode(true);
    rig.light->analyse(nullptr, nullptr, nullptr, fields);
    EXPECT_FALSE(fields.test(52));
    TrenderLightShape::setPreviewFileMode(false);
}

TEST(LightShape, DepthMapSettingsReadAndWriteThePlainValues) {
    LightRig rig("directionalLight");
    auto* light = rig.as<TnonExtendedLightShape>();
    EXPECT_EQ(light->depthMapName(), "");
    EXPECT_TRUE(light->setDepthMapResolution(2048));
    EXPECT_TRUE(light->setDepthMapName("keyLight"));
    EXPECT_TRUE(light->setUseZnDepthMap(false));
    EXPECT_EQ(light->depthMapResolution(), 2048);
    EXPECT_EQ(light->depthMapName(), "keyLight");
    EXPECT_FALSE(light->useZnDepthMap());
    EXPECT_TRUE(light->useZpDepthMap());
    // What a setter wrote is what the scene holds.
    EXPECT_EQ(rig.g.evaluateToWords(rig.g.findPlug("light.dr"))[0], "2048");

    orvo_test::runScene(rig.g, "node directionalLight other -parent t\n"
                               "connect other.dmapBias light.dmapBias\n");
    EXPECT_FALSE(light->setDepthMapBias(0.5f));
}

TEST(LightShape, GraphEvaluationComputesTheRecord) {
    LightRig rig("nonExtendedLightShapeNode", "set t.translate 0 3 0\n"
                                              "set light.intensity 5\n"
                                              "set light.decayRate 1\n"
                                              "set light.pointCamera 0 -1 0\n");
    // 4 below the light: linear decay gives 5 / 4.
    const auto words = rig.g.evaluateToWords(rig.g.findPlug("light.lightData.lightIntensity"));
    ASSERT_EQ(words.size(), 3u);
    EXPECT_FLOAT_EQ(std::stof(words[0]), 1.25f);
    const auto direction = rig.g.evaluateToWords(rig.g.findPlug("light.ld"));
    EXPECT_EQ(direction, (std::vector<std::string>{"0", "1", "0"}));
}

} // namespace
