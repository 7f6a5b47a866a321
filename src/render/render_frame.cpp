#include "render/render_frame.h"

#include <fmt/format.h>

#include "host/graph.h"
#include "host/messages.h"
#include "shading/shading_engine.h"

TrenderFrameSetup::TrenderFrameSetup(TdependGraph& graph, TrenderScene& scene,
                                     const std::string& sceneName, int maxRayDepth)
    : fGraph(graph), fArena(theMallocAllocator(), 4096, "orvo render frame"), fFrame(fArena),
      fSampler(scene, maxRayDepth) {
    // A colour render, not a swatch.
    currentRenderPassControl = 0;
    inSampleSwatchMode = false;
    fPrototype = std::make_unique<TrenderWorker>(fFrame, &fSampler);
    try {
        setRaySamplerPlugs();
        setUpShadingGroups(scene, sceneName);
    } catch (...) {
        takeDown();
        throw;
    }
}

TrenderFrameSetup::~TrenderFrameSetup() {
    takeDown();
}

void TrenderFrameSetup::takeDown() {
    TrenderThreadBase::resetShadingGroups();
    if (fPrototype)
        fPrototype->destroyContents();
    void* none = nullptr;
    for (const Tplug& plug : fSamplerPlugs)
        fGraph.setPlugValue(plug, &none);
    fSamplerPlugs.clear();
}

// Materials and lights find the ray sampler in their `raySampler` input, a
// value of the frame that the analysis captures as a constant: it must be
// in place before the shading groups compile.
void TrenderFrameSetup::setRaySamplerPlugs() {
    void* address = static_cast<TraySampler*>(&fSampler);
    for (TdependNode* node : fGraph.nodes()) {
        const Tattribute* a = node->findAttribute("raySampler");
        if (!a || a->kind() != TattrKind::Addr)
            continue;
        const Tplug plug(node, a);
        if (!plug.source().isNull())
            continue;
        fGraph.setPlugValue(plug, &address);
        fSamplerPlugs.push_back(plug);
    }
}

// On the prototype thread, before any worker starts.
void TrenderFrameSetup::setUpShadingGroups(TrenderScene& scene, const std::string& sceneName) {
    TrenderWorker& prototype = *fPrototype;
    for (TDNshadingEngine* engine : scene.engines()) {
        TrenderObject* first = nullptr;
        for (const auto& object : scene.objects())
            if (object->engine() == engine) {
                first = object.get();
                break;
            }
        prototype.initShadingGroup(engine);
        const TbitField64 provided = prototype.startSampling(engine, 0, first);
        bool usable = provided.test(TsampleFields::outColor);
        bool opaque = engine->surfaceIsOpaque();
        if (usable && !opaque) {
            const TbitField64 shadow = prototype.startSampling(engine, 3, first);
            opaque = !shadow.test(TsampleFields::outTransparency);
        }
        if (!usable)
            TcommandEngine::displayWarning(
                fmt::format("{}: shading group '{}' gives no colour; its members render in the "
                            "default material",
                            sceneName, engine->name()));
        for (const auto& object : scene.objects()) {
            if (object->engine() != engine)
                continue;
            if (!usable)
                object->setEngine(nullptr);
            object->setOpaque(opaque);
            object->setRefracting(engine->surfaceIsRefracting());
        }
    }
    for (const auto& object : scene.objects())
        object->setCompletion(TrayTracer::callback());
}
