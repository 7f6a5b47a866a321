#include <gtest/gtest.h>

#include "render/renderer.h"
#include "render/scene_text.h"

// Light through surfaces: transparency that lets the eye ray go on, and
// refraction that a material traces through the ray sampler. The materials
// are lamberts without lights, lit only by their incandescence (which the
// material adds after transparency's attenuation), in front of a wall of one
// flat colour, so every value can be added up by hand.

namespace {

// Glowing red (0.2, 0, 0), letting half through.
const char* kGlass = R"(
node lambert glass
set glass.color 0 0 0
set glass.incandescence 0.2 0 0
set glass.transparency 0.5 0.5 0.5
node shadingEngine glassSG
connect glass.outColor glassSG.surfaceShader
)";

TrenderedImage render(TdependGraph& graph, unsigned width, unsigned height) {
    TrenderOptions options;
    options.width = width;
    options.height = height;
    options.samplesPerPixel = 1;
    options.threads = 2;
    TrenderedImage image;
    TframeStats stats;
    EXPECT_TRUE(Trenderer(options).renderFrame(graph, "glass.qsl", 0, image, stats));
    return image;
}

void expectPixel(const float* p, float r, float g, float b, float alpha, float matte,
                 const char* what) {
    EXPECT_NEAR(p[0], r, 1e-5f) << what;
    EXPECT_NEAR(p[1], g, 1e-5f) << what;
    EXPECT_NEAR(p[2], b, 1e-5f) << what;
    EXPECT_NEAR(p[3], alpha, 1e-5f) << what << ": alpha";
    EXPECT_NEAR(p[4], matte, 1e-5f) << what << ": matte";
}

// The pane (the square at depth 2, filling the view) stands in front of a
// wall that covers the right of the view.
//   pane over wall:       (0.2, 0, 0) + 0.5 (0, 0.4, 0)   = (0.2, 0.2, 0), alpha 1
//   pane over background: (0.2, 0, 0) + 0.5 (0, 0, 0.5)   = (0.2, 0, 0.25), alpha 0.5
// The pane's matte is (1 - 0.5) = 0.5 (opacity gain); the wall's, seen
// through half, adds 0.5 more.
TEST(Transparency, TheEyeRayGoesOnThroughWhatLetsLightThrough) {
    auto graph = sceneFromText(std::string(kUnitCamera) + kSquareAtDepth2 + kGlass + R"(
member glassSG squareShape
set cameraShape1.backgroundColor 0 0 0.5
node transform wall
set wall.translate 1.5 0 -4
set wall.rotate 90 0 0
node mesh wallShape -parent wall
set wallShape.primitive plane
set wallShape.width 5
set wallShape.depth 10
node checker wallColour
set wallColour.color1 0 0.4 0
set wallColour.color2 0 0.4 0
node shadingEngine wallSG
connect wallColour.outColor wallSG.surfaceShader
member wallSG wallShape
)");
    const TrenderedImage image = render(*graph, 8, 8);
    // The wall runs from x = -1 to 4 at depth 4. Pixel i looks through
    // x = (i + 0.5) / 4 - 1 at depth 1, four times that at depth 4: pixels
    // 3 to 5 see the wall, pixels 0 to 2 pass left of it.
    expectPixel(image.at(4, 4), 0.2f, 0.2f, 0.0f, 1.0f, 1.0f, "pane over wall");
    expectPixel(image.at(1, 4), 0.2f, 0.0f, 0.25f, 0.5f, 0.5f, "pane over background");
}

// Refraction with an index of 1 bends nothing: the material sends the ray
// straight on, and what it brings back is in the colour already. The
// renderer must not look through the surface again, or the background
// would count twice.
TEST(Transparency, ARefractingSurfaceIsNotLookedThroughTwice) {
    auto graph = sceneFromText(std::string(kUnitCamera) + kSquareAtDepth2 + kGlass + kRayTracingOn +
                               "member glassSG squareShape\nset glass.refractions true\n" +
                               "set cameraShape1.backgroundColor 0 0 0.5\n");
    const TrenderedImage image = render(*graph, 8, 8);
    // The refraction ray finds the background: its transmission is white,
    // so the pane's outTransparency stays 0.5.
    expectPixel(image.at(3, 3), 0.2f, 0.0f, 0.25f, 0.5f, 0.5f, "refracted background");
}

// A glass ball of index 1.5 in front of the wall, hit at its centre: the
// ray enters and leaves along the normal, unbent, each surface adding its
// glow and half of what lies behind it:
//   back face:  (0.2, 0, 0) + 0.5 wall        = (0.2, 0.2, 0)
//   front face: (0.2, 0, 0) + 0.5 back face   = (0.3, 0.1, 0)
// Nothing reaches the background, so nothing is let through: alpha 1, and
// the matte, (1 - what the ball lets through) by the opacity gain, is 1.
// Neighbouring pixels bend their rays, but onto the same flat wall.
TEST(Transparency, RefractionRaysAreShadedThroughTheSameShadingGroups) {
    const std::string scene = std::string(kUnitCamera) + kGreenWall + kGlass + kRayTracingOn + R"(
set glass.refractions true
set glass.refractiveIndex 1.5
node transform ball
set ball.translate 0 0 -3
node mesh ballShape -parent ball
set ballShape.primitive sphere
set ballShape.segmentsU 64
set ballShape.segmentsV 32
member glassSG ballShape
)";
    auto graph = sceneFromText(scene);
    const TrenderedImage image = render(*graph, 9, 9);
    expectPixel(image.at(4, 4), 0.3f, 0.1f, 0.0f, 1.0f, 1.0f, "through the ball");

    // With a refraction limit of 1, the back face (at ray depth 1) makes no
    // ray: it glows and takes half the camera's background instead,
    // (0.2, 0, 0) + 0.5 (0, 0, 0.5) = (0.2, 0, 0.25); the front face adds
    // half of that to its glow: (0.3, 0, 0.125). The back face lets its 0.5
    // through, so the ball lets 0.5 * 0.5 through: alpha and matte 0.75.
    auto limited = sceneFromText(scene + "set glass.refractionLimit 1\n");
    const TrenderedImage stopped = render(*limited, 9, 9);
    expectPixel(stopped.at(4, 4), 0.3f, 0.0f, 0.125f, 0.75f, 0.75f, "depth limited");
}

} // namespace
