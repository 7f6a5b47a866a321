#pragma once

// Renderers known by name. Each declares itself with a TrendererInterface:
// its names, the scene-language procedures of the host's dialogs, the tabs
// of its settings. The registry binds the current renderer to the
// currentRenderer attribute of the scene's defaultRenderGlobals, and runs
// the hooks "rendererRegistered" and "currentRendererChanged" (see
// TcallbackHooks) when they happen. TpreferredRenderer remembers the user's
// choice across runs, in the user's options.

#include <string>
#include <vector>

#include "host/trigger.h"

class TdependGraph;
class Tplug;

// What the procedure slots hold is the dialogs' business; the registry
// only keeps them.
using TprocedureType = unsigned;
constexpr TprocedureType kProcedureTypeCount = 31;

class TrendererInterface {
public:
    explicit TrendererInterface(std::string name);

    const std::string& rendererName() const { return fRendererName; }
    const std::string& rendererUIName() const { return fRendererUIName; }
    void setRendererUIName(const std::string& name) { fRendererUIName = name; }
    const std::string& logoImageName() const { return fLogoImageName; }
    void setLogoImageName(const std::string& name) { fLogoImageName = name; }

    // A slot outside the 31 is ignored (set) or empty (read).
    void setProcedure(TprocedureType type, const std::string& name);
    const std::string& procedure(TprocedureType type) const;

    void addGlobalsTab(const std::string& label, const std::string& createProc,
                       const std::string& updateProc);
    const std::vector<std::string>& getGlobalsTabLabels() const { return fTabLabels; }
    const std::vector<std::string>& getGlobalsTabCreateProcNames() const { return fTabCreate; }
    const std::vector<std::string>& getGlobalsTabUpdateProcNames() const { return fTabUpdate; }
    void addGlobalsNode(const std::string& node) { fGlobalsNodes.push_back(node); }
    const std::vector<std::string>& getGlobalsNodes() const { return fGlobalsNodes; }

    // Renders a scene in batch, from the command line: the reference
    // renderer says yes; a viewport renderer no.
    bool batchRenders() const { return fBatchRenders; }
    void setBatchRenders(bool on) { fBatchRenders = on; }

private:
    std::string fRendererName, fRendererUIName, fLogoImageName;
    std::vector<std::string> fProcedures;
    std::vector<std::string> fTabLabels, fTabCreate, fTabUpdate;
    std::vector<std::string> fGlobalsNodes;
    bool fBatchRenders = false;
};

class TrendererRegistry {
public:
    // Names in the order the renderers registered.
    static void getNamesOfAvailableRenderers(std::vector<std::string>& names);
    static TrendererInterface* renderer(const std::string& name);
    // The known interface, or a new one (which runs the hook
    // "rendererRegistered" with its name).
    static TrendererInterface* registerRenderer(const std::string& name);
    // Frees the interface. When it was the current renderer, the preferred
    // one (or its fallback) becomes current.
    static void unregisterRenderer(TrendererInterface* renderer);
    // defaultRenderGlobals.currentRenderer of the current scene; empty
    // without a scene or a value.
    static std::string currentRendererName();
    // Fired when currentRenderer of the scene's defaultRenderGlobals is set,
    // by the registry or by anyone else.
    static Ttrigger& modified();
    // The render settings node tells of each value set on one of its plugs.
    static void attributeChanged(const Tplug& plug);

private:
    friend class TpreferredRenderer;
    static void setCurrentRenderer(const std::string& name);
};

class TpreferredRenderer {
public:
    static TpreferredRenderer& instance();

    static constexpr const char* kOption = "preferredRenderer";
    static constexpr const char* kFallbackOption = "preferredRendererFallback";
    static constexpr const char* kBuiltInFallback = "orvoHardware2";

    // Remembers the choice and fires changed().
    void set(const std::string& name);
    // Remembers the fallback; nobody is told.
    void setFallback(const std::string& name);
    // The preferred renderer when it is registered, else the fallback.
    std::string getName() const;
    // The fallback option when it is registered, else the built-in name.
    std::string getFallbackName() const;
    // Makes the preferred name (or the fallback option, or the built-in
    // name) current in the scene without asking whether it is registered:
    // a renderer loaded later finds the setting made.
    void makeCurrent() const;
    // "preferredRendererChanged".
    Ttrigger& changed() { return fChanged; }

private:
    TpreferredRenderer() = default;
    Ttrigger fChanged;
};
