// Optical effects at single rays: spreads, falloffs, the rings and circles
// of a lens flare for a light at a known place on the picture. Expected
// values are worked out by hand in the comments.

#include <gtest/gtest.h>

#include <cmath>

#include "post/glow_noise.h"
#include "post/optical_fx.h"

using namespace orvo::post;

namespace {

TopticalFXParams plain() {
    TopticalFXParams p;
    p.glowStarLevel = 0.0f; // no star arms, so falloffs read as they are
    computeSpreads(p);
    return p;
}

TopticalFXRay rayAtCosine(double c) {
    TopticalFXRay ray;
    ray.x = float(std::sqrt(1.0 - c * c));
    ray.z = float(-c);
    return ray;
}

} // namespace

TEST(OpticalFXSpreads, ByKind) {
    // g = h = 1/30. Glow: linear 1/(g^3 - 1) = 1/(3.7037e-5 - 1) =
    // -1.0000370; exponential 1/((g/2)^3 - 1) = -1.0000046; ball 1 - g^2 =
    // 0.9988889; rim 1/((2g)^3 - 1) = -1.0002964. Halo: linear 1/(h^2 - 1)
    // = -1.0011123; exponential 1/((h/2)^2 - 1) = -1.0002778.
    TopticalFXParams p;
    const std::pair<int, double> glow[] = {
        {1, -1.0000370}, {2, -1.0000046}, {3, 0.9988889}, {5, -1.0002964}};
    for (auto [type, G] : glow) {
        p.glowType = type;
        computeSpreads(p);
        EXPECT_NEAR(p.G, G, 1e-7) << type;
    }
    const std::pair<int, double> halo[] = {{1, -1.0011123}, {2, -1.0002778}, {3, 0.9988889}};
    for (auto [type, H] : halo) {
        p.haloType = type;
        computeSpreads(p);
        EXPECT_NEAR(p.H, H, 1e-7) << type;
    }
}

TEST(OpticalFXGlow, FalloffsAndBehindTheLight) {
    TopticalFXLight light; // white, 255 a channel
    // Linear glow on the line of sight: x2 = (G + 1) / (G + 1) = 1; 4 * 1 *
    // 255 = 1020 a channel.
    TopticalFXParams p = plain();
    float result[4] = {0, 0, 0, 0};
    ASSERT_TRUE(glowEffect(p, rayAtCosine(1.0), light, result));
    EXPECT_NEAR(result[0], 1020.0f, 0.05f);
    // c = 0.99999, held in a float as 0.99998999: x2 = -3.70384e-5 /
    // (-1.0000370 + 0.99998999 = -4.70520e-5) = 0.787180; * 1020 = 802.92.
    float off[4] = {0, 0, 0, 0};
    glowEffect(p, rayAtCosine(0.99999), light, off);
    EXPECT_NEAR(off[1], 802.92f, 0.05f);
    // Behind the line of sight: nothing, and false.
    float behind[4] = {0, 0, 0, 0};
    EXPECT_FALSE(glowEffect(p, rayAtCosine(-0.5), light, behind));
    EXPECT_FLOAT_EQ(behind[0], 0.0f);
    // A black light adds nothing.
    TopticalFXLight black;
    black.colour[0] = black.colour[1] = black.colour[2] = 0.0f;
    float dark[4] = {0, 0, 0, 0};
    EXPECT_TRUE(glowEffect(p, rayAtCosine(1.0), black, dark));
    EXPECT_FLOAT_EQ(dark[0], 0.0f);

    // Ball glow, squared: G = 0.9988889; c = 0.9995: (0.9995 - 0.9988889)
    // / 0.0011111 = 0.55, squared 0.3025; * 1020 = 308.55.
    TopticalFXParams ball = plain();
    ball.glowType = 3;
    computeSpreads(ball);
    float disc[4] = {0, 0, 0, 0};
    glowEffect(ball, rayAtCosine(0.9995), light, disc);
    EXPECT_NEAR(disc[2], 308.55f, 0.2f);

    // Opacity: alpha gains glowOpacity * x2 = 0.5 * 1.
    p.glowOpacity = 0.5f;
    float opaque[4] = {0, 0, 0, 0};
    glowEffect(p, rayAtCosine(1.0), light, opaque);
    EXPECT_NEAR(opaque[3], 0.5f, 1e-5f);
}

TEST(OpticalFXFlare, RingsForALightAtAKnownPlace) {
    // Light at (0.4, 0): r = 0.4, w = (0.5 - 0.2) * 0.5 = 0.15; step
    // (0.4/6, 0); the point starts 5.4 steps back (dx - 0.36), so ring n is
    // centred at dx = 0.36 - n/15.
    TopticalFXLight light;
    light.px = 0.4f;
    light.py = 0.0f;
    TopticalFXRay ray;
    // Ring 1 (outer .015, inner .01) at its centre: (1 - .06) * .15 = 0.141.
    ray.dx = 0.36f;
    EXPECT_NEAR(flareRings(ray, light), 0.141, 1e-5);
    // Half-way between its inner and outer radius: 0.141 * 0.5.
    ray.dx = 0.3725f;
    EXPECT_NEAR(flareRings(ray, light), 0.0705, 1e-4);
    // Off the line by more than the outer radius: no ring.
    ray.dx = 0.36f;
    ray.dy = 0.02f;
    EXPECT_NEAR(flareRings(ray, light), 0.0, 1e-9);
    // Ring 7 (n = 6) at dx = -0.04 is scaled: outer .22 * 5w = .165, inner
    // .21 * 3w = .0945: (1 - .66) * .15 = .051. Ring 6 (n = 5, centre
    // .026667, outer .068, inner .059 * 4w = .0354) reaches it at .066667:
    // (1 - .272) * .15 * (1 - .031267 / .0326) = .004466. Sum .055466.
    ray.dx = -0.04f;
    ray.dy = 0.0f;
    EXPECT_NEAR(flareRings(ray, light), 0.055466, 2e-5);
    // A light at the picture's edge (r = 1) has no rings.
    light.px = 1.0f;
    EXPECT_EQ(flareRings(ray, light), 0.0);
}

