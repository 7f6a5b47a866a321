#include <gtest/gtest.h>

#include <sstream>

#include "host/graph.h"
#include "host/qsl/interpreter.h"
#include "materials/lambert_test_support.h"
#include "materials/ramp_shader.h"

// The ramp shader at chosen facing ratios and light angles, values worked
// out by hand in the comments. Unless a case says otherwise the surface
// faces the viewer, N = (0, 0, 1), V = (0, 0, -1): the facing ratio f = 1
// and the mirror direction R = (0, 0, 1). One light of intensity 1 comes
// from L = (0, 0.6, 0.8), so d = N.L = 0.8; it is diffuse, not ambient, not
// specular. The colour ramp runs linearly from black at 0 to (1, 0.5, 0) at
// 1, so colour(t) = (t, t / 2, 0); every other ramp is empty (0).

namespace {

using lambert_test::expect3;
using lambert_test::PassScope;

const std::string kBase = R"(
set r.normalCamera 0 0 1
set r.rayDirection 0 0 -1
set r.color[0].color_Position 0
set r.color[0].color_Color 0 0 0
set r.color[0].color_Interp "Linear"
set r.color[1].color_Position 1
set r.color[1].color_Color 1 0.5 0
set r.lightDataArray[0].lightDirection 0 0.6 0.8
set r.lightDataArray[0].lightAmbient false
)";

struct Ramp {
    TdependGraph g;
    TdnRampShader* node;
    explicit Ramp(const std::string& scene) {
        std::ostringstream out;
        qsl::Interpreter(g, out).runText("node rampShader r\n" + kBase + scene, "test.qsl");
        node = static_cast<TdnRampShader*>(g.findNode("r"));
    }
    const float* compute(const Tattribute& output, int32_t pass = 0) {
        PassScope scope(pass);
        node->shadingNodeInit(nullptr);
        node->computePlug(Tplug(node, &output), node->forceGetDatablock());
        return node->forceGetDatablock().outputValue(output).asFloat3();
    }
};

struct Case {
    const char* what;
    std::string scene;
    T3Float color;
};

TEST(RampShader, DiffuseByEachColourInput) {
    const Case cases[] = {
        // Light angle: a = d kd = 0.8 * 0.8 = 0.64, looked up at (d + 1) / 2
        // = 0.9: 0.64 * (0.9, 0.45, 0).
        {"light angle", "", {0.576f, 0.288f, 0.0f}},
        // Facing angle, the view tilted to V = (0.6, 0, -0.8): f = 0.8, and
        // d stays 0.8: 0.64 * colour(0.8) = 0.64 * (0.8, 0.4, 0).
        {"facing angle",
         "set r.colorInput \"Facing Angle\"\nset r.rayDirection 0.6 0 -0.8\n",
         {0.512f, 0.256f, 0.0f}},
        // Brightness with the light at intensity 2: b = (2 + 2 + 2) * 0.64 =
        // 3.84, looked up at b / 3 = 1.28, past the last entry: (1, 0.5, 0).
        {"brightness",
         "set r.colorInput \"Brightness\"\nset r.lightDataArray[0].lightIntensity 2 2 2\n",
         {1.0f, 0.5f, 0.0f}},
        // Normalized brightness: the same b over the intensity sum 6: 0.64.
        {"normalized brightness",
         "set r.colorInput \"Normalized Brightness\"\n"
         "set r.lightDataArray[0].lightIntensity 2 2 2\n",
         {0.64f, 0.32f, 0.0f}},
        // Forward scatter 0.5 (g = 0.5): e = V.L = -0.8, q = (e + 1) / 2 =
        // 0.1; a = ((0.5 * 0.1^2) / 0.5 + 0.5) * 0.8 * 0.8 = 0.3264, times
        // colour(0.9).
        {"forward scatter", "set r.forwardScatter 0.5\n", {0.29376f, 0.14688f, 0.0f}},
        // A transparency ramp of 0.25 keeps 0.75 of the diffuse; an
        // incandescence ramp of (0.1, 0.2, 0.3) adds to it.
        {"transparency and incandescence",
         "set r.transparency[0].transparency_Color 0.25 0.25 0.25\n"
         "set r.incandescence[0].incandescence_Color 0.1 0.2 0.3\n",
         {0.532f, 0.416f, 0.3f}},
        // ambientColor 0.5 adds 0.5 * (colour(1) + colour(0.5)) * 0.5 =
        // 0.25 * (1.5, 0.75, 0) to the light-angle diffuse.
        {"ambient", "set r.ambientColor 0.5 0.5 0.5\n", {0.951f, 0.4755f, 0.0f}},
        // A light at d = 0.1 with translucence 0.5, focus 0 and a depth of
        // 0: the cut-off is 0, so t0 = 0 and t1 = 0.15; d < t0 + t1 fades
        // the term to 0.5 * 0.1 / 0.15. a = 0.08 + 0.333333 at colour(0.55).
        {"translucence at depth 0",
         "set r.lightDataArray[0].lightDirection 0 0.994987 0.1\nset r.translucence 0.5\n"
         "set r.translucenceFocus 0\nset r.translucenceDepth 0\n",
         {0.227333f, 0.113667f, 0.0f}},
        // At the default depth 0.5 the cut-off is -5.75 and t0 = -1.15 *
        // -5.75 / 0.1 = 66.125: no light gets past it, translucence adds
        // nothing and a = 0.08.
        {"translucence at the default depth",
         "set r.lightDataArray[0].lightDirection 0 0.994987 0.1\nset r.translucence 0.5\n"
         "set r.translucenceFocus 0\n",
         {0.044f, 0.022f, 0.0f}},
    };
    for (const Case& c : cases) {
        Ramp r(c.scene);
        expect3(r.compute(TdnRampShader::aOutColor), c.color, c.what, 2e-5f);
    }
}

