#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cstdio>
#include <string>
#include <vector>

#include "apps/orvo/cli.h"
#include "render/renderer.h"
#include "settings/renderer_registry.h"

namespace orvo::cli {

namespace {

// One line a registered renderer: its name, the name a user sees, and
// whether `orvo render` can run it.
int runRenderers() {
    std::vector<std::string> names;
    TrendererRegistry::getNamesOfAvailableRenderers(names);
    std::string out;
    for (const std::string& name : names) {
        const TrendererInterface* r = TrendererRegistry::renderer(name);
        out += fmt::format("{}\t{}\t{}\n", name, r->rendererUIName(),
                           r->batchRenders() ? "batch" : "interactive");
    }
    std::fputs(out.c_str(), stdout);
    return 0;
}

} // namespace

void addRenderersCommand(CLI::App& app, CommandRun& run) {
    CLI::App* sub = app.add_subcommand(
        "renderers",
        "List the registered renderers: name, label, and whether they render in batch");
    sub->callback([&run] {
        run = [] {
            return runRenderers();
        };
    });
}

} // namespace orvo::cli
