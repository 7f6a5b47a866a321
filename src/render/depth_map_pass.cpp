#include "render/depth_map_pass.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <filesystem>
#include <thread>

#include "cache/render_cache.h"
#include "framework/render_info.h"
#include "host/arena.h"
#include "host/graph.h"
#include "host/messages.h"
#include "host/mmap_alloc.h"
#include "host/scene/dag.h"
#include "lights/directional_light.h"
#include "lights/shadow_map.h"
#include "render/render_scene.h"
#include "render/renderer.h"

namespace {

using Vec = T3dDblVector;

Vec normalised(const Vec& v) {
    const double length = v.length();
    return length > 0.0 ? v * (1.0 / length) : v;
}

// An orthographic view of the light: its axes and origin in world space,
// and how far the view's rays reach.
struct OrthoView {
    Vec x, y, z; // z points back toward the light; the view looks down -z
    Vec origin;
    double width = 1.0; // of the square the map covers
    double nearest = 0.0, farthest = 1.0;

    T4dFltMatrix worldToView() const {
        T4dDblMatrix m;
        const Vec* axes[3] = {&x, &y, &z};
        for (int j = 0; j < 3; ++j) {
            for (int i = 0; i < 3; ++i)
                m.m[i][j] = (*axes[j])[i];
            m.m[3][j] = -origin.dot(*axes[j]);
        }
        return m.asFloat();
    }
    // View x and y to -1..1 across the map; z is left as it is.
    T4dFltMatrix projection() const {
        T4dFltMatrix m;
        m.m[0][0] = m.m[1][1] = float(2.0 / width);
        return m;
    }
};

bool lightIsUsed(const TdirectionalLightShape& light) {
    const TdagPath path = light.firstPath();
    return path.isValid() && TdagPathUtils::isObjectVisibleToRenderer(path) &&
           light.inCurrentRenderLayer();
}

} // namespace

void TdepthMapPass::castCallbackShadows(const TdirectionalLightShape& light,
                                        const TdepthMapSetup& setup, float* first,
                                        float* second) const {
    if (!TrenderCallback::invokeCastsShadows())
        return;
    TshadowCallbackData data;
    data.words0[0] = reinterpret_cast<uintptr_t>(first);
    data.words0[1] = reinterpret_cast<uintptr_t>(second);
    data.path = light.firstPath();
    data.matrix = setup.worldToView[0];
    data.ints0[0] = uint32_t(setup.width);
    data.ints0[1] = uint32_t(setup.height);
    TrenderCallback::invokeShadowCast(data);
}

std::string OrvoDepthMapFrameExtension(double frame) {
    return fmt::format(".{:g}", frame);
}

TdepthMapPass::TdepthMapPass(TdependGraph& graph, const TrenderScene& scene,
                             const std::string& sceneName, const TrenderOptions& options)
    : fGraph(graph), fScene(scene), fSceneStem(std::filesystem::path(sceneName).stem().string()),
      fDirectory(options.depthMapDirectory), fThreads(std::max(1u, options.threads)) {
    if (options.threads == 0)
        fThreads = std::max(1u, std::thread::hardware_concurrency());
    if (!fDirectory.empty() && fDirectory.back() != '/')
        fDirectory += '/';
    try {
        for (TdependNode* node : graph.nodes()) {
            auto* light =
                static_cast<TdirectionalLightShape*>(node->cast(TdirectionalLightShape::sTypeof()));
            if (light && light->useDepthMapShadows() && lightIsUsed(*light))
                makeMap(*light);
        }
    } catch (...) {
        for (TnonExtendedLightShape* light : fLights)
            light->deleteShadowMap();
        throw;
    }
}

TdepthMapPass::~TdepthMapPass() {
    for (TnonExtendedLightShape* light : fLights)
        light->deleteShadowMap();
    TshadowMapInfo::releaseFLC();
}

TrenderCache& TdepthMapPass::cache(size_t bytes) {
    // The global cache is raised to hold the maps as well as what it holds,
    // so that making them does not at once send them to swap.
    if (TrenderCache* global = theGlobalRenderCache()) {
        theGlobalRenderCache(global->usedSize() + bytes);
        return *global;
    }
    if (!fPrivateCache)
        fPrivateCache = std::make_unique<TrenderCache>(
            std::max<size_t>(TrenderCache::kPrivateCacheSize, bytes), theMallocAllocator());
    return *fPrivateCache;
}

