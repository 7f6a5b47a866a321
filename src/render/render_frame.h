#pragma once

// What a frame sets up before its threads start and takes down after
// them: the frame constants (the render pass, and whether rays are traced,
// from the scene's render quality), the ray sampler, the values every node
// reads from the frame (the sampler's address in `raySampler`, the camera
// in a light's `eyeToWorld` and `worldToEye`), the prototype render thread,
// and the shading groups compiled on it. Whatever way the frame ends, the
// shading groups are reset and no node keeps the address of a sampler that
// is gone.

#include <memory>
#include <string>
#include <vector>

#include "host/arena.h"
#include "host/plug.h"
#include "render/embree_ray_sampler.h"
#include "render/ray_tracer.h"
#include "render/render_scene.h"

class TdependGraph;

class TrenderFrameSetup {
public:
    // Compiles each of the scene's shading groups for surface shading, and
    // for shadows where the surface lets light through. A group that gives
    // no colour is dropped with a warning, and its objects take the default
    // material.
    TrenderFrameSetup(TdependGraph& graph, TrenderScene& scene, const std::string& sceneName,
                      int maxRayDepth, int passControl = 0);
    ~TrenderFrameSetup();
    TrenderFrameSetup(const TrenderFrameSetup&) = delete;
    TrenderFrameSetup& operator=(const TrenderFrameSetup&) = delete;

    TrenderWorker& prototype() { return *fPrototype; }
    TembreeRaySampler& sampler() { return fSampler; }
    // Whether the scene's render quality lets this frame trace rays.
    bool rayTracing() const { return fFrame.rayTracing(); }

private:
    void setFrameConstantPlugs(const TrenderScene& scene);
    void takeDown();
    void setUpShadingGroups(TrenderScene& scene, const std::string& sceneName);

    TdependGraph& fGraph;
    TstackArena fArena;
    TframeConstants fFrame;
    TembreeRaySampler fSampler;
    std::vector<Tplug> fFramePlugs;
    std::unique_ptr<TrenderWorker> fPrototype;
};
