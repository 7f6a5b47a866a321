#pragma once

// Helpers shared by the lambert tests: a lambert in a graph, runs of samples
// in an ordinary data block, the render pass switch, a light that answers
// the blind-data calls, and a ray sampler that records what it is asked.

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "host/graph.h"
#include "materials/lambert.h"
#include "shading/light_blind_data.h"
#include "shading/ray_sampler.h"

namespace lambert_test {

// Sets currentRenderPassControl for a scope.
class PassScope {
public:
    explicit PassScope(int32_t pass) : fSaved(currentRenderPassControl) {
        currentRenderPassControl = pass;
    }
    ~PassScope() { currentRenderPassControl = fSaved; }
    PassScope(const PassScope&) = delete;
    PassScope& operator=(const PassScope&) = delete;

private:
    int32_t fSaved;
};

inline void expectColour(const float* got, float r, float g, float b, float tolerance,
                         const std::string& what) {
    ASSERT_NE(got, nullptr) << what;
    EXPECT_NEAR(got[0], r, tolerance) << what << " red";
    EXPECT_NEAR(got[1], g, tolerance) << what << " green";
    EXPECT_NEAR(got[2], b, tolerance) << what << " blue";
}

// One lambert "l" in a graph; values are set the way a scene sets them.
struct OneLambert {
    TdependGraph g;
    TdnLambert* node = nullptr;

    OneLambert() { node = static_cast<TdnLambert*>(g.createNode("lambert", "l")); }

    void set(const std::string& plug, std::vector<double> values) {
        std::vector<std::string> words;
        for (double v : values)
            words.push_back(OrvoFormatFloat(v));
        g.setPlugValueFromWords(g.findPlug("l." + plug), words);
    }
    void setWords(const std::string& plug, std::vector<std::string> words) {
        g.setPlugValueFromWords(g.findPlug("l." + plug), words);
    }
    void setPointer(const std::string& plug, void* value) {
        g.setPlugValue(g.findPlug("l." + plug), &value);
    }
    // A light record in element `index`: direction, intensity, and the
    // ambient and diffuse switches; the other fields keep their defaults.
    void light(unsigned index, std::vector<double> direction, std::vector<double> intensity,
               bool ambient, bool diffuse) {
        const std::string at = "lightDataArray[" + std::to_string(index) + "].";
        set(at + "lightDirection", direction);
        set(at + "lightIntensity", intensity);
        setWords(at + "lightAmbient", {ambient ? "true" : "false"});
        setWords(at + "lightDiffuse", {diffuse ? "true" : "false"});
    }

    // Runs the compute of `output` in `pass` on the node's own block, as a
    // shading network does whatever the graph thinks is clean, and gives the
    // output's value.
    const float* compute(const Tattribute& output, int32_t pass) {
        PassScope scope(pass);
        TordinaryDataBlock& block = node->forceGetDatablock();
        node->computePlug(Tplug(node, &output), block);
        return value(output);
    }
    const float* value(const Tattribute& output) {
        return node->forceGetDatablock().outputValue(output).asFloat3();
    }
};

// A run of samples of one lambert in an ordinary data block: the values of
// each element are written by hand, as a shading network would leave them.
struct SampleRun {
    TordinaryDataBlock block;

    SampleRun(TdnLambert* node, unsigned count) : block(node, count) {}

