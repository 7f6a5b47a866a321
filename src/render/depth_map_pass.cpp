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
#include "lights/point_light.h"
#include "lights/shadow_map.h"
#include "lights/spot_light.h"
#include "render/render_scene.h"
#include "render/renderer.h"

namespace {

using Vec = T3dDblVector;

Vec normalised(const Vec& v) {
    const double length = v.length();
    return length > 0.0 ? v * (1.0 / length) : v;
}

// World to a view with axes x, y, z (world space) standing at `origin`.
T4dFltMatrix viewMatrix(const Vec& x, const Vec& y, const Vec& z, const Vec& origin) {
    T4dDblMatrix m;
    const Vec* axes[3] = {&x, &y, &z};
    for (int j = 0; j < 3; ++j) {
        for (int i = 0; i < 3; ++i)
            m.m[i][j] = (*axes[j])[i];
        m.m[3][j] = -origin.dot(*axes[j]);
    }
    return m.asFloat();
}

// An orthographic view of the light: its axes and origin in world space,
// and how far the view's rays reach.
struct OrthoView {
    Vec x, y, z; // z points back toward the light; the view looks down -z
    Vec origin;
    double width = 1.0; // of the square the map covers
    double nearest = 0.0, farthest = 1.0;

    T4dFltMatrix worldToView() const { return viewMatrix(x, y, z, origin); }
    // View x and y to -1..1 across the map; z is left as it is.
    T4dFltMatrix projection() const {
        T4dFltMatrix m;
        m.m[0][0] = m.m[1][1] = float(2.0 / width);
        return m;
    }
};

// A perspective view from a point: its axes in world space and how wide it
// opens (the tangent of half its angle).
struct PerspectiveView {
    Vec x, y, z; // z points back; the view looks down -z
    Vec origin;
    double tanHalf = 1.0;

    void set(const Vec& position, const Vec& forward, const Vec& up, double tangent) {
        origin = position;
        z = normalised(forward * -1.0);
        Vec across = up.cross(z);
        if (across.length() < 1e-9)
            across = (std::fabs(z.x) < 0.9 ? Vec{1.0, 0.0, 0.0} : Vec{0.0, 1.0, 0.0}).cross(z);
        x = normalised(across);
        y = z.cross(x);
        tanHalf = tangent;
    }
    T4dFltMatrix worldToView() const { return viewMatrix(x, y, z, origin); }
    // View x and y over -z to -1..1 across the map.
    T4dFltMatrix projection() const {
        T4dFltMatrix m;
        m.m[0][0] = m.m[1][1] = float(1.0 / tanHalf);
        return m;
    }
};

bool lightIsUsed(const TnonExtendedLightShape& light) {
    const TdagPath path = light.firstPath();
    return path.isValid() && TdagPathUtils::isObjectVisibleToRenderer(path) &&
           light.inCurrentRenderLayer();
}

} // namespace

void TdepthMapPass::castCallbackShadows(const TnonExtendedLightShape& light,
                                        const TdepthMapSetup& setup, int face, float* first,
                                        float* second) const {
    if (!TrenderCallback::invokeCastsShadows())
        return;
    TshadowCallbackData data;
    data.words0[0] = reinterpret_cast<uintptr_t>(first);
    data.words0[1] = reinterpret_cast<uintptr_t>(second);
    data.path = light.firstPath();
    data.matrix = setup.worldToView[face];
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
                static_cast<TnonExtendedLightShape*>(node->cast(TnonExtendedLightShape::sTypeof()));
            if (!light || !light->useDepthMapShadows() || !lightIsUsed(*light))
                continue;
            if (auto* sun = static_cast<TdirectionalLightShape*>(
                    node->cast(TdirectionalLightShape::sTypeof())))
                makeMap(*sun);
            else
                // A point light (and a volume light, which is one) sees all
                // round it; a spot or area light looks one way.
                makePerspectiveMaps(*light, node->cast(TpointLightShape::sTypeof()) != nullptr);
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
    double low[3], high[3];
    sceneExtent(view.x, view.y, view.z, low, high);
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

    FaceRays rays;
    rays.direction = [&](int, double, double, Vec& origin, Vec& direction) {
        origin = view.origin;
        direction = view.z * -1.0;
        return true;
    };
    rays.texelOrigin = [&](int, double vx, double vy, Vec& origin) {
        origin = view.origin + view.x * (vx * view.width * 0.5) + view.y * (vy * view.width * 0.5);
    };
    rays.nearest = view.nearest;
    rays.farthest = view.farthest;
    renderMaps(light, setup, rays);
}

