// Depth map shadows against shadow rays, for the same points: the surface
// points that the camera sees of the built-in default scene, its sun
// switched to a depth map (512 x 512, mid-distance, the default filter).
//
//   map/f     TuseShadowMap::sampleShadow in batches of 64, filter size f
//             (f = 1 is the default: 5 texels; f = 3: 29 texels)
//   ray       one Embree ray a point toward the sun, nearest hit (what the
//             renderer's shadow rays trace, before any shading)
//   occluded  the same ray as an occlusion test, the cheapest there is
//   bulk      the same rays handed over together, as the renderer asks what
//             lies on its shadow rays (TrenderScene::shadowReach)
//
// Before timing, the map with filter 0 (one texel: in or out) must agree
// with the occlusion rays on 97% of the points; the rest lie on shadow
// edges and on surfaces that face away from the sun, where a map's texel is
// wider than the pixel. Times are ns a point, the median of the passes, all
// ways interleaved pass by pass; then the same on two threads (points per
// second of the pair, each thread going over its half of the points for a
// tenth of a second a pass). The depth pass that made the map is timed too: what
// it costs once a frame, in rays.
//
// With --light point the sun gives way to a point light above the scene (a
// cube of six 512 x 512 maps), with --light spot to a spot light looking
// down (one perspective map); the rays then go from each point to the
// light's position and stop there.
//
//   scripts/bench shadow_map [-- --passes N --res W H --light sun|point|spot]

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "host/graph.h"
#include "host/messages.h"
#include "host/qsl/interpreter.h"
#include "lights/directional_light.h"
#include "lights/point_light.h"
#include "lights/shadow_map.h"
#include "lights/spot_light.h"
#include "render/default_scene.h"
#include "render/depth_map_pass.h"
#include "render/render_scene.h"
#include "render/renderer.h"

namespace {

using Clock = std::chrono::steady_clock;

double seconds(Clock::time_point since) {
    return std::chrono::duration<double>(Clock::now() - since).count();
}

struct Points {
    std::vector<T3Float> eye;   // for the rays
    std::vector<T3Float> world; // for the map
};

Points surfacePoints(const TrenderScene& scene, unsigned width, unsigned height) {
    Points p;
    const T4dDblMatrix& toWorld = scene.eyeToWorld();
    for (unsigned y = 0; y < height; ++y)
        for (unsigned x = 0; x < width; ++x) {
            T3Float origin, direction;
            scene.camera().ray((x + 0.5) * scene.camera().width() / width,
                               (y + 0.5) * scene.camera().height() / height, origin, direction);
            Thit hit;
            if (!scene.intersect(origin, direction, 0.0f, 1e30f, hit))
                continue;
            const T3Float e = origin + direction * hit.distance;
            const T3dDblVector w = toWorld.transformPoint({e.x, e.y, e.z});
            p.eye.push_back(e);
            p.world.push_back({float(w.x), float(w.y), float(w.z)});
        }
    return p;
}

class MapLookups {
public:
    MapLookups(TuseShadowMap& map, int16_t filter) : fMap(map), fFilter(filter) {}
    // Fractions of points [begin, end) into `out`.
    void run(const Points& p, size_t begin, size_t end, float* out) const {
        int16_t filter = fFilter;
        float bias = 0.001f;
        const TvectorDataHandle filters(TdataHandle(nullptr, nullptr, &filter));
        const TvectorDataHandle biases(TdataHandle(nullptr, nullptr, &bias));
        for (size_t at = begin; at < end; at += 64) {
            ShadowMapVecSamples s;
            s.count = unsigned(std::min<size_t>(64, end - at));
            s.fractions = out + at;
            s.points = TvectorDataHandle(
                TdataHandle(nullptr, nullptr, const_cast<T3Float*>(&p.world[at])), sizeof(T3Float));
            fMap.sampleShadow(s, filters, biases, 1);
        }
    }

private:
    TuseShadowMap& fMap;
    int16_t fFilter;
};

struct Way {
    std::string name;
    std::function<void(size_t, size_t, float*)> run;
    std::vector<double> times;
};

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

} // namespace

