#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>

#include "apps/orvo/cli.h"
#include "apps/orvo/node_types.h"
#include "apps/orvo/scene.h"
#include "host/graph.h"

namespace orvo::cli {

namespace {

struct NodesOptions {
    std::string type;
    bool json = false;
};

int runNodes(const NodesOptions& options) {
    std::vector<TdependNodeClass*> types = TdependGraph::nodeTypes();
    if (!options.type.empty()) {
        TdependNodeClass* one = TdependGraph::findNodeType(options.type);
        if (!one)
            throw UserError(fmt::format("orvo nodes: unknown node type '{}'", options.type));
        types = {one};
    }
    if (options.json) {
        fmt::print("{}\n", nodeTypesJson(types));
        return kExitSuccess;
    }
    if (options.type.empty()) {
        for (TdependNodeClass* c : types)
            fmt::print("{:<24} {:<4} {:>4} {:<24} {:<20} {}\n", c->typeName(), tagText(*c),
                       c->apiType, c->apiTypeString, baseName(*c), c->classification);
        return kExitSuccess;
    }
    TdependNodeClass& c = *types.front();
    fmt::print("{}\n  iff tag: {}\n  api type: {} {}\n  base: {}\n  classification: {}\n",
               c.typeName(), tagText(c), c.apiType, c.apiTypeString, baseName(c), c.classification);
    fmt::print("  attributes:\n");
    for (const AttributeRow& row : describe(c)) {
        const Tattribute& a = *row.attribute;
        int depth = 0;
        for (const Tattribute* p = a.parent(); p; p = p->parent())
            ++depth;
        const std::string name = std::string(size_t(depth) * 2, ' ') + a.longName();
        fmt::print("    {:<28} {:<6} {:<26} {:<24} 0x{:x}\n", name, a.shortName(), row.className,
                   row.defaults.empty() ? "-" : join(row.defaults), a.flags());
    }
    return kExitSuccess;
}

} // namespace

void addNodesCommand(CLI::App& app, CommandRun& run) {
    auto options = std::make_shared<NodesOptions>();
    CLI::App* sub =
        app.add_subcommand("nodes", "List the registered node types and their attributes");
    sub->add_option("type", options->type, "One node type to describe in full");
    sub->add_flag("--json", options->json, "Print JSON: every type with all its attributes");
    sub->callback([&run, options] {
        run = [options] {
            return runNodes(*options);
        };
    });
}

} // namespace orvo::cli
