#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>

#include "apps/orvo/cli.h"
#include "apps/orvo/scene.h"
#include "host/graph.h"

namespace orvo::cli {

namespace {

struct NodesOptions {
    std::string type;
    bool json = false;
};

struct AttributeRow {
    const Tattribute* attribute;
    std::string className;
    std::vector<std::string> defaults;
};

std::vector<AttributeRow> describe(TdependNodeClass& nodeClass) {
    TdependNodeVS* vs = nodeClass.vsData();
    vs->initializeClass();
    std::vector<AttributeRow> rows;
    for (const Tattribute* a : vs->attributes()) {
        AttributeRow row{a, a->className(), {}};
        if (a->isArray())
            row.className += "[]";
        if (a->wordCount() != 0) {
            std::vector<std::max_align_t> scratch(a->dataSize() / sizeof(std::max_align_t) + 2);
            a->constructValue(scratch.data());
            a->formatValue(scratch.data(), row.defaults);
            a->destroyValue(scratch.data());
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

std::string baseName(const TdependNodeClass& nodeClass) {
    const Tmetaclass* meta = nodeClass.metaclass();
    return meta && meta->parent(0) ? meta->parent(0)->typeName() : "";
}

std::string tagText(const TdependNodeClass& nodeClass) {
    const TiffTag* tag = nodeClass.iffTag();
    return tag ? tag->text() : "";
}

std::string join(const std::vector<std::string>& words) {
    std::string out;
    for (const std::string& w : words)
        out += (out.empty() ? "" : " ") + w;
    return out;
}

std::string jsonType(TdependNodeClass& nodeClass) {
    std::string out =
        fmt::format("{{\"type\": {}, \"iffTag\": {}, \"apiType\": {}, \"apiTypeString\": {}, "
                    "\"classification\": {}, \"base\": {}, \"attributes\": [",
                    jsonString(nodeClass.typeName()), jsonString(tagText(nodeClass)),
                    nodeClass.apiType, jsonString(nodeClass.apiTypeString),
                    jsonString(nodeClass.classification), jsonString(baseName(nodeClass)));
    bool first = true;
    for (const AttributeRow& row : describe(nodeClass)) {
        const Tattribute& a = *row.attribute;
        std::string defaults = "[";
        for (size_t i = 0; i < row.defaults.size(); ++i)
            defaults += (i ? ", " : "") + jsonValue(row.defaults[i]);
        defaults += "]";
        out += fmt::format("{}{{\"long\": {}, \"short\": {}, \"class\": {}, \"parent\": {}, "
                           "\"default\": {}, \"flags\": \"0x{:x}\"}}",
                           first ? "" : ", ", jsonString(a.longName()), jsonString(a.shortName()),
                           jsonString(row.className),
                           a.parent() ? jsonString(a.parent()->longName()) : "null", defaults,
                           a.flags());
        first = false;
    }
    out += "]}";
    return out;
}

int runNodes(const NodesOptions& options) {
    std::vector<TdependNodeClass*> types = TdependGraph::nodeTypes();
    if (!options.type.empty()) {
        TdependNodeClass* one = TdependGraph::findNodeType(options.type);
        if (!one)
            throw UserError(fmt::format("orvo nodes: unknown node type '{}'", options.type));
        types = {one};
    }
    if (options.json) {
        std::string out = "[";
        for (size_t i = 0; i < types.size(); ++i)
            out += (i ? ",\n " : "") + jsonType(*types[i]);
        out += "]\n";
        fmt::print("{}", out);
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
