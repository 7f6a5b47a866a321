#include <gtest/gtest.h>

#include <atomic>
#include <cmath>

#include "render/render_error.h"
#include "render/renderer.h"
#include "render/scene_text.h"

// Whole frames through the renderer, with networks that turn sample fields
// into colours so that what the renderer filled in can be read off the
// image. With one sample a pixel every sample goes through its pixel's
// centre, and an interior pixel is a symmetric blend of its neighbours:
// a field that is linear across the image reads at the pixel's centre.

namespace {

struct Rendered {
    TrenderedImage image;
    TframeStats stats;
};

Rendered render(TdependGraph& graph, unsigned width, unsigned height, unsigned spp = 1,
                unsigned threads = 2) {
    TrenderOptions options;
    options.width = width;
    options.height = height;
    options.samplesPerPixel = spp;
    options.threads = threads;
    options.tileSize = 8;
    Rendered out;
    EXPECT_TRUE(Trenderer(options).renderFrame(graph, "test.qsl", 0, out.image, out.stats));
    return out;
}

// The placement's UV (red, green) and filter size (blue) as the colour.
const char* kUvAsColour = R"(
node place2dTexture place
node condition show
connect place.outU show.colorIfTrueR
connect place.outV show.colorIfTrueG
connect place.outUvFilterSizeX show.colorIfTrueB
node shadingEngine uvSG
connect show.outColor uvSG.surfaceShader
member uvSG squareShape
)";

// Pixel (i, j) of 8 looks through x = (i + 0.5) / 4 - 1 on the plane at
// distance 1, which meets the square at 2x: u = (i + 0.5) / 8; rows run
// down while v runs up: v = 1 - (j + 0.5) / 8. One pixel spans 0.25 at
// distance 1, 0.5 on the square, an eighth of its UV range.
TEST(Renderer, EyeRaysFillUvAndItsFilterSizeFromRayDifferentials) {
    auto graph = sceneFromText(std::string(kUnitCamera) + kSquareAtDepth2 + kUvAsColour);
    const Rendered r = render(*graph, 8, 8);
    for (unsigned j = 1; j < 7; ++j)
        for (unsigned i = 1; i < 7; ++i) {
            const float* p = r.image.at(i, j);
            EXPECT_NEAR(p[0], (i + 0.5) / 8.0, 1e-4) << i << " " << j;
            EXPECT_NEAR(p[1], 1.0 - (j + 0.5) / 8.0, 1e-4) << i << " " << j;
        }
    for (unsigned j = 0; j < 8; ++j)
        for (unsigned i = 0; i < 8; ++i) {
            EXPECT_NEAR(r.image.at(i, j)[2], 0.125, 1e-4) << i << " " << j;
            EXPECT_FLOAT_EQ(r.image.at(i, j)[3], 1.0f) << "covered: alpha 1";
        }
    EXPECT_EQ(r.stats.samplesShaded, 64u);
    EXPECT_EQ(r.stats.raysTraced, 64u);
}

// Four samples a pixel: each stands for a quarter of it, half as wide.
TEST(Renderer, TheFilterSizeIsOneSamplesShareOfAPixel) {
    auto graph = sceneFromText(std::string(kUnitCamera) + kSquareAtDepth2 + kUvAsColour);
    const Rendered r = render(*graph, 8, 8, 4);
    EXPECT_NEAR(r.image.at(3, 4)[2], 0.0625, 1e-4);
    EXPECT_EQ(r.stats.samplesShaded, 256u);
}

// Looking straight on through an orthographic camera 4 wide, a pixel of 8
// covers 0.5 of the square: an eighth of its UV range. Tilted back by 60
// degrees about X, the square shows itself foreshortened in v: a pixel's
// footprint along v stretches by 1 / cos 60 = 2, to a quarter of v.
TEST(Renderer, FilterSizeFollowsTheSlantOfTheSurface) {
    auto graph = sceneFromText(std::string(kUnitCamera) + kSquareAtDepth2 + R"(
set cameraShape1.orthographic true
set cameraShape1.orthographicWidth 4
set square.rotate 30 0 0
node place2dTexture place
node condition show
connect place.outUvFilterSizeX show.colorIfTrueR
connect place.outUvFilterSizeY show.colorIfTrueG
node shadingEngine sizeSG
connect show.outColor sizeSG.surfaceShader
member sizeSG squareShape
)");
    const Rendered r = render(*graph, 8, 8);
    // The square's shadow on the view is 4 sin 30 = 2 high: rows 2 to 5.
    for (unsigned j = 3; j < 5; ++j)
        for (unsigned i = 0; i < 8; ++i) {
            const float* p = r.image.at(i, j);
            EXPECT_NEAR(p[0], 0.125, 1e-4) << i << " " << j;
            EXPECT_NEAR(p[1], 0.25, 1e-4) << i << " " << j;
        }
}

