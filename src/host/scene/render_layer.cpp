#include "host/scene/render_layer.h"

#include <algorithm>
#include <array>

#include <fmt/format.h>

ORVO_REGISTER_NODE(TdnRenderLayer)
ORVO_DEPENDENCIES(TdnRenderLayer) {}

ORVO_REGISTER_NODE(TdnRenderLayerManager)
ORVO_DEPENDENCIES(TdnRenderLayerManager) {}

// ---------------------------------------------------------------- values

TplugValue::TplugValue(const Tattribute& attribute)
    : fAttribute(&attribute),
      fStorage(std::max<size_t>(attribute.dataSize(), 1) / sizeof(std::max_align_t) + 1) {
    fAttribute->constructValue(address());
}

TplugValue::TplugValue(const TplugValue& other) : TplugValue(*other.fAttribute) {
    fAttribute->copyValue(address(), other.address());
}

TplugValue::~TplugValue() {
    fAttribute->destroyValue(address());
}

double TplugValue::number(int i) const {
    return i < fAttribute->numericCount() ? fAttribute->numericGet(address(), i) : 0.0;
}

std::vector<std::string> TplugValue::words() const {
    std::vector<std::string> out;
    fAttribute->formatValue(address(), out);
    return out;
}

// ---------------------------------------------------------------- layers

namespace {

// The words of an adjustment value: the string split at blanks.
std::vector<std::string> splitWords(const Tdata& data) {
    std::vector<std::string> words;
    const Tstring* text = OrvoStringOf(data);
    if (!text)
        return words;
    std::string word;
    for (char c : *text + ' ') {
        if (c == ' ' || c == '\t' || c == '\n') {
            if (!word.empty())
                words.push_back(std::move(word));
            word.clear();
        } else {
            word.push_back(c);
        }
    }
    return words;
}

// The value words of adjustment element `index`.
std::vector<std::string> adjustmentWords(const TdnRenderLayer& layer, unsigned index) {
    Tplug value(&layer, &TdnRenderLayer::aAdjustmentValue);
    value.setMultiIndex(&TdnRenderLayer::aAdjustments, index);
    TdependGraph* graph = layer.graph();
    if (!graph)
        return {};
    try {
        const TdataHandle h = graph->evaluate(value);
        return h.isNull() ? std::vector<std::string>{} : splitWords(h.as<Tdata>());
    } catch (const TDEbadMultiIndex&) {
        return {}; // the element has a plug but no value yet
    }
}

int readInt(const TdependNode* node, const Tattribute& a) {
    return TdnRenderLayer::readValue(Tplug(node, &a), nullptr).asInt();
}

} // namespace

int TdnRenderLayer::id() const {
    return readInt(this, aIdentification);
}

bool TdnRenderLayer::isRenderable() const {
    return readInt(this, aRenderable) != 0;
}

int TdnRenderLayer::order() const {
    return readInt(this, aDisplayOrder);
}

bool TdnRenderLayer::isDefaultLayer() const {
    return graph() && TdnRenderLayerManager::defaultLayer(*graph()) == this;
}

namespace {
struct PassAttribute {
    int state;
    const char* name;
    const Tattribute& attribute;
};
std::array<PassAttribute, 5> passAttributes() {
    return {{{kRenderPassBeauty, "beauty", TdnRenderLayer::aBeauty},
             {kRenderPassColor, "color", TdnRenderLayer::aColor},
             {kRenderPassShadow, "shadow", TdnRenderLayer::aShadow},
             {kRenderPassDiffuse, "diffuse", TdnRenderLayer::aDiffuse},
             {kRenderPassSpecular, "specular", TdnRenderLayer::aSpecular}}};
}
} // namespace

const char* TdnRenderLayer::passName(int state) {
    for (const PassAttribute& p : passAttributes())
        if (p.state == state)
            return p.name;
    return nullptr;
}