void TdepthMapPass::makePerspectiveMaps(TnonExtendedLightShape& light, bool cube) {
    const T4dDblMatrix toWorld = light.localToWorld();
    const Vec position = toWorld.translationPart();
    const int resolution = std::clamp(light.depthMapResolution(), 16, 8192);

    TdepthMapSetup setup;
    setup.perspective = true;
    setup.position = {float(position.x), float(position.y), float(position.z)};
    setup.width = setup.height = resolution;
    setup.cubeFlag = cube ? 1 : 0;
    PerspectiveView views[TuseShadowMap::kMaxFaces];
    if (cube) {
        // Six square views along the world's axes, a right angle each:
        // +X, +Y, +Z, -X, -Y, -Z. The light's own settings leave faces out.
        const bool wanted[6] = {light.useXpDepthMap(), light.useYpDepthMap(),
                                light.useZpDepthMap(), light.useXnDepthMap(),
                                light.useYnDepthMap(), light.useZnDepthMap()};
        setup.faceCount = 0;
        for (int face = 0; face < 6; ++face) {
            if (!wanted[face])
                continue;
            Vec forward{0.0, 0.0, 0.0};
            forward[face % 3] = face < 3 ? 1.0 : -1.0;
            // Up is +Y, except looking along Y, where it is -Z or +Z.
            Vec up = face % 3 == 1 ? Vec{0.0, 0.0, face < 3 ? -1.0 : 1.0} : Vec{0.0, 1.0, 0.0};
            views[face].set(position, forward, up, 1.0);
            setup.faces[setup.faceCount++] = face;
        }
    } else {
        // One view down the light's -Z, as wide as its beam (or dmapFocus).
        const Vec forward = normalised(toWorld.transformVector({0.0, 0.0, -1.0}));
        const Vec up = toWorld.transformVector({0.0, 1.0, 0.0});
        double angle = light.depthMapFocus() * M_PI / 180.0;
        if (auto* spot = static_cast<TspotLightShape*>(light.cast(TspotLightShape::sTypeof()))) {
            if (light.useDepthMapAutoFocus()) {
                const double cone = spot->coneAngle();
                angle = cone + 2.0 * std::max(0.0, spot->penumbraAngle());
            }
        }
        // Short of a half turn: a perspective view cannot see sideways.
        angle = std::clamp(angle, 0.01, 170.0 * M_PI / 180.0);
        views[0].set(position, forward, up, std::tan(angle * 0.5));
        setup.faceCount = 1;
        setup.faces[0] = 0;
    }
    if (setup.faceCount == 0)
        return;
    for (int k = 0; k < setup.faceCount; ++k) {
        const int face = setup.faces[k];
        setup.worldToView[face] = views[face].worldToView();
        setup.projection[face] = views[face].projection();
    }

    // Depths reach past the whole scene.
    double low[3], high[3];
    sceneExtent({1.0, 0.0, 0.0}, {0.0, 1.0, 0.0}, {0.0, 0.0, 1.0}, low, high);
    if (low[0] > high[0])
        return;
    double reach = 0.0;
    for (int cx = 0; cx < 2; ++cx)
        for (int cy = 0; cy < 2; ++cy)
            for (int cz = 0; cz < 2; ++cz)
                reach = std::max(reach, (Vec{cx ? high[0] : low[0], cy ? high[1] : low[1],
                                             cz ? high[2] : low[2]} -
                                         position)
                                            .length());
    FaceRays rays;
    rays.perspective = true;
    rays.direction = [&](int face, double vx, double vy, Vec& origin, Vec& direction) {
        // Through the texel at unit depth: the hit's distance along it is
        // its depth in the view.
        const PerspectiveView& v = views[face];
        origin = position;
        direction = v.x * (vx * v.tanHalf) + v.y * (vy * v.tanHalf) - v.z;
        return true;
    };
    if (light.useDepthMapAutoClipping()) {
        rays.nearest = 0.0;
        rays.farthest = reach * 1.01 + 1e-6;
    } else {
        rays.nearest = light.depthMapNearClipPlane();
        rays.farthest = light.depthMapFarClipPlane();
    }
    renderMaps(light, setup, rays);
}

void TdepthMapPass::sceneExtent(const Vec& x, const Vec& y, const Vec& z, double low[3],
                                double high[3]) const {
    for (int k = 0; k < 3; ++k) {
        low[k] = 1e300;
        high[k] = -1e300;
    }
    const T4dDblMatrix& eyeToWorld = fScene.eyeToWorld();
    for (const auto& object : fScene.objects()) {
        for (const T3Float& p : object->positions()) {
            const Vec w = eyeToWorld.transformPoint({p.x, p.y, p.z});
            const double c[3] = {w.dot(x), w.dot(y), w.dot(z)};
            for (int k = 0; k < 3; ++k) {
                low[k] = std::min(low[k], c[k]);
                high[k] = std::max(high[k], c[k]);
            }
        }
    }
}

