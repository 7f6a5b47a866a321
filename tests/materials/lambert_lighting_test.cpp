#include <gtest/gtest.h>

#include <cmath>

#include "materials/lambert_test_support.h"

// The light loop, ambient, incandescence, glow and the render passes of the
// lambert compute. Every expected value is worked out from the shading
// rules by hand in the comments.

namespace {

using lambert_test::expectColour;
using lambert_test::FakeLight;
using lambert_test::OneLambert;
using lambert_test::SampleRun;

constexpr float kTol = 1e-5f;

// color (1, 0.5, 0.25), ambientColor 0.2, incandescence (0.1, 0, 0),
// glowIntensity 0.5, normal (0, 0, 1), one diffuse light from (0, 0.6, 0.8)
// with intensity (0.5, 1, 2): the cosine is 0.8, the light adds
// color * intensity * 0.8 * diffuse 0.8 = (0.32, 0.32, 0.32).
struct LitLambert : OneLambert {
    LitLambert() {
        set("color", {1, 0.5, 0.25});
        set("ambientColor", {0.2, 0.2, 0.2});
        set("incandescence", {0.1, 0, 0});
        set("glowIntensity", {0.5});
        set("normalCamera", {0, 0, 1});
        light(0, {0, 0.6, 0.8}, {0.5, 1, 2}, false, true);
        set("lightDataArray[0].preShadowIntensity", {0.8});
        set("lightDataArray[0].lightShadowFraction", {0.25});
    }
};

TEST(LambertLighting, OneLightInTheColourPasses) {
    LitLambert l;
    // 0.32 + color * ambient (0.2, 0.1, 0.05) + incandescence (0.1, 0, 0).
    for (int pass : {0, 1, 3}) {
        const std::string what = "pass " + std::to_string(pass);
        expectColour(l.compute(TdnLambert::aOutColor, pass), 0.62f, 0.42f, 0.37f, kTol, what);
        // Glow is the same sum times glowIntensity 0.5.
        expectColour(l.value(TdnLambert::aOutGlowColor), 0.31f, 0.21f, 0.185f, kTol, what);
    }
}

TEST(LambertLighting, AmbientPassAndHighlightPass) {
    LitLambert l;
    // Pass 2: the ambient term only, no light and no incandescence.
    expectColour(l.compute(TdnLambert::aOutColor, 2), 0.2f, 0.1f, 0.05f, kTol, "pass 2");
    expectColour(l.value(TdnLambert::aOutGlowColor), 0.1f, 0.05f, 0.025f, kTol, "pass 2 glow");
    // Pass 4: a diffuse material has nothing to give.
    expectColour(l.compute(TdnLambert::aOutColor, 4), 0, 0, 0, kTol, "pass 4");
    expectColour(l.value(TdnLambert::aOutGlowColor), 0, 0, 0, kTol, "pass 4 glow");
}

TEST(LambertLighting, ShadowPassCarriesTheShadowInTheMatte) {
    LitLambert l;
    // One light: S = 0.8 * 0.25, W = 0.8, matte = S / W.
    expectColour(l.compute(TdnLambert::aOutMatteOpacity, 5), 0.25f, 0.25f, 0.25f, kTol, "one");
    expectColour(l.value(TdnLambert::aOutColor), 0, 0, 0, kTol, "colour");
    expectColour(l.value(TdnLambert::aOutGlowColor), 0, 0, 0, kTol, "glow");

    // A second light from behind counts in W only: S = 0.2, W = 0.8 + 0.2.
    l.light(1, {0, 0, -1}, {1, 1, 1}, false, true);
    l.set("lightDataArray[1].preShadowIntensity", {0.2});
    l.set("lightDataArray[1].lightShadowFraction", {1});
    expectColour(l.compute(TdnLambert::aOutMatteOpacity, 5), 0.2f, 0.2f, 0.2f, kTol, "two");
    // The colour output's compute writes the same matte in this pass.
    l.compute(TdnLambert::aOutColor, 5);
    expectColour(l.value(TdnLambert::aOutMatteOpacity), 0.2f, 0.2f, 0.2f, kTol, "via colour");

    // No lights: W stays 0 and the matte is 0.
    OneLambert none;
    none.set("ambientColor", {1, 1, 1});
    none.set("incandescence", {1, 1, 1});
    expectColour(none.compute(TdnLambert::aOutMatteOpacity, 5), 0, 0, 0, kTol, "no lights");
    expectColour(none.value(TdnLambert::aOutColor), 0, 0, 0, kTol, "no lights colour");
}

TEST(LambertLighting, AmbientLightsAndTheMaterialsLightDefaults) {
    OneLambert l;
    l.set("color", {1, 0.5, 0.25});
    l.set("normalCamera", {0, 0, 1});
    // Ambient and not diffuse: color * intensity in full, from any side.
    for (double z : {-1.0, 1.0}) {
        l.light(0, {0, 0, z}, {0.5, 1, 2}, true, false);
        expectColour(l.compute(TdnLambert::aOutColor, 0), 0.5f, 0.5f, 0.5f, kTol,
                     "light z " + std::to_string(z));
    }

    // An element made by setting its direction alone: intensity 1, ambient
    // and diffuse on. a = 1 + cos 1 * diffuse 0.8 = 1.8; color 0.5 gives 0.9.
    OneLambert d;
    d.set("normalCamera", {0, 0, 1});
    d.set("lightDataArray[3].lightDirection", {0, 0, 1});
    expectColour(d.compute(TdnLambert::aOutColor, 0), 0.9f, 0.9f, 0.9f, kTol, "defaults");
    // A record made by setting its intensity keeps the default direction
    // (1, 1, 1). With normal (1, 0, 0) its cosine is 1, like that of the
    // first record turned to (1, 0, 0): two lights of a = 1.8 each.
    d.set("lightDataArray[5].lightIntensity", {1, 1, 1});
    d.set("normalCamera", {1, 0, 0});
    d.set("lightDataArray[3].lightDirection", {1, 0, 0});
    expectColour(d.compute(TdnLambert::aOutColor, 0), 1.8f, 1.8f, 1.8f, kTol, "two records");
}

TEST(LambertLighting, BackLitPointsAndTranslucence) {
    OneLambert l;
    l.set("color", {1, 1, 1});
    l.set("normalCamera", {0, 0, 1});
    l.set("rayDirection", {0, 0, -1});
    l.set("translucence", {0.5});
    l.light(0, {0, 0, -1}, {1, 1, 1}, false, true);

    // Default depth 0.5: cut-off -5.75, any direction lets light through.
    // cos = -1: no diffuse. Towards the eye: u = (1 + 1) / 2 = 1, t = 0.5.
    EXPECT_FLOAT_EQ(l.node->translucenceCutoff(), -5.75f);
    expectColour(l.compute(TdnLambert::aOutColor, 0), 0.5f, 0.5f, 0.5f, kTol, "depth 0.5");

    // Depth 0: cut-off 0, back-lit points get nothing.
    l.set("translucenceDepth", {0});
    l.node->shadingNodeInit(nullptr);
    EXPECT_FLOAT_EQ(l.node->translucenceCutoff(), 0.0f);
    expectColour(l.compute(TdnLambert::aOutColor, 0), 0, 0, 0, kTol, "depth 0");

    // Depth 0, cos 0.075, half way into the 0.15 fade: t = 0.5 * 0.5 (focus
    // off), plus diffuse 0.075 * 0.8 = 0.06.
    l.set("translucenceFocus", {0});
    l.light(0, {std::sqrt(1.0 - 0.075 * 0.075), 0, 0.075}, {1, 1, 1}, false, true);
    expectColour(l.compute(TdnLambert::aOutColor, 0), 0.31f, 0.31f, 0.31f, kTol, "fade");
}

TEST(LambertLighting, TranslucenceFocus) {
    OneLambert l;
    l.set("color", {1, 1, 1});
    l.set("normalCamera", {0, 0, 1});
    l.set("rayDirection", {0, 0, -1});
    l.set("translucence", {0.5});
    // Light from the side: cos 0, no diffuse. e = 0, u = 0.5 and with focus
    // 0.5 the power is 0.5 / 0.50001: t = 0.5 * 0.5^0.99998 = 0.2500035.
    l.light(0, {1, 0, 0}, {1, 1, 1}, false, true);
    expectColour(l.compute(TdnLambert::aOutColor, 0), 0.2500035f, 0.2500035f, 0.2500035f, 1e-6f,
                 "focus 0.5");

    // Focus 1: a power near 1e5, finite. From the side u^power is 0 ...
    l.set("translucenceFocus", {1});
    expectColour(l.compute(TdnLambert::aOutColor, 0), 0, 0, 0, kTol, "focus 1 side");
    // ... straight through towards the eye u = 1 and t stays 0.5.
    l.light(0, {0, 0, -1}, {1, 1, 1}, false, true);
    const float* c = l.compute(TdnLambert::aOutColor, 0);
    EXPECT_TRUE(std::isfinite(c[0]));
    expectColour(c, 0.5f, 0.5f, 0.5f, kTol, "focus 1 through");
}

TEST(LambertLighting, TransparencyScalesLightAndAmbientButNotIncandescence) {
    OneLambert l;
    l.set("color", {1, 1, 1});
    l.set("ambientColor", {0.2, 0.4, 0.6});
    l.set("transparency", {0.5, 0.5, 0.25});
    l.set("incandescence", {0.1, 0.2, 0.3});
    l.set("glowIntensity", {1});
    // (0.2, 0.4, 0.6) * (0.5, 0.5, 0.75) + (0.1, 0.2, 0.3).
    expectColour(l.compute(TdnLambert::aOutColor, 0), 0.2f, 0.4f, 0.75f, kTol, "ambient");
    expectColour(l.value(TdnLambert::aOutGlowColor), 0.2f, 0.4f, 0.75f, kTol, "glow");
    // An ambient light of 1 adds 1 before the transparency:
    // (1.2, 1.4, 1.6) * (0.5, 0.5, 0.75) + (0.1, 0.2, 0.3).
    l.light(0, {0, 0, 1}, {1, 1, 1}, true, false);
    expectColour(l.compute(TdnLambert::aOutColor, 0), 0.7f, 0.9f, 1.5f, kTol, "with light");
}

TEST(LambertLighting, HideSourceBlanksColourButKeepsGlow) {
    OneLambert l;
    l.set("color", {1, 1, 1});
    l.set("ambientColor", {0.2, 0.2, 0.2});
    l.set("glowIntensity", {1});
    l.set("transparency", {0.3, 0.3, 0.3});
    l.setWords("hideSource", {"true"});
    lambert_test::RecordingSampler sampler;
    l.setPointer("raySampler", static_cast<TraySampler*>(&sampler));
    l.setWords("refractions", {"true"});

    expectColour(l.compute(TdnLambert::aOutColor, 0), 0, 0, 0, kTol, "colour");
    // 0.2 * (1 - 0.3): glow is what the surface would have shown.
    expectColour(l.value(TdnLambert::aOutGlowColor), 0.14f, 0.14f, 0.14f, kTol, "glow");
    expectColour(l.compute(TdnLambert::aOutTransparency, 0), 1, 1, 1, kTol, "transparency");
    // Opacity gain: (1 - 1) * 1.
    expectColour(l.value(TdnLambert::aOutMatteOpacity), 0, 0, 0, kTol, "matte");
    EXPECT_EQ(sampler.traceCalls, 0) << "a hidden surface refracts nothing";
}

TEST(LambertLighting, BlackHole) {
    OneLambert l;
    l.set("ambientColor", {1, 1, 1});
    l.set("glowIntensity", {1});
    l.setWords("matteOpacityMode", {"Black Hole"});
    expectColour(l.compute(TdnLambert::aOutColor, 0), 0, 0, 0, kTol, "colour");
    expectColour(l.value(TdnLambert::aOutGlowColor), 0, 0, 0, kTol, "glow");
    expectColour(l.compute(TdnLambert::aOutTransparency, 0), 0, 0, 0, kTol, "transparency");
    expectColour(l.value(TdnLambert::aOutMatteOpacity), -1000000.0f, -1000000.0f, -1000000.0f, 0.0f,
                 "matte");

    // The other modes: a solid matte of matteOpacity, and the opacity gain
    // (1 - transparency) * matteOpacity.
    l.set("matteOpacity", {0.7});
    l.set("transparency", {0.5, 0, 1});
    l.setWords("matteOpacityMode", {"Solid Matte"});
    l.compute(TdnLambert::aOutTransparency, 0);
    expectColour(l.value(TdnLambert::aOutMatteOpacity), 0.7f, 0.7f, 0.7f, kTol, "solid");
    l.setWords("matteOpacityMode", {"Opacity Gain"});
    l.compute(TdnLambert::aOutMatteOpacity, 0);
    expectColour(l.value(TdnLambert::aOutMatteOpacity), 0.35f, 0.7f, 0.0f, kTol, "gain");
}

// The black hole walk stops moving at the first sample that isn't one: the
// rest of the batch keeps its colour even where it is a black hole.
TEST(LambertLighting, BlackHoleWalkStopsAtTheFirstOtherMode) {
    OneLambert l;
    SampleRun run(l.node, 4);
    run.put3All(TdnLambert::aColor, 1, 1, 1);
    run.put3All(TdnLambert::aAmbientColor, 0.5f, 0.5f, 0.5f);
    run.putAll(TdnLambert::aGlowIntensity, 1.0f);
    const int16_t modes[4] = {0, 0, 2, 0};
    for (unsigned e = 0; e < 4; ++e)
        run.put(TdnLambert::aMatteOpacityMode, e, modes[e]);
    run.compute(l.node, TdnLambert::aOutColor, 0);
    const float expected[4] = {0.0f, 0.0f, 0.5f, 0.5f};
    for (unsigned e = 0; e < 4; ++e) {
        const std::string what = "sample " + std::to_string(e);
        const float v = expected[e];
        expectColour(run.get(TdnLambert::aOutColor, e), v, v, v, kTol, what);
        expectColour(run.get(TdnLambert::aOutGlowColor, e), v, v, v, kTol, what + " glow");
    }
}

TEST(LambertLighting, EachSampleOfARunHasItsOwnNormalAndLights) {
    OneLambert l;
    SampleRun run(l.node, 3);
    run.put3All(TdnLambert::aColor, 1, 1, 1);
    run.putAll(TdnLambert::aDiffuseCoeff, 1.0f);
    // The same light from +z; the normals turn away from it.
    const float nz[3] = {1.0f, 0.6f, -0.6f};
    const float nx[3] = {0.0f, 0.8f, 0.8f};
    for (unsigned e = 0; e < 3; ++e) {
        run.put3(TdnLambert::aNormalCamera, e, nx[e], 0, nz[e]);
        TlightData& light = run.light(e);
        light.direction[0] = 0;
        light.direction[1] = 0;
        light.direction[2] = 1;
        light.intensity[0] = light.intensity[1] = light.intensity[2] = float(e + 1);
        light.ambient = false;
    }
    run.compute(l.node, TdnLambert::aOutColor, 0);
    // cos * intensity: 1 * 1, 0.6 * 2, and nothing from behind.
    const float expected[3] = {1.0f, 1.2f, 0.0f};
    for (unsigned e = 0; e < 3; ++e) {
        const float v = expected[e];
        expectColour(run.get(TdnLambert::aOutColor, e), v, v, v, kTol, std::to_string(e));
    }
}

TEST(LambertLighting, LightsWithBlindDataAnswerTheCosineThemselves) {
    OneLambert l;
    FakeLight light;
    light.lambertian = 0.25f;
    l.set("color", {1, 1, 1});
    l.set("normalCamera", {0, 0, 1});
    l.set("pointCamera", {1, 2, 3});
    l.set("rayDirection", {0, 0, -1});
    l.light(0, {0, 0, 1}, {1, 1, 1}, false, true);
    l.setPointer("lightDataArray[0].lightBlindData", static_cast<TlightBlindData*>(&light));
    // The light's 0.25 stands in for the cosine 1: 0.25 * diffuse 0.8.
    expectColour(l.compute(TdnLambert::aOutColor, 0), 0.2f, 0.2f, 0.2f, kTol, "diffuse");
    EXPECT_GT(light.lambertianCalls, 0);
    EXPECT_EQ(light.lastPoint.z, 3.0f);
    EXPECT_EQ(light.lastPoint.y, 2.0f);
    EXPECT_EQ(light.lastNormal.z, 1.0f);
    EXPECT_TRUE(light.lastClamp);
    EXPECT_EQ(light.coverageCalls, 0) << "no translucence asked";

    // Translucence asks the light's coverage in place of dot(L, ray):
    // coverage 1 gives u = 1, t = 0.5; coverage -1 gives u = 0, t = 0.
    l.set("translucence", {0.5});
    light.coverage = 1.0f;
    expectColour(l.compute(TdnLambert::aOutColor, 0), 0.7f, 0.7f, 0.7f, kTol, "coverage 1");
    EXPECT_EQ(light.lastCoverageDirection.z, -1.0f);
    light.coverage = -1.0f;
    expectColour(l.compute(TdnLambert::aOutColor, 0), 0.2f, 0.2f, 0.2f, kTol, "coverage -1");
}

// Through graph evaluation: an edit of a light record dirties the colour.
TEST(LambertLighting, GraphEvaluationFollowsLightEdits) {
    OneLambert l;
    l.set("normalCamera", {0, 0, 1});
    l.light(0, {0, 0, 1}, {1, 1, 1}, false, true);
    auto colour = [&] {
        return std::stof(l.g.evaluateToWords(l.g.findPlug("l.outColorR"))[0]);
    };
    EXPECT_NEAR(colour(), 0.4f, kTol); // 0.5 * 0.8
    l.set("lightDataArray[0].lightIntensity", {2, 2, 2});
    EXPECT_NEAR(colour(), 0.8f, kTol);
    l.set("diffuse", {0.5});
    EXPECT_NEAR(colour(), 0.5f, kTol);
}

} // namespace
