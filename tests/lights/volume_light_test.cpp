// The volume light: each shape's falloff through its ramps, the arc, the
// directions, ambient emission, and nothing outside the shape.

#include "lights/light_test_support.h"
#include "lights/volume_light.h"

namespace {

using orvo_test::LightRig;

// A colour ramp from black at 0 to white at 1, linear.
const char* kGreyRamp = "set light.colorRange[0].colorRange_Position 0\n"
                        "set light.colorRange[0].colorRange_Color 0 0 0\n"
                        "set light.colorRange[0].colorRange_Interp 1\n"
                        "set light.colorRange[1].colorRange_Position 1\n"
                        "set light.colorRange[1].colorRange_Color 1 1 1\n";

// The light at one point of its space (samples name it by pointWorld).
TlightData lightAt(LightRig& rig, float x, float y, float z) {
    return orvo_test::lightAt(rig.light, {x, y, z}, &TpointLightShape::aPointWorld);
}

TEST(VolumeLight, EachShapeFadesByItsRamp) {
    // Sphere, half way out: colorRange at 1 - 0.5 = 0.5; the direction
    // points to the centre.
    LightRig sphere("volumeLight", std::string(kGreyRamp) + "set light.intensity 2\n");
    const TlightData s = lightAt(sphere, 0.5f, 0, 0);
    EXPECT_RGB_NEAR(s.intensity, 1, 1, 1, 1e-5);
    EXPECT_RGB_NEAR(s.direction, -1, 0, 0, 1e-6);
    // Box at x = 0.5: m(0.5) = (cos(1.5 pi) + 1) / 2 = 0.5, m(0) = 1.
    LightRig box("volumeLight", std::string(kGreyRamp) + "set light.lightShape 0\n");
    EXPECT_RGB_NEAR(lightAt(box, 0.5f, 0, 0).intensity, 0.5, 0.5, 0.5, 1e-5);
    // Cone (end radius 0) at y = -0.5: radius 0.5; 0.25 out, the default
    // penumbra of 1 times colorRange at 1 - 0.5.
    LightRig cone("volumeLight", std::string(kGreyRamp) + "set light.lightShape 3\n");
    EXPECT_RGB_NEAR(lightAt(cone, 0.25f, -0.5f, 0).intensity, 0.5, 0.5, 0.5, 1e-5);
    EXPECT_RGB_NEAR(lightAt(cone, 0.4f, -0.5f, 0.4f).intensity, 0, 0, 0, 0);
    // Cylinder: penumbra ramp 0 at the side to 1 at 0.5 in; at r = 0.75,
    // penumbra at 0.25 = 0.5, colorRange at 1 - |0.5| = 0.5: 0.25.
    LightRig cylinder("volumeLight", std::string(kGreyRamp) +
                                         "set light.lightShape 2\n"
                                         "set light.penumbra[0].penumbra_Position 0\n"
                                         "set light.penumbra[0].penumbra_FloatValue 0\n"
                                         "set light.penumbra[0].penumbra_Interp 1\n"
                                         "set light.penumbra[1].penumbra_Position 0.5\n"
                                         "set light.penumbra[1].penumbra_FloatValue 1\n");
    EXPECT_RGB_NEAR(lightAt(cylinder, 0.75f, 0.5f, 0).intensity, 0.25, 0.25, 0.25, 1e-5);
}

TEST(VolumeLight, ArcDirectionsAndAmbient) {
    // arc 0: nothing anywhere.
    LightRig none("volumeLight", "set light.arc 0\n");
    EXPECT_RGB_NEAR(lightAt(none, 0.1f, 0, -0.1f).intensity, 0, 0, 0, 0);
    // arc 180: atan2(-x, -z) above 0 is dark: x < 0 in front (-Z).
    LightRig half("volumeLight", "set light.arc 180\n");
    EXPECT_RGB_NEAR(lightAt(half, -0.3f, 0, -0.3f).intensity, 0, 0, 0, 0);
    EXPECT_GT(lightAt(half, 0.3f, 0, -0.3f).intensity[0], 0.0f);
    // Inward points away from the centre; Down Axis along +Z.
    LightRig inward("volumeLight", "set light.volumeLightDir 1\nset light.emitAmbient true\n");
    const TlightData in = lightAt(inward, 0, 0.5f, 0);
    EXPECT_RGB_NEAR(in.direction, 0, 1, 0, 1e-6);
    EXPECT_TRUE(in.ambient);
    LightRig down("volumeLight", "set light.volumeLightDir 2\n");
    EXPECT_RGB_NEAR(lightAt(down, 0.2f, 0.5f, 0).direction, 0, 0, 1, 1e-6);
    // The box's faces and beyond are outside.
    LightRig box("volumeLight", "set light.lightShape 0\n");
    EXPECT_RGB_NEAR(lightAt(box, 1.0f, 0, 0).intensity, 0, 0, 0, 0);
}

} // namespace