void TdepthMapPass::makeMap(TdirectionalLightShape& light) {
    // The light's frame in world space: it shines along its -Z.
    const T4dDblMatrix toWorld = light.localToWorld();
    const T4dDblVector& travel = light.illuminationDirection();
    OrthoView view;
    view.z = normalised(toWorld.transformVector({-travel.x, -travel.y, -travel.z}));
    if (view.z.length() == 0.0)
        return;
    Vec across = toWorld.transformVector({1.0, 0.0, 0.0});
    across = across - view.z * across.dot(view.z);
    if (across.length() < 1e-9)
        across = std::fabs(view.z.x) < 0.9 ? Vec{1.0, 0.0, 0.0} : Vec{0.0, 1.0, 0.0};
    view.x = normalised(across - view.z * across.dot(view.z));
    view.y = view.z.cross(view.x);
    const Vec position = toWorld.translationPart();

    // The scene's extent along the view's axes.
    double low[3] = {1e300, 1e300, 1e300}, high[3] = {-1e300, -1e300, -1e300};
    const T4dDblMatrix& eyeToWorld = fScene.eyeToWorld();
    for (const auto& object : fScene.objects()) {
        for (const T3Float& p : object->positions()) {
            const Vec w = eyeToWorld.transformPoint({p.x, p.y, p.z});
            const double c[3] = {w.dot(view.x), w.dot(view.y), w.dot(view.z)};
            for (int k = 0; k < 3; ++k) {
                low[k] = std::min(low[k], c[k]);
                high[k] = std::max(high[k], c[k]);
            }
        }
    }
    if (low[0] > high[0])
        return; // nothing to cast or receive a shadow

    const int resolution = std::clamp(light.depthMapResolution(), 16, 8192);
    double centreX, centreY;
    if (light.useDepthMapAutoFocus()) {
        // The square around everything, two and a half texels wider on
        // each side: the outermost surfaces fall inside it, and no texel's
        // centre lies on the very edge of the scene.
        centreX = 0.5 * (low[0] + high[0]);
        centreY = 0.5 * (low[1] + high[1]);
        const double extent = std::max({high[0] - low[0], high[1] - low[1], 1e-6});
        view.width = extent * double(resolution) / double(resolution - 5);
    } else {
        centreX = position.dot(view.x);
        centreY = position.dot(view.y);
        view.width = std::max(double(light.depthMapWidthFocus()), 1e-6);
    }
    double plane;
    if (light.useDepthMapAutoClipping()) {
        // The view plane stands in front of everything, a little more than
        // the scene's depth away: every depth then lies within a factor of
        // two of every other, where float differences are exact, and the
        // compressed tiles give back the very depths rendered.
        const double depth = high[2] - low[2];
        const double gap = std::max(1.0, depth) * 1.05;
        plane = high[2] + gap;
        view.nearest = 0.0;
        view.farthest = gap + depth * 1.01 + 1e-6;
    } else {
        plane = position.dot(view.z);
        view.nearest = light.depthMapNearClipPlane();
        view.farthest = light.depthMapFarClipPlane();
    }
    view.origin = view.x * centreX + view.y * centreY + view.z * plane;

    TdepthMapSetup setup;
    setup.perspective = false;
    setup.position = {float(position.x), float(position.y), float(position.z)};
    setup.width = setup.height = resolution;
    setup.worldToView[0] = view.worldToView();
    setup.projection[0] = view.projection();

    // File names: frame extension as asked, a mid-distance file beside.
    Tstring base;
    light.getDepthMapName(fDirectory, fSceneStem, false, base);
    const std::string extension =
        light.depthMapAddFrameExt() ? OrvoDepthMapFrameExtension(fGraph.time()) : std::string();
    TdepthMapFiles files;
    files.directory = fDirectory;
    files.maps[0] = base + extension + ".iff";
    files.mids[0] = base + "_mid" + extension + ".iff";
    files.currentExtension = extension;
    files.readExtension = extension;
    files.lastWrittenExtension = light.lastWrittenDepthMapAnimExtName();

    const size_t texels = size_t(resolution) * size_t(resolution);
    TrenderCache& renderCache = cache(texels * sizeof(float) * 3);
    int readResult[TuseShadowMap::kMaxFaces] = {};
    const bool reuse = light.reuseDepthMap();
    TuseShadowMap* map =
        light.prepareShadowMap(&renderCache, setup, false, reuse ? &files : nullptr, readResult);
    fLights.push_back(&light);
    if (reuse && readResult[0] < 0) {
        // The file is there and unusable: the light goes without.
        light.deleteShadowMap();
        return;
    }
    if (reuse && readResult[0] > 0) {
        ++fStats.read;
    } else {
        const bool mid = light.useMidDistDepthMap();
        auto* first = static_cast<float*>(mmapAlloc(texels * sizeof(float), "depth map"));
        auto* second =
            mid ? static_cast<float*>(mmapAlloc(texels * sizeof(float), "Mid Dist Map")) : nullptr;
        if (!first || (mid && !second)) {
            mmapFree(first);
            mmapFree(second);
            light.deleteShadowMap();
            return;
        }
        // One ray a texel, through its centre (texel i sits at i on the
        // map), rows shared among the threads.
        const double half = resolution * 0.5;
        const T4dDblMatrix& worldToEye = fScene.worldToEye();
        const Vec travelWorld = view.z * -1.0;
        const Vec d = worldToEye.transformVector(travelWorld);
        const T3Float direction{float(d.x), float(d.y), float(d.z)};
        // Leaving a surface, a ray starts this far beyond it (in the
        // direction's units, which are world units).
        const float step = fScene.epsilon() / std::max(float(d.length()), 1e-12f);
        const float nearest = float(view.nearest), farthest = float(view.farthest);
        std::atomic<int> nextRow{0};
        std::atomic<uint64_t> rays{0};
        auto work = [&] {
            uint64_t cast = 0;
            for (int j; (j = nextRow.fetch_add(1)) < resolution;) {
                const double vy = (double(j) / half - 1.0) * view.width * 0.5;
                for (int i = 0; i < resolution; ++i) {
                    const double vx = (double(i) / half - 1.0) * view.width * 0.5;
                    const Vec o =
                        worldToEye.transformPoint(view.origin + view.x * vx + view.y * vy);
                    const T3Float origin{float(o.x), float(o.y), float(o.z)};
                    const size_t at = size_t(j) * size_t(resolution) + size_t(i);
                    Thit hit;
                    ++cast;
                    if (!fScene.intersect(origin, direction, nearest, farthest, hit)) {
                        first[at] = 0.0f;
                        if (second)
                            second[at] = 0.0f;
                        continue;
                    }
                    first[at] = hit.distance;
                    if (!second)
                        continue;
                    // The next surface behind; where there is none, the far
                    // end of the view, so that the middle lies well behind
                    // the first surface.
                    ++cast;
                    Thit behind;
                    second[at] =
                        fScene.intersect(origin, direction, hit.distance + step, farthest, behind)
                            ? behind.distance
                            : farthest;
                }
            }
            rays.fetch_add(cast);
        };
        std::vector<std::thread> threads;
        const unsigned count = std::min<unsigned>(fThreads, unsigned(resolution));
        try {
            for (unsigned t = 1; t < count; ++t)
                threads.emplace_back(work);
            work();
        } catch (...) {
            nextRow.store(resolution);
            for (std::thread& t : threads)
                t.join();
            mmapFree(first);
            mmapFree(second);
            throw;
        }
        for (std::thread& t : threads)
            t.join();
        fStats.rays += rays.load();
        ++fStats.rendered;
        castCallbackShadows(light, setup, first, second);
        map->setDepthBuffers(0, resolution, resolution, first, second);
        if (light.writeDepthMap()) {
            std::error_code ec;
            const std::filesystem::path folder = std::filesystem::path(files.maps[0]).parent_path();
            if (!folder.empty())
                std::filesystem::create_directories(folder, ec);
            if (map->writeZmap(0, files.maps[0], mid ? files.mids[0] : Tstring()) == 0) {
                ++fStats.written;
                light.setLastWrittenDepthMapAnimExtName(extension);
            }
        }
    }
    light.createShadowMap(&renderCache);
}