int main(int argc, char** argv) {
    int passes = 15;
    unsigned width = 320, height = 180;
    std::string kind = "sun";
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--passes" && i + 1 < argc)
            passes = std::max(1, std::atoi(argv[++i]));
        else if (a == "--light" && i + 1 < argc)
            kind = argv[++i];
        else if (a == "--res" && i + 2 < argc) {
            width = unsigned(std::atoi(argv[++i]));
            height = unsigned(std::atoi(argv[++i]));
        }
    }
    TcommandEngine::setSink([](TcommandEngine::Severity, const std::string&) {});

    TdependGraph graph;
    TdependGraph::fsCurrentGraph = &graph;
    std::string setup = "\nset sunShape.useRayTraceShadows false\n";
    if (kind == "sun")
        setup += "set sunShape.useDepthMapShadows true\n";
    else if (kind == "point")
        setup += "node transform bulb\nset bulb.translate 1 6 2\n"
                 "node pointLight bulbShape -parent bulb\n"
                 "set bulbShape.useDepthMapShadows true\n";
    else if (kind == "spot")
        setup += "node transform bulb\nset bulb.translate 1 8 2\nset bulb.rotate -90 0 0\n"
                 "node spotLight bulbShape -parent bulb\nset bulbShape.coneAngle 2.1\n"
                 "set bulbShape.useDepthMapShadows true\n";
    else {
        std::fprintf(stderr, "shadow_map: --light is sun, point or spot\n");
        return 2;
    }
    qsl::Interpreter(graph).runText(std::string(OrvoDefaultSceneText()) + setup,
                                    OrvoDefaultSceneName());
    TrenderScene scene(graph, OrvoDefaultSceneName(), 640, 360);
    auto* sun = static_cast<TnonExtendedLightShape*>(
        graph.findNode(kind == "sun" ? "sunShape" : "bulbShape")
            ->cast(TnonExtendedLightShape::sTypeof()));

    TrenderOptions options;
    options.threads = 1;
    options.depthMapDirectory = "";
    const auto passStart = Clock::now();
    TdepthMapPass pass(graph, scene, OrvoDefaultSceneName(), options);
    const double passSeconds = seconds(passStart);
    TuseShadowMap* map = sun->shadowMap();
    if (!map) {
        std::fprintf(stderr, "shadow_map: the sun made no depth map\n");
        return 1;
    }

    const Points points = surfacePoints(scene, width, height);
    const size_t n = points.eye.size();
    // Toward the light, in eye space: one way for the sun, to its position
    // for the others (each point's direction, made once before timing).
    const float epsilon = scene.epsilon();
    std::vector<T3Float> toLight(n);
    float reach = 1e10f;
    if (kind == "sun") {
        const T3dDblVector travel = sun->localToWorld().transformVector({0.0, 0.0, -1.0});
        const T3dDblVector towardEye = scene.worldToEye().transformVector(travel * -1.0);
        const double l = towardEye.length();
        std::fill(toLight.begin(), toLight.end(),
                  T3Float{float(towardEye.x / l), float(towardEye.y / l), float(towardEye.z / l)});
    } else {
        // Unnormalised: the ray reaches the light at distance 1.
        const T3dDblVector at =
            scene.worldToEye().transformPoint(sun->localToWorld().translationPart());
        for (size_t i = 0; i < n; ++i)
            toLight[i] = T3Float{float(at.x), float(at.y), float(at.z)} - points.eye[i];
        reach = 1.0f;
    }

    // Every object of the scene stops light (nothing has told the scene
    // otherwise): the bulk way asks the same question as the others.
    scene.setShadowRoles();
    std::vector<TrayQuery> queries(n);
    for (size_t i = 0; i < n; ++i) {
        queries[i].origin = points.eye[i];
        queries[i].direction = toLight[i];
        queries[i].near = epsilon / OrvoLength(toLight[i]);
        queries[i].far = reach;
    }
    std::vector<TshadowReach> reached(n);

    MapLookups f0(*map, 0), f1(*map, 1), f3(*map, 3);
    std::vector<Way> ways = {
        {"map/0", [&](size_t b, size_t e, float* o) { f0.run(points, b, e, o); }, {}},
        {"map/1", [&](size_t b, size_t e, float* o) { f1.run(points, b, e, o); }, {}},
        {"map/3", [&](size_t b, size_t e, float* o) { f3.run(points, b, e, o); }, {}},
        {"ray",
         [&](size_t b, size_t e, float* o) {
             for (size_t i = b; i < e; ++i) {
                 Thit hit;
                 const float start = epsilon / OrvoLength(toLight[i]);
                 o[i] = scene.intersect(points.eye[i], toLight[i], start, reach, hit) ? 1.0f : 0.0f;
             }
         },
         {}},
        {"occluded",
         [&](size_t b, size_t e, float* o) {
             for (size_t i = b; i < e; ++i)
                 o[i] = scene.occluded(points.eye[i], toLight[i], epsilon / OrvoLength(toLight[i]),
                                       reach)
                            ? 1.0f
                            : 0.0f;
         },
         {}},
        {"bulk",
         [&](size_t b, size_t e, float* o) {
             // In the renderer's batches: 64 samples of 8 rays.
             for (size_t at = b; at < e; at += 512) {
                 const unsigned count = unsigned(std::min<size_t>(512, e - at));
                 scene.shadowReach(count, queries.data() + at, reached.data() + at);
                 for (size_t i = at; i < at + count; ++i)
                     o[i] = reached[i] == TshadowReach::Clear ? 0.0f : 1.0f;
             }
         },
         {}},
    };

    // Agreement first.
    std::vector<float> mapped(n), traced(n);
    ways[0].run(0, n, mapped.data());
    ways[4].run(0, n, traced.data());
    std::vector<float> bulk(n);
    ways[5].run(0, n, bulk.data());
    if (bulk != traced) {
        std::fprintf(stderr, "shadow_map: rays asked in bulk and one at a time disagree\n");
        return 1;
    }
    size_t agree = 0, shadowed = 0;
    for (size_t i = 0; i < n; ++i) {
        agree += mapped[i] == traced[i];
        shadowed += traced[i] != 0.0f;
    }
    const double agreement = double(agree) / double(n);
    fmt::print("{} surface points ({} x {} grid), {:.1f}% in the {} light's shadow by rays; the "
               "map with filter 0 agrees on {:.2f}%\n",
               n, width, height, 100.0 * double(shadowed) / double(n), kind, 100.0 * agreement);
    if (agreement < 0.97) {
        std::fprintf(stderr, "shadow_map: the map and the rays disagree\n");
        return 1;
    }

    std::vector<float> out(n);
    const uint64_t decompressedBefore = TshadowMapInfo::tilesDecompressed();
    for (int pass = 0; pass < passes; ++pass)
        for (Way& w : ways) {
            const auto start = Clock::now();
            w.run(0, n, out.data());
            w.times.push_back(seconds(start));
        }
    const double decompressions = double(TshadowMapInfo::tilesDecompressed() - decompressedBefore);
    const double occludedNs = median(ways[4].times) * 1e9 / double(n);
    fmt::print("\none thread, ns a point (median of {} passes):\n", passes);
    fmt::print("| way | ns / point | million points / s | / occluded |\n|---|---:|---:|---:|\n");
    for (const Way& w : ways) {
        const double ns = median(w.times) * 1e9 / double(n);
        fmt::print("| {} | {:.1f} | {:.2f} | {:.2f} |\n", w.name, ns, 1e3 / ns, ns / occludedNs);
    }

    fmt::print("\ntiles decompressed: {:.2f} a thousand lookups (the thread keeps {} copies)\n",
               1000.0 * decompressions / (3.0 * double(passes) * double(n)), 32);

    // Two threads, each half of the points.
    fmt::print(
        "\ntwo threads, million points / s:\n| way | 2 threads | / 1 thread |\n|---|---:|---:|\n");
    for (Way& w : ways) {
        // Each thread goes over its half often enough to run for a tenth of
        // a second: starting a thread, on a busy machine, takes a while.
        const int rounds = std::max(1, int(std::ceil(0.1 / median(w.times))));
        auto half = [&](size_t begin, size_t end) {
            for (int r = 0; r < rounds; ++r)
                w.run(begin, end, out.data());
        };
        std::vector<double> times;
        for (int pass = 0; pass < std::max(3, passes / 3); ++pass) {
            const auto start = Clock::now();
            std::thread other([&] { half(n / 2, n); });
            half(0, n / 2);
            other.join();
            times.push_back(seconds(start) / rounds);
        }
        TshadowMapInfo::releaseFLC();
        const double rate = double(n) / median(times) / 1e6;
        fmt::print("| {} | {:.2f} | {:.2f} |\n", w.name, rate,
                   rate / (double(n) / median(w.times) / 1e6));
    }

    const uint64_t texels =
        uint64_t(sun->depthMapResolution()) * sun->depthMapResolution() * uint64_t(map->mapCount());
    fmt::print("\nthe depth pass (one thread): {:.1f} ms for {} texels, first and second "
               "surfaces; the cost of {:.0f} occlusion rays\n",
               passSeconds * 1e3, texels, passSeconds * 1e9 / occludedNs);
    return 0;
}
