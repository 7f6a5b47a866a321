#include "viewport/material_info_factory.h"

#include "framework/nodes/utility/render_utilities.h"
#include "host/classification.h"
#include "host/dependnode.h"
#include "viewport/material_info.h"

namespace {

struct Tables {
    std::map<Tstring, TmaterialInfoFunctions> generators;
    std::map<Tstring, Tstring> byClassification;
};

Tables& tables() {
    static Tables t;
    return t;
}

TportColor withAlpha(const T3Float& c, float a) {
    return {c.x, c.y, c.z, a};
}

} // namespace

bool TmaterialInfoFactory::attributeChangeMatters(const Tplug&) const {
    return true;
}

// ---------------------------------------------------------------- outside renderers' materials

TmaterialExtFactory::TmaterialExtFactory(TdependNode* material) : TmaterialInfoFactory(material) {
    if (material &&
        !TclassificationMgr::isClassified(material->typeName(), "rendernode/external/material"))
        fFlags = 1;
}

bool TmaterialExtFactory::computeMaterial(TmaterialInputData& data) {
    data.ambient = {0, 0, 0, 1};
    data.diffuse = TmaterialInfo::kDarkGreen;
    data.emission = {0, 0, 0, 1};
    data.specular = {0, 0, 0, 1};
    data.transparent = false;
    data.shininess = 1.0f;
    if (!fMaterial)
        return false;
    const TdependNode* n = fMaterial;
    const TportColor& g = TmaterialInfo::kDarkGreen;
    T3Float diffuse{g.r, g.g, g.b}, ambient{0, 0, 0}, ambience{1, 1, 1}, incandescence{0, 0, 0},
        specular{0, 0, 0};
    float transp = 0.0f, shiny = 1.0f;
    TrenderUtilities::getUnconnectedValue(n, "diffuse", diffuse);
    TrenderUtilities::getUnconnectedValue(n, "ambient", ambient);
    TrenderUtilities::getUnconnectedValue(n, "ambience", ambience);
    TrenderUtilities::getUnconnectedValue(n, "transp", transp);
    TrenderUtilities::getUnconnectedValue(n, "incandescence", incandescence);
    TrenderUtilities::getUnconnectedValue(n, "specular", specular);
    if (!TrenderUtilities::getUnconnectedValue(n, "shiny", shiny))
        TrenderUtilities::getUnconnectedValue(n, "exponent", shiny);
    const float alpha = 1.0f - transp;
    data.ambient =
        withAlpha({ambient.x * ambience.x, ambient.y * ambience.y, ambient.z * ambience.z}, alpha);
    data.diffuse = withAlpha(diffuse, alpha);
    data.transparent = alpha < 1.0f;
    data.emission = withAlpha(incandescence, 1.0f);
    data.specular = withAlpha(specular, 1.0f);
    data.shininess = shiny;
    return true;
}

bool TmaterialExtFactory::connectAsTexture(const Tplug& plug) {
    return plug.node() == fMaterial;
}

bool TmaterialExtFactory::textureDisconnected(const Tplug& plug) {
    return plug.node() == fMaterial;
}

// ---------------------------------------------------------------- the manager

bool TmaterialInfoMgr::registerMaterialInfoGen(const Tstring& name,
                                               const TmaterialInfoFunctions& gen) {
    return tables().generators.emplace(name, gen).second;
}

bool TmaterialInfoMgr::unregisterMaterialInfoGen(const Tstring& name) {
    return tables().generators.erase(name) > 0;
}

void TmaterialInfoMgr::registerNodeMaterialInfo(const Tstring& classification,
                                                const Tstring& name) {
    tables().byClassification[classification] = name;
}

const TmaterialInfoFunctions* TmaterialInfoMgr::getObjectCreator(const TdependNode* node) {
    if (!node)
        return nullptr;
    const Tstring typeName = node->typeName();
    const Tstring classification = TclassificationMgr::classification(typeName);
    if (classification.empty())
        return nullptr;
    const Tables& t = tables();
    // The node's own classification string first; otherwise a registered
    // classification the node's type lies under.
    auto named = t.byClassification.find(classification);
    if (named == t.byClassification.end())
        for (auto it = t.byClassification.begin(); it != t.byClassification.end(); ++it)
            if (TclassificationMgr::isClassified(typeName, it->first)) {
                named = it;
                break;
            }
    if (named == t.byClassification.end())
        return nullptr;
    const auto gen = t.generators.find(named->second);
    return gen == t.generators.end() || !gen->second.create ? nullptr : &gen->second;
}

std::unique_ptr<TmaterialInfoFactory> TmaterialInfoMgr::createMatInfoFactory(TdependNode* node) {
    const TmaterialInfoFunctions* gen = getObjectCreator(node);
    return gen ? std::unique_ptr<TmaterialInfoFactory>(gen->create(node)) : nullptr;
}
