#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "apps/orvo/cli.h"
#include "apps/orvo/scene.h"
#include "host/graph.h"

namespace orvo::cli {

namespace {

struct EvalOptions {
    std::string scene;
    std::vector<std::string> plugs;
    bool json = false;
};

int runEval(const EvalOptions& options) {
    auto graph = loadScene(options.scene);
    // Resolve every plug before printing anything: a typo gives one error and
    // no partial output.
    std::vector<Tplug> plugs;
    for (const std::string& text : options.plugs) {
        try {
            plugs.push_back(graph->findPlug(text));
        } catch (const TgraphError& e) {
            throw UserError(fmt::format("orvo eval: {}: {}", options.scene, e.what()));
        }
    }
    std::vector<std::vector<std::string>> values;
    for (const Tplug& plug : plugs)
        values.push_back(graph->evaluateToWords(plug));

    if (options.json) {
        std::string out = "{";
        for (size_t i = 0; i < plugs.size(); ++i) {
            out += fmt::format("{}{}: ", i ? ", " : "", jsonString(options.plugs[i]));
            const auto& words = values[i];
            if (words.size() == 1) {
                out += jsonValue(words[0]);
            } else {
                out += "[";
                for (size_t w = 0; w < words.size(); ++w)
                    out += (w ? ", " : "") + jsonValue(words[w]);
                out += "]";
            }
        }
        out += "}\n";
        fmt::print("{}", out);
        return kExitSuccess;
    }
    for (size_t i = 0; i < plugs.size(); ++i) {
        std::string line = options.plugs[i] + " =";
        for (const std::string& w : values[i])
            line += " " + w;
        fmt::print("{}\n", line);
    }
    return kExitSuccess;
}

} // namespace

void addEvalCommand(CLI::App& app, CommandRun& run) {
    auto options = std::make_shared<EvalOptions>();
    CLI::App* sub = app.add_subcommand("eval", "Evaluate plugs of a scene and print their values");
    sub->add_option("scene", options->scene, "Scene file (.qsl)")->required();
    sub->add_option("plugs", options->plugs, "Plugs to evaluate, as node.attribute")->required();
    sub->add_flag("--json", options->json, "Print one JSON object of plug to value");
    sub->callback([&run, options] {
        run = [options] {
            return runEval(*options);
        };
    });
}

} // namespace orvo::cli
