#include "render/render_frame.h"

#include <fmt/format.h>

#include "framework/render_info.h"
#include "host/graph.h"
#include "host/messages.h"
#include "host/scene/render_layer.h"
#include "settings/render_quality.h"
#include "shading/shading_engine.h"

namespace {

// Whether a frame traces rays is the scene's render quality's to say: the
// quality the render globals link to, as the frame's layer sees it. A graph
// without render settings keeps the shading model's own answer, on.
bool sceneTracesRays(TdependGraph& graph, const TdnRenderLayer* layer) {
    TrenderInfo* info = TrenderInfo::find(graph);
    TdnRenderQuality* quality = info ? info->currentQuality() : nullptr;
    if (!quality)
        return true;
    return TdnRenderLayer::readValue(Tplug(quality, &TdnRenderQuality::aEnableRaytracing), layer)
        .asBool();
}

} // namespace

TrenderFrameSetup::TrenderFrameSetup(TdependGraph& graph, TrenderScene& scene,
                                     const std::string& sceneName, int maxRayDepth, int passControl)
    : fGraph(graph), fArena(theMallocAllocator(), 4096, "orvo render frame"), fFrame(fArena),
      fSampler(scene, maxRayDepth) {
    // A render of the pass asked for (0: the full colour), not a swatch,
    // tracing rays as the scene's quality says: the frame's own settings,
    // which no other render in the process sees.
    fFrame.setRenderPass(passControl);
    fFrame.setRayTracing(sceneTracesRays(graph, scene.layer()));
    // Switches find the objects they vary by through the scene.
    fFrame.setObjectIdentity(&scene);
    // With ray tracing off no material or light gets a sampler: no
    // refraction, reflection or ray-traced shadow.
    fPrototype = std::make_unique<TrenderWorker>(fFrame, rayTracing() ? &fSampler : nullptr);
    try {
        setFrameConstantPlugs(scene);
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
    // Back to the defaults: a null sampler, identity matrices.
    std::vector<std::byte> value;
    for (const Tplug& plug : fFramePlugs) {
        value.assign(plug.attribute()->dataSize(), std::byte(0));
        plug.attribute()->writeDefault(value.data());
        fGraph.setPlugValue(plug, value.data());
    }
    fFramePlugs.clear();
}

// What every node reads from the frame rather than the sample: the ray
// sampler in `raySampler`, and for lights the camera in `eyeToWorld` and
// `worldToEye`. The analysis captures them as constants, so they must be in
// place before the shading groups compile.
void TrenderFrameSetup::setFrameConstantPlugs(const TrenderScene& scene) {
    void* address = rayTracing() ? static_cast<TraySampler*>(&fSampler) : nullptr;
    const T4dFltMatrix eyeToWorld = scene.eyeToWorld().asFloat();
    const T4dFltMatrix worldToEye = scene.worldToEye().asFloat();
    fFrame.setEyeToWorld(eyeToWorld);
    for (TdependNode* node : fGraph.nodes()) {
        auto set = [&](const char* name, TattrKind kind, const void* value) {
            const Tattribute* a = node->findAttribute(name);
            if (!a || a->kind() != kind)
                return;
            const Tplug plug(node, a);
            if (!plug.source().isNull())
                return;
            fGraph.setPlugValue(plug, value);
            fFramePlugs.push_back(plug);
        };
        set("raySampler", TattrKind::Addr, &address);
        set("eyeToWorld", TattrKind::FltMatrix, &eyeToWorld);
        set("worldToEye", TattrKind::FltMatrix, &worldToEye);
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
            object->setRayOptions((engine->surfaceIsRefracting() ? kRayOptionRefracts : 0u) |
                                  (engine->surfaceIsReflecting() ? kRayOptionReflects : 0u));
        }
    }
    for (const auto& object : scene.objects())
        object->setCompletion(TrayTracer::callback());
    scene.setShadowRoles();
}
