#include <gtest/gtest.h>

#include <cfloat>

#include "materials/lambert_test_support.h"

// Refraction through the ray sampler. Directions follow Snell's law for the
// incidence (0.6, 0, -0.8) on the normal (0, 0, 1): cos i = 0.8, sin i =
// 0.6, sin t = 0.6 / n, and the ray is (sin t, 0, -cos t).

namespace {

using namespace lambert_test;

// Black, half transparent glass of 1.5 in air; it shows only what the ray
// brings back, times 0.5.
struct Glass : Lambert {
    RecordingSampler sampler;
    explicit Glass(const std::string& scene = "")
        : Lambert("set l.color 0 0 0\nset l.transparency 0.5 0.5 0.5\nset l.refractions true\n"
                  "set l.refractiveIndex 1.5\nset l.rayDirection 0.6 0 -0.8\n"
                  "set l.normalCamera 0 0 1\n" +
                  scene) {
        setPointer("raySampler", static_cast<TraySampler*>(&sampler));
    }
};

TEST(LambertRefraction, WhichRaysAreMade) {
    struct Case {
        const char* what;
        std::string scene;
        unsigned rays;
        float medium[3];
        T3Float direction[3];
    };
    const Case cases[] = {
        {"glass from air", "", 1, {1.5f}, {{0.4f, 0, -0.9165151f}}},
        // Leaving a medium of the same index: n2 = 1, sin t = 0.9.
        {"back to air", "set l.mediumRefractiveIndex 1.5", 1, {1.0f}, {{0.9f, 0, -0.4358899f}}},
        // sin t would be 1.2: the mirror I + 2 cos i N, in refractiveIndex.
        {"total internal reflection",
         "set l.mediumRefractiveIndex 1.5\nset l.rayDirection 0.8 0 -0.6",
         1,
         {1.5f},
         {{0.8f, 0, 0.6f}}},
        {"chromatic aberration",
         "set l.chromaticAberration true",
         3,
         {1.5f, 1.56f, 1.62f},
         {{0.4f, 0, -0.9165151f}, {0.3846154f, 0, -0.9230769f}, {0.3703704f, 0, -0.9288842f}}},
        // c = -0.8, b = 0.2: n2 = 1 + 0.5 * (2 * 0.04 * 0.5 + 0.5) = 1.27.
        {"thin shell", "set l.surfaceThickness 0.5", 1, {1.27f}, {{0.4724409f, 0, -0.8813624f}}},
        // b = 0: n2 = 1 + 0.5 * 0.5.
        {"thin shell head on",
         "set l.surfaceThickness 0.5\nset l.rayDirection 0 0 -1",
         1,
         {1.25f},
         {{0, 0, -1}}},
        // b = 1: 1 + 2 * (2 + 1) = 7, clamped to 3; cos i = 0, sin t = 1 / 3.
        {"thin shell grazing",
         "set l.surfaceThickness 1\nset l.refractiveIndex 3\nset l.rayDirection 1 0 0",
         1,
         {3.0f},
         {{0.3333333f, 0, -0.9428090f}}},
        {"refractions off", "set l.refractions false", 0, {}, {}},
        {"hidden", "set l.hideSource true", 0, {}, {}},
        {"medium unknown", "set l.mediumRefractiveIndex -1234.567", 0, {}, {}},
        {"medium within 0.001 of unknown", "set l.mediumRefractiveIndex -1234.5665", 0, {}, {}},
        {"medium 0.002 from unknown", "set l.mediumRefractiveIndex -1234.565", 1, {}, {}},
        {"at the depth limit 6", "set l.rayDepth 6", 0, {}, {}},
        {"below the depth limit", "set l.rayDepth 5", 1, {}, {}},
        {"limit 0", "set l.refractionLimit 0", 0, {}, {}},
        {"opaque to 1e-5", "set l.transparency 1e-5 1e-5 1e-5", 0, {}, {}},
        {"one channel through", "set l.transparency 0 0 2e-5", 1, {}, {}},
    };
    for (const Case& c : cases) {
        Glass l(c.scene);
        l.compute(TdnLambert::aOutColor);
        ASSERT_EQ(l.sampler.rayCount, c.rays) << c.what;
        for (unsigned k = 0; k < c.rays && c.medium[0] != 0.0f; ++k) {
            EXPECT_NEAR(l.sampler.rays[k].medium, c.medium[k], 1e-6f) << c.what;
            expect3(l.sampler.rays[k].direction, c.direction[k], c.what);
        }
    }
}

TEST(LambertRefraction, RayRecordsAndWhatTheyBringBack) {
    Glass l("set l.pointCamera 1 2 3\nset l.rayDepth 2\nset l.primitiveId 7\n"
            "set l.rayInstance 11\nset l.glowIntensity 1\nset l.chromaticAberration true\n");
    int object = 0;
    l.setPointer("objectId", &object);
    l.sampler.tail = 24;
    l.sampler.answers = 3;
    l.sampler.colours[0] = Tspectrum(1.0f, 0.9f, 0.9f);
    l.sampler.colours[1] = Tspectrum(0.9f, 0.5f, 0.9f);
    l.sampler.colours[2] = Tspectrum(0.9f, 0.9f, 0.25f);
    l.sampler.transmissions[0] = Tspectrum(0.5f, 0.9f, 0.9f);
    l.sampler.transmissions[1] = Tspectrum(0.9f, 0.25f, 0.9f);
    l.sampler.transmissions[2] = Tspectrum(0.9f, 0.9f, 0.75f);

    // Each slot keeps its own channel: (1, 0.5, 0.25) * 0.5. Glow is taken
    // before refraction.
    expect3(l.compute(TdnLambert::aOutColor), {0.5f, 0.25f, 0.125f}, "colour");
    expect3(l.value(TdnLambert::aOutGlowColor), {0, 0, 0}, "glow");
    ASSERT_EQ(l.sampler.rayCount, 3u);
    EXPECT_EQ(l.sampler.node, l.node);
    for (unsigned k = 0; k < 3; ++k) {
        const TgenericRay& ray = l.sampler.rays[k];
        expect3(ray.origin, {1, 2, 3}, "origin");
        EXPECT_EQ(ray.maxDistance, FLT_MAX);
        EXPECT_EQ(ray.depth, 3);
        EXPECT_EQ(ray.primitiveId, 7);
        EXPECT_EQ(ray.objectId, &object);
        EXPECT_EQ(ray.instance, 11);
    }
    // Records are as large as the sampler asked.
    const auto* a = static_cast<const std::byte*>(l.sampler.addresses[0]);
    EXPECT_GE(size_t(static_cast<const std::byte*>(l.sampler.addresses[1]) - a),
              sizeof(TgenericRay) + 24);
    // Transmission, each channel from its slot's ray: 0.5 * (0.5, 0.25, 0.75).
    expect3(l.compute(TdnLambert::aOutTransparency), {0.25f, 0.125f, 0.375f}, "transmission");

    // One ray: all channels through it. Opacity gain 1 - transmission.
    l.run("set l.chromaticAberration false\nset l.transparency 0.8 0.8 0.8");
    l.sampler.transmissions[0] = Tspectrum(0.5f, 0.25f, 1.0f);
    expect3(l.compute(TdnLambert::aOutTransparency), {0.4f, 0.2f, 0.8f}, "one ray");
    expect3(l.value(TdnLambert::aOutMatteOpacity), {0.6f, 0.8f, 0.2f}, "matte");
    // No sampler: the transparency as it is, no refraction, no background.
    l.sampler.background = Tspectrum(1, 1, 1);
    l.setPointer("raySampler", nullptr);
    expect3(l.compute(TdnLambert::aOutTransparency), {0.8f, 0.8f, 0.8f}, "no sampler");
    expect3(l.compute(TdnLambert::aOutColor), {0, 0, 0}, "no sampler colour");
}

TEST(LambertRefraction, AttenuationAlongTheRay) {
    struct Case {
        const char* scene;
        Tspectrum colour;
        T3Float want;
    };
    // Hit at 2. g = exp(-2 / 100 * absorbance) * ((depth - 2) / depth)^2,
    // 0 past the depth or at 1e-6 and below; shown: colour * g * 0.5.
    const Case cases[] = {
        {"", {1, 0.5f, 0.25f}, {0.5f, 0.25f, 0.125f}},
        // e^-1 * 0.25 = 0.09196986.
        {"set l.lightAbsorbance 50\nset l.transparencyDepth 4",
         {1, 0.5f, 0.25f},
         {0.04598493f, 0.02299247f, 0.01149623f}},
        {"set l.transparencyDepth 1", {1, 0.5f, 0.25f}, {0, 0, 0}},
        // e^-20 = 2.1e-9 counts as nothing, though 1e6 of it would show.
        {"set l.lightAbsorbance 1000", {1e6f, 1e6f, 1e6f}, {0, 0, 0}},
        // The path ends at the thickness 0.5: ((1 - 0.5) / 1)^2.
        {"set l.surfaceThickness 0.5\nset l.transparencyDepth 1",
         {0.8f, 0.6f, 0.4f},
         {0.1f, 0.075f, 0.05f}},
    };
    for (const Case& c : cases) {
        Glass l(c.scene);
        l.sampler.hitDistance = 2.0f;
        l.sampler.colours[0] = c.colour;
        expect3(l.compute(TdnLambert::aOutColor), c.want, c.scene, 1e-6f);
    }
}

// Two samples; sample 1 refracts unless its depth is 6. The background is
// counted once a slot without a ray, when fewer rays than samples were made.
TEST(LambertRefraction, BackgroundShowsThroughSlotsWithoutARay) {
    struct Case {
        const char* what;
        bool refract0, split0, split1, black;
        int16_t depth0, depth1;
        T3Float want0, want1;
    };
    // Background (0.2, 0.4, 0.6) * 0.5; the ray's (0.8, 0.6, 0.4) * 0.5.
    const T3Float bg{0.1f, 0.2f, 0.3f}, ray{0.4f, 0.3f, 0.2f}, none{0, 0, 0};
    const Case cases[] = {
        {"no ray in 0", true, false, false, false, 6, 0, bg, ray},
        {"three empty slots", true, true, false, false, 6, 0, {0.3f, 0.6f, 0.9f}, ray},
        {"three rays for two samples", true, false, true, false, 6, 0, none, ray},
        {"black background", true, false, false, true, 6, 0, none, ray},
        {"0 doesn't refract", false, false, false, false, 0, 6, none, bg},
    };
    for (const Case& c : cases) {
        Lambert l;
        RecordingSampler sampler;
        sampler.background = c.black ? kBlackSpectrum : Tspectrum(0.2f, 0.4f, 0.6f);
        SampleRun run(l.node, 2);
        run.putAll(TdnLambert::aColor, T3Float{0, 0, 0});
        run.putAll(TdnLambert::aTransparency, T3Float{0.5f, 0.5f, 0.5f});
        run.putAll(TdnLambert::aRayDirection, T3Float{0, 0, -1});
        run.putAll(TdnLambert::aNormalCamera, T3Float{0, 0, 1});
        run.putAll(TdnLambert::aRefractiveIndex, 1.5f);
        run.putAll(TdnLambert::aRaySampler,
                   static_cast<void*>(static_cast<TraySampler*>(&sampler)));
        const bool refract[2] = {c.refract0, true}, split[2] = {c.split0, c.split1};
        const int16_t depth[2] = {c.depth0, c.depth1};
        for (unsigned e = 0; e < 2; ++e) {
            run.put(TdnLambert::aRtRefractedColor, e, refract[e]);
            run.put(TdnLambert::aChromaticAberration, e, split[e]);
            run.put(TdnLambert::aRayDepth, e, depth[e]);
        }
        run.compute(l.node, TdnLambert::aOutColor);
        expect3(run.get(TdnLambert::aOutColor, 0), c.want0, std::string(c.what) + ", 0");
        expect3(run.get(TdnLambert::aOutColor, 1), c.want1, std::string(c.what) + ", 1");
    }
}

} // namespace
