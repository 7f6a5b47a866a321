#include "render/renderer.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

#include "host/arena.h"
#include "host/graph.h"
#include "host/messages.h"
#include "render/embree_ray_sampler.h"
#include "render/ray_tracer.h"
#include "render/render_error.h"
#include "render/render_scene.h"
#include "shading/ray_sampler.h"
#include "shading/shading_engine.h"

namespace {

struct Tile {
    unsigned x0, y0, x1, y1;
};

// Materials and lights find the ray sampler in their `raySampler` input,
// a value of the frame that the analysis captures as a constant. It is set
// on every node that has one before the shading groups compile, and taken
// away after the frame, so that no node keeps the address of a sampler
// that is gone.
class RaySamplerPlugs {
public:
    RaySamplerPlugs(TdependGraph& graph, TraySampler* sampler) : fGraph(graph) {
        void* address = sampler;
        for (TdependNode* node : graph.nodes()) {
            const Tattribute* a = node->findAttribute("raySampler");
            if (!a || a->kind() != TattrKind::Addr)
                continue;
            const Tplug plug(node, a);
            if (!plug.source().isNull())
                continue;
            graph.setPlugValue(plug, &address);
            fPlugs.push_back(plug);
        }
    }
    ~RaySamplerPlugs() {
        void* none = nullptr;
        for (const Tplug& plug : fPlugs)
            fGraph.setPlugValue(plug, &none);
    }
    RaySamplerPlugs(const RaySamplerPlugs&) = delete;
    RaySamplerPlugs& operator=(const RaySamplerPlugs&) = delete;

private:
    TdependGraph& fGraph;
    std::vector<Tplug> fPlugs;
};

// Shading groups and opuses live from the set-up of a frame to its end,
// whatever way the frame ends.
class ShadingGroupsInUse {
public:
    explicit ShadingGroupsInUse(TrenderWorker& prototype) : fPrototype(prototype) {}
    ~ShadingGroupsInUse() {
        TrenderThreadBase::resetShadingGroups();
        fPrototype.destroyContents();
    }
    ShadingGroupsInUse(const ShadingGroupsInUse&) = delete;
    ShadingGroupsInUse& operator=(const ShadingGroupsInUse&) = delete;

private:
    TrenderWorker& fPrototype;
};

// Compiles each shading group on the prototype thread, before any worker
// starts: for surface shading, and for shadows where the surface lets
// light through. A group that gives nothing to render is dropped, and its
// objects fall back to the default material.
void setUpShadingGroups(TrenderScene& scene, TrenderWorker& prototype,
                        const std::string& sceneName) {
    for (TDNshadingEngine* engine : scene.engines()) {
        TrenderObject* first = nullptr;
        for (const auto& object : scene.objects())
            if (object->engine() == engine) {
                first = object.get();
                break;
            }
        prototype.initShadingGroup(engine);
        const TbitField64 provided = prototype.startSampling(engine, 0, first);
        bool usable = provided.test(TsampleFields::outColor);
        bool opaque = engine->surfaceIsOpaque();
        if (usable && !opaque) {
            const TbitField64 shadow = prototype.startSampling(engine, 3, first);
            opaque = !shadow.test(TsampleFields::outTransparency);
        }
        if (!usable)
            TcommandEngine::displayWarning(
                fmt::format("{}: shading group '{}' gives no colour; its members render in the "
                            "default material",
                            sceneName, engine->name()));
        for (const auto& object : scene.objects()) {
            if (object->engine() != engine)
                continue;
            if (!usable)
                object->setEngine(nullptr);
            object->setOpaque(opaque);
            object->setRefracting(engine->surfaceIsRefracting());
        }
    }
    for (const auto& object : scene.objects())
        object->setCompletion(TrayTracer::callback());
}

} // namespace

Trenderer::Trenderer(const TrenderOptions& options) : fOptions(options) {}

unsigned Trenderer::threadCount() const {
    if (fOptions.threads)
        return fOptions.threads;
    return std::max(1u, std::thread::hardware_concurrency());
}

bool Trenderer::renderFrame(TdependGraph& graph, const std::string& sceneName, uint32_t seed,
                            TrenderedImage& image, TframeStats& stats,
                            const std::atomic<bool>* cancel, const Progress& progress) {
    const auto start = std::chrono::steady_clock::now();
    if (fOptions.width == 0 || fOptions.height == 0)
        throw TrenderError("the image must be at least one pixel wide and high");
    stats = TframeStats();

    TrenderScene scene(graph, sceneName, fOptions.width, fOptions.height);
    stats.objects = scene.objects().size();
    stats.triangles = scene.triangleCount();

    // A colour render, not a swatch.
    currentRenderPassControl = 0;
    inSampleSwatchMode = false;

    TstackArena frameArena(theMallocAllocator(), 4096, "orvo render frame");
    TframeConstants frame(frameArena);
    TembreeRaySampler sampler(scene, fOptions.maxRayDepth);
    RaySamplerPlugs plugs(graph, &sampler);
    TrenderWorker prototype(frame, &sampler);
    ShadingGroupsInUse inUse(prototype);
    setUpShadingGroups(scene, prototype, sceneName);

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

    const int margin = int(std::ceil(TpixelFilter::kRadius));
    TpixelSums frameSums(0, 0, fOptions.width, fOptions.height);
    std::mutex lock;
    std::condition_variable changed;
    std::atomic<unsigned> nextTile{0};
    unsigned tilesDone = 0, running = 0;
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
                tracer.renderTile(tile.x0, tile.y0, tile.x1, tile.y1, sums);
                std::lock_guard guard(lock);
                frameSums.add(sums);
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
        std::unique_lock guard(lock);
        while (running > 0) {
            changed.wait_for(guard, std::chrono::milliseconds(100));
            if (progress) {
                const unsigned done = tilesDone;
                guard.unlock();
                progress(done, unsigned(tiles.size()));
                guard.lock();
            }
        }
    }
    for (std::thread& t : workers.threads)
        t.join();
    if (failure)
        std::rethrow_exception(failure);
    stats.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (tilesDone < tiles.size())
        return false;
    image = OrvoResolve(frameSums);
    return true;
}
