#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <iostream>
#include <sstream>

#include "apps/orvo/cli.h"
#include "apps/orvo/colour_report.h"
#include "apps/orvo/scene.h"
#include "apps/orvo/shade_grid.h"
#include "host/graph.h"
#include "shading/shading_engine.h"

namespace orvo::cli {

namespace {

struct CompileOptions {
    std::string scene;
    std::string group;
    unsigned option = 0;
    bool dumps = false;
};

int runCompile(const CompileOptions& options) {
    auto graph = loadScene(options.scene);
    TDNshadingEngine* engine =
        &findShadingGroup(*graph, options.group, options.scene, "orvo compile");
    engine->analyse(options.option, nullptr);
    std::ostringstream report;
    engine->compileReport(report, options.option, options.dumps);
    std::cout << report.str() << colourReport(*graph);
    TrenderThreadBase::deleteAllOpuses();
    return kExitSuccess;
}

} // namespace

void addCompileCommand(CLI::App& app, CommandRun& run) {
    auto options = std::make_shared<CompileOptions>();
    CLI::App* sub = app.add_subcommand("compile", "Print the compile report of a shading group");
    sub->add_option("scene", options->scene, "Scene file (.qsl)")->required();
    sub->add_option("-g,--group", options->group, "The shading group (a shadingEngine node)")
        ->required();
    sub->add_option("--option", options->option, "What to compile for, 0 to 11 (0: surface)")
        ->check(CLI::Range(0u, kTSEoptionCount - 1));
    sub->add_flag("--dumps", options->dumps, "Also print the data block tables of every node");
    sub->callback([&run, options] {
        run = [options] {
            return runCompile(*options);
        };
    });
}

} // namespace orvo::cli
