#include "settings/vpr_render_globals.h"

#include <sstream>

#include "host/env.h"
#include "host/graph.h"
#include "host/plug.h"

ORVO_REGISTER_NODE(TdnVPRRenderGlobals)
ORVO_DEPENDENCIES(TdnVPRRenderGlobals) {}

namespace {
constexpr const char* kCurrentName = "hardwareRenderingGlobals";
}

TdnVPRRenderGlobals* TdnVPRRenderGlobals::currentGlobals(const TdependGraph* graph) {
    if (!graph)
        graph = TdependGraph::fsCurrentGraph;
    TdependNode* node = graph ? graph->findNode(kCurrentName) : nullptr;
    return node ? static_cast<TdnVPRRenderGlobals*>(node->cast(sTypeof())) : nullptr;
}

TdnVPRRenderGlobals* TdnVPRRenderGlobals::createCurrentGlobals(TdependGraph& graph) {
    if (TdnVPRRenderGlobals* current = currentGlobals(&graph))
        return current;
    TdependNode* node = graph.createNode(Identity::kTypeName, kCurrentName);
    node->setImplicitlyCreated(true);
    node->setNodeIsDefault(true);
    return static_cast<TdnVPRRenderGlobals*>(node->cast(sTypeof()));
}

Tstring TdnVPRRenderGlobals::getString(const Tattribute& attribute) const {
    return orvo::settings::text(*this, attribute);
}

std::vector<Tstring> TdnVPRRenderGlobals::getStringArray(const Tattribute& attribute) const {
    std::istringstream in(getString(attribute));
    std::vector<Tstring> words;
    for (Tstring w; in >> w;)
        words.push_back(w);
    return words;
}

std::vector<int32_t> TdnVPRRenderGlobals::getInt32Array(const Tattribute& attribute) const {
    std::vector<int32_t> values;
    for (const Tstring& w : getStringArray(attribute))
        values.push_back(int32_t(OrvoParseInteger(w).value_or(0)));
    return values;
}

bool TdnVPRRenderGlobals::getBoolean(const Tattribute& attribute) const {
    return orvo::settings::number(*this, attribute) != 0.0;
}
void TdnVPRRenderGlobals::setEnum(const Tattribute& attribute, int value) {
    orvo::settings::setNumber(*this, attribute, double(value));
}
void TdnVPRRenderGlobals::setBoolean(const Tattribute& attribute, bool value) {
    orvo::settings::setNumber(*this, attribute, value ? 1.0 : 0.0);
}
void TdnVPRRenderGlobals::setInt(const Tattribute& attribute, int value) {
    orvo::settings::setNumber(*this, attribute, double(value));
}
void TdnVPRRenderGlobals::setRenderOverrideName(const Tstring& name) {
    orvo::settings::setText(*this, aRenderOverrideName, name);
}
void TdnVPRRenderGlobals::setFragmentLibraryName(const Tstring& name) {
    orvo::settings::setText(*this, aFragmentLibraryName, name);
}
void TdnVPRRenderGlobals::setCurrentRendererName(const Tstring& name) {
    orvo::settings::setText(*this, aCurrentRendererName, name);
}

bool TdnVPRRenderGlobals::isMotionblurOnOrAnimated() const {
    if (!Tplug(const_cast<TdnVPRRenderGlobals*>(this), &aMotionBlurEnable).source().isNull())
        return true;
    return getBoolean(aMotionBlurEnable);
}

void TdnVPRRenderGlobals::sendMotionblur(bool enabled) {
    const TVPRrenderGlobalsMotionblurModifiedMsg msg{this, enabled};
    for (const MotionblurListener& l : fListeners)
        l(msg);
}

bool TdnVPRRenderGlobals::setCachedValue(const Tplug& plug, const TdataHandle& value) {
    if (plug.attribute() == &aMotionBlurEnable && plug.source().isNull())
        sendMotionblur(value.asBool());
    return TdnPattern::setCachedValue(plug, value);
}

void TdnVPRRenderGlobals::connectionMade(const Tplug& mine, const Tplug& other, bool asSource) {
    // Driven from elsewhere: whatever the source gives, motion blur may move.
    if (mine.attribute() == &aMotionBlurEnable && !asSource)
        sendMotionblur(true);
    TdnPattern::connectionMade(mine, other, asSource);
}

void TdnVPRRenderGlobals::connectionBroken(const Tplug& mine, const Tplug& other, bool asSource) {
    if (mine.attribute() == &aMotionBlurEnable && !asSource)
        sendMotionblur(getBoolean(aMotionBlurEnable));
    // The base hears of it as a connection made: the node has always told
    // its base so, and what hangs on the base's hook expects it.
    TdnPattern::connectionMade(mine, other, asSource);
}
