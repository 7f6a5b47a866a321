#include "colour/render_utilities.h"

#include "host/colour/catalog.h"
#include "host/graph.h"
#include "host/plug.h"
#include "settings/settings_values.h"
#include "textures/file_texture.h"

namespace {

template <class F>
void walk(const TdependGraph& graph, std::vector<Tstring>& names, F&& wanted) {
    std::vector<Tstring> found;
    for (TdependNode* node : graph.nodes()) {
        auto* file = static_cast<TdnFileTexture*>(node->cast(TdnFileTexture::sTypeof()));
        if (!file)
            continue;
        const Tplug plug(file, &TdnFileTexture::aColorManagementEnabled);
        TplugArray out;
        graph.destinationsOf(plug, out);
        if (plug.source().isNull() && out.empty())
            continue;
        if (wanted(*file))
            found.push_back(file->name());
    }
    names.insert(names.begin(), found.begin(), found.end());
}

} // namespace

void TcolorMgtRenderUtilities::GetColorManagedNodeNames(const TdependGraph& graph,
                                                        std::vector<Tstring>& names) {
    walk(graph, names, [](TdnFileTexture&) { return true; });
}

void TcolorMgtRenderUtilities::GetMissingColorSpaceNodeNames(const TdependGraph& graph,
                                                             std::vector<Tstring>& names) {
    walk(graph, names, [](TdnFileTexture& file) {
        const Tstring space = orvo::settings::text(file, TdnFileTexture::aColorSpace);
        return !TcolorMgtCatalog::instance().hasColorSpace(space);
    });
}