TEST(Renderer, TheBackgroundShowsWhereNothingIsHitWithAlphaZero) {
    auto graph =
        sceneFromText(std::string(kUnitCamera) + "set cameraShape1.backgroundColor 0.1 0.2 0.3\n");
    const Rendered r = render(*graph, 6, 4);
    for (unsigned j = 0; j < 4; ++j)
        for (unsigned i = 0; i < 6; ++i) {
            const float* p = r.image.at(i, j);
            EXPECT_NEAR(p[0], 0.1f, 1e-6);
            EXPECT_NEAR(p[1], 0.2f, 1e-6);
            EXPECT_NEAR(p[2], 0.3f, 1e-6);
            EXPECT_EQ(p[3], 0.0f);
            EXPECT_EQ(p[4], 0.0f);
        }
    EXPECT_EQ(r.stats.samplesShaded, 0u);
}

// The square moved right by 2 covers the right half of the view; a pixel
// two columns from the edge lies beyond the filter's reach of the other
// half.
TEST(Renderer, AlphaIsCoverage) {
    MessageCapture quiet;
    auto graph = sceneFromText(std::string(kUnitCamera) + kSquareAtDepth2 +
                               "set square.translate 2 0 -2\n"
                               "set cameraShape1.backgroundColor 1 1 1\n");
    const Rendered r = render(*graph, 8, 8);
    // The square is in no shading group: the default grey, and a matte.
    EXPECT_FLOAT_EQ(r.image.at(6, 3)[0], 0.5f);
    EXPECT_FLOAT_EQ(r.image.at(6, 3)[3], 1.0f);
    EXPECT_FLOAT_EQ(r.image.at(6, 3)[4], 1.0f);
    EXPECT_FLOAT_EQ(r.image.at(1, 3)[0], 1.0f);
    EXPECT_FLOAT_EQ(r.image.at(1, 3)[3], 0.0f);
    // Next to the edge, the blend of the two.
    const float edge = r.image.at(4, 3)[3];
    EXPECT_GT(edge, 0.5f);
    EXPECT_LT(edge, 1.0f);
}

TEST(Renderer, AGroupWithoutShaderRendersInTheDefaultMaterialWithAWarning) {
    MessageCapture messages;
    auto graph = sceneFromText(std::string(kUnitCamera) + kSquareAtDepth2 +
                               "node shadingEngine emptySG\nmember emptySG squareShape\n"
                               // the scene's default shader taken away
                               "disconnect lambert1.outColor emptySG.surfaceShader\n");
    const Rendered r = render(*graph, 4, 4);
    EXPECT_FLOAT_EQ(r.image.at(1, 1)[1], 0.5f);
    EXPECT_TRUE(messages.contains("'emptySG' has no surface shader")) << messages.messages().size();
}

TEST(Renderer, ThreadsAndTilesDoNotChangeThePicture) {
    auto graph = sceneFromText(std::string(kUnitCamera) + kSquareAtDepth2 + R"(
node place2dTexture place
set place.repeatUV 3 5
node checker board
connect place.outUV board.uvCoord
connect place.outUvFilterSize board.uvFilterSize
node shadingEngine boardSG
connect board.outColor boardSG.surfaceShader
member boardSG squareShape
set square.rotate 60 20 0
)");
    const Rendered one = render(*graph, 37, 23, 4, 1);
    const Rendered three = render(*graph, 37, 23, 4, 3);
    // To the last bit: tiles that share border pixels join the frame in
    // the same order whichever thread finishes first.
    EXPECT_EQ(one.image.pixels, three.image.pixels);
    EXPECT_EQ(one.stats.samplesShaded, three.stats.samplesShaded);
}

