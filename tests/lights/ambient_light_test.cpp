// The ambient light: its shade factor between flat and point-like, its
// record, and its spherical map projection.

#include "lights/ambient_light.h"
#include "lights/light_test_support.h"

namespace {

using orvo_test::Batch;
using orvo_test::LightRig;

// A light 10 above the origin, intensity 2, colour (1, 0.5, 0.25): its full
// colour is (2, 1, 0.5), of luminance 0.6 + 0.59 + 0.055 = 1.245.
struct AmbientRig : LightRig {
    Batch b;
    AmbientRig(float shade, unsigned count)
        : LightRig("ambientLight", "set t.translate 0 0 10\n"), b(light, count) {
        b.all<float>(TambientLightShape::aAmbientShade, shade);
        b.all<float>(TlightShape::aIntensity, 2.0f);
        for (unsigned e = 0; e < count; ++e)
            b.set3(TlightShape::aColor, e, 1, 0.5f, 0.25f);
    }
};

TEST(AmbientLight, ShadeZeroIsFlatAndTheRecordIsAmbientOnly) {
    AmbientRig rig(0.0f, 3);
    Batch& b = rig.b;
    b.set3(TambientLightShape::aNormalCamera, 0, 0, 0, 1);
    b.set3(TambientLightShape::aNormalCamera, 1, 0, 0, -1);
    b.set3(TambientLightShape::aNormalCamera, 2, 1, 0, 0);
    b.compute();
    for (unsigned e = 0; e < 3; ++e) {
        const TlightData& r = b.record(e);
        EXPECT_RGB_NEAR(r.intensity, 2, 1, 0.5, 1e-6);
        EXPECT_RGB_NEAR(r.direction, 0, 0, 1, 0);
        EXPECT_NEAR(r.preShadowIntensity, 1.245f, 1e-6);
        EXPECT_TRUE(r.ambient);
        EXPECT_FALSE(r.diffuse);
        EXPECT_FALSE(r.specular);
        EXPECT_EQ(r.shadowFraction, 0.0f);
        EXPECT_EQ(r.blindData, rig.light->blindData());
    }
}

TEST(AmbientLight, ShadeOneFollowsTheCosineAndFacingAwayGivesNothing) {
    AmbientRig rig(1.0f, 4);
    Batch& b = rig.b;
    // The light is straight up from the origin: L = (0, 0, 1).
    b.set3(TambientLightShape::aNormalCamera, 0, 0, 0, 1);                   // cos 1
    b.set3(TambientLightShape::aNormalCamera, 1, std::sqrt(0.75f), 0, 0.5f); // cos 0.5
    b.set3(TambientLightShape::aNormalCamera, 2, 0, 0, -1);                  // cos -1
    b.set3(TambientLightShape::aNormalCamera, 3, 1, 0, 0);                   // cos 0
    b.at<float>(TambientLightShape::aAmbientShade, 3) = 0.5f;
    b.compute();
    // k = (cos - 1) * shade + 1, at least 0.
    EXPECT_RGB_NEAR(b.record(0).intensity, 2, 1, 0.5, 1e-6);
    EXPECT_RGB_NEAR(b.record(1).intensity, 1, 0.5, 0.25, 1e-6);
    EXPECT_RGB_NEAR(b.record(2).intensity, 0, 0, 0, 0);
    EXPECT_EQ(b.record(2).preShadowIntensity, 0.0f);
    // Shade 0.5 sideways: k = (0 - 1) * 0.5 + 1 = 0.5.
    EXPECT_RGB_NEAR(b.record(3).intensity, 1, 0.5, 0.25, 1e-6);
    EXPECT_FLOAT_EQ(TambientLightShape::shadeFactor({0, 0, 1}, {0, 0, -1}, 0.5f), 0.0f);
}

TEST(AmbientLight, WithAnInputNetworkSamplesGetSphericalCoordinates) {
    LightRig rig("ambientLight", "set t.translate 1 1 1\n"
                                 "node checker c\nconnect c.outColor light.color\n");
    rig.light->shadingNodeInit(nullptr);
    ASSERT_TRUE(rig.light->shadingFlag(TrenderLightShape::kInputNetworkFlag));
    Batch b(rig.light, 3);
    // In the light's space: (1, 1, 0), (0, 0, -2), (1, -1, 0).
    b.point(0, 2, 2, 1);
    b.point(1, 1, 1, -1);
    b.point(2, 2, 0, 1);
    b.all<int32_t>(TlightShape::aInfoBits, 1);
    b.compute();
    // (1, 1, 0): r = 0.707, fv = atan(1) = pi/4, fu = atan(1) = pi/4; both
    // (pi/4 + pi/2) / pi = 0.75. (0, 0, -1): r = 1, fv = 0, x = 0 so fu = 0;
    // both 0.5. (1, -1, 0): both atan(-1) = -pi/4, so 0.25.
    const float expected[3] = {0.75f, 0.5f, 0.25f};
    for (unsigned e = 0; e < 3; ++e) {
        EXPECT_NEAR(b.at<float>(TlightShape::aUCoord, e), expected[e], 1e-6) << e;
        EXPECT_NEAR(b.at<float>(TlightShape::aVCoord, e), expected[e], 1e-6) << e;
        EXPECT_FLOAT_EQ((&b.at<float>(TlightShape::aUvFilterSize, e))[0], 0.001f);
        EXPECT_FLOAT_EQ((&b.at<float>(TlightShape::aUvFilterSize, e))[1], 0.001f);
        EXPECT_EQ(b.at<int32_t>(TlightShape::aInfoBits, e), 9);
    }
}

TEST(AmbientLight, WithoutAnInputNetworkTheCoordinatesAreLeftAlone) {
    LightRig rig("ambientLight");
    rig.light->shadingNodeInit(nullptr);
    Batch b(rig.light, 1);
    b.point(0, 2, 2, 1);
    b.at<float>(TlightShape::aUCoord, 0) = -3.0f;
    b.compute();
    EXPECT_EQ(b.at<float>(TlightShape::aUCoord, 0), -3.0f);
    EXPECT_EQ(b.at<int32_t>(TlightShape::aInfoBits, 0), 0);
}

} // namespace
