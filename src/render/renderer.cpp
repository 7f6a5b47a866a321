#include "render/renderer.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <exception>
#include <limits>
#include <mutex>
#include <thread>
#include <vector>

#include "host/arena.h"
#include "host/graph.h"
#include "host/messages.h"
#include "render/depth_map_pass.h"
#include "render/post_pass.h"
#include "render/ray_tracer.h"
#include "render/render_error.h"
#include "render/render_frame.h"
#include "render/render_scene.h"
#include "settings/render_globals.h"
#include "settings/renderer_registry.h"
#include "shading/ray_sampler.h"
#include "shading/shading_engine.h"

namespace {

struct Tile {
    unsigned x0, y0, x1, y1;
};

// The ray tracer is a renderer like any other to the registry.
const bool sRegistered = [] {
    TrendererInterface* self = TrendererRegistry::registerRenderer(Trenderer::kName);
    self->setRendererUIName("orvo Software");
    self->setBatchRenders(true);
    return true;
}();

} // namespace

void Trenderer::checkSceneRenderer(TdependGraph& graph, const std::string& sceneName) {
    auto* globals = dynamic_cast<TdnRenderGlobals*>(graph.findNode("defaultRenderGlobals"));
    const std::string name = globals ? globals->currentRenderer() : std::string(kName);
    const TrendererInterface* renderer = TrendererRegistry::renderer(name);
    if (renderer && renderer->batchRenders())
        return;
    std::vector<std::string> names;
    TrendererRegistry::getNamesOfAvailableRenderers(names);
    std::string list;
    for (const std::string& n : names) {
        const TrendererInterface* r = TrendererRegistry::renderer(n);
        if (r && r->batchRenders())
            list += (list.empty() ? "" : ", ") + n;
    }
    throw TrenderError(fmt::format(
        "{}: defaultRenderGlobals.currentRenderer is '{}', which {}; renderers that render "
        "in batch: {}",
        sceneName, name, renderer ? "does not render in batch" : "is not a registered renderer",
        list));
}

Trenderer::Trenderer(const TrenderOptions& options) : fOptions(options) {}

unsigned Trenderer::threadCount() const {
    if (fOptions.threads)
        return fOptions.threads;
    return std::max(1u, std::thread::hardware_concurrency());
}

bool Trenderer::renderFrame(TdependGraph& graph, const std::string& sceneName, uint32_t seed,
                            TrenderedImage& image, TframeStats& stats,
                            const std::atomic<bool>* cancel, const Progress& progress,
                            const TrenderView& view, int passControl) {
    bool complete = false;
    renderPasses(
        graph, sceneName, seed, view, {passControl}, [](size_t) {},
        [&](size_t, TrenderedImage& rendered, const TframeStats& passStats) {
            image = std::move(rendered);
            stats = passStats;
            complete = true;
        },
        cancel, progress, &stats);
    return complete;
}

bool Trenderer::renderPasses(TdependGraph& graph, const std::string& sceneName, uint32_t seed,
                             const TrenderView& view, const std::vector<int>& passes,
                             const PassStarted& started, const PassDone& done,
                             const std::atomic<bool>* cancel, const Progress& progress,
                             TframeStats* stopped) {
    auto start = std::chrono::steady_clock::now();
    if (fOptions.width == 0 || fOptions.height == 0)
        throw TrenderError("the image must be at least one pixel wide and high");
    TframeStats shared;

    // The scene and the depth maps serve every pass.
    TrenderScene scene(graph, sceneName, fOptions.width, fOptions.height, view);
    shared.objects = scene.objects().size();
    shared.triangles = scene.triangleCount();

    // Lights that shadow through depth maps have them before any sample.
    TdepthMapPass depthMaps(graph, scene, sceneName, fOptions);
    shared.depthMapsRendered = depthMaps.stats().rendered;
    shared.depthMapsRead = depthMaps.stats().read;
    shared.depthMapsWritten = depthMaps.stats().written;
    shared.depthMapRays = depthMaps.stats().rays;

    for (size_t p = 0; p < passes.size(); ++p) {
        if (p > 0)
            start = std::chrono::steady_clock::now();
        started(p);
        TframeStats stats = shared;
        TrenderedImage image;
        if (!renderPass(graph, scene, sceneName, seed, passes[p], start, image, stats, cancel,
                        progress)) {
            if (stopped)
                *stopped = stats;
            return false;
        }
        done(p, image, stats);
    }
    return true;
}

