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

namespace {

const char* const kShadowLights[] = {"spotShape", "panelShape", "bulbShape"};

std::string readFile(const std::string& path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

} // namespace

int main(int argc, char** argv) {
    int passes = 5;
    TrenderOptions options;
    options.width = 320;
    options.height = 180;
    options.samplesPerPixel = 1;
    options.threads = 1;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--passes" && i + 1 < argc)
            passes = std::max(1, std::atoi(argv[++i]));
        else if (a == "--res" && i + 2 < argc) {
            options.width = unsigned(std::atoi(argv[++i]));
            options.height = unsigned(std::atoi(argv[++i]));
        } else if (a == "--spp" && i + 1 < argc)
            options.samplesPerPixel = unsigned(std::atoi(argv[++i]));
        else if (a == "--threads" && i + 1 < argc)
            options.threads = unsigned(std::atoi(argv[++i]));
    }
    TcommandEngine::setSink([](TcommandEngine::Severity, const std::string&) {});
    const std::string path = std::string(ORVO_EXAMPLES_DIR) + "/lights.qsl";
    const std::string text = readFile(path);
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
        fmt::print("| {} | {:.3f} | {} | {} | {} |\n", w.name, median(w.times), w.stats.raysTraced,
                   w.stats.depthMapsRendered, w.stats.depthMapRays);
    return 0;
}
