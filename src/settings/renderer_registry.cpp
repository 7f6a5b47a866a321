#include "settings/renderer_registry.h"

#include <algorithm>
#include <memory>

#include "host/callbacks.h"
#include "host/graph.h"
#include "host/option_vars.h"
#include "host/plug.h"
#include "settings/render_globals.h"

namespace {

std::vector<std::unique_ptr<TrendererInterface>>& registered() {
    static std::vector<std::unique_ptr<TrendererInterface>> list;
    return list;
}

const std::string kNoName;

TdnRenderGlobals* sceneGlobals() {
    TdependGraph* graph = TdependGraph::fsCurrentGraph;
    if (!graph)
        return nullptr;
    return dynamic_cast<TdnRenderGlobals*>(graph->findNode("defaultRenderGlobals"));
}

bool known(const std::optional<std::string>& name) {
    return name && !name->empty() && TrendererRegistry::renderer(*name);
}

} // namespace

// ---------------------------------------------------------------- interface

TrendererInterface::TrendererInterface(std::string name)
    : fRendererName(std::move(name)), fRendererUIName(fRendererName),
      fProcedures(kProcedureTypeCount) {}

void TrendererInterface::setProcedure(TprocedureType type, const std::string& name) {
    if (type < fProcedures.size())
        fProcedures[type] = name;
}

const std::string& TrendererInterface::procedure(TprocedureType type) const {
    return type < fProcedures.size() ? fProcedures[type] : kNoName;
}

void TrendererInterface::addGlobalsTab(const std::string& label, const std::string& createProc,
                                       const std::string& updateProc) {
    fTabLabels.push_back(label);
    fTabCreate.push_back(createProc);
    fTabUpdate.push_back(updateProc);
}

// ---------------------------------------------------------------- registry

void TrendererRegistry::getNamesOfAvailableRenderers(std::vector<std::string>& names) {
    names.clear();
    for (const auto& r : registered())
        names.push_back(r->rendererName());
}

TrendererInterface* TrendererRegistry::renderer(const std::string& name) {
    for (const auto& r : registered())
        if (r->rendererName() == name)
            return r.get();
    return nullptr;
}

TrendererInterface* TrendererRegistry::registerRenderer(const std::string& name) {
    if (TrendererInterface* existing = renderer(name))
        return existing;
    registered().push_back(std::make_unique<TrendererInterface>(name));
    TrendererInterface* made = registered().back().get();
    TcallbackHooks::execute(TdependGraph::fsCurrentGraph, "rendererRegistered", {name});
    return made;
}

void TrendererRegistry::unregisterRenderer(TrendererInterface* renderer) {
    if (!renderer)
        return;
    const std::string current = currentRendererName();
    const std::string own = renderer->rendererName();
    auto& list = registered();
    list.erase(std::remove_if(list.begin(), list.end(),
                              [&](const auto& r) { return r.get() == renderer; }),
               list.end());
    if (current == own)
        setCurrentRenderer(TpreferredRenderer::instance().getName());
}

std::string TrendererRegistry::currentRendererName() {
    TdnRenderGlobals* globals = sceneGlobals();
    return globals ? globals->currentRenderer() : std::string();
}

void TrendererRegistry::attributeChanged(const Tplug& plug) {
    if (plug.attribute() && plug.attribute()->longName() == "currentRenderer")
        modified().fire();
}

Ttrigger& TrendererRegistry::modified() {
    static Ttrigger trigger;
    return trigger;
}

void TrendererRegistry::setCurrentRenderer(const std::string& name) {
    TdnRenderGlobals* globals = sceneGlobals();
    if (!globals)
        return;
    globals->setCurrentRenderer(name); // fires modified()
    TcallbackHooks::execute(TdependGraph::fsCurrentGraph, "currentRendererChanged", {});
}

// ---------------------------------------------------------------- preference

TpreferredRenderer& TpreferredRenderer::instance() {
    static TpreferredRenderer preferred;
    return preferred;
}

void TpreferredRenderer::set(const std::string& name) {
    ToptionVars::instance().set(kOption, name);
    fChanged.fire();
}

void TpreferredRenderer::setFallback(const std::string& name) {
    ToptionVars::instance().set(kFallbackOption, name);
}

std::string TpreferredRenderer::getName() const {
    const std::optional<std::string> preferred = ToptionVars::instance().get(kOption);
    return known(preferred) ? *preferred : getFallbackName();
}

std::string TpreferredRenderer::getFallbackName() const {
    const std::optional<std::string> fallback = ToptionVars::instance().get(kFallbackOption);
    return known(fallback) ? *fallback : std::string(kBuiltInFallback);
}

void TpreferredRenderer::makeCurrent() const {
    ToptionVars& options = ToptionVars::instance();
    std::optional<std::string> name = options.get(kOption);
    if (!name || name->empty())
        name = options.get(kFallbackOption);
    if (!name || name->empty())
        name = std::string(kBuiltInFallback);
    // The setting alone: no hook runs, and nothing asks whether the name
    // is registered.
    if (TdnRenderGlobals* globals = sceneGlobals())
        globals->setCurrentRenderer(*name);
}
