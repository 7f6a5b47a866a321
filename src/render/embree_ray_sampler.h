#pragma once

// The ray sampler that materials and lights reach through their
// `raySampler` input: reflection, refraction and shadow rays traced in the
// renderer's Embree scene, their hits shaded through the same shading
// engine as the eye rays. One sampler serves a frame; it hands each call to
// the tracer of the calling render thread.

#include <atomic>

#include "render/render_scene.h"
#include "shading/ray_sampler.h"

class TembreeRaySampler : public TraySampler {
public:
    TembreeRaySampler(const TrenderScene& scene, int maxRayDepth)
        : fScene(scene), fMaxRayDepth(maxRayDepth) {}

    size_t rayRecordSize(unsigned rayCount) const override;
    int maxRayDepth() const override { return fMaxRayDepth; }
    void traceShadowRays(const TdependNode* light, unsigned count, TgenericRay** rays,
                         float* transmission, float* fraction, int depthLimit,
                         const void* objectId) override;
    void traceRays(const TdependNode* node, unsigned count, TgenericRay** rays, Tspectrum* colours,
                   Tspectrum* transmissions, uint8_t* hits) override;
    uint64_t raysTraced() const override { return fRays.load(std::memory_order_relaxed); }
    // The camera's background colour.
    void backgroundColor(Tspectrum& colour) const override;

private:
    const TrenderScene& fScene;
    int fMaxRayDepth;
    std::atomic<uint64_t> fRays{0};
};
