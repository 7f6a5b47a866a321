#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <functional>

#include "materials/lambert_test_support.h"

// Refraction through the ray sampler: which samples make rays, the rays'
// records, what comes back and how it is attenuated. Directions are worked
// out with Snell's law for the incidence (0.6, 0, -0.8) on the normal
// (0, 0, 1): cos i = 0.8, sin i = 0.6.

namespace {

using lambert_test::expectColour;
using lambert_test::OneLambert;
using lambert_test::RecordingSampler;
using lambert_test::SampleRun;

constexpr float kTol = 1e-5f;

// A lambert that refracts: black itself, half transparent, glass of 1.5 in
// air, seen at the incidence above, with the sampler plugged in.
struct Glass : OneLambert {
    RecordingSampler sampler;

    Glass() {
        set("color", {0, 0, 0});
        set("transparency", {0.5, 0.5, 0.5});
        setWords("refractions", {"true"});
        set("refractiveIndex", {1.5});
        set("rayDirection", {0.6, 0, -0.8});
        set("normalCamera", {0, 0, 1});
        setPointer("raySampler", static_cast<TraySampler*>(&sampler));
        sampler.colours[0] = Tspectrum(0.8f, 0.6f, 0.4f);
    }
};

void expectDirection(const TgenericRay& ray, float x, float y, float z, const std::string& what) {
    EXPECT_NEAR(ray.direction[0], x, kTol) << what;
    EXPECT_NEAR(ray.direction[1], y, kTol) << what;
    EXPECT_NEAR(ray.direction[2], z, kTol) << what;
}

TEST(LambertRefraction, OneRayWithItsRecordFilledIn) {
    Glass l;
    int object = 0;
    l.set("pointCamera", {1, 2, 3});
    l.set("rayDepth", {2});
    l.set("primitiveId", {7});
    l.set("rayInstance", {11});
    l.setPointer("objectId", &object);
    l.set("glowIntensity", {1});

    // The refracted light times transparency: (0.8, 0.6, 0.4) * 0.5.
    expectColour(l.compute(TdnLambert::aOutColor, 0), 0.4f, 0.3f, 0.2f, kTol, "colour");
    expectColour(l.value(TdnLambert::aOutGlowColor), 0, 0, 0, kTol, "refraction doesn't glow");
    ASSERT_EQ(l.sampler.traceCalls, 1);
    ASSERT_EQ(l.sampler.rayCount, 1u);
    EXPECT_EQ(l.sampler.lastNode, l.node);
    const TgenericRay& ray = l.sampler.rays[0];
    // eta = 1 / 1.5: sin t = 0.4, cos t = sqrt(1 - 0.16).
    expectDirection(ray, 0.4f, 0.0f, -0.9165151f, "direction");
    EXPECT_EQ(ray.origin[0], 1.0f);
    EXPECT_EQ(ray.origin[1], 2.0f);
    EXPECT_EQ(ray.origin[2], 3.0f);
    EXPECT_EQ(ray.maxDistance, FLT_MAX);
    EXPECT_EQ(ray.depth, 3);
    EXPECT_FLOAT_EQ(ray.medium, 1.5f);
    EXPECT_EQ(ray.primitiveId, 7);
    EXPECT_EQ(ray.objectId, &object);
    EXPECT_EQ(ray.instance, 11);
}

TEST(LambertRefraction, NoRayUnlessTheSampleCanRefract) {
    auto raysWith = [](const std::function<void(Glass&)>& change) {
        Glass l;
        change(l);
        l.compute(TdnLambert::aOutColor, 0);
        return l.sampler.rayCount;
    };
    EXPECT_EQ(raysWith([](Glass&) {}), 1u);
    EXPECT_EQ(raysWith([](Glass& l) { l.setWords("refractions", {"false"}); }), 0u);
    EXPECT_EQ(raysWith([](Glass& l) { l.setWords("hideSource", {"true"}); }), 0u);
    // An unknown medium, and within 0.001 of the marker.
    EXPECT_EQ(raysWith([](Glass& l) { l.set("mediumRefractiveIndex", {-1234.567}); }), 0u);
    EXPECT_EQ(raysWith([](Glass& l) { l.set("mediumRefractiveIndex", {-1234.5665}); }), 0u);
    EXPECT_EQ(raysWith([](Glass& l) { l.set("mediumRefractiveIndex", {-1234.565}); }), 1u);
    // The depth limit: refractionLimit 6 by default.
    EXPECT_EQ(raysWith([](Glass& l) { l.set("rayDepth", {6}); }), 0u);
    EXPECT_EQ(raysWith([](Glass& l) { l.set("rayDepth", {5}); }), 1u);
    EXPECT_EQ(raysWith([](Glass& l) { l.set("refractionLimit", {0}); }), 0u);
    // Some channel must let more than 1e-5 through.
    EXPECT_EQ(raysWith([](Glass& l) { l.set("transparency", {1e-5, 1e-5, 1e-5}); }), 0u);
    EXPECT_EQ(raysWith([](Glass& l) { l.set("transparency", {0, 0, 2e-5}); }), 1u);
}

TEST(LambertRefraction, AMediumOfTheSameIndexIsLeftForAir) {
    Glass l;
    l.set("mediumRefractiveIndex", {1.5});
    // n2 = 1: eta = 1.5, sin t = 0.9, cos t = sqrt(0.19).
    l.compute(TdnLambert::aOutColor, 0);
    ASSERT_EQ(l.sampler.rayCount, 1u);
    expectDirection(l.sampler.rays[0], 0.9f, 0.0f, -0.4358899f, "direction");
    EXPECT_FLOAT_EQ(l.sampler.rays[0].medium, 1.0f);

    // At (0.8, 0, -0.6) sin t would be 1.2: total internal reflection. The
    // mirror direction I + 2 cos i N, in the medium of refractiveIndex.
    l.set("rayDirection", {0.8, 0, -0.6});
    l.compute(TdnLambert::aOutColor, 0);
    ASSERT_EQ(l.sampler.rayCount, 2u);
    expectDirection(l.sampler.rays[1], 0.8f, 0.0f, 0.6f, "mirror");
    EXPECT_FLOAT_EQ(l.sampler.rays[1].medium, 1.5f);
}

TEST(LambertRefraction, ChromaticAberrationSplitsTheRayInThree) {
    Glass l;
    l.setWords("chromaticAberration", {"true"});
    l.set("rayDepth", {1});
    l.sampler.tail = 24;
    l.sampler.answers = 3;
    l.sampler.colours[0] = Tspectrum(1.0f, 0.9f, 0.9f);
    l.sampler.colours[1] = Tspectrum(0.9f, 0.5f, 0.9f);
    l.sampler.colours[2] = Tspectrum(0.9f, 0.9f, 0.25f);
    l.sampler.transmissions[0] = Tspectrum(0.5f, 0.9f, 0.9f);
    l.sampler.transmissions[1] = Tspectrum(0.9f, 0.25f, 0.9f);
    l.sampler.transmissions[2] = Tspectrum(0.9f, 0.9f, 0.75f);

    // Each slot keeps its own channel: (1, 0.5, 0.25) * 0.5.
    expectColour(l.compute(TdnLambert::aOutColor, 0), 0.5f, 0.25f, 0.125f, kTol, "colour");
    ASSERT_EQ(l.sampler.rayCount, 3u);
    const float media[3] = {1.5f, 1.56f, 1.62f};
    // sin t = 0.6 / n, cos t = sqrt(1 - sin t^2).
    const float sinT[3] = {0.4f, 0.3846154f, 0.3703704f};
    const float cosT[3] = {0.9165151f, 0.9230769f, 0.9288842f};
    for (int k = 0; k < 3; ++k) {
        const TgenericRay& ray = l.sampler.rays[k];
        const std::string what = "slot " + std::to_string(k);
        EXPECT_NEAR(ray.medium, media[k], 1e-6f) << what;
        expectDirection(ray, sinT[k], 0.0f, -cosT[k], what);
        EXPECT_EQ(ray.depth, 2) << what;
    }
    // Records are as large as the sampler asked.
    const auto* first = reinterpret_cast<const std::byte*>(l.sampler.addresses[0]);
    const auto* second = reinterpret_cast<const std::byte*>(l.sampler.addresses[1]);
    EXPECT_GE(size_t(second - first), sizeof(TgenericRay) + 24);

    // Transmission, channel by channel from its slot's ray: 0.5 * (0.5,
    // 0.25, 0.75).
    expectColour(l.compute(TdnLambert::aOutTransparency, 0), 0.25f, 0.125f, 0.375f, kTol,
                 "transparency");
}

TEST(LambertRefraction, SurfaceThicknessMakesAThinShell) {
    Glass l;
    l.set("surfaceThickness", {0.5});
    l.set("transparencyDepth", {1});
    l.sampler.hitDistance = 2.0f;
    // c = -0.8, b = 0.2: n2 = 1 + 0.5 * (2 * 0.04 * 0.5 + 0.5) = 1.27. The
    // path is cut to the thickness 0.5: g = ((1 - 0.5) / 1)^2 = 0.25.
    expectColour(l.compute(TdnLambert::aOutColor, 0), 0.1f, 0.075f, 0.05f, kTol, "colour");
    EXPECT_NEAR(l.sampler.rays[0].medium, 1.27f, 1e-6f);
    // sin t = 0.6 / 1.27.
    expectDirection(l.sampler.rays[0], 0.4724409f, 0.0f, -0.8813624f, "direction");

    // Head on, b = 0: n2 = 1 + 0.5 * 0.5. Grazing at index 3 with thickness
    // 1: 1 + 2 * 3 = 7, clamped to 3.
    l.set("rayDirection", {0, 0, -1});
    l.compute(TdnLambert::aOutColor, 0);
    EXPECT_NEAR(l.sampler.rays[1].medium, 1.25f, 1e-6f);
    l.set("rayDirection", {1, 0, 0});
    l.set("refractiveIndex", {3});
    l.set("surfaceThickness", {1});
    l.compute(TdnLambert::aOutColor, 0);
    EXPECT_FLOAT_EQ(l.sampler.rays[2].medium, 3.0f);
}

TEST(LambertRefraction, AbsorbanceAndTransparencyDepthAttenuate) {
    struct Case {
        double absorbance, depth;
        Tspectrum colour;
        float expected[3];
    };
    // Distance 2 throughout. g = exp(-2 / 100 * absorbance) * ((td - 2) / td)^2,
    // 0 past the depth and at or below 1e-6; the sample shows colour * g * 0.5.
    const Case cases[] = {
        {0, 0, {1, 0.5f, 0.25f}, {0.5f, 0.25f, 0.125f}},
        // e^-1 * 0.25 = 0.09196986
        {50, 4, {1, 0.5f, 0.25f}, {0.04598493f, 0.02299247f, 0.01149623f}},
        {0, 1, {1, 0.5f, 0.25f}, {0, 0, 0}},
        // e^-20 = 2.06e-9: counts as nothing, though 1e6 of it would show.
        {1000, 0, {1e6f, 1e6f, 1e6f}, {0, 0, 0}},
    };
    for (const Case& c : cases) {
        Glass l;
        l.sampler.hitDistance = 2.0f;
        l.sampler.colours[0] = c.colour;
        l.set("lightAbsorbance", {c.absorbance});
        l.set("transparencyDepth", {c.depth});
        expectColour(
            l.compute(TdnLambert::aOutColor, 0), c.expected[0], c.expected[1], c.expected[2], 1e-6f,
            "absorbance " + std::to_string(c.absorbance) + " depth " + std::to_string(c.depth));
    }
}

// Two samples side by side; sample 1 always refracts, sample 0 as the case
// says. The background is counted once for each slot without a ray, and
// only when fewer rays were made than there are samples.
TEST(LambertRefraction, BackgroundShowsThroughSlotsWithoutARay) {
    struct Case {
        const char* what;
        bool refract0, aberration0, aberration1, blackBackground;
        int16_t depth0, depth1;
        float expected0[3], expected1[3];
    };
    // background (0.2, 0.4, 0.6) * 0.5 = (0.1, 0.2, 0.3); the ray's colour
    // (0.8, 0.6, 0.4) * 0.5 = (0.4, 0.3, 0.2).
    const Case cases[] = {
        {"no ray in 0", true, false, false, false, 6, 0, {0.1f, 0.2f, 0.3f}, {0.4f, 0.3f, 0.2f}},
        {"three empty slots",
         true,
         true,
         false,
         false,
         6,
         0,
         {0.3f, 0.6f, 0.9f},
         {0.4f, 0.3f, 0.2f}},
        {"three rays for two samples",
         true,
         false,
         true,
         false,
         6,
         0,
         {0, 0, 0},
         {0.4f, 0.3f, 0.2f}},
        {"black background", true, false, false, true, 6, 0, {0, 0, 0}, {0.4f, 0.3f, 0.2f}},
        {"0 doesn't refract", false, false, false, false, 0, 6, {0, 0, 0}, {0.1f, 0.2f, 0.3f}},
    };
    for (const Case& c : cases) {
        OneLambert l;
        RecordingSampler sampler;
        sampler.colours[0] = Tspectrum(0.8f, 0.6f, 0.4f);
        sampler.background = c.blackBackground ? kBlackSpectrum : Tspectrum(0.2f, 0.4f, 0.6f);
        SampleRun run(l.node, 2);
        run.put3All(TdnLambert::aColor, 0, 0, 0);
        run.put3All(TdnLambert::aTransparency, 0.5f, 0.5f, 0.5f);
        run.put3All(TdnLambert::aRayDirection, 0, 0, -1);
        run.put3All(TdnLambert::aNormalCamera, 0, 0, 1);
        run.putAll(TdnLambert::aRefractiveIndex, 1.5f);
        run.putAll(TdnLambert::aRaySampler,
                   static_cast<void*>(static_cast<TraySampler*>(&sampler)));
        run.put(TdnLambert::aRtRefractedColor, 0, c.refract0);
        run.put(TdnLambert::aRtRefractedColor, 1, true);
        run.put(TdnLambert::aChromaticAberration, 0, c.aberration0);
        run.put(TdnLambert::aChromaticAberration, 1, c.aberration1);
        run.put(TdnLambert::aRayDepth, 0, c.depth0);
        run.put(TdnLambert::aRayDepth, 1, c.depth1);
        run.compute(l.node, TdnLambert::aOutColor, 0);
        expectColour(run.get(TdnLambert::aOutColor, 0), c.expected0[0], c.expected0[1],
                     c.expected0[2], kTol, std::string(c.what) + ", sample 0");
        expectColour(run.get(TdnLambert::aOutColor, 1), c.expected1[0], c.expected1[1],
                     c.expected1[2], kTol, std::string(c.what) + ", sample 1");
    }
}

TEST(LambertRefraction, TransmissionThroughTheRay) {
    Glass l;
    l.set("transparency", {0.8, 0.8, 0.8});
    l.sampler.transmissions[0] = Tspectrum(0.5f, 0.25f, 1.0f);
    expectColour(l.compute(TdnLambert::aOutTransparency, 0), 0.4f, 0.2f, 0.8f, kTol, "through");
    // Opacity gain: 1 - transmission.
    expectColour(l.value(TdnLambert::aOutMatteOpacity), 0.6f, 0.8f, 0.2f, kTol, "matte");
    EXPECT_EQ(l.sampler.traceCalls, 1);

    // Without a sampler: no rays, the transparency as it is, and no
    // background either.
    l.setPointer("raySampler", nullptr);
    expectColour(l.compute(TdnLambert::aOutTransparency, 0), 0.8f, 0.8f, 0.8f, kTol, "none");
    expectColour(l.compute(TdnLambert::aOutColor, 0), 0, 0, 0, kTol, "no background");
    EXPECT_EQ(l.sampler.traceCalls, 1);
}

} // namespace
