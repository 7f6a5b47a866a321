#pragma once

// Helpers of the lambert tests: a lambert "l" set up by scene text, the
// render pass switch, a light answering the blind-data calls, and a ray
// sampler that records its rays (and allocates nothing).

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "host/graph.h"
#include "host/qsl/interpreter.h"
#include "materials/lambert.h"
#include "shading/light_blind_data.h"

namespace lambert_test {

class PassScope {
public:
    explicit PassScope(int32_t pass) : fSaved(currentRenderPassControl) {
        currentRenderPassControl = pass;
    }
    ~PassScope() { currentRenderPassControl = fSaved; }

private:
    int32_t fSaved;
};

inline void expect3(const float* got, T3Float want, const std::string& what, float tol = 1e-5f) {
    for (int k = 0; k < 3; ++k)
        EXPECT_NEAR(got[k], want[k], tol) << what << ", channel " << k;
}

struct Lambert {
    TdependGraph g;
    TdnLambert* node;

    // A lambert, or a material built on it (`type`).
    explicit Lambert(const std::string& scene = "", const std::string& type = "lambert") {
        run("node " + type + " l\n" + scene);
        node = static_cast<TdnLambert*>(g.findNode("l"));
    }
    void run(const std::string& scene) {
        std::ostringstream out;
        qsl::Interpreter(g, out).runText(scene, "test.qsl");
    }
    void setPointer(const std::string& plug, void* value) {
        g.setPlugValue(g.findPlug("l." + plug), &value);
    }
    // One frame: the node's init, then the compute of `output` in `pass`
    // on the node's own block.
    const float* compute(const Tattribute& output, int32_t pass = 0) {
        PassScope scope(pass);
        node->shadingNodeInit(nullptr);
        node->computePlug(Tplug(node, &output), node->forceGetDatablock());
        return value(output);
    }
    const float* value(const Tattribute& a) {
        return node->forceGetDatablock().outputValue(a).asFloat3();
    }
};

class FakeLight : public TlightBlindData {
public:
    using TlightBlindData::setCosineOnly;
    float lambertian = 0.0f, coverage = 0.0f;
    T3Float point, normal, coverageDirection;

    float integrateLambertianReflectance(const T3Float&, const T3Float& p, const T3Float& n,
                                         bool) override {
        point = p;
        normal = n;
        return lambertian;
    }
    T3Float maxPhongSpecularDirection(const T3Float& l, const T3Float&, const T3Float&,
                                      const T3Float&, const T3Float*) override {
        return l;
    }
    float lightAttenuation(const T3Float&, const T3Float&, bool) override { return 1.0f; }
    float hemisphereCoverage(const T3Float&, const T3Float&, const T3Float& d, bool) override {
        coverageDirection = d;
        return coverage;
    }
};

class RecordingSampler : public TraySampler {
public:
    static constexpr unsigned kMax = 256;
    size_t tail = 0; // bytes asked for beyond TgenericRay
    // Ray i of a call gets answer i, or the last one.
    Tspectrum colours[3] = {Tspectrum(0.8f, 0.6f, 0.4f)};
    Tspectrum transmissions[3] = {kWhiteSpectrum};
    unsigned answers = 1;
    float hitDistance = 1.0f;
    bool hit = true; // what the hit flags say, when asked for
    Tspectrum background = kBlackSpectrum;
    unsigned rayCount = 0;
    TgenericRay rays[kMax];
    const void* addresses[kMax] = {};
    const TdependNode* node = nullptr;

    size_t rayRecordSize(unsigned) const override { return sizeof(TgenericRay) + tail; }
    int maxRayDepth() const override { return 10; }
    void traceShadowRays(const TdependNode*, unsigned, TgenericRay**, float*, float*, int,
                         const void*) override {}
    void traceRays(const TdependNode* from, unsigned count, TgenericRay** given, Tspectrum* c,
                   Tspectrum* t, uint8_t* hits) override {
        node = from;
        for (unsigned i = 0; i < count; ++i, ++rayCount) {
            if (rayCount < kMax) {
                rays[rayCount] = *given[i];
                addresses[rayCount] = given[i];
            }
            const unsigned k = i < answers ? i : answers - 1;
            given[i]->maxDistance = hitDistance;
            c[i] = colours[k];
            if (t)
                t[i] = transmissions[k];
            if (hits)
                hits[i] = hit;
        }
    }
    uint64_t raysTraced() const override { return rayCount; }
    void backgroundColor(Tspectrum& colour) const override { colour = background; }
};

// A run of `n` samples of one lambert in an ordinary data block, values
// written per element as a shading network leaves them.
struct SampleRun {
    TordinaryDataBlock block;
    SampleRun(TdnLambert* node, unsigned n) : block(node, n) {}
    template <class V>
    void put(const Tattribute& a, unsigned e, V v) {
        *static_cast<V*>(block.valueAddress(a, e)) = v;
    }
    template <class V>
    void putAll(const Tattribute& a, V v) {
        for (unsigned e = 0; e < block.elementCount(); ++e)
            put(a, e, v);
    }
    // Element e's light record 0, made with the material's defaults.
    TlightData& light(unsigned e) {
        const Tattribute& array = TdnLambert::aLightData;
        TmultiHandle lights(
            TdataHandle(&block, &array, block.valueAddress(array, e), TdataHandle::kIsArray));
        TmultiBuilder builder(&array);
        builder.addElement(0);
        lights.set(builder);
        lights.jumpToElement(0);
        return *lights.reference().asLightData();
    }
    const float* get(const Tattribute& a, unsigned e) {
        return static_cast<const float*>(block.valueAddress(a, e));
    }
    void compute(TdnLambert* node, const Tattribute& output, int32_t pass = 0) {
        PassScope scope(pass);
        node->vectorComputePlug(Tplug(node, &output), block, 0, block.elementCount());
    }
};

} // namespace lambert_test
