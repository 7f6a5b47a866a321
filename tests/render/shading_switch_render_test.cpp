#include <gtest/gtest.h>

#include "render/renderer.h"
#include "render/scene_text.h"

// A shading switch in a render: one shading group on three squares side by
// side, its colour from a tripleShadingSwitch, shown flat (a condition
// passes the colour through unlit). The left square is element 0 of the
// switch, the middle one element 3 (indices need not be dense), the right
// one is in no element and takes the default.

namespace {

const char* kThreeSquares = R"(
node transform camera1
node camera cameraShape1 -parent camera1
set cameraShape1.focalLength 35
set cameraShape1.horizontalFilmAperture 2.75590551
node transform left
set left.translate -1.4 0 -2
set left.rotate 90 0 0
node mesh leftShape -parent left
set leftShape.primitive plane
node transform middle
set middle.translate 0 0 -2
set middle.rotate 90 0 0
node mesh middleShape -parent middle
set middleShape.primitive plane
node transform right
set right.translate 1.4 0 -2
set right.rotate 90 0 0
node mesh rightShape -parent right
set rightShape.primitive plane
node tripleShadingSwitch pick
set pick.default 0 0 1
connect leftShape.message pick.input[0].inShape
set pick.input[0].inTriple 1 0 0
connect middleShape.message pick.input[3].inShape
set pick.input[3].inTriple 0 1 0
node condition show
connect pick.output show.colorIfTrue
node shadingEngine flatSG
connect show.outColor flatSG.surfaceShader
member flatSG leftShape middleShape rightShape
)";

TEST(ShadingSwitchRender, EachShapeTakesItsOwnElementAndOthersTheDefault) {
    auto graph = sceneFromText(kThreeSquares);
    TrenderOptions options;
    options.width = 30;
    options.height = 10;
    options.samplesPerPixel = 1;
    options.threads = 2;
    options.tileSize = 8;
    TrenderedImage image;
    TframeStats stats;
    // Twice: the second frame must build its table afresh, not keep the
    // first frame's objects.
    for (int frame = 0; frame < 2; ++frame) {
        ASSERT_TRUE(Trenderer(options).renderFrame(*graph, "test.qsl", frame, image, stats));
        // The image spans x in [-1, 1] at depth 1, [-2, 2] at depth 2, 30
        // pixels: each square is 1 wide at depth 2, so its centre lies at
        // x = -1.4, 0, 1.4, pixel (x + 2) / 4 * 30 = 4.5, 15, 25.5.
        const struct {
            unsigned column;
            T3Float want;
        } squares[] = {{4, {1, 0, 0}}, {15, {0, 1, 0}}, {25, {0, 0, 1}}};
        for (const auto& s : squares) {
            const float* p = image.at(s.column, 5);
            EXPECT_NEAR(p[0], s.want.x, 1e-5) << "column " << s.column << ", frame " << frame;
            EXPECT_NEAR(p[1], s.want.y, 1e-5) << "column " << s.column << ", frame " << frame;
            EXPECT_NEAR(p[2], s.want.z, 1e-5) << "column " << s.column << ", frame " << frame;
        }
    }
}

} // namespace
