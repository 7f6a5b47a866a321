#pragma once

// The reference renderer: one frame of a scene, rendered by worker threads
// that take tiles in turn. It drives the render model the way an outside
// renderer would: it sets up the shading groups on a prototype render
// thread, copies the prototype for each worker, fills samples, dispatches
// them, reads the outputs back in the completion callback, and hands
// materials and lights a ray sampler.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "render/pixel_filter.h"
#include "render/render_scene.h"

class TdependGraph;

struct TrenderOptions {
    unsigned width = 640;
    unsigned height = 360;
    unsigned samplesPerPixel = 4;
    unsigned threads = 0; // 0: one per hardware thread
    unsigned tileSize = 32;
    int maxRayDepth = 10;
    // Where lights' depth map files are written and looked for (relative to
    // the working folder unless absolute).
    std::string depthMapDirectory = "depth";
    // Whether the post effects (shader glow, optical effects, depth of
    // field) run over the finished frame.
    bool postEffects = true;
};

struct TframeStats {
    double seconds = 0.0;
    uint64_t samplesShaded = 0; // samples run through a shading network
    uint64_t raysTraced = 0;    // eye, reflection, refraction and shadow rays
    unsigned threads = 0;
    size_t objects = 0;
    size_t triangles = 0;
    unsigned depthMapsRendered = 0; // by the depth pass before the frame
    unsigned depthMapsRead = 0;     // from depth files (reuseDmap)
    unsigned depthMapsWritten = 0;  // to depth files (writeDmap)
    uint64_t depthMapRays = 0;      // rays of the depth pass
    bool shaderGlow = false;        // whether the frame gathered and added glow
    double postSeconds = 0.0;       // the post effects' share of `seconds`
};

class TrenderScene;

class Trenderer {
public:
    // The name this renderer registers under (TrendererRegistry), the one
    // a new scene's defaultRenderGlobals.currentRenderer names.
    static constexpr const char* kName = "orvoSoftware";

    explicit Trenderer(const TrenderOptions& options);

    // Throws TrenderError, naming the scene and the registered renderers,
    // unless the scene's currentRenderer is a registered renderer that
    // renders in batch.
    static void checkSceneRenderer(TdependGraph& graph, const std::string& sceneName);

    const TrenderOptions& options() const { return fOptions; }
    // The number of worker threads a frame uses.
    unsigned threadCount() const;

    // Called on the rendering thread about ten times a second and once at the
    // end, with the tiles done and the tiles of the frame.
    using Progress = std::function<void(unsigned done, unsigned total)>;

    // Renders the graph at its current time, through the view's layer and
    // camera, with the materials computing the terms of `passControl`
    // (the render pass control: 0 the full colour, 1 colour without
    // shadows, 3 diffuse, 4 specular, 5 shadows). `sceneName` names the
    // scene in messages; `seed` varies the sampling pattern from frame to
    // frame. Returns false, with `image` untouched, when `cancel` became
    // true before the frame was done. Throws TrenderError for a scene that
    // cannot be rendered (no camera), and passes on exceptions from nodes.
    // In the shadow pass the materials give the shadow in their matte
    // opacity: the image then holds it as grey in its colour channels.
    bool renderFrame(TdependGraph& graph, const std::string& sceneName, uint32_t seed,
                     TrenderedImage& image, TframeStats& stats,
                     const std::atomic<bool>* cancel = nullptr, const Progress& progress = {},
                     const TrenderView& view = {}, int passControl = 0);

    // Renders several passes of one view in one run: the scene is
    // translated and the depth maps made once, then each pass in turn.
    // `started(i)` comes before pass i, `done(i, image, stats)` after it,
    // with the image to keep. Returns false when `cancel` stopped a pass
    // (its image is not handed over; `stopped`, when given, gets its
    // statistics so far).
    using PassStarted = std::function<void(size_t)>;
    using PassDone = std::function<void(size_t, TrenderedImage&, const TframeStats&)>;
    bool renderPasses(TdependGraph& graph, const std::string& sceneName, uint32_t seed,
                      const TrenderView& view, const std::vector<int>& passes,
                      const PassStarted& started, const PassDone& done,
                      const std::atomic<bool>* cancel = nullptr, const Progress& progress = {},
                      TframeStats* stopped = nullptr);

private:
    bool renderPass(TdependGraph& graph, TrenderScene& scene, const std::string& sceneName,
                    uint32_t seed, int passControl, std::chrono::steady_clock::time_point start,
                    TrenderedImage& image, TframeStats& stats, const std::atomic<bool>* cancel,
                    const Progress& progress);

    TrenderOptions fOptions;
};
