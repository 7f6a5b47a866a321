#include <gtest/gtest.h>

#include "render/renderer.h"
#include "render/scene_text.h"

// Mirror rays through the renderer: a phong mirror facing the camera, with
// no lights, shows what its mirror ray finds (times reflectivity and
// specularColor) and nothing else. Behind the camera stands a wall of flat
// green (0, 0.4, 0); the background is dark blue (0, 0, 0.5).

namespace {

const char* kMirrorScene = R"(
set defaultRenderQuality.enableRaytracing true
node phong mirror
set mirror.color 0 0 0
set mirror.diffuse 0
set mirror.reflectivity 1
set mirror.specularColor 1 0.5 0.25
node shadingEngine mirrorSG
connect mirror.outColor mirrorSG.surfaceShader
member mirrorSG squareShape
)";

const float* centre(const std::string& extra) {
    static TrenderedImage image;
    // The green wall, turned to stand behind the camera.
    auto graph = sceneFromText(std::string(kUnitCamera) + kSquareAtDepth2 + kGreenWall +
                               "set wall.translate 0 0 6\n" + kMirrorScene + extra);
    TrenderOptions options;
    options.width = 4;
    options.height = 4;
    options.samplesPerPixel = 1;
    options.threads = 1;
    TframeStats stats;
    image = TrenderedImage();
    EXPECT_TRUE(Trenderer(options).renderFrame(*graph, "mirror.qsl", 0, image, stats));
    return image.at(2, 2);
}

void expectRgb(const float* p, T3Float want, const char* what) {
    for (int k = 0; k < 3; ++k)
        EXPECT_NEAR(p[k], want[k], 1e-5f) << what << ", channel " << k;
}

TEST(Reflection, MirrorRaysAreShadedThroughTheSameShadingGroups) {
    // The mirror ray turns straight back and meets the wall: (0, 0.4, 0)
    // times specularColor.
    expectRgb(centre(""), {0, 0.2f, 0}, "the wall in the mirror");
    // Half as reflective, half as bright.
    expectRgb(centre("set mirror.reflectivity 0.5\n"), {0, 0.1f, 0}, "reflectivity 0.5");
    // No ray at limit 0: the background (0, 0, 0.5) instead, times 0.25.
    expectRgb(centre("set mirror.reflectionLimit 0\n"), {0, 0, 0.125f}, "limit 0");
}

TEST(Reflection, RayTracingOffTracesNoMirrorRays) {
    // Without a ray sampler a mirror whose reflectedColor is not connected
    // reflects black.
    expectRgb(centre("set defaultRenderQuality.enableRaytracing false\n"), {0, 0, 0}, "off");
    expectRgb(centre("set defaultRenderQuality.enableRaytracing true\n"), {0, 0.2f, 0}, "on");
}

} // namespace
