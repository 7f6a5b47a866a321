#include <gtest/gtest.h>

#include <pthread.h>

#include <string>

#include "render/renderer.h"
#include "render/scene_text.h"

// A network whose scratch grows with the light count, nested through
// refraction rays: each level of nesting is one more shade on the same
// render thread's stack.

namespace {

std::string sixtyFourSuns() {
    std::string text;
    for (int l = 0; l < 64; ++l) {
        const std::string n = std::to_string(l);
        text += "node transform sun" + n + "\nset sun" + n + ".rotate " + std::to_string(-10 - l) +
                " " + std::to_string(l * 5) + " 0\nnode directionalLight sunShape" + n +
                " -parent sun" + n + "\nset sunShape" + n + ".intensity 0.02\n";
    }
    return text;
}

// Four concentric glass balls: a ray through the middle crosses eight
// surfaces, each a refraction shaded inside the one before. Sixty-four
// directional lights light them.
std::string deepGlass() {
    std::string text = R"(
node transform camera1
set camera1.translate 0 0 5
node camera cameraShape1 -parent camera1
set defaultRenderQuality.enableRaytracing true
)";
    const float radii[4] = {3.0f, 2.4f, 1.8f, 1.2f};
    for (int k = 0; k < 4; ++k) {
        const std::string n = std::to_string(k);
        text += "node transform ball" + n + "\nnode mesh ballShape" + n + " -parent ball" + n +
                "\nset ballShape" + n + ".primitive sphere\nset ballShape" + n + ".radius " +
                std::to_string(radii[k]) + "\nnode lambert glass" + n + "\nset glass" + n +
                ".transparency 0.9 0.9 0.9\nset glass" + n + ".refractions true\nset glass" + n +
                ".refractionLimit 10\nset glass" + n + ".refractiveIndex 1.2\n" +
                "node shadingEngine glassSG" + n + "\nconnect glass" + n + ".outColor glassSG" + n +
                ".surfaceShader\nmember glassSG" + n + " ballShape" + n + "\n";
    }
    return text + sixtyFourSuns();
}

// Two phong mirrors facing each other across the camera: a ray in the
// middle bounces between them, each bounce a reflection shaded inside the
// one before, eight deep.
std::string mirrorCorridor() {
    std::string text = std::string(kUnitCamera) + kRayTracingOn;
    for (int k = 0; k < 2; ++k) {
        const std::string n = std::to_string(k);
        text += "node transform wall" + n + "\nset wall" + n + ".translate 0 0 " +
                (k ? "2" : "-2") + "\nset wall" + n + ".rotate 90 0 0\nnode mesh wallShape" + n +
                " -parent wall" + n + "\nset wallShape" + n + ".primitive plane\nset wallShape" +
                n + ".width 400\nset wallShape" + n + ".depth 400\n";
    }
    return text + R"(
node phong mirror
set mirror.reflectivity 0.9
set mirror.reflectionLimit 8
node shadingEngine mirrorSG
connect mirror.outColor mirrorSG.surfaceShader
member mirrorSG wallShape0 wallShape1
)" + sixtyFourSuns();
}

// Threads the renderer starts get this much stack, as a host with small
// thread stacks would give them. With every light record and frame on the
// stack, the 64 records of each of a batch's 64 samples alone took 230 kB.
class SmallThreadStacks {
public:
    explicit SmallThreadStacks(size_t bytes) {
        pthread_getattr_default_np(&fSaved);
        pthread_attr_t attr;
        pthread_attr_init(&attr);
        pthread_attr_setstacksize(&attr, bytes);
        pthread_setattr_default_np(&attr);
        pthread_attr_destroy(&attr);
    }
    ~SmallThreadStacks() {
        pthread_setattr_default_np(&fSaved);
        pthread_attr_destroy(&fSaved);
    }

private:
    pthread_attr_t fSaved;
};

// Renders `scene` small on threads with small stacks.
TframeStats renderDeep(const std::string& scene, TrenderedImage& image) {
    auto graph = sceneFromText(scene);
    TrenderOptions options;
    options.width = 16;
    options.height = 16;
    options.samplesPerPixel = 1;
    options.threads = 2;
    options.tileSize = 8;
    options.maxRayDepth = 10;
    TframeStats stats;
#if defined(ORVO_SANITIZED)
    // Sanitizers make every frame larger.
    SmallThreadStacks stacks(2u << 20);
#else
    SmallThreadStacks stacks(256u << 10);
#endif
    EXPECT_TRUE(Trenderer(options).renderFrame(*graph, "deep.qsl", 0, image, stats));
    return stats;
}

TEST(DeepRays, SixtyFourLightsThroughEightRefractionsFitASmallThreadStack) {
    TrenderedImage image;
    const TframeStats stats = renderDeep(deepGlass(), image);
    // Most pixels look through all four balls: eight refractions, each lit
    // by the 64 lights.
    EXPECT_GT(stats.samplesShaded, 16u * 16u * 8u / 2u);
    const float* middle = image.at(8, 8);
    EXPECT_GT(middle[0] + middle[1] + middle[2], 0.0f);
}

TEST(DeepRays, SixtyFourLightsThroughEightReflectionsFitASmallThreadStack) {
    TrenderedImage image;
    const TframeStats stats = renderDeep(mirrorCorridor(), image);
    // Every pixel sees the mirror and its eight reflections: nine shaded
    // samples each.
    EXPECT_EQ(stats.samplesShaded, 16u * 16u * 9u);
}

} // namespace
