// The reference renderer on one thread beside two, on the built-in default
// scene at 640x360: the ratio of their frame times, a check that both made
// the same picture, and the process's resident memory over ten frames,
// which must stay flat (everything a frame makes goes with it).
//
//   scripts/bench render_threads [-- --spp N --res W H --frames N]

#include <fmt/format.h>

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "host/graph.h"
#include "host/messages.h"
#include "host/qsl/interpreter.h"
#include "render/default_scene.h"
#include "render/renderer.h"

namespace {

double residentMegabytes() {
    std::ifstream statm("/proc/self/statm");
    long pages = 0, resident = 0;
    statm >> pages >> resident;
    return double(resident) * double(::sysconf(_SC_PAGESIZE)) / (1024.0 * 1024.0);
}

struct Run {
    double seconds = 1e30;
    TrenderedImage image;
    uint64_t samples = 0;
};

// The best of `repeats` frames: the least disturbed by the rest of the
// machine.
Run render(TdependGraph& graph, TrenderOptions options, unsigned threads, int repeats) {
    options.threads = threads;
    Trenderer renderer(options);
    Run best;
    for (int i = 0; i < repeats; ++i) {
        TrenderedImage image;
        TframeStats stats;
        renderer.renderFrame(graph, OrvoDefaultSceneName(), 16, image, stats);
        if (stats.seconds < best.seconds) {
            best.seconds = stats.seconds;
            best.image = std::move(image);
            best.samples = stats.samplesShaded;
        }
    }
    return best;
}

} // namespace

int main(int argc, char** argv) {
    TrenderOptions options;
    int frames = 10;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--spp") && i + 1 < argc)
            options.samplesPerPixel = unsigned(std::atoi(argv[++i]));
        else if (!std::strcmp(argv[i], "--res") && i + 2 < argc) {
            options.width = unsigned(std::atoi(argv[++i]));
            options.height = unsigned(std::atoi(argv[++i]));
        } else if (!std::strcmp(argv[i], "--frames") && i + 1 < argc)
            frames = std::atoi(argv[++i]);
    }
    TdependGraph graph;
    TdependGraph::fsCurrentGraph = &graph;
    qsl::Interpreter(graph).runText(OrvoDefaultSceneText(), OrvoDefaultSceneName());
    TcommandEngine::setSink([](TcommandEngine::Severity, const std::string&) {});

    fmt::print("default scene, {}x{}, {} samples a pixel\n", options.width, options.height,
               options.samplesPerPixel);
    const Run one = render(graph, options, 1, 3);
    const Run two = render(graph, options, 2, 3);
    float worst = 0.0f;
    for (size_t k = 0; k < one.image.pixels.size(); ++k)
        worst = std::max(worst, std::fabs(one.image.pixels[k] - two.image.pixels[k]));
    const bool same = one.image.pixels.size() == two.image.pixels.size() && worst < 1e-4f &&
                      one.samples == two.samples;
    fmt::print("1 thread:  {:.3f} s  ({:.0f} samples/s)\n", one.seconds,
               double(one.samples) / one.seconds);
    fmt::print("2 threads: {:.3f} s  ({:.0f} samples/s)\n", two.seconds,
               double(two.samples) / two.seconds);
    fmt::print("speed-up of 2 threads over 1: {:.2f}x (wanted: at least 1.7x)\n",
               one.seconds / two.seconds);
    fmt::print("pictures {} (largest difference {:.2g})\n", same ? "agree" : "DIFFER", worst);

    // Memory over frames: after the first frame, the resident size should
    // not climb.
    std::vector<double> resident;
    options.threads = 2;
    Trenderer renderer(options);
    for (int f = 0; f < frames; ++f) {
        graph.setTime(f + 1);
        TrenderedImage image;
        TframeStats stats;
        renderer.renderFrame(graph, OrvoDefaultSceneName(), uint32_t(f), image, stats);
        resident.push_back(residentMegabytes());
    }
    fmt::print("resident memory after each of {} frames (MB):", frames);
    for (double mb : resident)
        fmt::print(" {:.1f}", mb);
    const double growth = resident.size() > 1 ? resident.back() - resident[1] : 0.0;
    fmt::print("\ngrowth from frame 2 to frame {}: {:+.1f} MB\n", frames, growth);
    return same ? 0 : 1;
}