TEST(OpticalFXFlare, CirclesForALightAtAKnownPlace) {
    // Light at (0.45, 0.25): r = 0.514782, w = (0.5 - 0.257391) * 0.5 =
    // 0.121305. N = 1.5, flareHorizontal = flareVertical = 1: step s =
    // ((0.45 - 0.25) * 3 / 1.5, (0.25 - 0.25) * 3 / 1.5) = (0.4, 0). Circle
    // i sits where the picture position minus s * (0.43 + i) is 0: at x =
    // 0.172 and 0.572. Sizes 1 and 1: span 0, S 1, radius 0.1, b 1; focus
    // 1: sharp edge.
    TopticalFXParams p = plain();
    p.glowType = 0;
    p.lensFlare = true;
    p.flareNumCircles = 1.5f;
    p.flareMinSize = p.flareMaxSize = 1.0f;
    p.flareFocus = 1.0f;
    p.flareColSpread = 0.0f;
    TopticalFXLight light;
    light.px = 0.45f;
    light.py = 0.25f;
    const double w = 0.121305;
    const auto at = [&](double x, double y) {
        TopticalFXRay ray;
        ray.dx = float(x - light.px);
        ray.dy = float(y - light.py);
        float rgb[3];
        lensFlare(p, ray, light, rgb);
        return double(rgb[0]);
    };
    // Circle 0: b * w * (RandomNoise(83) * 0.7 + 1) / 255 of colour 255.
    EXPECT_NEAR(at(0.172, 0.0), w * (randomNoise(83) * 0.7 + 1.0), 1e-5);
    EXPECT_NEAR(at(0.172 + 0.09, 0.0), w * (randomNoise(83) * 0.7 + 1.0), 1e-5);
    // Circle 1 is the last (b * (1.5 - 1) = 0.5) and past trunc(0.9) = 0:
    // b * (1 - (1 - 0.9) / 0.675) = 0.5 * 0.851852 = 0.425926.
    EXPECT_NEAR(at(0.572, 0.0), 0.425926 * w * (randomNoise(84) * 0.7 + 1.0), 1e-5);
    // Between them, 0.2 from each: outside both radii.
    EXPECT_EQ(at(0.372, 0.0), 0.0);
    // A hexagon cuts the round circle's rim: at 0.095 to the right of the
    // centre, p = .032492, q = .077307, p/2 + q = .093553 > a = .086603.
    p.hexagonFlare = true;
    EXPECT_EQ(at(0.172 + 0.095, 0.0), 0.0);
    EXPECT_GT(at(0.172 + 0.05, 0.0), 0.0);
    // At the picture's edge no flare.
    light.px = 1.0f;
    light.py = 0.0f;
    EXPECT_EQ(at(0.172, 0.0), 0.0);
}

TEST(OpticalFXColour, HsvRoundTrip) {
    float rgb[3];
    HSVtoRGB(120.0f, 0.5f, 200.0f, rgb);
    EXPECT_FLOAT_EQ(rgb[0], 100.0f);
    EXPECT_FLOAT_EQ(rgb[1], 200.0f);
    EXPECT_FLOAT_EQ(rgb[2], 100.0f);
    float h, s, v;
    RGBtoHSV(rgb, h, s, v);
    EXPECT_NEAR(h, 120.0f, 1e-4f);
    EXPECT_NEAR(s, 0.5f, 1e-6f);
    EXPECT_FLOAT_EQ(v, 200.0f);
    HSVtoRGB(420.0f, 1.0f, 255.0f, rgb); // 420 wraps to 60: yellow
    EXPECT_FLOAT_EQ(rgb[0], 255.0f);
    EXPECT_FLOAT_EQ(rgb[1], 255.0f);
    EXPECT_FLOAT_EQ(rgb[2], 0.0f);
}

TEST(OpticalFXPicture, ReachAndOffSwitch) {
    // A light straight ahead in a 64 x 48 view: its glow stays around the
    // centre, a corner is out of reach.
    TopticalFXParams p = plain();
    TopticalFXLight light;
    TpostView view{64, 48, 0.5, 0.375};
    const TpixelRect rect = adjustViewport(p, light, view);
    EXPECT_LT(rect.x0, 32);
    EXPECT_GT(rect.x1, 32);
    EXPECT_GT(rect.x0, 0);
    std::vector<float> pixels(64 * 48 * 4, 0.0f);
    TpostImage image{pixels.data(), 64, 48, 4};
    EXPECT_TRUE(addOpticalFX(p, light, view, image));
    EXPECT_GT(pixels[(24 * 64 + 32) * 4], 0.9f);
    EXPECT_FLOAT_EQ(pixels[0], 0.0f);
    // active off: nothing.
    std::fill(pixels.begin(), pixels.end(), 0.0f);
    p.active = false;
    EXPECT_FALSE(addOpticalFX(p, light, view, image));
    EXPECT_FLOAT_EQ(pixels[(24 * 64 + 32) * 4], 0.0f);
}
