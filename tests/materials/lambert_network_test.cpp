#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "framework/allocation_count.h"
#include "materials/lambert_test_support.h"
#include "shading/shading_engine.h"

// A lambert in a shading network: the thinning of its transmission's
// dependencies, the compile report, grouped outputs, the analysis hook, the
// end of a render, the readers, and shading whole batches without touching
// the heap.

namespace {

using lambert_test::expectColour;
using lambert_test::OneLambert;
using lambert_test::PassScope;
using lambert_test::RecordingSampler;
using lambert_test::SampleRun;

constexpr float kTol = 1e-5f;

// Names of the attributes whose bits are set.
std::set<std::string> names(const TbitFieldFixedN& bits) {
    std::set<std::string> out;
    const TattributeList& attributes = TdnLambert::sVsData()->attributes();
    bits.forEach([&](size_t i) { out.insert(attributes[i]->longName()); });
    return out;
}

// What outTransparency's affectors are after the lambert thinned them.
struct Thinning : OneLambert {
    TDNshadingEngine* engine = nullptr;

    Thinning() { engine = static_cast<TDNshadingEngine*>(g.createNode("shadingEngine", "sg")); }

    std::set<std::string> affectors(const Tattribute& output) {
        TbitFieldFixedN set;
        TdnLambert::sVsData()->dependencies().allAffectors(output.index(), set);
        node->modifyAffects(&output, set, engine, nullptr);
        return names(set);
    }
};

TEST(LambertNetwork, OpaqueMaterialsDropTheirTransmissionInputs) {
    Thinning l;
    const std::set<std::string> full = l.affectors(TdnLambert::aOutColor);
    const std::set<std::string> all = [] {
        TbitFieldFixedN set;
        TdnLambert::sVsData()->dependencies().allAffectors(TdnLambert::aOutTransparency.index(),
                                                           set);
        return names(set);
    }();
    ASSERT_TRUE(all.count("rayDirection") && all.count("pointCameraZ") && all.count("objectId"));
    EXPECT_TRUE(full.count("rayDirection")) << "other outputs keep their set";

    // Transparency 0, 0, 0: the transmission is the constant 0.
    EXPECT_TRUE(l.affectors(TdnLambert::aOutTransparency).empty());

    // See-through without refractions: the ray inputs go, but Z of
    // pointCamera and normalCamera stay.
    l.set("transparency", {0.5, 0.5, 0.5});
    const std::set<std::string> kept = {
        "transparency", "transparencyR",    "transparencyG",       "transparencyB",
        "hideSource",   "surfaceThickness", "chromaticAberration", "shadowAttenuation",
        "pointCameraZ", "normalCameraZ"};
    EXPECT_EQ(l.affectors(TdnLambert::aOutTransparency), kept);

    // With refractions every input counts.
    l.setWords("refractions", {"true"});
    EXPECT_EQ(l.affectors(TdnLambert::aOutTransparency), all);
}

TEST(LambertNetwork, ConnectedInputsAreTakenAsVarying) {
    Thinning l;
    // A connected transparency may vary by sample, so its value of 0 proves
    // nothing; refractions off still drops the ray inputs.
    l.g.createNode("reverse", "r");
    l.g.connect(l.g.findPlug("r.outputX"), l.g.findPlug("l.transparencyR"));
    const std::set<std::string> thinned = l.affectors(TdnLambert::aOutTransparency);
    EXPECT_TRUE(thinned.count("transparency"));
    EXPECT_FALSE(thinned.count("rayDirection"));
    EXPECT_TRUE(thinned.count("normalCameraZ"));
}

// The compile report of a shading group whose surface is a lambert: an
// opaque one has a constant transmission, a refracting one a varying one.
TEST(LambertNetwork, CompileReportOfOpaqueAndRefractingLamberts) {
    auto report = [](bool refracting) {
        OneLambert l;
        if (refracting) {
            l.set("transparency", {0.5, 0.5, 0.5});
            l.setWords("refractions", {"true"});
        }
        auto* engine = static_cast<TDNshadingEngine*>(l.g.createNode("shadingEngine", "sg"));
        l.g.connect(l.g.findPlug("l.outColor"), l.g.findPlug("sg.surfaceShader"));
        EXPECT_TRUE(engine->analyse(0, nullptr));
        std::ostringstream out;
        engine->compileReport(out, 0, false);
        TrenderThreadBase::deleteAllOpuses();
        return out.str();
    };
    // The state of an attribute of node l in a report.
    auto state = [](const std::string& text, const std::string& attribute) {
        std::istringstream lines(text);
        std::string line;
        bool inLambert = false;
        while (std::getline(lines, line)) {
            if (line.rfind("node ", 0) == 0)
                inLambert = line.rfind("node l (lambert)", 0) == 0;
            std::istringstream words(line);
            std::string name, value;
            words >> name >> value;
            if (inLambert && name == attribute)
                return value;
        }
        return std::string("missing");
    };
    const std::string opaque = report(false);
    EXPECT_EQ(state(opaque, "outTransparency"), "constant") << opaque;
    EXPECT_EQ(state(opaque, "outColor"), "varying") << opaque;
    EXPECT_NE(opaque.find("surface is opaque: yes"), std::string::npos) << opaque;

    const std::string refracting = report(true);
    EXPECT_EQ(state(refracting, "outTransparency"), "varying") << refracting;
    EXPECT_NE(refracting.find("surface is opaque: no"), std::string::npos) << refracting;
}

TEST(LambertNetwork, OutputsComputedTogetherAreGrouped) {
    OneLambert l;
    auto grouped = [&](const Tattribute& a, int pass) {
        PassScope scope(pass);
        TattributeArray out;
        l.node->groupedAttrs(&a, out);
        std::set<std::string> result;
        for (const Tattribute* g : out)
            result.insert(g->longName());
        return result;
    };
    using S = std::set<std::string>;
    EXPECT_EQ(grouped(TdnLambert::aOutColorG, 0), S({"outGlowColor"}));
    EXPECT_EQ(grouped(TdnLambert::aOutColor, 5), S({"outGlowColor", "outMatteOpacity"}));
    EXPECT_EQ(grouped(TdnLambert::aOutGlowColor, 0), S({"outColor"}));
    EXPECT_EQ(grouped(TdnLambert::aOutTransparency, 0), S({"outMatteOpacity"}));
    EXPECT_EQ(grouped(TdnLambert::aOutTransparency, 5), S());
    EXPECT_EQ(grouped(TdnLambert::aOutMatteOpacity, 0), S({"outTransparency"}));
    EXPECT_EQ(grouped(TdnLambert::aOutMatteOpacity, 5), S({"outColor", "outGlowColor"}));
    EXPECT_EQ(grouped(TdnLambert::aColor, 0), S());
}

TEST(LambertNetwork, WithoutRayTracingTheRayFieldsAreNotNeeded) {
    OneLambert l;
    const TbitField64 all(~uint64_t(0));
    TbitField64 fields = all;
    l.node->analyse(nullptr, nullptr, nullptr, fields);
    EXPECT_EQ(fields, all) << "ray tracing counts as on";

    TdnLambert::setRayTracingQuery([] { return false; });
    l.node->analyse(nullptr, nullptr, nullptr, fields);
    TdnLambert::setRayTracingQuery(nullptr);
    // rayDepth 36, rayInstance 37, primitiveId 45, mediumRefractiveIndex 46.
    const uint64_t dropped =
        (uint64_t(1) << 36) | (uint64_t(1) << 37) | (uint64_t(1) << 45) | (uint64_t(1) << 46);
    EXPECT_EQ(fields.bits(), ~dropped);
}

TEST(LambertNetwork, EndOfRenderForgetsTheSampler) {
    OneLambert l;
    RecordingSampler sampler;
    l.setPointer("raySampler", static_cast<TraySampler*>(&sampler));
    const TdataHandle before = l.g.evaluate(l.g.findPlug("l.raySampler"));
    ASSERT_EQ(before.as<void*>(), static_cast<void*>(static_cast<TraySampler*>(&sampler)));
    l.node->endOfRender();
    EXPECT_EQ(l.g.evaluate(l.g.findPlug("l.raySampler")).as<void*>(), nullptr);
}

TEST(LambertNetwork, ReadersFollowConnections) {
    OneLambert l;
    l.set("color", {0.1, 0.2, 0.3});
    l.set("incandescence", {0.4, 0.5, 0.6});
    l.set("transparency", {0.7, 0.8, 0.9});
    l.set("diffuse", {0.25});
    EXPECT_EQ(l.node->getColor().z, 0.3f);
    EXPECT_EQ(l.node->getIncandescence().x, 0.4f);
    EXPECT_EQ(l.node->getTransparency().y, 0.8f);
    EXPECT_EQ(l.node->getDiffuseCoeff(), 0.25f);
    EXPECT_EQ(l.node->getGlowIntensity(), 0.0f);
    l.set("glowIntensity", {0.5});
    EXPECT_EQ(l.node->getGlowIntensity(), 0.5f);

    // Driven by a network: its value through the connection, and the token
    // in place of 0.
    l.g.createNode("luminance", "lum");
    l.g.connect(l.g.findPlug("lum.outValue"), l.g.findPlug("l.glowIntensity"));
    EXPECT_EQ(l.node->getGlowIntensity(), 1234.5677f);
    l.g.setPlugValueFromWords(l.g.findPlug("lum.value"), {"1", "1", "1"});
    // 0.3 + 0.59 + 0.11.
    EXPECT_NEAR(l.node->getGlowIntensity(), 1.0f, kTol);
    l.g.connect(l.g.findPlug("lum.outValue"), l.g.findPlug("l.colorG"));
    EXPECT_NEAR(l.node->getColor().y, 1.0f, kTol);
}

// A shading group whose surface is a lambert, shaded a batch of 64 through
// its opus, as a renderer does. No lights reach it yet: ambient and
// incandescence only. The shading itself allocates nothing.
TEST(LambertNetwork, ShadesBatchesThroughAShadingGroupWithoutAllocating) {
    OneLambert l;
    l.set("ambientColor", {0.4, 0.4, 0.4});
    l.set("incandescence", {0.1, 0, 0});
    l.set("transparency", {0.5, 0.5, 0.5});
    l.set("glowIntensity", {2});
    auto* engine = static_cast<TDNshadingEngine*>(l.g.createNode("shadingEngine", "sg"));
    l.g.connect(l.g.findPlug("l.outColor"), l.g.findPlug("sg.surfaceShader"));
    ASSERT_TRUE(engine->analyse(0, nullptr));
    const unsigned size = engine->sampleSize(0);
    std::vector<uint64_t> storage(size_t(size) * 64 / 8 + 1);
    std::vector<Tsample*> samples;
    for (unsigned i = 0; i < 64; ++i) {
        auto* s = reinterpret_cast<Tsample*>(reinterpret_cast<std::byte*>(storage.data()) +
                                             size_t(i) * size);
        s->initialize(nullptr, nullptr, engine->fieldOffsetTable(0));
        s->setNormalCamera(T3Float{0, 0, 1});
        samples.push_back(s);
    }
    TshadingOpus* opus = engine->controlBlock(0);
    opus->shade(64, samples.data());

    // color 0.5 * ambient 0.4 * (1 - 0.5) + incandescence.
    for (unsigned i : {0u, 63u}) {
        const std::string what = "sample " + std::to_string(i);
        expectColour(&samples[i]->outColor()->x, 0.2f, 0.1f, 0.1f, kTol, what);
        expectColour(&samples[i]->outGlowColor()->x, 0.4f, 0.2f, 0.2f, kTol, what + " glow");
        expectColour(&samples[i]->outTransparency()->x, 0.5f, 0.5f, 0.5f, kTol, what + " tr");
        expectColour(&samples[i]->outMatteOpacity()->x, 0.5f, 0.5f, 0.5f, kTol, what + " matte");
    }

    if (OrvoTestAllocationsAreCounted()) {
        OrvoTestStartCountingAllocations();
        for (int pass = 0; pass < 3; ++pass)
            opus->shade(64, samples.data());
        EXPECT_EQ(OrvoTestStopCountingAllocations(), 0);
    }
    TrenderThreadBase::deleteAllOpuses();
}

// The batch compute with a light in every sample and refraction on in
// every other one, chromatic aberration in every fourth: no heap.
TEST(LambertNetwork, BatchComputeAllocatesNothing) {
    if (!OrvoTestAllocationsAreCounted())
        GTEST_SKIP() << "allocations are counted in the ordinary build";
    OneLambert l;
    RecordingSampler sampler;
    SampleRun run(l.node, 64);
    run.put3All(TdnLambert::aNormalCamera, 0, 0, 1);
    run.put3All(TdnLambert::aRayDirection, 0.6f, 0, -0.8f);
    run.put3All(TdnLambert::aTransparency, 0.5f, 0.5f, 0.5f);
    run.putAll(TdnLambert::aRefractiveIndex, 1.5f);
    run.putAll(TdnLambert::aTranslucenceCoeff, 0.5f);
    run.putAll(TdnLambert::aRaySampler, static_cast<void*>(static_cast<TraySampler*>(&sampler)));
    for (unsigned e = 0; e < 64; ++e) {
        run.put(TdnLambert::aRtRefractedColor, e, e % 2 == 0);
        run.put(TdnLambert::aChromaticAberration, e, e % 4 == 0);
        TlightData& light = run.light(e);
        light.direction[0] = 0.6f;
        light.direction[1] = 0.0f;
        light.direction[2] = 0.8f;
    }
    run.compute(l.node, TdnLambert::aOutColor, 0); // warm up
    run.compute(l.node, TdnLambert::aOutTransparency, 0);
    sampler.rayCount = 0;

    OrvoTestStartCountingAllocations();
    for (int pass : {0, 5}) {
        run.compute(l.node, TdnLambert::aOutColor, pass);
        run.compute(l.node, TdnLambert::aOutTransparency, pass);
    }
    EXPECT_EQ(OrvoTestStopCountingAllocations(), 0);
    // 16 samples of 3 rays and 16 of 1: 64 rays a call, made by the colour
    // and the transmission of pass 0 and the transmission of pass 5 (the
    // shadow pass refracts nothing for colour).
    EXPECT_EQ(sampler.rayCount, 3u * 64u);
}

} // namespace
