#include "lights/light_list.h"

#include <algorithm>
#include <cmath>

#include "framework/render_info.h"

ORVO_REGISTER_NODE(TdnLightList)
ORVO_DEPENDENCIES(TdnLightList) {}

ORVO_REGISTER_NODE(TdnDefaultLightList)
ORVO_DEPENDENCIES(TdnDefaultLightList) {
    affectsAll(m, LightDataArray, LightData);
}

// ---------------------------------------------------------------- light list

std::vector<TdependNode*> TdnLightList::lights() const {
    std::vector<TdependNode*> out;
    for (const auto& [index, light] : fLights)
        out.push_back(light);
    return out;
}

unsigned TdnLightList::nextFreeIndex() const {
    return fLights.empty() ? 0u : fLights.rbegin()->first + 1;
}

void TdnLightList::connectionMade(const Tplug& mine, const Tplug& other, bool asSource) {
    TdnPattern::connectionMade(mine, other, asSource);
    if (!asSource && mine.attribute() == &aLights)
        fLights[mine.logicalIndex()] = other.node();
}

void TdnLightList::connectionBroken(const Tplug& mine, const Tplug& other, bool asSource) {
    TdnPattern::connectionBroken(mine, other, asSource);
    if (!asSource && mine.attribute() == &aLights)
        fLights.erase(mine.logicalIndex());
}

// ---------------------------------------------------------------- default light list

TattributeLightDataOut::TattributeLightDataOut(Tstring longName, Tstring shortName)
    : TattributeLightData(std::move(longName), std::move(shortName),
                          ChildNames{"lightDirectionOut", "ldo", "lightIntensityOut", "lw",
                                     "lightAmbientOut", "lya", "lightDiffuseOut", "lyf",
                                     "lightSpecularOut", "lys", "lightShadowFractionOut", "sfo",
                                     "preShadowIntensityOut", "psio", "lightBlindDataOut",
                                     "lbdo"}) {}

namespace {
// Sums records one at a time, so that a sample's array is read once and
// nothing is held but the sums.
class RecordSum {
public:
    void add(const TlightData& r) {
        const float luminance = OrvoLuminance(r.intensity[0], r.intensity[1], r.intensity[2]);
        for (int c = 0; c < 3; ++c) {
            fOut.intensity[c] += r.intensity[c];
            fDirection[c] += luminance * r.direction[c];
        }
        fOut.ambient = fOut.ambient || r.ambient;
        fOut.diffuse = fOut.diffuse || r.diffuse;
        fOut.specular = fOut.specular || r.specular;
        fOut.preShadowIntensity += r.preShadowIntensity;
        fShadowWeight += r.preShadowIntensity * r.shadowFraction;
        fOut.blindData = fCount == 0 ? r.blindData : nullptr;
        ++fCount;
    }
    TlightData result() const {
        TlightData out = fOut;
        out.direction[0] = 0.0f;
        out.direction[1] = 0.0f;
        out.direction[2] = 1.0f;
        const float length =
            std::sqrt(fDirection[0] * fDirection[0] + fDirection[1] * fDirection[1] +
                      fDirection[2] * fDirection[2]);
        if (length > 1e-6f)
            for (int c = 0; c < 3; ++c)
                out.direction[c] = fDirection[c] / length;
        out.shadowFraction =
            fOut.preShadowIntensity > 0.0f ? fShadowWeight / fOut.preShadowIntensity : 0.0f;
        return out;
    }

private:
    TlightData fOut{};
    float fDirection[3] = {0.0f, 0.0f, 0.0f};
    float fShadowWeight = 0.0f;
    unsigned fCount = 0;
};
} // namespace

TlightData TdnDefaultLightList::combine(const TlightData* records, unsigned count) {
    RecordSum sum;
    for (unsigned k = 0; k < count; ++k)
        sum.add(records[k]);
    return sum.result();
}

bool TdnDefaultLightList::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                            unsigned count) {
    if (!computesAttribute(plug.attribute()))
        return TdependNode::computePlug(plug, block);
    const TvectorDataHandle arrays = block.vectorInputValue(aLightDataArray, first, count);
    const TvectorDataHandle output = block.vectorOutputValue(aLightData, first);
    for (unsigned i = 0; i < count; ++i) {
        TmultiHandle elements(arrays[int(i)]);
        RecordSum sum;
        for (unsigned k = 0; k < elements.elementCount(); ++k) {
            elements.jumpToArrayElement(k);
            sum.add(*elements.reference().asLightData());
        }
        *output[int(i)].asLightData() = sum.result();
        output[int(i)].setClean();
    }
    return true;
}

// ---------------------------------------------------------------- lists of paths

TrenderList::~TrenderList() = default;

bool TrenderList::contains(const TdagPath& path) const {
    return std::find(fPaths.begin(), fPaths.end(), path) != fPaths.end();
}

bool TrenderList::addToList(const TdagPath& path) {
    if (!path.isValid() || contains(path))
        return false;
    fPaths.push_back(path);
    return true;
}

bool TrenderList::removeFromList(const TdagPath& path) {
    const auto it = std::find(fPaths.begin(), fPaths.end(), path);
    if (it == fPaths.end())
        return false;
    fPaths.erase(it);
    return true;
}

void TrenderList::addClient(void* client, ModifiedFn modified) {
    removeClient(client);
    fClients.emplace_back(client, modified);
}

void TrenderList::removeClient(const void* client) {
    fClients.erase(std::remove_if(fClients.begin(), fClients.end(),
                                  [client](const auto& c) { return c.first == client; }),
                   fClients.end());
}

void TrenderList::sendModified() {
    const auto clients = fClients;
    for (const auto& [client, modified] : clients)
        modified(*this, client);
}

bool TlightList::addToList(const TdagPath& path) {
    if (!TrenderList::addToList(path))
        return false;
    sendModified();
    return true;
}

bool TlightList::removeFromList(const TdagPath& path) {
    if (!TrenderList::removeFromList(path))
        return false;
    sendModified();
    return true;
}

void TlightList::getDefaultList(const TdependGraph& graph, TdagPathArray& out) {
    out.clear();
    const TrenderInfo* info = TrenderInfo::find(graph);
    const TobjectSet* defaults = info ? info->defaultLightSet() : nullptr;
    if (!defaults)
        return;
    for (TdependNode* node : graph.nodes()) {
        TdagObject* dag = TdagObject::fromNode(node);
        if (!dag || !TrenderInfo::isSceneLight(node))
            continue;
        const TdagPath first = dag->firstPath();
        if (defaults->isMember(first))
            out.push_back(first);
    }
}
