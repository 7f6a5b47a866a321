// Depth map shadows through whole frames: the depth pass before the frame,
// shadows where ray-traced ones fall, maps written, reused without being
// rendered again, and a damaged file that leaves the light unshadowed.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "framework/render_info.h"
#include "lights/non_extended_light_shape.h"
#include "render/renderer.h"
#include "render/scene_text.h"
#include "support/temp_folder.h"

namespace fs = std::filesystem;

namespace {

// A ball and a box on a white floor under a sun from the upper left; no
// other light, so that a shadow is black.
const char* kScene = R"(
set defaultRenderQuality.enableRaytracing true
node transform camera1
set camera1.translate 0 5 7
set camera1.rotate -35 0 0
node camera cameraShape1 -parent camera1
node transform sun
set sun.rotate -28 -50 0
node directionalLight sunShape -parent sun
node transform floor
node mesh floorShape -parent floor
set floorShape.primitive plane
set floorShape.width 14
set floorShape.depth 14
node transform ball
set ball.translate -1.2 1 0
node mesh ballShape -parent ball
set ballShape.primitive sphere
set ballShape.segmentsU 48
set ballShape.segmentsV 24
node transform crate
set crate.translate 1.6 0.75 -0.5
set crate.rotate 0 25 0
node mesh crateShape -parent crate
set crateShape.primitive box
set crateShape.width 1.5
set crateShape.height 1.5
set crateShape.depth 1.5
node lambert paint
set paint.color 1 1 1
set paint.diffuse 1
node shadingEngine paintSG
connect paint.outColor paintSG.surfaceShader
member paintSG floorShape ballShape crateShape
)";

constexpr unsigned kWidth = 120, kHeight = 68;

class DepthMapRender : public ::testing::Test {
protected:
    TrenderedImage render(TdependGraph& graph, TframeStats* stats = nullptr) {
        TrenderOptions options;
        options.width = kWidth;
        options.height = kHeight;
        options.samplesPerPixel = 1;
        options.threads = 2;
        options.depthMapDirectory = fDir.string();
        TrenderedImage image;
        TframeStats s;
        EXPECT_TRUE(Trenderer(options).renderFrame(graph, "shadows.qsl", 0, image, s));
        if (stats)
            *stats = s;
        return image;
    }
    static std::unique_ptr<TdependGraph> scene(const std::string& extra) {
        return sceneFromText(std::string(kScene) + extra);
    }

    TempFolder fTemp{"orvo-dmrender"};
    const fs::path& fDir = fTemp.path;
};

float luminance(const TrenderedImage& image, unsigned x, unsigned y) {
    const float* p = image.at(x, y);
    return 0.3f * p[0] + 0.59f * p[1] + 0.11f * p[2];
}

// Pixels that a shadow darkens to below half of what they are unshadowed.
std::vector<bool> shadowMask(const TrenderedImage& lit, const TrenderedImage& shadowed,
                             size_t& count) {
    std::vector<bool> mask(size_t(kWidth) * kHeight, false);
    count = 0;
    for (unsigned y = 0; y < kHeight; ++y)
        for (unsigned x = 0; x < kWidth; ++x) {
            const float open = luminance(lit, x, y);
            if (open > 0.05f && luminance(shadowed, x, y) < 0.5f * open) {
                mask[size_t(y) * kWidth + x] = true;
                ++count;
            }
        }
    return mask;
}

// The shadows of the ball and the box take a good part of the picture, and
// those of the map fall on the same pixels as those of the rays but for
// `share` of them.
void expectShadowsAlike(const TrenderedImage& lit, const TrenderedImage& traced,
                        const TrenderedImage& mapped, double share) {
    size_t tracedCount = 0, mappedCount = 0;
    const std::vector<bool> a = shadowMask(lit, traced, tracedCount);
    const std::vector<bool> b = shadowMask(lit, mapped, mappedCount);
    EXPECT_GT(tracedCount, size_t(kWidth) * kHeight / 20);
    size_t differ = 0;
    for (size_t i = 0; i < a.size(); ++i)
        differ += a[i] != b[i];
    EXPECT_LT(double(differ), share * double(tracedCount))
        << differ << " pixels differ of " << tracedCount << " and " << mappedCount;
}

