#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cstdio>
#include <memory>

#include "apps/orvo/cli.h"
#include "apps/orvo/render_options.h"
#include "apps/orvo/scene.h"
#include "host/graph.h"
#include "render/render_error.h"
#include "render/render_job.h"

namespace orvo::cli {

namespace {

struct NamesOptions {
    std::string scene;
    std::string output = ".";
    std::vector<double> frames;
    std::string format;
    bool json = false;
};

int runNames(const NamesOptions& options) {
    TrenderOverrides overrides;
    parseFramesAndFormat(options.frames, options.format, overrides, "names");
    auto graph = loadScene(options.scene);
    std::unique_ptr<TrenderJob> job;
    try {
        // The plan `orvo render` follows: the same names by the same code.
        job = std::make_unique<TrenderJob>(*graph, options.scene, options.output, overrides);
    } catch (const TrenderError& e) {
        throw UserError(e.what());
    }
    std::string out;
    for (const TrenderJob::Image* image : job->imagesToWrite()) {
        if (!options.json) {
            out += image->path + "\n";
            continue;
        }
        const std::string& layer = job->layers()[image->layer].name;
        out +=
            fmt::format(R"({{"path": {}, "camera": {}, "frame": {}, "layer": {}, "pass": {}}})",
                        jsonString(image->path), jsonString(image->cameraName), image->frame,
                        layer.empty() ? "null" : jsonString(layer), jsonString(image->passName)) +
            "\n";
    }
    std::fputs(out.c_str(), stdout);
    return kExitSuccess;
}

} // namespace

void addNamesCommand(CLI::App& app, CommandRun& run) {
    auto options = std::make_shared<NamesOptions>();
    CLI::App* sub = app.add_subcommand(
        "names", "Print the path of every image 'orvo render SCENE -o DIR' would write, in the "
                 "order it writes them");
    sub->add_option("scene", options->scene, "Scene file (.qsl)")->required();
    sub->add_option("-o,--output", options->output, "Folder of the images (default: .)");
    addFramesAndFormatOptions(*sub, options->frames, options->format);
    sub->add_flag("--json", options->json,
                  "One JSON object a line: path, camera, frame, layer (null without layers) "
                  "and pass");
    sub->callback([&run, options] {
        run = [options] {
            return runNames(*options);
        };
    });
}

} // namespace orvo::cli
