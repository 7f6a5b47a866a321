#include "render/embree_ray_sampler.h"

#include "render/ray_tracer.h"

size_t TembreeRaySampler::rayRecordSize(unsigned) const {
    return (sizeof(TgenericRay) + 7) & ~size_t(7);
}

void TembreeRaySampler::traceShadowRays(const TdependNode*, unsigned count, TgenericRay** rays,
                                        float* transmission, float* fraction, int depthLimit,
                                        const void*) {
    TrayTracer* tracer = TrayTracer::current();
    if (!tracer || count == 0)
        return; // outside a render thread nothing can be traced: the light is unblocked
    fRays.fetch_add(tracer->traceShadowRays(count, rays, transmission, fraction, depthLimit),
                    std::memory_order_relaxed);
}

void TembreeRaySampler::traceRays(const TdependNode*, unsigned count, TgenericRay** rays,
                                  Tspectrum* colours, Tspectrum* transmissions, uint8_t* hits) {
    TrayTracer* tracer = TrayTracer::current();
    if (!tracer) {
        for (unsigned i = 0; i < count; ++i) {
            backgroundColor(colours[i]);
            if (transmissions)
                transmissions[i] = kWhiteSpectrum;
            if (hits)
                hits[i] = 0;
        }
        return;
    }
    fRays.fetch_add(tracer->traceRays(count, rays, colours, transmissions, hits),
                    std::memory_order_relaxed);
}

void TembreeRaySampler::backgroundColor(Tspectrum& colour) const {
    const T3Float c = fScene.background();
    colour = Tspectrum(c.x, c.y, c.z);
}
