// Lights reaching a shading group: which lights are gathered, and how the
// group's opus runs them per illumination slot before the material reads
// their records.

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

#include "host/arena.h"
#include "host/graph.h"
#include "host/qsl/interpreter.h"
#include "shading/sample_manager.h"
#include "shading/shading_engine.h"
#include "test_nodes.h"

namespace {

class Group : public TrenderGroupBase {
public:
    int index = -1;
    int objectIndex() const override { return index; }
};

// Two test lights in a set that the group names in linkedLights, a third
// light outside it, and a material summing what reaches it.
const char* kScene = R"(
node testLightSum sum
node shadingEngine sg
connect sum.outColor sg.surfaceShader
node transform red
node testLight redShape -parent red
set redShape.color 1 0 0
set redShape.intensity 2
node transform blue
node testLight blueShape -parent blue
set blueShape.color 0 0 1
set blueShape.intensity 3
node transform other
node testLight otherShape -parent other
node objectSet keyLights
member keyLights redShape blueShape
connect keyLights.message sg.linkedLights
// A new light joins the default light set, which lights every group: these
// light only where they are linked.
member -remove defaultLightSet redShape blueShape otherShape
)";

class LightGathering : public ::testing::Test {
protected:
    void SetUp() override { load(kScene); }
    void TearDown() override { TrenderThreadBase::resetShadingGroups(); }

    void load(const std::string& text) {
        std::ostringstream out;
        qsl::Interpreter(graph, out).runText(text, "lights.qsl");
        engine = dynamic_cast<TDNshadingEngine*>(graph.findNode("sg"));
        ASSERT_NE(engine, nullptr);
    }
    TdependNode* node(const char* name) { return graph.findNode(name); }

    // Shades `count` samples with pointCamera.x = 10 + i and the given
    // illumination indices; returns outColor and outTransparency per sample.
    struct Result {
        float colour[3];
        float info[3];      // light count, sum of preShadowIntensity, sum of direction x
        bool lightFieldSet; // the sample's own lightData field was written
    };
    std::vector<Result> shade(unsigned count, const std::vector<int16_t>& illumination,
                              const std::vector<T3Float>& points = {}) {
        TrenderThreadBase thread;
        thread.initShadingGroup(engine);
        thread.startSampling(engine, 0, &group);
        std::vector<Tsample*> samples(count, nullptr);
        thread.sampleManager()->allocateSamples(engine, 0, &group, count, samples.data());
        for (unsigned i = 0; i < count; ++i) {
            samples[i]->setPointCamera(i < points.size() ? points[i]
                                                         : T3Float{10.0f + float(i), 0.0f, -5.0f});
            samples[i]->setIlluminationIndex(illumination[i]);
        }
        engine->controlBlock(0)->shade(count, samples.data());
        std::vector<Result> results(count);
        for (unsigned i = 0; i < count; ++i) {
            const T3Float c = *samples[i]->outColor();
            const T3Float t = *samples[i]->outTransparency();
            results[i] = {
                {c.x, c.y, c.z}, {t.x, t.y, t.z}, samples[i]->isSet(TsampleFields::lightData)};
        }
        return results;
    }

    TdependGraph graph;
    TDNshadingEngine* engine = nullptr;
    Group group;
};

TEST_F(LightGathering, ASetNamedByTheGroupLightsEveryMember) {
    engine->gatherLights();
    ASSERT_EQ(engine->lightList().size(), 2u);
    EXPECT_EQ(engine->lightList()[0].node(), node("redShape"));
    EXPECT_EQ(engine->lightList()[1].node(), node("blueShape"));
    EXPECT_EQ(engine->lightList()[0].attribute()->longName(), "lightData");
    // The group has no members yet: no rows, and litBy is false for all.
    EXPECT_EQ(engine->lightMemberCount(), 0u);
    EXPECT_FALSE(engine->litBy(0, node("redShape")));
}

