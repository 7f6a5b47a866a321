// The spot light: its cone and penumbra, dropoff, barn doors and decay
// regions, worked out from the cone's angles by hand. The light sits at the
// origin shining down -Z; samples lie at an angle from the axis.

#include "lights/light_test_support.h"
#include "lights/spot_light.h"

#include <cmath>

namespace {

using orvo_test::LightRig;

constexpr double kDegree = M_PI / 180.0;

// A point `distance` from the light, `degrees` off the axis toward +X (or
// +Y with `up`).
T3Float at(double degrees, double distance = 1.0, bool up = false) {
    const float s = float(distance * std::sin(degrees * kDegree));
    const float c = float(-distance * std::cos(degrees * kDegree));
    return {up ? 0.0f : s, up ? s : 0.0f, c};
}

// The intensity (red) of the light at a point.
float lit(LightRig& rig, const T3Float& p) {
    return orvo_test::lightAt(rig.light, p).intensity[0];
}

// Angles are set in radians.
std::string angle(const char* plug, double degrees) {
    char text[96];
    std::snprintf(text, sizeof text, "set light.%s %.12f\n", plug, degrees * kDegree);
    return text;
}

std::string doors(double left, double right, double top, double bottom) {
    return "set light.barnDoors true\n" + angle("leftBarnDoor", left) +
           angle("rightBarnDoor", right) + angle("topBarnDoor", top) +
           angle("bottomBarnDoor", bottom);
}

TEST(SpotLight, TheConeEdgeIsHardWithoutAPenumbra) {
    // 40 degree cone: lit to 20 off the axis, dark beyond.
    LightRig rig("spotLight", angle("coneAngle", 40) + "set light.intensity 2\n");
    EXPECT_NEAR(lit(rig, at(19.9)), 2.0, 1e-6);
    const TlightData out = orvo_test::lightAt(rig.light, at(20.1));
    EXPECT_RGB_NEAR(out.intensity, 0, 0, 0, 0);
    EXPECT_FALSE(out.diffuse || out.specular);
    EXPECT_EQ(out.preShadowIntensity, 0.0f);
    EXPECT_RGB_NEAR(orvo_test::lightAt(rig.light, at(0, 3)).direction, 0, 0, 1, 1e-6);
    // A penumbra under a thousandth of a radian is none.
    LightRig tiny("spotLight", angle("coneAngle", 40) + "set light.penumbraAngle 0.0009\n");
    EXPECT_NEAR(lit(tiny, at(19.9)), 1.0, 1e-6);
    EXPECT_EQ(tiny.as<TspotLightShape>()->cone().penumbra, 0.0f);
}

TEST(SpotLight, PenumbraBlendsOutsideOrInsideTheCone) {
    // +10: the light fades from 20 to 30 degrees. At 25:
    // (cos 25 - cos 30) / (cos 20 - cos 30) = 0.546816.
    LightRig out("spotLight", angle("coneAngle", 40) + angle("penumbraAngle", 10));
    EXPECT_NEAR(lit(out, at(25)), 0.546816, 1e-4);
    EXPECT_NEAR(lit(out, at(19)), 1.0, 1e-6);
    EXPECT_EQ(lit(out, at(30.5)), 0.0f);
    // -10: from 10 to 20. At 15: (cos 15 - cos 20) / (cos 10 - cos 20) =
    // 0.581472.
    LightRig in("spotLight", angle("coneAngle", 40) + angle("penumbraAngle", -10));
    EXPECT_NEAR(lit(in, at(15)), 0.581472, 1e-4);
    EXPECT_NEAR(lit(in, at(9)), 1.0, 1e-6);
    EXPECT_EQ(lit(in, at(20.5)), 0.0f);
}

TEST(SpotLight, DropoffAndEachDecayRate) {
    // dropoff 2 at 10 degrees: cos^2 10 = 0.969846.
    LightRig rig("spotLight", "set light.dropoff 2\n");
    EXPECT_NEAR(lit(rig, at(10)), 0.969846, 1e-5);
    // On the axis 4 away: 8, 8 / 4, 8 / 16, 8 / 64; within a unit, 8.
    const float expected[4] = {8.0f, 2.0f, 0.5f, 0.125f};
    for (int rate = 0; rate < 4; ++rate) {
        LightRig r("spotLight",
                   "set light.intensity 8\nset light.decayRate " + std::to_string(rate) + "\n");
        EXPECT_NEAR(lit(r, at(0, 4)), expected[rate], 1e-5) << rate;
        EXPECT_NEAR(lit(r, at(0, 0.5)), 8.0f, 1e-5) << rate;
    }
}

TEST(SpotLight, BarnDoorsCutTheBeamAtTheSineOfTheirAngle) {
    // A 60 degree cone, doors at 10 degrees: across the beam a sample at
    // angle a lies at sin a; the doors stand at +-sin 10.
    LightRig rig("spotLight", angle("coneAngle", 60) + doors(10, 10, 10, 10));
    EXPECT_NEAR(lit(rig, at(9)), 1.0, 1e-6);
    EXPECT_NEAR(lit(rig, at(-9, 1.0, true)), 1.0, 1e-6);
    for (const T3Float& p : {at(11), at(-11), at(11, 1.0, true)}) {
        const TlightData r = orvo_test::lightAt(rig.light, p);
        EXPECT_EQ(r.intensity[0], 0.0f) << p.x << " " << p.y;
        // Dark, but still a light of the sample.
        EXPECT_TRUE(r.diffuse);
    }
}

TEST(SpotLight, BarnDoorPenumbraAndTheConesPenumbraThroughTheDoors) {
    // Penumbra +5, cone 60: the cone fades from 30 to 35 degrees; the
    // right door (10) from sin 10 to sin 15. At 12 to the right:
    // (sin 12 - sin 15) / (sin 10 - sin 15) = 0.597709. The top door is
    // out of the way (40: from sin 40 to sin 45); at 33 up the cone's
    // penumbra in sines: (sin 33 - sin 35) / (sin 30 - sin 35) = 0.393297.
    // dropoff plays no part with doors.
    LightRig rig("spotLight", angle("coneAngle", 60) + angle("penumbraAngle", 5) +
                                  doors(40, 10, 40, 40) + "set light.dropoff 4\n");
    EXPECT_NEAR(lit(rig, at(12)), 0.597709, 1e-4);
    EXPECT_NEAR(lit(rig, at(33, 1.0, true)), 0.393297, 1e-4);
    EXPECT_NEAR(lit(rig, at(5)), 1.0, 1e-6);
}

TEST(SpotLight, DoorsOutsideTheConeLeaveAPlainConeWithoutDropoff) {
    LightRig rig("spotLight",
                 angle("coneAngle", 40) + doors(25, 25, 25, 25) + "set light.dropoff 2\n");
    EXPECT_NEAR(lit(rig, at(10)), 1.0, 1e-6);
    EXPECT_EQ(lit(rig, at(21)), 0.0f);
}

TEST(SpotLight, DecayRegionsAndTheirBoundaries) {
    // Regions [1, 2], [3, 6], [8, 10], bounds included.
    LightRig rig("spotLight", "set light.useDecayRegions true\n");
    const double distances[7] = {0.5, 1.0, 2.0, 2.5, 3.0, 6.0, 6.5};
    const bool inside[7] = {false, true, true, false, true, true, false};
    for (int k = 0; k < 7; ++k)
        EXPECT_EQ(lit(rig, at(0, distances[k])) > 0.0f, inside[k]) << distances[k];
    // Only the first region reaches within a unit of the light.
    LightRig near("spotLight", "set light.useDecayRegions true\nset light.startDistance1 0\n");
    EXPECT_NEAR(lit(near, at(0, 0.5)), 1.0, 1e-6);
    LightRig second("spotLight", "set light.useDecayRegions true\nset light.startDistance1 5\n"
                                 "set light.startDistance2 0\nset light.endDistance2 0.9\n");
    EXPECT_EQ(lit(second, at(0, 0.5)), 0.0f);
}

TEST(SpotLight, LimitsDebugDumpAndCanSee) {
    LightRig rig("spotLight", angle("coneAngle", 40));
    lit(rig, at(0));
    TdebugOutput out;
    rig.light->debugMembers(out);
    EXPECT_NE(out.text().find("Shine At         = (0, 0, 1)\n"), std::string::npos) << out.text();
    EXPECT_NE(out.text().find("Buttom cutoff    = 0\n"), std::string::npos);
    // canSee takes the whole cone angle, not half: 30 degrees is in.
    T3Float position, direction;
    EXPECT_TRUE(rig.light->canSee(at(30), position, direction));
    EXPECT_FALSE(rig.light->canSee(at(41, 1.0, true), position, direction));
}

} // namespace