TEST(RampShader, ShadowModes) {
    // The light is half in shadow: intensity 0.5 of a pre-shadow 1, shadow
    // fraction 0.5, d = 0.8 above the 0.15 fade. Li becomes (1 - 0.5) 0.5
    // + 0.5 * 1 = 0.75, so D = 0.64 * colour(0.9) * 0.75 = (0.432, 0.216,
    // 0); z = Q / P = 0.5 over a threshold of 0.
    const std::string shadowed = "set r.lightDataArray[0].lightIntensity 0.5 0.5 0.5\n"
                                 "set r.lightDataArray[0].preShadowIntensity 1\n"
                                 "set r.lightDataArray[0].lightShadowFraction 0.5\n"
                                 "set r.shadowColor 0 0 1\n";
    const Case cases[] = {
        // Normal: the light's intensity as it stands, 0.64 * 0.5 * colour.
        {"normal", shadowed, {0.288f, 0.144f, 0.0f}},
        // Shaded colour: D (1 - z) + z shadowColor.
        {"shaded colour", shadowed + "set r.shadowMode \"Shaded Color\"\n", {0.216f, 0.108f, 0.5f}},
        // Constant colour: the shadow colour alone.
        {"constant colour", shadowed + "set r.shadowMode \"Constant Color\"\n", {0.0f, 0.0f, 1.0f}},
        // Above the threshold only: z = 0.5 is not above 0.6.
        {"under the threshold",
         shadowed + "set r.shadowMode \"Constant Color\"\nset r.shadowThreshold 0.6\n",
         {0.432f, 0.216f, 0.0f}},
    };
    for (const Case& c : cases) {
        Ramp r(c.scene);
        expect3(r.compute(TdnRampShader::aOutColor), c.color, c.what, 2e-5f);
    }
    // The shadow pass gives the ratio Q / P = 0.25 / 1 in the matte and a
    // black colour.
    Ramp r("set r.lightDataArray[0].preShadowIntensity 1\n"
           "set r.lightDataArray[0].lightShadowFraction 0.25\n");
    expect3(r.compute(TdnRampShader::aOutMatteOpacity, kRenderPassShadow), {0.25f, 0.25f, 0.25f},
            "shadow pass matte");
    expect3(r.compute(TdnRampShader::aOutColor, kRenderPassShadow), {0.0f, 0.0f, 0.0f},
            "shadow pass colour");
}