TEST_F(LightGathering, RowsCoverEachMemberAndLitByStopsAtTheEnd) {
    load("node transform a\nnode mesh aShape -parent a\nnode transform b\n"
         "node mesh bShape -parent b\nmember sg a b\n");
    engine->gatherLights();
    ASSERT_EQ(engine->lightMemberCount(), 2u);
    EXPECT_TRUE(engine->litBy(0, node("redShape")));
    EXPECT_TRUE(engine->litBy(1, node("blueShape")));
    EXPECT_EQ(engine->lightRowCount(1), 2u);
    EXPECT_FALSE(engine->litBy(2, node("redShape")));   // past the last member
    EXPECT_FALSE(engine->litBy(0, node("otherShape"))); // not in the list
    EXPECT_FALSE(engine->litBy(0, node("sum")));        // not a light at all
}

TEST_F(LightGathering, AHiddenLightIsInNoRow) {
    load("set blue.visibility false\n");
    engine->gatherLights();
    ASSERT_EQ(engine->lightList().size(), 1u);
    EXPECT_EQ(engine->lightList()[0].node(), node("redShape"));
}

TEST_F(LightGathering, ASlotSharedByTheBatchRunsEachLightOnce) {
    const int computes = TdnTestLight::sComputes, elements = TdnTestLight::sElements;
    const auto r = shade(64, std::vector<int16_t>(64, 7));
    EXPECT_EQ(TdnTestLight::sComputes - computes, 2); // one run per light
    EXPECT_EQ(TdnTestLight::sElements - elements, 2); // over the one representative
    for (const Result& s : r) {
        // red 1 0 0 x 2 plus blue 0 0 1 x 3.
        EXPECT_FLOAT_EQ(s.colour[0], 2.0f);
        EXPECT_FLOAT_EQ(s.colour[1], 0.0f);
        EXPECT_FLOAT_EQ(s.colour[2], 3.0f);
        EXPECT_FLOAT_EQ(s.info[0], 2.0f);
        // Both lights ran at the first sample's point, x = 10.
        EXPECT_FLOAT_EQ(s.info[1], 20.0f);
        EXPECT_FLOAT_EQ(s.info[2], 0.0f);
        // The records went straight into the slot's array.
        EXPECT_FALSE(s.lightFieldSet);
    }
}

TEST_F(LightGathering, ALightWritesItsRecordsWhereTheMaterialReadsThem) {
    // Slots {0, 1}, {2} and {3}: each light writes three records, and the
    // material reads two a sample at the very places they were written,
    // with no copy between (with a copy, the reads would land elsewhere).
    TdnTestLight::sWrittenAt.clear();
    TdnTestLightSum::sReadAt.clear();
    const auto r = shade(4, {5, 5, -1, -1});
    ASSERT_EQ(TdnTestLight::sWrittenAt.size(), 2u * 3u);
    ASSERT_EQ(TdnTestLightSum::sReadAt.size(), 2u * 4u);
    const auto& written = TdnTestLight::sWrittenAt; // red's slots, then blue's
    const auto& read = TdnTestLightSum::sReadAt;    // a sample's red, then its blue
    const unsigned slotOf[4] = {0, 0, 1, 2};
    for (unsigned s = 0; s < 4; ++s) {
        EXPECT_EQ(read[2 * s], written[slotOf[s]]) << "red, sample " << s;
        EXPECT_EQ(read[2 * s + 1], written[3 + slotOf[s]]) << "blue, sample " << s;
        EXPECT_FLOAT_EQ(r[s].colour[0], 2.0f);
        EXPECT_FLOAT_EQ(r[s].colour[2], 3.0f);
    }
}

TEST_F(LightGathering, ACompiledLightsSettingsHoldForTheWholeRun) {
    // A directional light whose settings are constants of its compiled
    // network. It stands at z = -10 and shines toward -z: with its position
    // in use, only z < -10 is lit. It gives no diffuse light.
    load("node transform sun\nnode directionalLight sunShape -parent sun\n"
         "set sun.translate 0 0 -10\nset sunShape.useLightPosition true\n"
         "set sunShape.intensity 2\nset sunShape.emitDiffuse false\n"
         "member keyLights sunShape\nmember -remove keyLights redShape blueShape\n"
         "member -remove defaultLightSet sunShape\n");
    TdnTestLightSum::sRecords.clear();
    shade(3, {-1, -1, -1}, {{0, 0, -20}, {0, 0, -5}, {1, 2, -30}});
    const auto& records = TdnTestLightSum::sRecords;
    ASSERT_EQ(records.size(), 3u);
    auto triple = [](const float* v) {
        return std::vector<float>{v[0], v[1], v[2]};
    };
    for (unsigned s : {0u, 2u}) {
        EXPECT_EQ(triple(records[s].intensity), (std::vector<float>{2, 2, 2})) << s;
        EXPECT_EQ(triple(records[s].direction), (std::vector<float>{0, 0, 1})) << s;
        EXPECT_FALSE(records[s].diffuse) << s;
        EXPECT_TRUE(records[s].specular) << s;
    }
    // Behind the light's plane: nothing.
    EXPECT_EQ(triple(records[1].intensity), (std::vector<float>{0, 0, 0}));
    EXPECT_FALSE(records[1].diffuse);
    EXPECT_FALSE(records[1].specular);
}

