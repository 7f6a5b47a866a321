#include "host/shadingnode.h"

#include <thread>

#include "host/debug.h"

// Host base metaclasses are made on first use: render model types name them
// as parents from their own static initialisers, in any order.
namespace {
Tmetaclass* shadingNodeMeta() {
    static Tmetaclass meta(nullptr, "shadingNode", sizeof(TshadingNode), nullptr, 0, 0);
    return &meta;
}
Tmetaclass* shadingDependNodeMeta() {
    static Tmetaclass meta(nullptr, "shadingDependNode", sizeof(TshadingDependNode), nullptr, 0, 0,
                           TdependNode::sTypeof(), shadingNodeMeta());
    return &meta;
}
Tmetaclass* materialMeta() {
    static Tmetaclass meta(nullptr, "material", sizeof(Tmaterial), nullptr, 0, 0,
                           shadingDependNodeMeta());
    return &meta;
}
} // namespace

Tmetaclass* TshadingNodeTmeta() {
    return shadingNodeMeta();
}

// ---------------------------------------------------------------- TshadingNode

TshadingNode::~TshadingNode() = default;
Tmetaclass* TshadingNode::sTypeof() {
    return shadingNodeMeta();
}

void TshadingNode::analyse(TDNshadingEngine*, TSEnodeDescription*, void*, TbitField64&) {}
void TshadingNode::modifyAffects(const Tattribute*, TbitFieldFixedN&, TDNshadingEngine*, void*) {}
void TshadingNode::shadingNodeInit(TframeSampleData*) {}
void TshadingNode::shadingNodeOnDemand(Tplug&, TdataBlock&) {}
void TshadingNode::endOfRender() {}
const Tattribute* TshadingNode::alternateAttr(const Tattribute*) {
    return nullptr;
}
void TshadingNode::groupedAttrs(const Tattribute*, TattributeArray& out) {
    out.clear();
}
bool TshadingNode::getGlow(float& intensity) {
    intensity = 0.0f;
    return false;
}
unsigned TshadingNode::transparencyOptions() {
    return 0;
}
bool TshadingNode::populateRequirements() {
    return false;
}
bool TshadingNode::render() {
    return false;
}
int TshadingNode::rendererProfile() {
    return 0;
}

void TshadingNode::incrementReferenceCount(TframeSampleData* frame) {
    if (fReferences.fetch_add(1) == 0)
        shadingNodeInit(frame);
}

// The last reference of a render ends it for the node, as the first began
// it: what the render left in the node (a sampler's address, a switch's
// objects) goes.
void TshadingNode::decrementReferenceCount() {
    int current = fReferences.load();
    while (current > 0 && !fReferences.compare_exchange_weak(current, current - 1)) {
    }
    if (current == 1)
        endOfRender();
}

void TshadingNode::ensureOnDemand(Tplug& plug, TdataBlock& block) {
    int expected = 0;
    if (fOnDemandState.compare_exchange_strong(expected, 1)) {
        try {
            shadingNodeOnDemand(plug, block);
        } catch (...) {
            // Waiting threads must not spin forever: the work counts as done.
            fOnDemandState.store(2);
            throw;
        }
        fOnDemandState.store(2);
        return;
    }
    while (fOnDemandState.load() == 1)
        std::this_thread::yield();
}

// ---------------------------------------------------------------- TshadingDependNode

Tmetaclass* TshadingDependNode::sTypeof() {
    return shadingDependNodeMeta();
}
Tmetaclass* TshadingDependNode::typeof() const {
    return shadingDependNodeMeta();
}

void* TshadingDependNode::cast(Tmetaclass* meta) {
    if (!meta)
        return nullptr;
    if (meta == shadingDependNodeMeta())
        return this;
    if (meta == shadingNodeMeta())
        return static_cast<TshadingNode*>(this);
    return TdependNode::cast(meta);
}

TdependNodeVS* TshadingDependNode::sVsData() {
    static TdependNodeVS vs;
    return &vs;
}

void TshadingDependNode::setDirty(TmsgDirty& msg) {
    processMessage(msg);
    TdependNode::setDirty(msg);
}

bool TshadingDependNode::processMessage(TmsgDirty&) {
    return true;
}

void TshadingDependNode::debug(TdebugOutput& out, const TdebugDetails& details) const {
    TdependNode::debug(out, details);
}

void TshadingDependNode::footprint(Footprint& fp) const {
    TdependNode::footprint(fp);
}

// ---------------------------------------------------------------- Tmaterial

Tmetaclass* Tmaterial::sTypeof() {
    return materialMeta();
}
Tmetaclass* Tmaterial::typeof() const {
    return materialMeta();
}

void* Tmaterial::cast(Tmetaclass* meta) {
    if (meta && meta == materialMeta())
        return this;
    return TshadingDependNode::cast(meta);
}

TdependNodeVS* Tmaterial::sVsData() {
    static TdependNodeVS vs;
    return &vs;
}