TEST(RampShader, HighlightReflectionAndGlow) {
    // A specular light alone (not diffuse), specularity 0.5, roll-off 0.6,
    // white specular colour, eccentricity 0.3. H = normalise(L - V) = (0,
    // 0.316228, 0.948683): x = y = 0.948683; e2 = 0.09 - 1 = -0.91, Dd =
    // (1/e2 + 1) / (y^2 + 1/e2) = -0.098901 / -0.198901 = 0.497238. 2 y n =
    // 1.517893 is not below x, n = 0.8 is not above f = 1: G = 1 / f = 1.
    // At depth 0, k = 0.6 * 0.5 * reflectionSpecularity.
    const std::string highlight = "set r.lightDataArray[0].lightDiffuse false\n"
                                  "set r.lightDataArray[0].lightSpecular true\n"
                                  "set r.specularity 0.5\n"
                                  "set r.specularRollOff[0].specularRollOff_FloatValue 0.6\n"
                                  "set r.specularColor[0].specularColor_Color 1 1 1\n";
    const float s = 0.3f * 0.497238f * 0.497238f; // 0.0741737
    const Case cases[] = {
        {"highlight", highlight, {s, s, s}},
        // reflectionSpecularity scales primary rays only.
        {"primary ray", highlight + "set r.reflectionSpecularity 0.5\n", {s / 2, s / 2, s / 2}},
        {"reflected ray",
         highlight + "set r.reflectionSpecularity 0.5\nset r.rayDepth 1\n",
         {s, s, s}},
        // A one-entry environment adds its colour, untouched by the matrix:
        // reflectivity 0.5 of (0.2, 0.4, 0.6), nothing traced; the diffuse
        // light is turned off.
        {"one-entry environment",
         "set r.lightDataArray[0].lightDiffuse false\n"
         "set r.reflectivity[0].reflectivity_FloatValue 0.5\n"
         "set r.environment[0].environment_Color 0.2 0.4 0.6\n"
         "set r.matrixEyeToWorld 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n",
         {0.1f, 0.2f, 0.3f}},
        // Two entries, black at 0 to white at 1, looked up by the mirror
        // direction's world height: V = (0, -0.6, -0.8) gives f = 0.8, R =
        // V + 1.6 N = (0, -0.6, 0.8), (y + 1) / 2 = 0.2; the diffuse light
        // is turned off. E = 0.5 * 0.2.
        {"two-entry environment",
         "set r.lightDataArray[0].lightDiffuse false\nset r.rayDirection 0 -0.6 -0.8\n"
         "set r.reflectivity[0].reflectivity_FloatValue 0.5\n"
         "set r.environment[0].environment_Interp \"Linear\"\n"
         "set r.environment[1].environment_Position 1\n"
         "set r.environment[1].environment_Color 1 1 1\n",
         {0.1f, 0.1f, 0.1f}},
    };
    for (const Case& c : cases) {
        Ramp r(c.scene);
        expect3(r.compute(TdnRampShader::aOutColor), c.color, c.what, 2e-5f);
    }
    // Glow: D glowIntensity + S specularGlow, with the light-angle diffuse
    // of the first case above (0.576, 0.288, 0) beside the highlight.
    Ramp r(highlight + "set r.lightDataArray[0].lightDiffuse true\nset r.glowIntensity 0.5\n"
                       "set r.specularGlow 2\n");
    expect3(r.compute(TdnRampShader::aOutGlowColor), {0.288f + 2 * s, 0.144f + 2 * s, 2 * s},
            "glow", 2e-5f);
    // The specular pass keeps the highlight and drops the diffuse.
    expect3(r.compute(TdnRampShader::aOutColor, kRenderPassSpecular), {s, s, s}, "specular pass",
            2e-5f);
}

} // namespace