bool Trenderer::renderPass(TdependGraph& graph, TrenderScene& scene, const std::string& sceneName,
                           uint32_t seed, int passControl,
                           std::chrono::steady_clock::time_point start, TrenderedImage& image,
                           TframeStats& stats, const std::atomic<bool>* cancel,
                           const Progress& progress) {
    TrenderFrameSetup setup(graph, scene, sceneName, fOptions.maxRayDepth, passControl);
    const TrenderWorker& prototype = setup.prototype();

    // Tiles in rows from the top.
    const unsigned size = std::max(8u, fOptions.tileSize);
    std::vector<Tile> tiles;
    for (unsigned y = 0; y < fOptions.height; y += size)
        for (unsigned x = 0; x < fOptions.width; x += size)
            tiles.push_back(
                {x, y, std::min(fOptions.width, x + size), std::min(fOptions.height, y + size)});

    TsamplingSettings sampling;
    sampling.samplesPerPixel = std::max(1u, fOptions.samplesPerPixel);
    sampling.seed = seed;
    sampling.maxRayDepth = fOptions.maxRayDepth;
    TpostPass post(graph, scene, fOptions.width, fOptions.height, fOptions.postEffects);
    sampling.gatherGlow = post.gathersGlow();
    stats.shaderGlow = post.gathersGlow();

    const int margin = int(std::ceil(TpixelFilter::kRadius));
    TpixelSums frameSums(0, 0, fOptions.width, fOptions.height);
    std::vector<float> frameDepth(size_t(fOptions.width) * fOptions.height,
                                  std::numeric_limits<float>::infinity());
    std::mutex lock;
    std::condition_variable changed;
    std::atomic<unsigned> nextTile{0};
    unsigned tilesDone = 0, running = 0;
    // Tiles overlap by the filter's margin, so a border pixel sums samples
    // of several tiles. They join the frame in tile order, whichever thread
    // finishes first, so that the sums (and the picture) are the same to
    // the last bit for any number of threads; a tile that finishes early
    // waits in `finished` until the ones before it are in.
    std::vector<TpixelSums> finished(tiles.size());
    // Glow joins the frame's array the same way, in tile order.
    std::vector<orvo::post::TglowTile> finishedGlow(sampling.gatherGlow ? tiles.size() : 0);
    unsigned nextMerge = 0;
    std::exception_ptr failure;
    std::atomic<bool> stop{false};

    const unsigned threadCount = std::min<unsigned>(this->threadCount(), unsigned(tiles.size()));
    stats.threads = threadCount;
    auto work = [&](unsigned index) {
        uint64_t shaded = 0, traced = 0;
        try {
            TrenderWorker thread(prototype);
            thread.setThreadIndex(index);
            TrayTracer tracer(scene, thread, sampling);
            TrayTracer::setCurrent(&tracer);
            TpixelSums sums;
            orvo::post::TglowTile glow;
            for (;;) {
                if (stop.load() || (cancel && cancel->load()))
                    break;
                const unsigned t = nextTile.fetch_add(1);
                if (t >= tiles.size())
                    break;
                const Tile& tile = tiles[t];
                sums.reset(int(tile.x0) - margin, int(tile.y0) - margin,
                           tile.x1 - tile.x0 + 2 * unsigned(margin),
                           tile.y1 - tile.y0 + 2 * unsigned(margin));
                post.resetTile(glow, tile.x0, tile.y0, tile.x1, tile.y1);
                tracer.renderTile(tile.x0, tile.y0, tile.x1, tile.y1, sums,
                                  sampling.gatherGlow ? &glow : nullptr, frameDepth.data(),
                                  fOptions.width);
                std::lock_guard guard(lock);
                finished[t] = std::move(sums);
                if (sampling.gatherGlow)
                    finishedGlow[t] = std::move(glow);
                for (; nextMerge < tiles.size() && finished[nextMerge].width() != 0; ++nextMerge) {
                    frameSums.add(finished[nextMerge]);
                    finished[nextMerge] = TpixelSums();
                    if (sampling.gatherGlow) {
                        post.mergeTile(finishedGlow[nextMerge]);
                        finishedGlow[nextMerge] = orvo::post::TglowTile();
                    }
                }
                ++tilesDone;
                changed.notify_all();
            }
            shaded = tracer.samplesShaded();
            traced = tracer.raysTraced();
            TrayTracer::setCurrent(nullptr);
        } catch (...) {
            stop.store(true);
            std::lock_guard guard(lock);
            if (!failure)
                failure = std::current_exception();
        }
        std::lock_guard guard(lock);
        stats.samplesShaded += shaded;
        stats.raysTraced += traced;
        --running;
        changed.notify_all();
    };

    // Every worker is joined however this frame ends.
    struct Workers {
        std::vector<std::thread> threads;
        std::atomic<bool>& stop;
        ~Workers() {
            stop.store(true);
            for (std::thread& t : threads)
                if (t.joinable())
                    t.join();
        }
    } workers{{}, stop};
    {
        std::unique_lock guard(lock);
        running = threadCount;
    }
    for (unsigned i = 0; i < threadCount; ++i) {
        try {
            workers.threads.emplace_back(work, i);
        } catch (...) {
            std::lock_guard guard(lock);
            running -= threadCount - i;
            throw;
        }
    }
    {
        // Progress as tiles finish, and always a last call with the final
        // count, even for a frame whose workers were done before the first
        // look.
        std::unique_lock guard(lock);
        unsigned reported = ~0u;
        for (;;) {
            const bool finished = running == 0;
            if (progress && (!finished || tilesDone != reported)) {
                reported = tilesDone;
                guard.unlock();
                progress(reported, unsigned(tiles.size()));
                guard.lock();
            }
            if (finished)
                break;
            changed.wait_for(guard, std::chrono::milliseconds(100));
        }
    }
    for (std::thread& t : workers.threads)
        t.join();
    if (failure)
        std::rethrow_exception(failure);
    if (tilesDone < tiles.size()) {
        stats.seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        return false;
    }
    image = OrvoResolve(frameSums);
    image.depth = std::move(frameDepth);
    if (passControl == kRenderPassShadow) {
        // The shadow pass: the shadow is in the matte channel.
        for (size_t i = 0; i + TrenderedImage::kChannels <= image.pixels.size();
             i += TrenderedImage::kChannels)
            for (int c = 0; c < 3; ++c)
                image.pixels[i + size_t(c)] = image.pixels[i + 4];
    }
    const auto postStart = std::chrono::steady_clock::now();
    post.run(image);
    const auto end = std::chrono::steady_clock::now();
    stats.postSeconds = std::chrono::duration<double>(end - postStart).count();
    stats.seconds = std::chrono::duration<double>(end - start).count();
    return true;
}
