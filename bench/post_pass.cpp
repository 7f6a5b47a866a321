// The post effects on a full-HD frame of examples/glow.qsl: the frame
// rendered bare (post effects off), with shader glow alone, with glow and
// the lamp's optical effects, and with depth of field as well. For each,
// the median over the passes of the frame's time and of the post pass's
// time (the effects after the frame), with the post pass's share of the
// frame. The bare frame against the glow frame's render part (frame minus
// post) is what gathering glow while shading costs.
//
//   scripts/bench post_pass [-- --passes N --res W H --spp S --threads T]

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "host/graph.h"
#include "host/messages.h"
#include "host/qsl/interpreter.h"
#include "render/renderer.h"
#include "render_bench_support.h"

int main(int argc, char** argv) {
    int passes = 3;
    TrenderOptions options;
    options.width = 1920;
    options.height = 1080;
    options.samplesPerPixel = 1;
    options.threads = 2;
    benchRenderArgs(argc, argv, passes, options);
    TcommandEngine::setSink([](TcommandEngine::Severity, const std::string&) {});
    const std::string path = std::string(ORVO_EXAMPLES_DIR) + "/glow.qsl";
    const std::string scene = benchReadFile(path);
    if (scene.empty()) {
        std::fprintf(stderr, "post_pass: cannot read %s\n", path.c_str());
        return 1;
    }
    struct Way {
        const char* name;
        const char* edits;
        bool post;
        std::vector<double> frame, postTimes;
    };
    std::vector<Way> ways = {
        {"bare (--no-post)", "", false, {}, {}},
        {"shader glow",
         "set lampFX.active false\nset cameraShape1.depthOfField false\n",
         true,
         {},
         {}},
        {"glow + optical FX", "set cameraShape1.depthOfField false\n", true, {}, {}},
        {"glow + optical FX + DOF", "", true, {}, {}},
    };
    for (int pass = 0; pass < passes; ++pass)
        for (Way& way : ways) {
            TdependGraph graph;
            TdependGraph::fsCurrentGraph = &graph;
            qsl::Interpreter(graph).runText(scene + way.edits, "glow.qsl");
            TrenderOptions o = options;
            o.postEffects = way.post;
            TrenderedImage image;
            TframeStats stats;
            if (!Trenderer(o).renderFrame(graph, "glow.qsl", 0, image, stats))
                return 1;
            way.frame.push_back(stats.seconds);
            way.postTimes.push_back(stats.postSeconds);
        }
    fmt::print("examples/glow.qsl at {} x {}, {} spp, {} threads, median of {} passes\n",
               options.width, options.height, options.samplesPerPixel, options.threads, passes);
    fmt::print("{:<26} {:>10} {:>10} {:>10} {:>8}\n", "way", "frame ms", "render ms", "post ms",
               "share");
    for (const Way& way : ways) {
        const double frame = benchMedian(way.frame) * 1e3, post = benchMedian(way.postTimes) * 1e3;
        fmt::print("{:<26} {:>10.1f} {:>10.1f} {:>10.1f} {:>7.1f}%\n", way.name, frame,
                   frame - post, post, frame > 0 ? 100.0 * post / frame : 0.0);
    }
    return 0;
}
