#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "framework/render_info.h"
#include "render/render_error.h"
#include "render/render_job.h"
#include "render/renderer.h"
#include "render/scene_text.h"
#include "shading/ray_sampler.h"

// A render as the scene's settings plan it: frame ranges, the camera and
// pass of each image, and the render callbacks a run calls.

namespace {

namespace fs = std::filesystem;

// A grey ball above a grey floor, lit from above by a sun whose ray-traced
// shadow falls under the ball; two cameras.
const char* kBallAndFloor = R"(
set defaultRenderQuality.enableRaytracing true
node transform near
set near.translate 0 2 6
set near.rotate -20 0 0
node camera nearShape -parent near
node transform far
set far.translate 0 2 30
set far.rotate -4 0 0
node camera farShape -parent far
node transform sun
set sun.rotate -90 0 0
node directionalLight sunShape -parent sun
set sunShape.useRayTraceShadows true
node transform floor
set floor.scale 20 20 20
node mesh floorShape -parent floor
set floorShape.primitive plane
node transform ball
set ball.translate 0 1.5 0
node mesh ballShape -parent ball
set ballShape.primitive sphere
node lambert grey
node shadingEngine greySG
connect grey.outColor greySG.surfaceShader
member greySG floorShape ballShape
)";

float channelMax(const TrenderedImage& image, int channel) {
    float most = 0.0f;
    for (size_t i = size_t(channel); i < image.pixels.size(); i += TrenderedImage::kChannels)
        most = std::max(most, image.pixels[i]);
    return most;
}

double coverage(const TrenderedImage& image) {
    double sum = 0.0;
    for (size_t i = 3; i < image.pixels.size(); i += TrenderedImage::kChannels)
        sum += image.pixels[i];
    return sum;
}

TrenderedImage renderView(TdependGraph& graph, const TrenderView& view, int pass) {
    TrenderOptions options;
    options.width = 24;
    options.height = 16;
    options.samplesPerPixel = 1;
    options.threads = 1;
    TrenderedImage image;
    TframeStats stats;
    EXPECT_TRUE(Trenderer(options).renderFrame(graph, "test.qsl", 0, image, stats, nullptr, {},
                                               view, pass));
    return image;
}

TEST(RenderJob, FrameRanges) {
    using V = std::vector<double>;
    EXPECT_EQ(TrenderJob::frameRange(1, 10, 3), (V{1, 4, 7, 10}));
    EXPECT_EQ(TrenderJob::frameRange(1, 2, 0.5), (V{1, 1.5, 2}));
    EXPECT_EQ(TrenderJob::frameRange(5, 1, -2), (V{5, 3, 1}));
    EXPECT_EQ(TrenderJob::frameRange(1, 1, 0), (V{1}));
    EXPECT_TRUE(TrenderJob::frameRange(5, 1, 1).empty());
    EXPECT_TRUE(TrenderJob::frameRange(1, 5, 0).empty());
    // 0.1 steps to 0.3 arrive at 0.3 despite rounding: 4 frames, the last 0.3.
    EXPECT_EQ(TrenderJob::frameRange(0, 0.3, 0.1), (V{0, 0.1, 0.2, 0.3}));
}

TEST(RenderJob, PlansFollowTheScenesRange) {
    MessageCapture quiet;
    // Backwards from 3 to 1 renders 3, 2, 1; through the far camera alone.
    auto graph =
        sceneFromText(std::string(kBallAndFloor) + "set nearShape.renderable false\n"
                                                   "set defaultRenderGlobals.animation true\n"
                                                   "set defaultRenderGlobals.startFrame 3\n"
                                                   "set defaultRenderGlobals.endFrame 1\n"
                                                   "set defaultRenderGlobals.byFrameStep -1\n");
    const TrenderJob job(*graph, "dir/shot.qsl", "out");
    EXPECT_EQ(job.sceneName(), "shot");
    std::vector<std::string> paths;
    for (const TrenderJob::Image& image : job.images())
        paths.push_back(image.path + " " + image.cameraName);
    EXPECT_EQ(paths, (std::vector<std::string>{"out/shot.iff.0003 far", "out/shot.iff.0002 far",
                                               "out/shot.iff.0001 far"}));
    // The same range forwards is no range.
    graph = sceneFromText(std::string(kBallAndFloor) + "set defaultRenderGlobals.animation true\n"
                                                       "set defaultRenderGlobals.startFrame 3\n"
                                                       "set defaultRenderGlobals.endFrame 1\n");
    EXPECT_THROW(TrenderJob(*graph, "shot.qsl", "out"), TrenderError);
}