TEST_F(DepthMapRender, ADepthMapShadowFallsWhereTheRayTracedOneDoes) {
    const TrenderedImage lit = render(*scene(""));
    TframeStats stats;
    const TrenderedImage traced = render(*scene("set sunShape.useRayTraceShadows true\n"), &stats);
    EXPECT_EQ(stats.depthMapsRendered, 0u);
    const TrenderedImage mapped = render(*scene("set sunShape.useDepthMapShadows true\n"), &stats);
    // One map of 512 x 512, two rays a texel where the first one hits.
    EXPECT_EQ(stats.depthMapsRendered, 1u);
    EXPECT_GT(stats.depthMapRays, 512u * 512u);
    EXPECT_EQ(stats.depthMapsWritten, 0u);
    EXPECT_TRUE(fs::is_empty(fDir));

    // Within a pixel along the edges: the map's texels are smaller than a
    // pixel here, its filter softens the edge by about one.
    expectShadowsAlike(lit, traced, mapped, 0.05);
}

TEST_F(DepthMapRender, AWrittenMapIsReusedWithoutBeingRenderedAgain) {
    auto graph = scene("set sunShape.useDepthMapShadows true\n"
                       "set sunShape.writeDmap true\n"
                       "set sunShape.dmapFrameExt true\n");
    graph->setTime(7);
    TframeStats stats;
    const TrenderedImage first = render(*graph, &stats);
    EXPECT_EQ(stats.depthMapsRendered, 1u);
    EXPECT_EQ(stats.depthMapsWritten, 1u);
    // The folder, "_" and the light's name, the frame, and the mid-distance
    // map beside it.
    EXPECT_TRUE(fs::exists(fDir / "_sunShape.7.iff"));
    EXPECT_TRUE(fs::exists(fDir / "_sunShape_mid.7.iff"));
    auto* light = static_cast<TnonExtendedLightShape*>(
        graph->findNode("sunShape")->cast(TnonExtendedLightShape::sTypeof()));
    EXPECT_EQ(light->lastWrittenDepthMapAnimExtName(), ".7");

    graph->setPlugValueFromWords(graph->findPlug("sunShape.writeDmap"), {"false"});
    graph->setPlugValueFromWords(graph->findPlug("sunShape.reuseDmap"), {"true"});
    const TrenderedImage second = render(*graph, &stats);
    EXPECT_EQ(stats.depthMapsRendered, 0u);
    EXPECT_EQ(stats.depthMapsRead, 1u);
    EXPECT_EQ(stats.depthMapRays, 0u);
    // The depths go through 1/z and back; a value may move by a unit in
    // the last place, which no lookup notices.
    ASSERT_EQ(first.pixels.size(), second.pixels.size());
    for (size_t i = 0; i < first.pixels.size(); ++i)
        ASSERT_NEAR(first.pixels[i], second.pixels[i], 1e-5) << i;

    // Frame 8 has no file: it is rendered.
    graph->setTime(8);
    render(*graph, &stats);
    EXPECT_EQ(stats.depthMapsRendered, 1u);
    EXPECT_EQ(stats.depthMapsRead, 0u);
}

// The sun off, a light with a position in its place: a point light (a cube
// of six maps) or a spot light (one perspective map through its cone).
const char* kPointLight = "set sunShape.intensity 0\n"
                          "node transform bulb\nset bulb.translate -2 5 2\n"
                          "node pointLight bulbShape -parent bulb\n"
                          "set bulbShape.intensity 1.2\n";
const char* kSpotLight = "set sunShape.intensity 0\n"
                         "node transform spot\nset spot.translate 0 6 0\n"
                         "set spot.rotate -90 0 0\n"
                         "node spotLight bulbShape -parent spot\n"
                         "set bulbShape.coneAngle 1.75\n";

TEST_F(DepthMapRender, PointAndSpotMapsShadowWhereTheirRaysDo) {
    for (const char* light : {kPointLight, kSpotLight}) {
        const std::string base(light);
        const TrenderedImage lit = render(*scene(base));
        const TrenderedImage traced =
            render(*scene(base + "set bulbShape.useRayTraceShadows true\n"));
        TframeStats stats;
        const TrenderedImage mapped = render(*scene(base + "set bulbShape.useDepthMapShadows true\n"
                                                           "set bulbShape.dmapResolution 256\n"),
                                             &stats);
        // A cube has six faces (the one looking up sees nothing, and is
        // rendered all the same); a spot, one view.
        EXPECT_EQ(stats.depthMapsRendered, light == kPointLight ? 6u : 1u);
        expectShadowsAlike(lit, traced, mapped, 0.08);
    }
}

