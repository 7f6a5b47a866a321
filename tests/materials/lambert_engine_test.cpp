// A lambert lit by a light that the shading group gathers: the light's
// records reach the material per sample through the opus, and its blind
// data answers the cosine.

#include <gtest/gtest.h>

#include <sstream>
#include <thread>
#include <vector>

#include "host/arena.h"

#include "host/qsl/interpreter.h"
#include "host/scene/light_shape.h"
#include "materials/lambert_test_support.h"
#include "shading/sample_manager.h"
#include "shading/shading_engine.h"

// A light from (0, 0.6, 0.8) whose records point back at it, as a light
// must: through its TlightBlindData face. It lights half as much as the
// cosine, so that a material that asks it shows it.
#define ORVO_SCHEMA_TdnLambertTestLight(A, C2, C3)
ORVO_NODE(TdnLambertTestLight, TlightShape, "lambertTestLight", "TLLT", 9110, "kLambertTestLight",
          "test/lambertLight", "n_lambertTestLight")

class TdnLambertTestLight : public TdnPattern<TdnLambertTestLight, TlightShape>,
                            public TlightBlindData {
public:
    // Its record is the same at every point: the group evaluates it once.
    bool computePlug(const Tplug& plug, TdataBlock& block) override {
        return vectorComputePlug(plug, block, block.currentIndex(), 1);
    }
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override {
        if (plug.attribute() != &aLightData && !plug.attribute()->isDescendentOf(aLightData))
            return TlightShape::vectorComputePlug(plug, block, first, count);
        const TvectorDataHandle colour = block.vectorInputValue(aColor, first, count);
        const TvectorDataHandle intensity = block.vectorInputValue(aIntensity, first, count);
        const TvectorDataHandle out = block.vectorOutputValue(aLightData, first);
        for (unsigned i = 0; i < count; ++i) {
            const float* c = colour[int(i)].asFloat3();
            const float k = intensity[int(i)].asFloat();
            *out[int(i)].asLightData() = TlightData{{0.0f, 0.6f, 0.8f},
                                                    {c[0] * k, c[1] * k, c[2] * k},
                                                    false,
                                                    true,
                                                    false,
                                                    0.0f,
                                                    k,
                                                    static_cast<TlightBlindData*>(this)};
        }
        return true;
    }
    float integrateLambertianReflectance(const T3Float& l, const T3Float&, const T3Float& n,
                                         bool) override {
        return 0.5f * (l.x * n.x + l.y * n.y + l.z * n.z);
    }
    T3Float maxPhongSpecularDirection(const T3Float& l, const T3Float&, const T3Float&,
                                      const T3Float&, const T3Float*) override {
        return l;
    }
    float lightAttenuation(const T3Float&, const T3Float&, bool) override { return 1.0f; }
    float hemisphereCoverage(const T3Float& l, const T3Float& p, const T3Float& n,
                             bool clamp) override {
        return integrateLambertianReflectance(l, p, n, clamp);
    }
};

ORVO_REGISTER_NODE(TdnLambertTestLight)
ORVO_DEPENDENCIES(TdnLambertTestLight) {}

