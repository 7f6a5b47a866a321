#include <gtest/gtest.h>

#include "materials/lambert_test_support.h"

// The light loop, ambient, incandescence, glow, matte and the render passes.
// Expected values are worked out by hand in the comments.

namespace {

using namespace lambert_test;

// color (1, 0.5, 0.25), ambientColor 0.2, incandescence (0.1, 0, 0), glow
// 0.5; one diffuse light from (0, 0.6, 0.8), intensity (0.5, 1, 2), on the
// normal (0, 0, 1): cos 0.8, the light adds color * intensity * 0.8 *
// diffuse 0.8 = 0.32; the ambient term is color * 0.2 = (0.2, 0.1, 0.05).
const std::string kLit = "set l.color 1 0.5 0.25\nset l.ambientColor 0.2 0.2 0.2\n"
                         "set l.incandescence 0.1 0 0\nset l.glowIntensity 0.5\n"
                         "set l.normalCamera 0 0 1\n"
                         "set l.lightDataArray[0].lightDirection 0 0.6 0.8\n"
                         "set l.lightDataArray[0].lightIntensity 0.5 1 2\n"
                         "set l.lightDataArray[0].lightAmbient false\n"
                         "set l.lightDataArray[0].preShadowIntensity 0.8\n"
                         "set l.lightDataArray[0].lightShadowFraction 0.25\n";
// Translucence 0.5 of a light straight from behind, seen head on.
const std::string kBack = "set l.color 1 1 1\nset l.normalCamera 0 0 1\n"
                          "set l.rayDirection 0 0 -1\nset l.translucence 0.5\n"
                          "set l.lightDataArray[0].lightDirection 0 0 -1\n"
                          "set l.lightDataArray[0].lightAmbient false\n";
// Ambient 0.2 on white, 0.3 transparent, glow 1.
const std::string kHide = "set l.color 1 1 1\nset l.ambientColor 0.2 0.2 0.2\n"
                          "set l.glowIntensity 1\nset l.transparency 0.3 0.3 0.3\n"
                          "set l.hideSource true\n";
const std::string kHole = "set l.ambientColor 1 1 1\nset l.glowIntensity 1\n"
                          "set l.matteOpacityMode 0\n";

TEST(LambertLighting, TermsByPass) {
    const Tattribute& colour = TdnLambert::aOutColor;
    const Tattribute& glow = TdnLambert::aOutGlowColor;
    const Tattribute& matte = TdnLambert::aOutMatteOpacity;
    const Tattribute& transmission = TdnLambert::aOutTransparency;
    struct Case {
        const char* what;
        std::string scene;
        int pass;
        const Tattribute& output;
        T3Float want;
    };
    const Case cases[] = {
        {"pass 0: light, ambient, incandescence", kLit, 0, colour, {0.62f, 0.42f, 0.37f}},
        {"pass 1", kLit, 1, colour, {0.62f, 0.42f, 0.37f}},
        {"pass 3", kLit, 3, colour, {0.62f, 0.42f, 0.37f}},
        {"pass 0 glow, times 0.5", kLit, 0, glow, {0.31f, 0.21f, 0.185f}},
        {"pass 2: ambient only", kLit, 2, colour, {0.2f, 0.1f, 0.05f}},
        {"pass 4: nothing", kLit, 4, colour, {0, 0, 0}},
        // S = 0.8 * 0.25, W = 0.8.
        {"pass 5: matte S / W", kLit, 5, matte, {0.25f, 0.25f, 0.25f}},
        {"pass 5: colour black", kLit, 5, colour, {0, 0, 0}},
        // A light from behind counts in W only: S = 0.2, W = 0.8 + 0.2.
        {"pass 5: back light",
         kLit + "set l.lightDataArray[1].lightDirection 0 0 -1\n"
                "set l.lightDataArray[1].preShadowIntensity 0.2\n"
                "set l.lightDataArray[1].lightShadowFraction 1\n",
         5,
         matte,
         {0.2f, 0.2f, 0.2f}},
        {"pass 5: no lights",
         "set l.ambientColor 1 1 1\nset l.incandescence 1 1 1\n",
         5,
         matte,
         {0, 0, 0}},
        // Ambient, not diffuse: color * intensity whatever the side.
        {"ambient light from behind",
         "set l.color 1 0.5 0.25\nset l.normalCamera 0 0 1\n"
         "set l.lightDataArray[0].lightDirection 0 0 -1\n"
         "set l.lightDataArray[0].lightIntensity 0.5 1 2\n"
         "set l.lightDataArray[0].lightDiffuse false\n",
         0,
         colour,
         {0.5f, 0.5f, 0.5f}},
        // A record made by its direction: intensity 1, ambient and diffuse:
        // (1 + 1 * 0.8) * color 0.5.
        {"the material's light defaults",
         "set l.normalCamera 0 0 1\nset l.lightDataArray[3].lightDirection 0 0 1\n",
         0,
         colour,
         {0.9f, 0.9f, 0.9f}},
        // Depth 0.5: cut-off -5.75. No diffuse from behind; towards the eye
        // u = 1 and t = 0.5.
        {"back-lit, depth 0.5", kBack, 0, colour, {0.5f, 0.5f, 0.5f}},
        {"back-lit, depth 0: cut off", kBack + "set l.translucenceDepth 0\n", 0, colour, {0, 0, 0}},
        // Cut-off 0, cos 0.075: t = 0.5 * 0.075 / 0.15, plus 0.075 * 0.8.
        {"depth 0, fading in",
         kBack + "set l.translucenceDepth 0\nset l.translucenceFocus 0\n"
                 "set l.lightDataArray[0].lightDirection 0.99718604 0 0.075\n",
         0,
         colour,
         {0.31f, 0.31f, 0.31f}},
        // From the side u = 0.5: t = 0.5 * 0.5^(0.5 / 0.50001).
        {"focus 0.5, from the side",
         kBack + "set l.lightDataArray[0].lightDirection 1 0 0\n",
         0,
         colour,
         {0.2500035f, 0.2500035f, 0.2500035f}},
        // Focus 1: a power near 1e5, finite.
        {"focus 1, from the side",
         kBack + "set l.translucenceFocus 1\nset l.lightDataArray[0].lightDirection 1 0 0\n",
         0,
         colour,
         {0, 0, 0}},
        {"focus 1, straight through",
         kBack + "set l.translucenceFocus 1\n",
         0,
         colour,
         {0.5f, 0.5f, 0.5f}},
        // (0.2, 0.4, 0.6) * (1 - transparency) + incandescence.
        {"transparency scales ambient, not incandescence",
         "set l.color 1 1 1\nset l.ambientColor 0.2 0.4 0.6\nset l.transparency 0.5 0.5 0.25\n"
         "set l.incandescence 0.1 0.2 0.3\n",
         0,
         colour,
         {0.2f, 0.4f, 0.75f}},
        // An ambient light adds 1 before the transparency.
        {"and scales light",
         "set l.color 1 1 1\nset l.ambientColor 0.2 0.4 0.6\nset l.transparency 0.5 0.5 0.25\n"
         "set l.incandescence 0.1 0.2 0.3\nset l.lightDataArray[0].lightDiffuse false\n",
         0,
         colour,
         {0.7f, 0.9f, 1.5f}},
        {"hideSource: black", kHide, 0, colour, {0, 0, 0}},
        {"hideSource: glow as it was, 0.2 * 0.7", kHide, 0, glow, {0.14f, 0.14f, 0.14f}},
        {"hideSource: lets all through", kHide, 0, transmission, {1, 1, 1}},
        {"black hole: colour", kHole, 0, colour, {0, 0, 0}},
        {"black hole: glow", kHole, 0, glow, {0, 0, 0}},
        {"black hole: matte", kHole, 0, matte, {-1e6f, -1e6f, -1e6f}},
        {"solid matte",
         "set l.matteOpacityMode 1\nset l.matteOpacity 0.7\nset l.transparency 0.5 0 1\n",
         0,
         matte,
         {0.7f, 0.7f, 0.7f}},
        // (1 - transparency) * 0.7.
        {"opacity gain",
         "set l.matteOpacity 0.7\nset l.transparency 0.5 0 1\n",
         0,
         matte,
         {0.35f, 0.7f, 0.0f}},
    };
    for (const Case& c : cases) {
        Lambert l(c.scene);
        expect3(l.compute(c.output, c.pass), c.want, c.what, 1e-6f);
    }
}

TEST(LambertLighting, BlindDataLightsAnswerForThemselves) {
    Lambert l("set l.color 1 1 1\nset l.normalCamera 0 0 1\nset l.pointCamera 1 2 3\n"
              "set l.rayDirection 0 0 -1\nset l.lightDataArray[0].lightAmbient false\n"
              "set l.lightDataArray[0].lightDirection 0 0 1\n");
    FakeLight light;
    light.lambertian = 0.25f;
    l.setPointer("lightDataArray[0].lightBlindData", static_cast<TlightBlindData*>(&light));
    // 0.25 in place of the cosine 1, times diffuse 0.8.
    expect3(l.compute(TdnLambert::aOutColor), {0.2f, 0.2f, 0.2f}, "diffuse");
    EXPECT_EQ(light.point.y, 2.0f);
    EXPECT_EQ(light.normal.z, 1.0f);
    // Translucence 0.5 takes the coverage for dot(L, ray): 1 gives u = 1.
    l.run("set l.translucence 0.5");
    light.coverage = 1.0f;
    expect3(l.compute(TdnLambert::aOutColor), {0.7f, 0.7f, 0.7f}, "coverage");
    EXPECT_EQ(light.coverageDirection.z, -1.0f);
}

TEST(LambertLighting, ALightWhoseAnswerIsTheCosineIsNotAsked) {
    Lambert l("set l.color 1 1 1\nset l.normalCamera 0 0 1\nset l.pointCamera 1 2 3\n"
              "set l.lightDataArray[0].lightAmbient false\n"
              "set l.lightDataArray[0].lightDirection 0 0.6 0.8\n");
    FakeLight light;
    light.lambertian = 0.25f; // what a call would give
    light.setCosineOnly(true);
    l.setPointer("lightDataArray[0].lightBlindData", static_cast<TlightBlindData*>(&light));
    // The cosine 0.8 times diffuse 0.8, and the light never asked.
    expect3(l.compute(TdnLambert::aOutColor), {0.64f, 0.64f, 0.64f}, "diffuse");
    EXPECT_EQ(light.point.y, 0.0f);
}

// The black hole walk stops at the first sample that isn't one: the rest of
// the batch keeps its colour, even a black hole further on.
TEST(LambertLighting, BlackHoleWalkStopsAtTheFirstOtherMode) {
    Lambert l;
    SampleRun run(l.node, 4);
    run.putAll(TdnLambert::aColor, T3Float{1, 1, 1});
    run.putAll(TdnLambert::aAmbientColor, T3Float{0.5f, 0.5f, 0.5f});
    run.putAll(TdnLambert::aGlowIntensity, 1.0f);
    const int16_t modes[4] = {0, 0, 2, 0};
    for (unsigned e = 0; e < 4; ++e)
        run.put(TdnLambert::aMatteOpacityMode, e, modes[e]);
    run.compute(l.node, TdnLambert::aOutColor);
    const float want[4] = {0.0f, 0.0f, 0.5f, 0.5f};
    for (unsigned e = 0; e < 4; ++e) {
        expect3(run.get(TdnLambert::aOutColor, e), {want[e], want[e], want[e]}, "colour");
        expect3(run.get(TdnLambert::aOutGlowColor, e), {want[e], want[e], want[e]}, "glow");
    }
}

} // namespace