void TdepthMapPass::renderMaps(TnonExtendedLightShape& light, const TdepthMapSetup& setup,
                               const FaceRays& rays) {
    const int resolution = setup.width;
    const bool cube = setup.cubeFlag != 0;
    // File names: frame extension as asked, a mid-distance file beside; a
    // cube's faces each have their own.
    Tstring base;
    light.getDepthMapName(fDirectory, fSceneStem, false, base);
    const std::string extension =
        light.depthMapAddFrameExt() ? OrvoDepthMapFrameExtension(fGraph.time()) : std::string();
    TdepthMapFiles files;
    files.directory = fDirectory;
    static const char* const kFaceNames[6] = {"_XP", "_YP", "_ZP", "_XN", "_YN", "_ZN"};
    for (int slot = 0; slot < 7; ++slot) {
        const std::string face = slot == 0 ? std::string() : std::string(kFaceNames[slot - 1]);
        files.maps[slot] = base + face + extension + ".iff";
        files.mids[slot] = base + face + "_mid" + extension + ".iff";
    }
    files.currentExtension = extension;
    files.readExtension = extension;
    files.lastWrittenExtension = light.lastWrittenDepthMapAnimExtName();

    const size_t texels = size_t(resolution) * size_t(resolution);
    TrenderCache& renderCache = cache(texels * sizeof(float) * 3 * size_t(setup.faceCount));
    int readResult[TuseShadowMap::kMaxFaces] = {};
    const bool reuse = light.reuseDepthMap();
    TuseShadowMap* map =
        light.prepareShadowMap(&renderCache, setup, false, reuse ? &files : nullptr, readResult);
    fLights.push_back(&light);
    bool wrote = false;
    for (int k = 0; k < setup.faceCount; ++k) {
        const int face = setup.faces[k];
        const int slot = cube ? face + 1 : 0;
        if (reuse && readResult[face] < 0) {
            // The file is there and unusable: the light goes without.
            light.deleteShadowMap();
            return;
        }
        if (reuse && readResult[face] > 0) {
            ++fStats.read;
            continue;
        }
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
        castFace(face, resolution, rays, first, second);
        ++fStats.rendered;
        castCallbackShadows(light, setup, face, first, second);
        map->setDepthBuffers(face, resolution, resolution, first, second);
        if (light.writeDepthMap()) {
            std::error_code ec;
            const std::filesystem::path folder =
                std::filesystem::path(files.maps[slot]).parent_path();
            if (!folder.empty())
                std::filesystem::create_directories(folder, ec);
            if (map->writeZmap(face, files.maps[slot], mid ? files.mids[slot] : Tstring()) == 0) {
                ++fStats.written;
                wrote = true;
            }
        }
    }
    if (wrote)
        light.setLastWrittenDepthMapAnimExtName(extension);
    light.createShadowMap(&renderCache);
}

void TdepthMapPass::castFace(int face, int resolution, const FaceRays& rays, float* first,
                             float* second) {
    // One ray a texel, through its centre (texel i sits at i on the map),
    // rows shared among the threads.
    const double half = resolution * 0.5;
    const T4dDblMatrix& worldToEye = fScene.worldToEye();
    const float nearest = float(rays.nearest), farthest = float(rays.farthest);
    // What a texel holds: an orthographic map the distance from its
    // plane, a perspective one 1 / the depth in its view.
    auto stored = [&](float distance) {
        return rays.perspective ? 1.0f / distance : distance;
    };
    std::atomic<int> nextRow{0};
    std::atomic<uint64_t> cast{0};
    auto work = [&] {
        uint64_t count = 0;
        for (int j; (j = nextRow.fetch_add(1)) < resolution;) {
            const double vy = double(j) / half - 1.0;
            for (int i = 0; i < resolution; ++i) {
                const double vx = double(i) / half - 1.0;
                Vec o, d;
                rays.direction(face, vx, vy, o, d);
                if (rays.texelOrigin)
                    rays.texelOrigin(face, vx, vy, o);
                const Vec eo = worldToEye.transformPoint(o);
                const Vec ed = worldToEye.transformVector(d);
                const T3Float origin{float(eo.x), float(eo.y), float(eo.z)};
                const T3Float direction{float(ed.x), float(ed.y), float(ed.z)};
                // Leaving a surface, a ray starts this far beyond it.
                const float step = fScene.epsilon() / std::max(float(ed.length()), 1e-12f);
                const size_t at = size_t(j) * size_t(resolution) + size_t(i);
                Thit hit;
                ++count;
                if (!fScene.intersect(origin, direction, nearest, farthest, hit)) {
                    first[at] = 0.0f;
                    if (second)
                        second[at] = 0.0f;
                    continue;
                }
                first[at] = stored(hit.distance);
                if (!second)
                    continue;
                // The next surface behind; where there is none, the far
                // end of the view, so that the middle lies well behind
                // the first surface.
                ++count;
                Thit behind;
                second[at] = stored(
                    fScene.intersect(origin, direction, hit.distance + step, farthest, behind)
                        ? behind.distance
                        : farthest);
            }
        }
        cast.fetch_add(count);
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
    fStats.rays += cast.load();
}
