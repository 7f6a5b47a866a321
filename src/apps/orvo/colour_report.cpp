#include "apps/orvo/colour_report.h"

#include <fmt/format.h>

#include "colour/colour_choice.h"
#include "host/colour/catalog.h"
#include "host/graph.h"
#include "textures/file_texture.h"

namespace orvo::cli {

std::string colourReport(TdependGraph& graph) {
    const TcolourRenderSettings s = OrvoColourRenderSettings(&graph);
    TcolorMgtCatalog& catalog = TcolorMgtCatalog::instance();
    std::string out = fmt::format(
        "\nColour\n  configuration {}{}\n  rendering space {}\n  output {} {}{}\n",
        catalog.configPath(), catalog.usesBuiltin() ? " (built-in)" : "", s.workingSpace,
        s.outputUseColorConversion ? "colour space" : "view", s.outputTransform,
        s.enabled ? "" : " (colour management off: native defaults)");
    for (TdependNode* node : graph.nodes()) {
        auto* file = static_cast<TdnFileTexture*>(node->cast(TdnFileTexture::sTypeof()));
        if (!file)
            continue;
        const std::vector<TcolourInputChoice> choices = file->colourProvenance();
        if (choices.empty())
            out += fmt::format("  {}: no file loaded\n", file->name());
        for (const TcolourInputChoice& c : choices)
            out += fmt::format("  {}: {}: {} (rule {}){}\n", file->name(), c.file, c.colorSpace,
                               c.rule, c.problem.empty() ? "" : ", read raw: " + c.problem);
    }
    return out;
}

} // namespace orvo::cli
