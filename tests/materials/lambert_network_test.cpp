#include <gtest/gtest.h>

#include <cstdlib>
#include <set>
#include <vector>

#include "framework/allocation_count.h"
#include "host/arena.h"
#include "host/env.h"
#include "materials/lambert_test_support.h"
#include "shading/shading_engine.h"

// A lambert in a shading network: the thinning of its transmission's
// dependencies and what the compile report makes of it, the analysis and
// end-of-render hooks, the readers, and batches shaded without the heap.

namespace {

using namespace lambert_test;

// outTransparency's affectors after the lambert thinned them, by name.
std::set<std::string> thinned(Lambert& l, TDNshadingEngine* engine) {
    TbitFieldFixedN set;
    TdnLambert::sVsData()->dependencies().allAffectors(TdnLambert::aOutTransparency.index(), set);
    l.node->modifyAffects(&TdnLambert::aOutTransparency, set, engine, nullptr);
    std::set<std::string> out;
    set.forEach([&](size_t i) { out.insert(TdnLambert::sVsData()->attributes()[i]->longName()); });
    return out;
}

TEST(LambertNetwork, OpaqueMaterialsDropTheirTransmissionInputs) {
    Lambert l("node shadingEngine sg\nnode reverse r");
    auto* engine = static_cast<TDNshadingEngine*>(l.g.findNode("sg"));
    // Transparency 0: the transmission is the constant 0.
    EXPECT_TRUE(thinned(l, engine).empty());
    // See-through, no refractions: the ray inputs go, all but the Z of
    // pointCamera and normalCamera.
    l.run("set l.transparency 0.5 0.5 0.5");
    const std::set<std::string> kept = {
        "transparency", "transparencyR",    "transparencyG",       "transparencyB",
        "hideSource",   "surfaceThickness", "chromaticAberration", "shadowAttenuation",
        "pointCameraZ", "normalCameraZ"};
    EXPECT_EQ(thinned(l, engine), kept);
    // Refractions keep every input.
    l.run("set l.refractions true");
    EXPECT_TRUE(thinned(l, engine).count("rayDirection"));
    // A connected transparency may vary, whatever its value now.
    l.run("set l.refractions false\nset l.transparency 0 0 0\nconnect r.outputX l.transparencyR");
    EXPECT_EQ(thinned(l, engine), kept);
}

TEST(LambertNetwork, CompileReportOfOpaqueAndRefractingLamberts) {
    auto report = [](const std::string& scene) {
        Lambert l(scene + "\nnode shadingEngine sg\nconnect l.outColor sg.surfaceShader");
        auto* engine = static_cast<TDNshadingEngine*>(l.g.findNode("sg"));
        EXPECT_TRUE(engine->analyse(0, nullptr));
        std::ostringstream out;
        engine->compileReport(out, 0, false);
        TrenderThreadBase::deleteAllOpuses();
        return out.str();
    };
    // The state the report gives outTransparency: "constant" or "varying".
    auto transmission = [](const std::string& text) {
        std::istringstream line(text.substr(text.find("\n  outTransparency ")));
        std::string name, state;
        line >> name >> state;
        return state;
    };
    const std::string opaque = report("");
    EXPECT_NE(opaque.find("surface is opaque: yes"), std::string::npos) << opaque;
    EXPECT_EQ(transmission(opaque), "constant") << opaque;
    const std::string glass = report("set l.transparency 0.5 0.5 0.5\nset l.refractions true");
    EXPECT_NE(glass.find("surface is opaque: no"), std::string::npos) << glass;
    EXPECT_EQ(transmission(glass), "varying") << glass;
}

TEST(LambertNetwork, HooksAndReaders) {
    Lambert l("set l.color 0.1 0.2 0.3\nset l.diffuse 0.25\nnode luminance lum");
    // Without ray tracing the ray fields aren't needed: 36, 37, 45 and 46.
    TbitField64 fields(~uint64_t(0));
    l.node->analyse(nullptr, nullptr, nullptr, fields);
    EXPECT_EQ(fields.bits(), ~uint64_t(0)) << "ray tracing counts as on";
    {
        // A render whose frame has ray tracing off.
        TstackArena arena(theMallocAllocator(), 4096);
        TframeConstants frame(arena);
        frame.setRayTracing(false);
        const TframeConstants::Scope current(&frame);
        l.node->analyse(nullptr, nullptr, nullptr, fields);
    }
    EXPECT_EQ(fields.bits(), ~uint64_t(0x603000000000));

    // The end of a render forgets the sampler.
    RecordingSampler sampler;
    l.setPointer("raySampler", &sampler);
    l.node->endOfRender();
    EXPECT_EQ(l.g.evaluate(l.g.findPlug("l.raySampler")).as<void*>(), nullptr);

    EXPECT_EQ(l.node->getColor().y, 0.2f);
    EXPECT_EQ(l.node->getDiffuseCoeff(), 0.25f);
    EXPECT_EQ(l.node->getGlowIntensity(), 0.0f);
    // Glow driven by a network: 0 reads as the token, else the value.
    l.run("connect lum.outValue l.glowIntensity");
    EXPECT_EQ(l.node->getGlowIntensity(), 1234.5677f);
    l.run("set lum.value 1 1 1");
    EXPECT_NEAR(l.node->getGlowIntensity(), 1.0f, 1e-6f);

    // ORVO_USE_OLD_TRANSLUCENCE_DEPTH_DEFAULT set to anything, even
    // nothing, makes the default depth 0.
    const char* name = "ORVO_USE_OLD_TRANSLUCENCE_DEPTH_DEFAULT";
    for (const char* value : {"0", ""}) {
        ::setenv(name, value, 1);
        OrvoEnvRefresh();
        EXPECT_EQ(TdnLambert::translucenceDepthDefault(), 0.0f) << value;
    }
    ::unsetenv(name);
    OrvoEnvRefresh();
    EXPECT_EQ(TdnLambert::translucenceDepthDefault(), 0.5f);
}

// A batch of 64 through a shading group's opus, as `orvo shade` does. No
// lights reach a material through the engine yet: ambient and incandescence.
TEST(LambertNetwork, ShadesBatchesThroughAShadingGroupWithoutAllocating) {
    Lambert l("set l.ambientColor 0.4 0.4 0.4\nset l.incandescence 0.1 0 0\n"
              "set l.transparency 0.5 0.5 0.5\nset l.glowIntensity 2\n"
              "node shadingEngine sg\nconnect l.outColor sg.surfaceShader");
    auto* engine = static_cast<TDNshadingEngine*>(l.g.findNode("sg"));
    ASSERT_TRUE(engine->analyse(0, nullptr));
    const unsigned size = engine->sampleSize(0);
    std::vector<uint64_t> storage(size_t(size) * 64 / 8 + 1);
    std::vector<Tsample*> samples;
    for (unsigned i = 0; i < 64; ++i) {
        samples.push_back(reinterpret_cast<Tsample*>(reinterpret_cast<std::byte*>(storage.data()) +
                                                     size_t(i) * size));
        samples.back()->initialize(nullptr, nullptr, engine->fieldOffsetTable(0));
    }
    TshadingOpus* opus = engine->controlBlock(0);
    opus->shade(64, samples.data());
    if (OrvoTestAllocationsAreCounted()) {
        OrvoTestStartCountingAllocations();
        opus->shade(64, samples.data());
        EXPECT_EQ(OrvoTestStopCountingAllocations(), 0);
    }
    // color 0.5 * ambient 0.4 * (1 - 0.5) + incandescence; glow twice that.
    for (Tsample* s : {samples[0], samples[63]}) {
        expect3(&s->outColor()->x, {0.2f, 0.1f, 0.1f}, "colour");
        expect3(&s->outGlowColor()->x, {0.4f, 0.2f, 0.2f}, "glow");
        expect3(&s->outTransparency()->x, {0.5f, 0.5f, 0.5f}, "transmission");
        expect3(&s->outMatteOpacity()->x, {0.5f, 0.5f, 0.5f}, "matte");
    }
    TrenderThreadBase::deleteAllOpuses();
}

// The batch compute with a light in every sample, refraction in every
// other one and chromatic aberration in every fourth: no heap.
TEST(LambertNetwork, BatchComputeAllocatesNothing) {
    if (!OrvoTestAllocationsAreCounted())
        GTEST_SKIP() << "allocations are counted in the ordinary build";
    Lambert l;
    RecordingSampler sampler;
    SampleRun run(l.node, 64);
    run.putAll(TdnLambert::aRayDirection, T3Float{0.6f, 0, -0.8f});
    run.putAll(TdnLambert::aTransparency, T3Float{0.5f, 0.5f, 0.5f});
    run.putAll(TdnLambert::aRefractiveIndex, 1.5f);
    run.putAll(TdnLambert::aTranslucenceCoeff, 0.5f);
    run.putAll(TdnLambert::aRaySampler, static_cast<void*>(static_cast<TraySampler*>(&sampler)));
    for (unsigned e = 0; e < 64; ++e) {
        run.put(TdnLambert::aRtRefractedColor, e, e % 2 == 0);
        run.put(TdnLambert::aChromaticAberration, e, e % 4 == 0);
        run.light(e);
    }
    run.compute(l.node, TdnLambert::aOutColor); // warm up
    sampler.rayCount = 0;
    OrvoTestStartCountingAllocations();
    for (int pass : {0, 5}) {
        run.compute(l.node, TdnLambert::aOutColor, pass);
        run.compute(l.node, TdnLambert::aOutTransparency, pass);
    }
    EXPECT_EQ(OrvoTestStopCountingAllocations(), 0);
    // 16 samples of 3 rays and 16 of 1 a call: colour and transmission in
    // pass 0, transmission alone in the shadow pass.
    EXPECT_EQ(sampler.rayCount, 3u * 64u);
}

} // namespace