namespace {

class Group : public TrenderGroupBase {
public:
    int objectIndex() const override { return -1; }
};

TEST(LambertEngine, GatheredLightsReachEverySample) {
    TdependGraph graph;
    std::ostringstream log;
    qsl::Interpreter(graph, log)
        .runText(R"(
node lambert l
set l.color 1 0.5 0.25
node shadingEngine sg
connect l.outColor sg.surfaceShader
node transform t
node lambertTestLight key -parent t
set key.intensity 2
node objectSet keyLights
member keyLights key
connect keyLights.message sg.linkedLights
)",
                 "lit.qsl");
    auto* engine = static_cast<TDNshadingEngine*>(graph.findNode("sg"));
    TrenderThreadBase thread;
    Group group;
    thread.initShadingGroup(engine);
    thread.startSampling(engine, 0, &group);
    std::vector<Tsample*> samples(3, nullptr);
    thread.sampleManager()->allocateSamples(engine, 0, &group, 3, samples.data());
    // Normals facing the light, turned half away, and away.
    const T3Float normals[3] = {{0, 0.6f, 0.8f}, {0, 0, 1}, {0, -0.6f, -0.8f}};
    for (unsigned i = 0; i < 3; ++i) {
        samples[i]->setNormalCamera(normals[i]);
        samples[i]->setIlluminationIndex(int16_t(i));
    }
    engine->controlBlock(0)->shade(3, samples.data());
    // color * intensity 2 * (0.5 * cos) * diffuse 0.8, with cos 1, 0.8 and
    // -1 (no light from behind).
    const float scale[3] = {0.8f, 0.64f, 0.0f};
    for (unsigned i = 0; i < 3; ++i)
        lambert_test::expect3(&samples[i]->outColor()->x,
                              {scale[i], 0.5f * scale[i], 0.25f * scale[i]},
                              "sample " + std::to_string(i));
    TrenderThreadBase::resetShadingGroups();
}

// A renderer's group that keeps the red of what comes back.
class RecordingGroup : public TrenderGroupBase {
public:
    Completion completion() const override { return &RecordingGroup::done; }
    void* completionData() const override { return const_cast<RecordingGroup*>(this); }
    std::vector<float> red;

private:
    static void done(unsigned, TrenderGroupBase*, Tsample** samples, unsigned count, void* self) {
        for (unsigned i = 0; i < count; ++i)
            static_cast<RecordingGroup*>(self)->red.push_back(samples[i]->outColor()->x);
    }
};

TEST(LambertEngine, EachRenderShadesInThePassOfItsOwnFrame) {
    TdependGraph graph;
    std::ostringstream log;
    qsl::Interpreter(graph, log)
        .runText(R"(
node lambert l
set l.color 1 0.5 0.25
node shadingEngine sg
connect l.outColor sg.surfaceShader
node transform t
node lambertTestLight key -parent t
set key.intensity 2
)",
                 "passes.qsl");
    auto* engine = static_cast<TDNshadingEngine*>(graph.findNode("sg"));
    // The process-wide switch says highlights only; neither render reads it.
    lambert_test::PassScope global(4);
    // Facing the light: red 1 x 2 x 0.5 x 0.8 = 0.8 in the colour pass; the
    // ambient pass has only the ambient colour, black by default.
    auto render = [&](int pass, std::vector<float>& red) {
        TstackArena arena(theMallocAllocator(), 4096);
        TframeConstants frame(arena);
        frame.setRenderPass(pass);
        TrenderThreadBase thread(frame);
        RecordingGroup group;
        thread.startSampling(engine, 0, &group);
        for (int round = 0; round < 20; ++round) {
            std::vector<Tsample*> samples(64, nullptr);
            thread.sampleManager()->allocateSamples(engine, 0, &group, 64, samples.data());
            for (Tsample* s : samples)
                s->setNormalCamera(T3Float{0, 0.6f, 0.8f});
            thread.sampleManager()->dispatchSamples(64, samples.data());
            thread.sampleManager()->flushDispatchedSamples();
            thread.sampleManager()->releaseSamples(64, samples.data());
        }
        thread.endSampling(engine, 0, &group);
        red = group.red;
    };
    std::vector<float> colour, ambient;
    TrenderThreadBase starter;
    starter.initShadingGroup(engine); // once, before the render threads start
    std::thread a([&] { render(0, colour); });
    std::thread b([&] { render(2, ambient); });
    a.join();
    b.join();
    ASSERT_EQ(colour.size(), 20u * 64u);
    ASSERT_EQ(ambient.size(), 20u * 64u);
    for (size_t i = 0; i < colour.size(); ++i) {
        EXPECT_NEAR(colour[i], 0.8f, 1e-6f) << i;
        EXPECT_EQ(ambient[i], 0.0f) << i;
    }
    TrenderThreadBase::resetShadingGroups();
}

} // namespace