bool TdnRenderLayer::passState(int state) const {
    for (const PassAttribute& p : passAttributes())
        if (p.state == state)
            return readInt(this, p.attribute) != 0;
    return false;
}

std::vector<int> TdnRenderLayer::passesOn() const {
    std::vector<int> out;
    for (const PassAttribute& p : passAttributes())
        if (readInt(this, p.attribute) != 0)
            out.push_back(p.state);
    return out;
}

bool TdnRenderLayer::setPassByName(const std::string& name, bool on, TDGcommand& command) {
    for (const PassAttribute& p : passAttributes())
        if (name == p.name) {
            command.newPlugValue(Tplug(this, &p.attribute), {on ? "true" : "false"});
            return true;
        }
    return false;
}

void TdnRenderLayer::setAllPasses(bool on, TDGcommand& command) {
    for (const PassAttribute& p : passAttributes())
        command.newPlugValue(Tplug(this, &p.attribute), {on ? "true" : "false"});
}

std::vector<TdependNode*> TdnRenderLayer::members() const {
    std::vector<TdependNode*> out;
    for (const auto& [index, node] : fMembers)
        out.push_back(node);
    return out;
}

bool TdnRenderLayer::hasMember(const TdependNode* node) const {
    return std::any_of(fMembers.begin(), fMembers.end(),
                       [&](const auto& entry) { return entry.second == node; });
}

void TdnRenderLayer::addMembers(const std::vector<TdependNode*>& nodes, TDGcommand& command) {
    unsigned next = fMembers.empty() ? 0 : fMembers.rbegin()->first + 1;
    for (TdependNode* node : nodes) {
        if (hasMember(node))
            continue;
        const Tattribute* message = node->findAttribute("message");
        if (!message)
            throw TgraphError(fmt::format("'{}' ({}) has no message attribute and cannot join "
                                          "render layer '{}'",
                                          node->name(), node->typeName(), name()));
        Tplug slot(this, &aMembers);
        slot.setMultiIndex(&aMembers, next++);
        command.newConnectionToMake(Tplug(node, message), slot);
    }
}

void TdnRenderLayer::removeMembers(const std::vector<TdependNode*>& nodes, TdependGraph& graph,
                                   TDGcommand& command) {
    for (TdependNode* node : nodes)
        for (const auto& [index, member] : std::map<unsigned, TdependNode*>(fMembers))
            if (member == node) {
                Tplug slot(this, &aMembers);
                slot.setMultiIndex(&aMembers, index);
                command.newConnectionToBreak(graph.sourceOf(slot), slot);
            }
}

Tplug TdnRenderLayer::adjustmentPlug(const Tplug& plug) const {
    for (const auto& [index, adjusted] : fAdjusted)
        if (adjusted == plug) {
            Tplug value(this, &aAdjustmentValue);
            value.setMultiIndex(&aAdjustments, index);
            return value;
        }
    return {};
}

std::vector<Tplug> TdnRenderLayer::adjustedPlugs() const {
    std::vector<Tplug> out;
    for (const auto& [index, adjusted] : fAdjusted)
        out.push_back(adjusted);
    return out;
}

std::string TdnRenderLayer::checkAdjustments() const {
    for (const auto& [index, adjusted] : fAdjusted) {
        const Tattribute& a = *adjusted.attribute();
        if (a.wordCount() == 0)
            return fmt::format("render layer '{}' adjusts '{}', which holds no value", name(),
                               adjusted.name());
        TplugValue scratch(a);
        const std::string error = a.parseValue(adjustmentWords(*this, index), scratch.address());
        if (!error.empty())
            return fmt::format("render layer '{}': adjustments[{}].value for '{}' ({}): {}", name(),
                               index, adjusted.name(), a.className(), error);
    }
    return {};
}

