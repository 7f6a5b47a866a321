#include <gtest/gtest.h>

#include <cmath>

#include "render/renderer.h"
#include "render/scene_text.h"

// Shader glow through whole frames: render threads gather glow into tiles
// of their own, the frame adds them up in tile order, and the pass runs
// after the frame.

namespace {

// A small glowing square (incandescence 1, 0.5, 0 handed on as glow at
// intensity 1) in the middle of the view, on a black background.
const char* kGlowingSquare = R"(
set cameraShape1.backgroundColor 0 0 0
node transform square
set square.translate 0 0 -2
set square.rotate 90 0 0
node mesh squareShape -parent square
set squareShape.primitive plane
set squareShape.width 0.6
set squareShape.depth 0.6
node lambert hot
set hot.color 0 0 0
set hot.incandescence 1 0.5 0
set hot.glowIntensity 1
node shadingEngine hotSG
connect hot.outColor hotSG.surfaceShader
member hotSG squareShape
)";

struct Frame {
    TrenderedImage image;
    TframeStats stats;
};

Frame renderGlow(TdependGraph& graph, unsigned threads, bool post = true) {
    TrenderOptions options;
    options.width = 64;
    options.height = 48;
    options.samplesPerPixel = 4;
    options.threads = threads;
    options.tileSize = 8;
    options.postEffects = post;
    Frame out;
    EXPECT_TRUE(Trenderer(options).renderFrame(graph, "glow.qsl", 0, out.image, out.stats));
    return out;
}

} // namespace

TEST(ShaderGlowRender, ThreadsGatherGlowWithoutChangingThePicture) {
    auto graph = sceneFromText(std::string(kUnitCamera) + kGlowingSquare);
    const Frame one = renderGlow(*graph, 1);
    const Frame three = renderGlow(*graph, 3);
    ASSERT_TRUE(one.stats.shaderGlow);
    // To the last bit: the glow array sums the tiles in tile order whichever
    // thread finished first, and the dither depends on the pixel alone.
    EXPECT_EQ(one.image.pixels, three.image.pixels);
    const Frame again = renderGlow(*graph, 3);
    EXPECT_EQ(three.image.pixels, again.image.pixels);
}

TEST(ShaderGlowRender, GlowReachesPastTheSurfaceAndNoPostLeavesItOut) {
    auto graph = sceneFromText(std::string(kUnitCamera) + kGlowingSquare);
    const Frame glowing = renderGlow(*graph, 2);
    const Frame bare = renderGlow(*graph, 2, false);
    EXPECT_FALSE(bare.stats.shaderGlow);
    // The square spans 0.3 of the half-width 1 of the image plane at depth
    // 2 (0.6 / 2 / 2 * 2 = 0.3 of 2): columns 32 -/+ 4.8. Column 20 of the
    // middle row lies well outside it: black bare, lit by the glow.
    const float* outside = glowing.image.at(20, 24);
    EXPECT_FLOAT_EQ(bare.image.at(20, 24)[0], 0.0f);
    EXPECT_GT(outside[0], 0.0f);
    // The glow keeps the surface's hue: red above green, no blue.
    EXPECT_GT(outside[0], outside[1]);
    EXPECT_LT(outside[2], 1.5f / 255.0f);
    // Inside, glow is added over the surface.
    EXPECT_GT(glowing.image.at(32, 24)[0] + glowing.image.at(32, 24)[1],
              bare.image.at(32, 24)[0] + bare.image.at(32, 24)[1]);
}

TEST(ShaderGlowRender, ASceneWithoutGlowSkipsThePass) {
    auto graph =
        sceneFromText(std::string(kUnitCamera) + kGlowingSquare + "set hot.glowIntensity 0\n");
    EXPECT_FALSE(renderGlow(*graph, 2).stats.shaderGlow);
}

TEST(PostPassRender, TheFrameKeepsItsDepth) {
    // The square at depth 2 fills the view of the unit camera: every pixel
    // is 2 deep along -Z. Without it nothing is hit: infinitely deep.
    auto graph = sceneFromText(std::string(kUnitCamera) + kSquareAtDepth2);
    const Frame frame = renderGlow(*graph, 2);
    ASSERT_EQ(frame.image.depth.size(), size_t(64 * 48));
    EXPECT_NEAR(frame.image.depth[0], 2.0f, 1e-4f);
    EXPECT_NEAR(frame.image.depth[24 * 64 + 32], 2.0f, 1e-4f);
    auto empty = sceneFromText(std::string(kUnitCamera));
    EXPECT_TRUE(std::isinf(renderGlow(*empty, 2).image.depth[100]));
}

TEST(PostPassRender, DepthOfFieldBlursWhatIsOutOfFocus) {
    // A glowing square in front of nothing, focused far behind it: its
    // edge softens, and the square's colour reaches past its border.
    auto graph = sceneFromText(std::string(kUnitCamera) + kGlowingSquare +
                               "set hot.glowIntensity 0\n"
                               "set cameraShape1.depthOfField true\n"
                               "set cameraShape1.focusDistance 50\n"
                               "set cameraShape1.fStop 2\n");
    const Frame sharp = renderGlow(*graph, 2, false);
    const Frame soft = renderGlow(*graph, 2);
    // Blur radius: aperture 35 * 0.1 / 4 = 0.875, tan(fov / 2) = 0.75, so
    // 32 / (0.75 * 50) * 0.875 = 0.7467 pixels a unit; at depth 2 that is
    // 0.7467 * 48 / 2 = 17.9 pixels. Column 23 lies 3.7 pixels outside the
    // square (edge at 32 - 4.8, centre 23.5), beyond the pixel filter's
    // 1.5: black sharp, lit soft.
    EXPECT_FLOAT_EQ(sharp.image.at(23, 24)[0], 0.0f);
    EXPECT_GT(soft.image.at(23, 24)[0], 0.0f);
    EXPECT_LT(soft.image.at(32, 24)[0], sharp.image.at(32, 24)[0]);
}