TEST_F(LightGathering, NeighboursWithOneIndexShareASlotAndNegativeIndicesStandAlone) {
    // Slots: {0, 1}, {2}, {3} and {4, 5}: four representatives, samples 0, 2, 3, 4.
    const int elements = TdnTestLight::sElements;
    const auto r = shade(6, {5, 5, -1, -1, 9, 9});
    EXPECT_EQ(TdnTestLight::sElements - elements, 2 * 4);
    const float representativeX[6] = {10, 10, 12, 13, 14, 14};
    for (unsigned i = 0; i < 6; ++i)
        EXPECT_FLOAT_EQ(r[i].info[1], 2.0f * representativeX[i]) << "sample " << i;
}

TEST_F(LightGathering, AnObjectsRowSkipsTheLightsWithoutItsBit) {
    // Member 0 is lit by both lights of the set; the object index picks the
    // row. Past the last member the group's lights all apply.
    load("node transform a\nnode mesh aShape -parent a\nmember sg a\n");
    group.index = 0;
    auto r = shade(4, std::vector<int16_t>(4, 0));
    EXPECT_FLOAT_EQ(r[0].info[0], 2.0f);
    group.index = -1;
    r = shade(4, std::vector<int16_t>(4, 0));
    EXPECT_FLOAT_EQ(r[3].info[0], 2.0f);
}

TEST_F(LightGathering, SampleLightsRunsTheLightsAtOtherPoints) {
    load("set sum.probe true\n");
    // The frame's camera stands 1000 along x in the world.
    TstackArena arena(theMallocAllocator(), 4096);
    TframeConstants frame(arena);
    T4dFltMatrix eyeToWorld;
    eyeToWorld.m[3][0] = 1000.0f;
    frame.setEyeToWorld(eyeToWorld);
    const TframeConstants::Scope current(&frame);
    const auto r = shade(3, {-1, -1, -1});
    // Two lights at x + 100 and x + 200: 2 (2x + 300) for the sample at x,
    // and in the world 2 (2x + 2300).
    for (unsigned i = 0; i < 3; ++i) {
        const float x = 10.0f + float(i);
        EXPECT_FLOAT_EQ(r[i].info[2], 2.0f * (2.0f * x + 300.0f)) << i;
        EXPECT_FLOAT_EQ(r[i].info[1], 2.0f * (2.0f * x + 2300.0f)) << i;
    }
}

TEST_F(LightGathering, TwoGroupsShareOneOpusPerLight) {
    load("node testLightSum sum2\nnode shadingEngine sg2\nconnect sum2.outColor sg2.surfaceShader\n"
         "connect keyLights.message sg2.linkedLights\n");
    auto* second = dynamic_cast<TDNshadingEngine*>(node("sg2"));
    TbitField64 provided;
    ASSERT_TRUE(engine->analyse(0, &provided));
    ASSERT_TRUE(second->analyse(0, &provided));
    EXPECT_EQ(TrenderThreadBase::opusReferences(node("redShape"), kTSElightOption), 2u);
    EXPECT_EQ(TrenderThreadBase::opusReferences(node("blueShape"), kTSElightOption), 2u);
    EXPECT_EQ(engine->numberOfLights(0), 2u);
    EXPECT_EQ(engine->controlBlock(0)->illuminatingLight(0),
              second->controlBlock(0)->illuminatingLight(0));
    // Releasing one group's opus gives back its references only.
    TrenderThreadBase::deleteOpus(engine, 0, true);
    EXPECT_EQ(TrenderThreadBase::opusReferences(node("redShape"), kTSElightOption), 1u);
}