TEST(Renderer, ACancelledFrameLeavesTheImageAlone) {
    auto graph = sceneFromText(std::string(kUnitCamera) + kSquareAtDepth2 + kUvAsColour);
    TrenderedImage image;
    image.width = 3;
    TframeStats stats;
    std::atomic<bool> cancel{true};
    TrenderOptions options;
    options.width = 16;
    options.height = 16;
    EXPECT_FALSE(Trenderer(options).renderFrame(*graph, "test.qsl", 0, image, stats, &cancel));
    EXPECT_EQ(image.width, 3u);
}

TEST(Renderer, ASceneWithoutCameraIsAnError) {
    auto graph = sceneFromText(kSquareAtDepth2, "nocam.qsl");
    TrenderedImage image;
    TframeStats stats;
    EXPECT_THROW(Trenderer(TrenderOptions()).renderFrame(*graph, "nocam.qsl", 0, image, stats),
                 TrenderError);
}

} // namespace

namespace {

// samplerInfo hands the sample on: its UV as red and green, and the facing
// ratio as blue. At 32 by 32 pixels the camera ray through pixel (i, j)
// runs along (x, y, -1) with x = (i + 0.5) / 16 - 1 and y = 1 - (j + 0.5) /
// 16; the square's normal is (0, 0, 1): facingRatio = -(ray . normal) /
// |ray| = 1 / sqrt(x^2 + y^2 + 1), and UV = ((i + 0.5) / 32, 1 - (j + 0.5)
// / 32). The ratio is not linear across the image: the blend of a pixel's
// neighbours moves it by up to 5e-4 at this size.
TEST(Renderer, SamplerInfoGivesTheSampleItsGeometry) {
    auto graph = sceneFromText(std::string(kUnitCamera) + kSquareAtDepth2 + R"(
node samplerInfo info
node condition show
connect info.uCoord show.colorIfTrueR
connect info.vCoord show.colorIfTrueG
connect info.facingRatio show.colorIfTrueB
node shadingEngine infoSG
connect show.outColor infoSG.surfaceShader
member infoSG squareShape
)");
    const Rendered r = render(*graph, 32, 32);
    for (unsigned j = 1; j < 31; ++j)
        for (unsigned i = 1; i < 31; ++i) {
            const double x = (i + 0.5) / 16.0 - 1.0, y = 1.0 - (j + 0.5) / 16.0;
            const float* p = r.image.at(i, j);
            EXPECT_NEAR(p[0], (i + 0.5) / 32.0, 1e-4) << i << " " << j;
            EXPECT_NEAR(p[1], 1.0 - (j + 0.5) / 32.0, 1e-4) << i << " " << j;
            EXPECT_NEAR(p[2], 1.0 / std::sqrt(x * x + y * y + 1.0), 1e-3) << i << " " << j;
        }
}

// The tracer works tangents out only for groups whose networks read them:
// a square turned 30 degrees in the view must hand its turned tangent, not
// the field's default (1, 0, 0), to a network that asks for it.
TEST(Renderer, ATurnedSquareHandsItsTangentToANetworkThatReadsIt) {
    auto graph = sceneFromText(std::string(kUnitCamera) + kSquareAtDepth2 + R"(
set square.rotate 90 0 30
node samplerInfo info
node condition show
connect info.tangentUCamera show.colorIfTrue
node shadingEngine tangentSG
connect show.outColor tangentSG.surfaceShader
member tangentSG squareShape
)");
    const Rendered r = render(*graph, 16, 16);
    // The centre of the view lies well inside the turned square.
    for (unsigned j = 6; j < 10; ++j)
        for (unsigned i = 6; i < 10; ++i) {
            const float* p = r.image.at(i, j);
            EXPECT_NEAR(p[0], std::sqrt(3.0) / 2.0, 1e-4) << i << " " << j;
            EXPECT_NEAR(p[1], 0.5, 1e-4) << i << " " << j;
            EXPECT_NEAR(p[2], 0.0, 1e-4) << i << " " << j;
        }
}

} // namespace