    template <class V>
    void put(const Tattribute& a, unsigned e, V value) {
        std::memcpy(block.valueAddress(a, e), &value, sizeof value);
    }
    void put3(const Tattribute& a, unsigned e, float x, float y, float z) {
        const float v[3] = {x, y, z};
        std::memcpy(block.valueAddress(a, e), v, sizeof v);
    }
    template <class V>
    void putAll(const Tattribute& a, V value) {
        for (unsigned e = 0; e < block.elementCount(); ++e)
            put(a, e, value);
    }
    void put3All(const Tattribute& a, float x, float y, float z) {
        for (unsigned e = 0; e < block.elementCount(); ++e)
            put3(a, e, x, y, z);
    }
    // Gives element `e` one light record (logical index 0) and returns it.
    TlightData& light(unsigned e) {
        TmultiHandle lights(TdataHandle(&block, &TdnLambert::aLightData,
                                        block.valueAddress(TdnLambert::aLightData, e),
                                        TdataHandle::kIsArray));
        TmultiBuilder builder(&TdnLambert::aLightData);
        builder.addElement(0);
        lights.set(builder);
        lights.jumpToElement(0);
        return *lights.reference().asLightData();
    }
    const float* get(const Tattribute& a, unsigned e) {
        return static_cast<const float*>(block.valueAddress(a, e));
    }
    void compute(TdnLambert* node, const Tattribute& output, int32_t pass) {
        PassScope scope(pass);
        node->vectorComputePlug(Tplug(node, &output), block, 0, block.elementCount());
    }
};

// A light that answers the blind-data calls with set values and remembers
// what it was asked.
class FakeLight : public TlightBlindData {
public:
    float lambertian = 0.0f;
    float coverage = 0.0f;
    int lambertianCalls = 0;
    int coverageCalls = 0;
    T3Float lastPoint, lastNormal, lastCoverageDirection;
    bool lastClamp = false;

    float integrateLambertianReflectance(const T3Float&, const T3Float& point,
                                         const T3Float& normal, bool clamp) override {
        ++lambertianCalls;
        lastPoint = point;
        lastNormal = normal;
        lastClamp = clamp;
        return lambertian;
    }
    T3Float maxPhongSpecularDirection(const T3Float& lightDirection, const T3Float&, const T3Float&,
                                      const T3Float&, const T3Float*) override {
        return lightDirection;
    }
    float lightAttenuation(const T3Float&, const T3Float&, bool) override { return 1.0f; }
    float hemisphereCoverage(const T3Float&, const T3Float&, const T3Float& direction,
                             bool) override {
        ++coverageCalls;
        lastCoverageDirection = direction;
        return coverage;
    }
};

// A ray sampler that keeps a copy of every ray it is given and answers with
// set values. Nothing here allocates, so that it can serve the allocation
// test too.
class RecordingSampler : public TraySampler {
public:
    static constexpr unsigned kMaxRays = 256;

    // Bytes it asks for beyond TgenericRay in each record.
    size_t tail = 0;
    // What each traced ray returns: ray i gets element i, or the last one.
    Tspectrum colours[4] = {Tspectrum(1, 1, 1)};
    Tspectrum transmissions[4] = {Tspectrum(1, 1, 1)};
    unsigned answers = 1;
    float hitDistance = 1.0f;
    Tspectrum background = kBlackSpectrum;

    int traceCalls = 0;
    unsigned rayCount = 0; // rays of all calls
    const TdependNode* lastNode = nullptr;
    TgenericRay rays[kMaxRays];
    const TgenericRay* addresses[kMaxRays] = {};

    size_t rayRecordSize(unsigned) const override { return sizeof(TgenericRay) + tail; }
    int maxRayDepth() const override { return 10; }
    void traceShadowRays(const TdependNode*, unsigned, TgenericRay**, float*, float*, int,
                         const void*) override {}
    void traceRays(const TdependNode* node, unsigned count, TgenericRay** given,
                   Tspectrum* colourOut, Tspectrum* transmissionOut, uint8_t*) override {
        ++traceCalls;
        lastNode = node;
        for (unsigned i = 0; i < count; ++i) {
            if (rayCount < kMaxRays) {
                rays[rayCount] = *given[i];
                addresses[rayCount] = given[i];
            }
            ++rayCount;
            const unsigned k = i < answers ? i : answers - 1;
            given[i]->maxDistance = hitDistance;
            colourOut[i] = colours[k];
            transmissionOut[i] = transmissions[k];
        }
    }
    uint64_t raysTraced() const override { return rayCount; }
    void backgroundColor(Tspectrum& colour) const override { colour = background; }
};

} // namespace lambert_test