TplugValue TdnRenderLayer::readValue(const Tplug& plug, const TdnRenderLayer* layer) {
    TplugValue value(*plug.attribute());
    if (layer)
        for (const auto& [index, adjusted] : layer->fAdjusted)
            if (adjusted == plug) {
                // A value that does not parse was refused when the scene was
                // read; one that slipped in since reads plainly.
                if (plug.attribute()
                        ->parseValue(adjustmentWords(*layer, index), value.address())
                        .empty())
                    return value;
                break;
            }
    TdependGraph* graph = plug.node() ? plug.node()->graph() : nullptr;
    if (!graph)
        return value;
    try {
        const TdataHandle h = graph->evaluate(plug);
        if (!h.isNull())
            plug.attribute()->copyValue(value.address(), h.address());
    } catch (const TDEbadMultiIndex&) {
        // An element that was never made reads as the default.
    }
    return value;
}

void TdnRenderLayer::connectionMade(const Tplug& mine, const Tplug& other, bool asSource) {
    TdnPattern::connectionMade(mine, other, asSource);
    if (asSource)
        return;
    if (mine.attribute() == &aMembers)
        fMembers[mine.logicalIndex()] = other.node();
    else if (mine.attribute() == &aAdjustmentPlug)
        fAdjusted[mine.multiIndex(&aAdjustments)] = other;
}

void TdnRenderLayer::connectionBroken(const Tplug& mine, const Tplug& other, bool asSource) {
    TdnPattern::connectionBroken(mine, other, asSource);
    if (asSource)
        return;
    if (mine.attribute() == &aMembers)
        fMembers.erase(mine.logicalIndex());
    else if (mine.attribute() == &aAdjustmentPlug)
        fAdjusted.erase(mine.multiIndex(&aAdjustments));
}

// ---------------------------------------------------------------- manager

TdnRenderLayerManager* TdnRenderLayerManager::find(const TdependGraph& graph) {
    for (TdependNode* node : graph.nodes())
        if (auto* manager = dynamic_cast<TdnRenderLayerManager*>(node))
            return manager;
    return nullptr;
}

namespace {
TdnRenderLayer* layerFrom(const TdnRenderLayerManager& manager, const Tattribute& a) {
    const Tplug source = Tplug(&manager, &a).source();
    return source.isNull() ? nullptr : dynamic_cast<TdnRenderLayer*>(source.node());
}
} // namespace

TdnRenderLayer* TdnRenderLayerManager::defaultLayer(const TdependGraph& graph) {
    const TdnRenderLayerManager* manager = find(graph);
    return manager ? layerFrom(*manager, aDefaultRenderLayer) : nullptr;
}

TdnRenderLayer* TdnRenderLayerManager::currentLayer(const TdependGraph& graph) {
    const TdnRenderLayerManager* manager = find(graph);
    if (!manager)
        return nullptr;
    TdnRenderLayer* current = layerFrom(*manager, aCurrentRenderLayer);
    return current ? current : layerFrom(*manager, aDefaultRenderLayer);
}

std::vector<TdnRenderLayer*> TdnRenderLayerManager::layers(const TdependGraph& graph) {
    std::vector<TdnRenderLayer*> out;
    for (TdependNode* node : graph.nodes())
        if (auto* layer = dynamic_cast<TdnRenderLayer*>(node))
            out.push_back(layer);
    return out;
}

bool TdnRenderLayerManager::defaultLayerOnly(const TdependGraph& graph) {
    const TdnRenderLayer* fallback = defaultLayer(graph);
    for (const TdnRenderLayer* layer : layers(graph))
        if (layer != fallback && layer->isRenderable())
            return false;
    return true;
}

void TdnRenderLayerManager::setCurrentLayer(TdnRenderLayer* layer, TDGcommand& command) {
    const Tplug slot(this, &aCurrentRenderLayer);
    const Tplug source = slot.source();
    if (!source.isNull()) {
        if (source.node() == layer)
            return;
        command.newConnectionToBreak(source, slot);
    }
    if (layer)
        command.newConnectionToMake(Tplug(layer, &TdnRenderLayer::aMessage), slot);
}