TEST(RenderJob, EachImageHasItsCameraAndPass) {
    MessageCapture quiet;
    auto graph = sceneFromText(kBallAndFloor);
    TrenderView nearView, farView;
    const TrenderJob job(*graph, "test.qsl", "out");
    ASSERT_EQ(job.images().size(), 2u);
    EXPECT_EQ(job.images()[0].path, "out/near/test.iff");
    EXPECT_EQ(job.images()[1].path, "out/far/test.iff");
    nearView.camera = job.images()[0].camera;
    farView.camera = job.images()[1].camera;
    // The far camera sees the ball and floor smaller: less of its image is covered.
    const TrenderedImage nearImage = renderView(*graph, nearView, 0);
    EXPECT_GT(coverage(nearImage), coverage(renderView(*graph, farView, 0)));
    EXPECT_GT(channelMax(nearImage, 0), 0.1f);

    // Highlights only: a lambert gives no colour.
    const int before = currentRenderPassControl;
    EXPECT_EQ(channelMax(renderView(*graph, nearView, 4), 0), 0.0f);
    EXPECT_EQ(currentRenderPassControl, before);
    // Shadows only: the shadow, as grey, where the matte holds it; the lit
    // floor around it is black.
    const TrenderedImage shadow = renderView(*graph, nearView, 5);
    float most = 0.0f;
    for (size_t p = 0; p < shadow.pixels.size(); p += TrenderedImage::kChannels) {
        EXPECT_EQ(shadow.pixels[p], shadow.pixels[p + 4]);
        most = std::max(most, shadow.pixels[p]);
    }
    EXPECT_GT(most, 0.5f);
    EXPECT_EQ(shadow.pixels[0], 0.0f); // a corner of lit floor
}

struct CountingCallback : TrenderCallback {
    explicit CountingCallback(int answer) : TrenderCallback(0), answer(answer) {}
    void initialize() override { ++initialized; }
    int renderCallback(const TrenderCallbackData& data) override {
        sizes.push_back(int(data.ints0[0]));
        return answer;
    }
    int postProcessCallback(const TrenderCallbackData&) override { return ++posted, 0; }
    void finalize() override { ++finalized; }
    int answer;
    int initialized = 0, posted = 0, finalized = 0;
    std::vector<int> sizes;
};

struct Collect : TrenderJob::Listener {
    void written(const TrenderJob::Image& image, const TframeStats&) override {
        paths.push_back(image.path);
    }
    void skipped(const TrenderJob::Image& image, const char* why) override {
        paths.push_back(image.path + " " + why);
    }
    std::vector<std::string> paths;
};

TEST(RenderJob, RunsTellTheRenderCallbacks) {
    MessageCapture quiet;
    const fs::path dir = fs::temp_directory_path() / ("orvo-job-" + std::to_string(::getpid()));
    fs::remove_all(dir);
    auto graph = sceneFromText(std::string(kBallAndFloor) +
                               "set defaultResolution.width 6\nset defaultResolution.height 4\n");
    TrenderOptions options;
    options.samplesPerPixel = 1;
    options.threads = 1;
    {
        CountingCallback counting(0);
        ASSERT_TRUE(TrenderCallback::addCallback(&counting));
        TrenderJob job(*graph, "test.qsl", dir.string());
        Collect collect;
        EXPECT_TRUE(job.run(options, collect));
        EXPECT_EQ(collect.paths, (std::vector<std::string>{(dir / "near/test.iff").string(),
                                                           (dir / "far/test.iff").string()}));
        EXPECT_EQ(counting.initialized, 1);
        EXPECT_EQ(counting.sizes, (std::vector<int>{6, 6}));
        EXPECT_EQ(counting.posted, 2);
        EXPECT_EQ(counting.finalized, 1);
    }
    fs::remove_all(dir);
    {
        // A callback that answers non-zero takes the image: nothing is written.
        CountingCallback taking(1);
        ASSERT_TRUE(TrenderCallback::addCallback(&taking));
        TrenderJob job(*graph, "test.qsl", dir.string());
        Collect collect;
        EXPECT_TRUE(job.run(options, collect));
        EXPECT_EQ(collect.paths.front(), (dir / "near/test.iff").string() + " callback");
        EXPECT_EQ(taking.posted, 0);
        EXPECT_FALSE(fs::exists(dir / "near" / "test.iff"));
    }
    EXPECT_FALSE(TrenderCallback::callbacksExist());
    fs::remove_all(dir);
}

} // namespace