TEST_F(LightGathering, ANetworkThatReadsNoLightCompilesNone) {
    load("node testUvColor uv\ndisconnect sum.outColor sg.surfaceShader\n"
         "connect uv.outColor sg.surfaceShader\n");
    TbitField64 provided;
    ASSERT_TRUE(engine->analyse(0, &provided));
    EXPECT_EQ(engine->numberOfLights(0), 0u);
    EXPECT_EQ(TrenderThreadBase::opusReferences(node("redShape"), kTSElightOption), 0u);
}

TEST_F(LightGathering, TheCompileReportNamesTheLights) {
    TbitField64 provided;
    ASSERT_TRUE(engine->analyse(0, &provided));
    std::ostringstream report;
    engine->compileReport(report, 0, false);
    EXPECT_NE(report.str().find("lights: 2: redShape"), std::string::npos) << report.str();
    EXPECT_NE(report.str().find("the lights of the sample's illumination slot"), std::string::npos);
}

} // namespace

namespace {

// Three objects in one group; a light linked to the group on a linker and
// ignored for the middle object, and the same light reached again through
// two sets.
const char* kLinkedScene = R"(
node testLightSum sum
node shadingEngine sg
connect sum.outColor sg.surfaceShader
node transform a
node mesh aShape -parent a
node transform b
node mesh bShape -parent b
node transform c
node mesh cShape -parent c
member sg a b c
node transform key
node testLight keyShape -parent key
member -remove defaultLightSet keyShape
node lightLinker rig
connect sg.message rig.link[0].object
connect keyShape.message rig.link[0].light
connect bShape.message rig.ignore[0].objectIgnored
connect keyShape.message rig.ignore[0].lightIgnored
node objectSet warm
member warm keyShape
node objectSet cool
member cool keyShape
connect sg.message rig.link[1].object
connect warm.message rig.link[1].light
connect sg.message rig.link[2].object
connect cool.message rig.link[2].light
)";

TEST(LightLinks, ALightIgnoredForOneObjectLightsTheOthersWithOneNumber) {
    TdependGraph graph;
    std::ostringstream out;
    qsl::Interpreter(graph, out).runText(kLinkedScene, "links.qsl");
    auto* engine = dynamic_cast<TDNshadingEngine*>(graph.findNode("sg"));
    ASSERT_NE(engine, nullptr);
    engine->gatherLights();
    const TdependNode* key = graph.findNode("keyShape");
    // Three entries for the light (direct and two sets) make one number.
    ASSERT_EQ(engine->lightList().size(), 1u);
    EXPECT_EQ(engine->lightList()[0].node(), key);
    EXPECT_TRUE(engine->litBy(0, key));
    EXPECT_FALSE(engine->litBy(1, key));
    EXPECT_TRUE(engine->litBy(2, key));
    EXPECT_EQ(engine->lightRowCount(1), 0u);
    // The shadow lists have no link of this light.
    EXPECT_FALSE(engine->shadowedBy(0, key));
}

TEST(LightLinks, AnObjectsRowLeavesOutItsIgnoredLight) {
    TdependGraph graph;
    std::ostringstream out;
    qsl::Interpreter(graph, out).runText(kLinkedScene, "links.qsl");
    auto* engine = dynamic_cast<TDNshadingEngine*>(graph.findNode("sg"));
    auto countFor = [&](int object) {
        struct ObjectGroup : TrenderGroupBase {
            int index;
            int objectIndex() const override { return index; }
        } group;
        group.index = object;
        TrenderThreadBase thread;
        thread.initShadingGroup(engine);
        thread.startSampling(engine, 0, &group);
        Tsample* sample = nullptr;
        thread.sampleManager()->allocateSamples(engine, 0, &group, 1, &sample);
        thread.sampleManager()->dispatchSamples(1, &sample);
        thread.sampleManager()->flushDispatchedSamples();
        return sample->outTransparency()->x; // the number of lights the material saw
    };
    EXPECT_FLOAT_EQ(countFor(0), 1.0f);
    EXPECT_FLOAT_EQ(countFor(1), 0.0f); // b ignores the light
    EXPECT_FLOAT_EQ(countFor(2), 1.0f);
    TrenderThreadBase::resetShadingGroups();
}

} // namespace
