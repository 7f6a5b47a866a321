#include <gtest/gtest.h>

#include <cmath>

#include "materials/anisotropic.h"
#include "materials/lambert_test_support.h"
#include "materials/reflect.h"
#include "shading/ray_options.h"

// The specular materials: each highlight model at chosen directions, the
// mirror ray and the shared frame (passes, hiding, glow). Expected values are
// worked out by hand in the comments. Unless a case says otherwise the
// surface faces the viewer, N = (0, 0, 1), I = (0, 0, -1), so the mirror
// direction R is (0, 0, 1), and one specular light of intensity 1 comes from
// L = (0, 0.6, 0.8): cos to the normal 0.8, to R 0.8. Pass 4 shows the
// highlight S alone, with specularColor 0.5 unless set.

namespace {

using namespace lambert_test;

const std::string kView = "set l.normalCamera 0 0 1\nset l.rayDirection 0 0 -1\n"
                          "set l.diffuse 0\nset l.reflectivity 0\n";
const std::string kLight = "set l.lightDataArray[0].lightDirection 0 0.6 0.8\n"
                           "set l.lightDataArray[0].lightAmbient false\n"
                           "set l.lightDataArray[0].lightSpecular true\n";

struct Material : Lambert {
    RecordingSampler sampler;
    Material(const std::string& type, const std::string& scene, bool withSampler = false)
        : Lambert(scene, type) {
        if (withSampler)
            setPointer("raySampler", static_cast<TraySampler*>(&sampler));
    }
};

TEST(SpecularHighlights, ValueOfEachModel) {
    struct Case {
        const char* what;
        const char* type;
        std::string scene;
        T3Float want;
    };
    // blinn, head on: H = normalise(L - I) = (0, 0.316228, 0.948683), so
    // vh = nh = 0.948683; e = 0.3^2 - 1 = -0.91, D = 0.09 / (1 - 0.91 *
    // 0.9) = 0.497238; nl 0.8 <= nv 1 and vh < 2 nh nl, so G = 1 / nv = 1;
    // f = (1 - vh)^3 = 0.000135138; v = (0.7 (1 - f) + f) D^2 = 0.173082.
    // blinn, grazing view I = (0.8, 0, -0.6) (nv 0.6), light along N (nl 1):
    // H = (-0.447214, 0, 0.894427), vh = nh = 0.894427, D = 0.09 / (1 -
    // 0.91 * 0.8) = 0.330882; nl > nv and vh < 2 nh nv = 1.073313, so G =
    // 1 / 0.6; f = 0.105573^3 = 0.00117667; v = 0.700353 * 1.666667 *
    // 0.109483 = 0.127795.
    // phongE: rug = (0.5 * 0.969 + 0.03)^2 = 0.26471025; inside the cone
    // 1 - 0.5: x = (0.8 - 0.5) / 0.5 = 0.6, v = 0.6 rug / (0.36 (rug - 1) +
    // 1) = 0.216003; whiteness 0.5 on colour (1, 0.5, 0) tints the light by
    // 0.5 c + 0.5 = (1, 0.75, 0.5).
    // hairTubeShader along T = (1, 0, 0), E = (0, 0, -1), L = (0.6, 0, 0.8):
    // a = 0.6 - 0, u = 0.3, Sm = (0.6 - 3) 0.09 + 1 = 0.784.
    const std::string hair = "set l.tangentUCamera 1 0 0\nset l.specularShift 0\nset l.scatter 0\n"
                             "set l.lightDataArray[0].lightDirection 0.6 0 0.8\n";
    const Case cases[] = {
        {"phong: 0.8^20 = 0.0115292, times 0.5",
         "phong",
         kLight,
         {0.0057646f, 0.0057646f, 0.0057646f}},
        {"phong: the light's colour",
         "phong",
         kLight + "set l.lightDataArray[0].lightIntensity 2 1 0\n",
         {0.0115292f, 0.0057646f, 0}},
        // ln 0.8 * 1000 = -223 < -10: held at 4.54e-05, not 0.
        {"phong: a tiny lobe is held",
         "phong",
         kLight + "set l.cosinePower 1000\n",
         {2.27e-05f, 2.27e-05f, 2.27e-05f}},
        {"phong: light behind the surface",
         "phong",
         kLight + "set l.lightDataArray[0].lightDirection 0 0.6 -0.8\n",
         {0, 0, 0}},
        {"phong: a light without highlights",
         "phong",
         kLight + "set l.lightDataArray[0].lightSpecular false\n",
         {0, 0, 0}},
        {"phong: a reflected ray, reflectionSpecularity 0.5",
         "phong",
         kLight + "set l.rayDepth 1\nset l.reflectionSpecularity 0.5\n",
         {0.0028823f, 0.0028823f, 0.0028823f}},
        {"phong: a reflected ray, reflectionSpecularity 0",
         "phong",
         kLight + "set l.rayDepth 1\nset l.reflectionSpecularity 0\n",
         {0, 0, 0}},
        {"reflect alone has no highlight", "reflect", kLight, {0, 0, 0}},
        {"blinn head on: 0.173082 * 0.5", "blinn", kLight, {0.086541f, 0.086541f, 0.086541f}},
        // e = 0: D = 1, v = 0.700041.
        {"blinn, eccentricity 1",
         "blinn",
         kLight + "set l.eccentricity 1\n",
         {0.35002f, 0.35002f, 0.35002f}},
        {"blinn grazing: 0.127795 * 0.5",
         "blinn",
         kLight + "set l.rayDirection 0.8 0 -0.6\nset l.lightDataArray[0].lightDirection 0 0 1\n",
         {0.0638974f, 0.0638974f, 0.0638974f}},
        {"phongE",
         "phongE",
         kLight + "set l.color 1 0.5 0\nset l.specularColor 1 1 1\nset l.whiteness 0.5 0.5 0.5\n",
         {0.216003f, 0.162002f, 0.108002f}},
        {"phongE: highlightSize 0 is no highlight",
         "phongE",
         kLight + "set l.highlightSize 0\n",
         {0, 0, 0}},
        // outside the cone: d 0.8 is not above 1 - 0.1.
        {"phongE: a small highlight misses",
         "phongE",
         kLight + "set l.highlightSize 0.1\n",
         {0, 0, 0}},
        {"hair: 0.784^20 * 0.5",
         "hairTubeShader",
         kLight + hair,
         {0.0038485f, 0.0038485f, 0.0038485f}},
        // Scatter 0.2 along T itself: 0.784^5 * 0.2 = 0.0592394, on colour
        // (1, 0.5, 0.25), with no colorScale entries (a scale of 1).
        {"hair: scatter",
         "hairTubeShader",
         kLight + hair + "set l.scatter 0.2\nset l.color 1 0.5 0.25\n",
         {0.0630879f, 0.0334682f, 0.0186583f}},
        // Shift 45: a = 0.5, B = T x E = (0, 1, 0), M = B x T = (0, 0, -1),
        // Ts = (0.707107, 0, -0.707107); dot(Ts, L) - dot(Ts, E) = -0.141421
        // - 0.707107 = -0.848528, u = 0.424264, Sm = 0.612735; power 2:
        // 0.375444.
        {"hair: shifted toward the view",
         "hairTubeShader",
         kLight + hair + "set l.specularShift 45\nset l.specularPower 2\n",
         {0.187722f, 0.187722f, 0.187722f}},
        // Light, view and normal all along Z: thetaI = thetaR = 0, so the
        // scattering vector is 0, D = 4 / 4 = 1, the shadowing is 1 and the
        // Fresnel term of 6 head on is (5 / 7)^2 = 0.510204. The series'
        // t = (2 * 0.7 * 11.423973)^2 = 255.794 is past 20: S = pi * 13 * 3
        // / t = 0.478987; times k^2 / 4 pi^2 = 3.305785: 0.807872.
        {"anisotropic head on",
         "anisotropic",
         kLight + "set l.lightDataArray[0].lightDirection 0 0 1\nset l.tangentUCamera 1 0 0\n",
         {0.403936f, 0.403936f, 0.403936f}},
    };
    for (const Case& c : cases) {
        Material l(c.type, kView + c.scene);
        expect3(l.compute(TdnLambert::aOutColor, kRenderPassSpecular), c.want, c.what,
                std::max(1e-7f, std::fabs(c.want.x) * 2e-5f));
    }
}

TEST(SpecularHighlights, AnisotropicPieces) {
    using A = TdnAnisotropy;
    // Head on, Fresnel is ((n - 1) / (n + 1))^2.
    EXPECT_NEAR(A::fresnel(0.0f, 6.0f), 25.0f / 49.0f, 1e-6f);
    EXPECT_NEAR(A::fresnel0(1.5f), 0.04f, 1e-6f);
    // Both directions along the normal: w = 2, D = 4 / (1 * 4).
    EXPECT_NEAR(A::compute_D(0.3f, 0.0f, 1.2f, 0.0f), 1.0f, 1e-6f);
    // Past the horizon nothing is lit.
    EXPECT_EQ(A::compute_shadow(0.7f, 13.0f, 3.0f, 1.6f, 0.0f, 0.2f, 0.0f), 0.0f);
    EXPECT_NEAR(A::compute_shadow(0.7f, 13.0f, 3.0f, 0.0f, 0.0f, 0.0f, 0.0f), 1.0f, 1e-6f);
    // t = (2 * 0.01 * 11.423973)^2 = 0.0522029, below 20: the sum of
    // t^i e^-t / i! * pi * 39 / i over i is 6.150836 (first term 6.0708).
    EXPECT_NEAR(A::S_g_analytical(-2.0f, 0.01f, A::kWaveNumber, 13.0f, 3.0f, 0.0f, 0.0f), 6.150836f,
                1e-4f);
    // S_smooth falls off with the scattering vector: exp(-(1 * 13)^2 / 4).
    EXPECT_NEAR(A::S_smooth(1.0f, 1.0f, 0.0f, 13.0f, 3.0f) / A::S_smooth(1.0f, 0, 0, 13.0f, 3.0f),
                std::exp(-169.0f / 4.0f), 1e-20f);
}

// The mirror ray for I = (0.6, 0, -0.8) on N = (0, 0, 1): t = -0.8, R = I +
// 1.6 N = (0.6, 0, 0.8). The sampler's ray brings back (0.8, 0.6, 0.4);
// reflectivity 0.5 and specularColor 0.5 make the reflection a quarter of
// it, (0.2, 0.15, 0.1). The background is (0.1, 0.2, 0.3).
const std::string kMirror = "set l.normalCamera 0 0 1\nset l.rayDirection 0.6 0 -0.8\n"
                            "set l.diffuse 0\nset l.color 0 0 0\nset l.pointCamera 1 2 3\n"
                            "set l.mediumRefractiveIndex 1.3\nset l.rayInstance 7\n"
                            "set l.triangleNormalCamera 0 0 1\n";

TEST(SpecularReflection, TheMirrorRay) {
    Material l("phong", kMirror, true);
    l.sampler.background = Tspectrum(0.1f, 0.2f, 0.3f);
    expect3(l.compute(TdnLambert::aOutColor), {0.2f, 0.15f, 0.1f}, "reflection");
    ASSERT_EQ(l.sampler.rayCount, 1u);
    const TgenericRay& ray = l.sampler.rays[0];
    expect3(ray.origin, {1, 2, 3}, "origin");
    expect3(ray.direction, {0.6f, 0, 0.8f}, "direction");
    EXPECT_EQ(ray.depth, 1);
    EXPECT_FLOAT_EQ(ray.medium, 1.3f);
    EXPECT_EQ(ray.instance, 7);

    // A miss shows the background.
    l.sampler.hit = false;
    expect3(l.compute(TdnLambert::aOutColor), {0.025f, 0.05f, 0.075f}, "miss");

    // A shading normal tilted to (0.6, 0, 0.8) on a triangle facing Z: t =
    // 0.36 - 0.64 = -0.28, R = I + 0.56 N = (0.936, 0, -0.352), under the
    // triangle (c = -0.352): flattened to (1, 0, 0), lifted by 0.01 Z.
    Material bent("phong", kMirror + "set l.normalCamera 0.6 0 0.8\n", true);
    bent.compute(TdnLambert::aOutColor);
    ASSERT_EQ(bent.sampler.rayCount, 1u);
    expect3(bent.sampler.rays[0].direction, {0.99995f, 0, 0.0099995f}, "bent up");
}

TEST(SpecularReflection, NoRayLeavesReflectedColourOrBackground) {
    struct Case {
        const char* what;
        std::string scene;
        bool sampler;
        T3Float want;
        unsigned rays = 0;
    };
    // Without a ray the reflection is the background (0.1, 0.2, 0.3) times
    // reflectivity 0.5 and specularColor 0.5; with no sampler at all it is
    // black unless reflectedColor is connected, whatever its own value.
    const Case cases[] = {
        {"limit 0", "set l.reflectionLimit 0\n", true, {0.025f, 0.05f, 0.075f}},
        {"at the limit", "set l.rayDepth 1\n", true, {0.025f, 0.05f, 0.075f}},
        {"below a limit of 2",
         "set l.rayDepth 1\nset l.reflectionLimit 2\n",
         true,
         {0.2f, 0.15f, 0.1f},
         1},
        {"reflectivity 0", "set l.reflectivity 0\n", true, {0, 0, 0}},
        {"no sampler", "set l.reflectedColor 1 1 1\n", false, {0, 0, 0}},
    };
    for (const Case& c : cases) {
        Material l("phong", kMirror + c.scene, c.sampler);
        l.sampler.background = Tspectrum(0.1f, 0.2f, 0.3f);
        expect3(l.compute(TdnLambert::aOutColor), c.want, c.what);
        EXPECT_EQ(l.sampler.rayCount, c.rays) << c.what;
    }

    // Connected, reflectedColor stands in for the ray: reverse of (0.8,
    // 0.6, 0.4) is (0.2, 0.4, 0.6), a quarter of it (0.05, 0.1, 0.15).
    Material driven("phong", kMirror + "node reverse r\nset r.input 0.8 0.6 0.4\n"
                                       "connect r.output l.reflectedColor\n");
    PassScope pass(kRenderPassBeauty);
    driven.node->shadingNodeInit(nullptr);
    expect3(driven.g.evaluate(Tplug(driven.node, &TdnLambert::aOutColor)).asFloat3(),
            {0.05f, 0.1f, 0.15f}, "reflectedColor connected");
}

// The frame: which pass keeps what, hiding, glow.
TEST(SpecularReflection, PassesHidingAndGlow) {
    // phong with the mirror ray (0.2, 0.15, 0.1) and a light along R =
    // (0.6, 0, 0.8): d = 1, v = 1, highlight 1 * 0.5. Ambient colour 0.4 on
    // colour 0.5 gives a diffuse part of 0.2.
    const std::string scene = kMirror + "set l.color 0.5 0.5 0.5\nset l.ambientColor 0.4 0.4 0.4\n"
                                        "set l.lightDataArray[0].lightDirection 0.6 0 0.8\n"
                                        "set l.lightDataArray[0].lightAmbient false\n"
                                        "set l.lightDataArray[0].lightDiffuse false\n"
                                        "set l.lightDataArray[0].lightSpecular true\n";
    struct Case {
        const char* what;
        std::string extra;
        int pass;
        const Tattribute& output;
        T3Float want;
    };
    const Case cases[] = {
        {"pass 0: diffuse, reflection, highlight",
         "",
         0,
         TdnLambert::aOutColor,
         {0.9f, 0.85f, 0.8f}},
        {"pass 3: the reflection stays, the highlight goes",
         "",
         3,
         TdnLambert::aOutColor,
         {0.4f, 0.35f, 0.3f}},
        {"pass 4: the highlight and reflection alone",
         "",
         4,
         TdnLambert::aOutColor,
         {0.7f, 0.65f, 0.6f}},
        {"pass 2: ambient only", "", 2, TdnLambert::aOutColor, {0.2f, 0.2f, 0.2f}},
        // Hidden: no ray (the background instead), colour black...
        {"hidden", "set l.hideSource true\n", 0, TdnLambert::aOutColor, {0, 0, 0}},
        // ...but pass 4 shows its highlight: 0.5 + (0.025, 0.05, 0.075).
        {"hidden, pass 4",
         "set l.hideSource true\n",
         4,
         TdnLambert::aOutColor,
         {0.525f, 0.55f, 0.575f}},
        // Glow (S + diffuse glow) * 0.5 = (0.7 + 0.2, ...) * 0.5.
        {"glow", "set l.glowIntensity 0.5\n", 0, TdnLambert::aOutGlowColor, {0.45f, 0.425f, 0.4f}},
        {"black hole", "set l.matteOpacityMode 0\n", 0, TdnLambert::aOutColor, {0, 0, 0}},
    };
    for (const Case& c : cases) {
        Material l("phong", scene + c.extra, true);
        l.sampler.background = Tspectrum(0.1f, 0.2f, 0.3f);
        expect3(l.compute(c.output, c.pass), c.want, c.what);
    }
}

TEST(SpecularReflection, BlinnRollsTheReflectionOff) {
    // I = (0.8, 0, -0.6): nv = 0.6, f = 0.4^3 = 0.064; k = 0.5 * (0.936 *
    // 0.7 + 0.064) = 0.3596; the ray's (0.8, 0.6, 0.4) times k times 0.5.
    const std::string scene = kMirror + "set l.rayDirection 0.8 0 -0.6\n";
    Material l("blinn", scene, true);
    expect3(l.compute(TdnLambert::aOutColor), {0.14384f, 0.10788f, 0.07192f}, "rolled off");
    // Without the roll-off: k = min(0.5, 1).
    Material plain("blinn", scene + "set l.reflectionRolloff false\n", true);
    expect3(plain.compute(TdnLambert::aOutColor), {0.2f, 0.15f, 0.1f}, "plain");
}

// What a shading group learns of its material's rays.
TEST(SpecularReflection, RayOptions) {
    EXPECT_EQ(Material("phong", "").node->transparencyOptions(), kRayOptionReflects);
    EXPECT_EQ(Material("phong", "set l.reflectivity 0").node->transparencyOptions(), 0u);
    EXPECT_EQ(Material("blinn", "set l.reflectionLimit 0").node->transparencyOptions(), 0u);
    EXPECT_EQ(Material("lambert", "set l.refractions true").node->transparencyOptions(),
              kRayOptionRefracts);
    EXPECT_EQ(Material("phongE", "set l.refractions true").node->transparencyOptions(),
              kRayOptionRefracts | kRayOptionReflects);
}

} // namespace
