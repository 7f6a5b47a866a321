// The render time of examples/lights.qsl with ray-traced shadows against
// depth map shadows: the spot, the area and the point light cast one kind
// or the other (the volume light casts none). Frames alternate between the
// two ways; the median of the passes is reported, with the depth pass's
// share of a frame (its rays) and the rays the frame traced.
//
//   scripts/bench lights_render [-- --passes N --res W H --spp S --threads T]

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

#include "host/graph.h"
#include "host/messages.h"
#include "host/qsl/interpreter.h"
#include "render/renderer.h"
#include "render_bench_support.h"

namespace {

const char* const kShadowLights[] = {"spotShape", "panelShape", "bulbShape"};

} // namespace

int main(int argc, char** argv) {
    int passes = 5;
    TrenderOptions options;
    options.width = 320;
    options.height = 180;
    options.samplesPerPixel = 1;
    options.threads = 1;
    benchRenderArgs(argc, argv, passes, options);
    TcommandEngine::setSink([](TcommandEngine::Severity, const std::string&) {});
    const std::string path = std::string(ORVO_EXAMPLES_DIR) + "/lights.qsl";
    const std::string text = benchReadFile(path);
    if (text.empty()) {
        std::fprintf(stderr, "lights_render: cannot read %s\n", path.c_str());
        return 1;
    }
    const std::filesystem::path depth = std::filesystem::temp_directory_path() /
                                        ("orvo-bench-lights-" + std::to_string(::getpid()));
    options.depthMapDirectory = depth.string();

    struct Way {
        const char* name;
        const char* setting;
        std::vector<double> times;
        TframeStats stats;
    };
    Way ways[2] = {{"ray traced", "useRayTraceShadows", {}, {}},
                   {"depth maps", "useDepthMapShadows", {}, {}}};
    for (int pass = 0; pass < passes; ++pass)
        for (Way& w : ways) {
            std::string scene = text;
            for (const char* light : kShadowLights)
                scene += fmt::format("\nset {}.{} true\n", light, w.setting);
            TdependGraph graph;
            TdependGraph::fsCurrentGraph = &graph;
            qsl::Interpreter(graph).runText(scene, "lights.qsl");
            TrenderedImage image;
            TframeStats stats;
            if (!Trenderer(options).renderFrame(graph, "lights.qsl", 0, image, stats)) {
                std::fprintf(stderr, "lights_render: the frame failed\n");
                return 1;
            }
            w.times.push_back(stats.seconds);
            w.stats = stats;
        }
    std::filesystem::remove_all(depth);
    fmt::print("examples/lights.qsl at {} x {}, {} sample(s) a pixel, {} thread(s); median of {} "
               "frames\n\n| shadows | seconds | rays traced | depth maps | depth pass rays |\n"
               "|---|---:|---:|---:|---:|\n",
               options.width, options.height, options.samplesPerPixel, options.threads, passes);
    for (const Way& w : ways)
        fmt::print("| {} | {:.3f} | {} | {} | {} |\n", w.name, benchMedian(w.times),
                   w.stats.raysTraced, w.stats.depthMapsRendered, w.stats.depthMapRays);
    return 0;
}
