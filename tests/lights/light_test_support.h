#pragma once

// Helpers of the light tests: a light under a transform made from scene
// text, a block of several samples for one vector compute, an analytic
// occluder for shadow rays, and a guard on the render pass switch.

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "host/graph.h"
#include "host/qsl/interpreter.h"
#include "lights/render_light_shape.h"

namespace orvo_test {

inline void runScene(TdependGraph& g, const std::string& text) {
    std::ostringstream out;
    qsl::Interpreter(g, out).runText(text, "lights.qsl");
}

// A light named "light" of `type` under a transform named "t", with the
// scene text `setup` run after both exist.
struct LightRig {
    TdependGraph g;
    TrenderLightShape* light = nullptr;

    explicit LightRig(const std::string& type, const std::string& setup = {}) {
        runScene(g, "node transform t\nnode " + type + " light -parent t\n" + setup);
        TdependNode* node = g.findNode("light");
        light = static_cast<TrenderLightShape*>(node->cast(TrenderLightShape::sTypeof()));
    }
    void set(const std::string& plug, const std::vector<std::string>& words) {
        g.setPlugValueFromWords(g.findPlug(plug), words);
    }
    template <class T>
    T* as() const {
        return static_cast<T*>(light->cast(T::sTypeof()));
    }
};

// A run of `count` samples of one light in an ordinary block, computed by
// one vectorComputePlug call as a render would.
struct Batch {
    TrenderLightShape* light;
    TordinaryDataBlock block;
    unsigned count;

    Batch(TrenderLightShape* l, unsigned n) : light(l), block(l, n), count(n) {}

    template <class T>
    T& at(const Tattribute& a, unsigned e) {
        return *static_cast<T*>(block.valueAddress(a, e));
    }
    void set3(const Tattribute& a, unsigned e, float x, float y, float z) {
        float* v = &at<float>(a, e);
        v[0] = x;
        v[1] = y;
        v[2] = z;
    }
    void point(unsigned e, float x, float y, float z) {
        set3(TlightShape::aPointCamera, e, x, y, z);
    }
    // The same value in every sample.
    template <class T>
    void all(const Tattribute& a, T value) {
        for (unsigned e = 0; e < count; ++e)
            at<T>(a, e) = value;
    }
    void compute() {
        light->vectorComputePlug(Tplug(light, &TlightShape::aLightData), block, 0, count);
    }
    const TlightData& record(unsigned e) {
        return *static_cast<const TlightData*>(block.valueAddress(TlightShape::aLightData, e));
    }
};

// The light's record at one eye-space point, computed in the node's own
// block: with the values its scene text set. `world`, when given, gets the
// point too (as pointWorld).
inline TlightData lightAt(TrenderLightShape* light, const T3Float& p,
                          const Tattribute* world = nullptr) {
    TordinaryDataBlock& block = light->forceGetDatablock();
    std::memcpy(block.valueAddress(TlightShape::aPointCamera, 0), &p, sizeof p);
    if (world)
        std::memcpy(block.valueAddress(*world, 0), &p, sizeof p);
    light->computePlug(Tplug(light, &TlightShape::aLightData), block);
    return *static_cast<const TlightData*>(block.valueAddress(TlightShape::aLightData, 0));
}

#define EXPECT_RGB_NEAR(v, R, G, B, tol)                                                           \
    do {                                                                                           \
        EXPECT_NEAR((v)[0], (R), (tol));                                                           \
        EXPECT_NEAR((v)[1], (G), (tol));                                                           \
        EXPECT_NEAR((v)[2], (B), (tol));                                                           \
    } while (0)

// Sets the render pass for a test and puts the old one back.
struct PassGuard {
    int32_t saved = currentRenderPassControl;
    explicit PassGuard(int32_t pass) { currentRenderPassControl = pass; }
    ~PassGuard() { currentRenderPassControl = saved; }
};

// An opaque half plane z = height, over x < edge (eye space), as the only
// thing in the scene. Records what each traceShadowRays call was given.
class HalfPlaneSampler : public TraySampler {
public:
    struct Call {
        const TdependNode* light;
        int depthLimit;
        const void* objectId;
        std::vector<TgenericRay> rays;
    };

    float height = 5.0f;
    float edge = -0.01f;
    std::vector<Call> calls;
    // Extra bytes a record carries after the ray, which the sampler fills:
    // records laid out too close would overwrite each other.
    static constexpr size_t kTail = 24;

    size_t rayRecordSize(unsigned) const override { return sizeof(TgenericRay) + kTail; }
    int maxRayDepth() const override { return 8; }
    void traceShadowRays(const TdependNode* light, unsigned count, TgenericRay** rays,
                         float* transmission, float* fraction, int depthLimit,
                         const void* objectId) override {
        Call call{light, depthLimit, objectId, {}};
        for (unsigned i = 0; i < count; ++i) {
            const TgenericRay& r = *rays[i];
            call.rays.push_back(r);
            std::memset(reinterpret_cast<std::byte*>(rays[i]) + sizeof(TgenericRay), 0xAB, kTail);
            if (r.direction[2] == 0.0f)
                continue;
            const float t = (height - r.origin[2]) / r.direction[2];
            if (t <= 0.0f || t >= r.maxDistance)
                continue;
            if (r.origin[0] + t * r.direction[0] < edge) {
                transmission[3 * i] = transmission[3 * i + 1] = transmission[3 * i + 2] = 0.0f;
                (void)fraction; // an opaque surface leaves the fraction whole
            }
        }
        calls.push_back(std::move(call));
    }
    void traceRays(const TdependNode*, unsigned, TgenericRay**, Tspectrum*, Tspectrum*,
                   uint8_t*) override {}
    uint64_t raysTraced() const override { return 0; }
    void backgroundColor(Tspectrum& colour) const override { colour = kBlackSpectrum; }
};

} // namespace orvo_test