TEST_F(DepthMapRender, APointLightsCubeIsWrittenFaceByFaceAndReusedWhole) {
    auto graph = scene(std::string(kPointLight) + "set bulbShape.useDepthMapShadows true\n"
                                                  "set bulbShape.dmapResolution 64\n"
                                                  "set bulbShape.useMidDistDmap false\n"
                                                  "set bulbShape.writeDmap true\n");
    TframeStats stats;
    const TrenderedImage first = render(*graph, &stats);
    EXPECT_EQ(stats.depthMapsRendered, 6u);
    EXPECT_EQ(stats.depthMapsWritten, 6u);
    for (const char* face : {"XP", "YP", "ZP", "XN", "YN", "ZN"})
        EXPECT_TRUE(fs::exists(fDir / (std::string("_bulbShape_") + face + ".iff"))) << face;
    graph->setPlugValueFromWords(graph->findPlug("bulbShape.writeDmap"), {"false"});
    graph->setPlugValueFromWords(graph->findPlug("bulbShape.reuseDmap"), {"true"});
    const TrenderedImage second = render(*graph, &stats);
    EXPECT_EQ(stats.depthMapsRendered, 0u);
    EXPECT_EQ(stats.depthMapsRead, 6u);
    EXPECT_EQ(stats.depthMapRays, 0u);
    ASSERT_EQ(first.pixels.size(), second.pixels.size());
    for (size_t i = 0; i < first.pixels.size(); ++i)
        ASSERT_NEAR(first.pixels[i], second.pixels[i], 1e-5) << i;
}

TEST_F(DepthMapRender, ADamagedFileLeavesTheLightUnshadowedWithOneWarning) {
    const TrenderedImage lit = render(*scene(""));
    std::ofstream(fDir / "_sunShape.iff") << "FOR4\x7f\x7f\x7f\x7f"
                                          << "DMAP";
    auto graph = scene("set sunShape.useDepthMapShadows true\nset sunShape.reuseDmap true\n");
    MessageCapture messages;
    TframeStats stats;
    const TrenderedImage image = render(*graph, &stats);
    ASSERT_EQ(messages.messages().size(), 1u);
    EXPECT_NE(messages.messages()[0].second.find((fDir / "_sunShape.iff").string()),
              std::string::npos)
        << messages.text();
    EXPECT_EQ(stats.depthMapsRendered, 0u);
    EXPECT_EQ(image.pixels, lit.pixels);
}

} // namespace

namespace {

// A render callback that casts shadows: it puts a caster just in front of
// the light's view plane over the whole map (distance 0.01), so everything
// the sun would light is in its shadow.
class Awning : public TrenderCallback {
public:
    explicit Awning(bool casts) : TrenderCallback(0), fCasts(casts) {}
    bool castsShadows() override { return fCasts; }
    int shadowCastCallback(const TshadowCallbackData& data) override {
        ++calls;
        light = data.path.partialPathName();
        width = data.ints0[0];
        height = data.ints0[1];
        auto* depth = reinterpret_cast<float*>(uintptr_t(data.words0[0]));
        mid = data.words0[1] != 0;
        for (size_t i = 0; i < size_t(width) * height; ++i)
            depth[i] = 0.01f;
        return 0;
    }
    int calls = 0;
    std::string light;
    uint32_t width = 0, height = 0;
    bool mid = false;

private:
    bool fCasts;
};

TEST_F(DepthMapRender, ShadowCastingCallbacksDrawIntoTheMap) {
    auto graph = scene("set sunShape.useDepthMapShadows true\nset sunShape.dmapResolution 64\n");
    const TrenderedImage open = render(*graph);
    // The floor in front of the ball and the box, in the sun.
    const unsigned x = kWidth / 2, y = kHeight - 4;
    ASSERT_GT(luminance(open, x, y), 0.3f);
    {
        // A callback that casts no shadows is not asked.
        Awning idle(false);
        TrenderCallback::addCallback(&idle);
        render(*graph);
        EXPECT_EQ(idle.calls, 0);
    }
    Awning awning(true);
    TrenderCallback::addCallback(&awning);
    const TrenderedImage shaded = render(*graph);
    TrenderCallback::removeCallback(&awning);
    EXPECT_EQ(awning.calls, 1);
    EXPECT_EQ(awning.light, "sunShape");
    EXPECT_EQ(awning.width, 64u);
    EXPECT_EQ(awning.height, 64u);
    EXPECT_TRUE(awning.mid);
    // No other light: in the awning's shadow the floor is black.
    EXPECT_LT(luminance(shaded, x, y), 0.02f);
}

} // namespace
