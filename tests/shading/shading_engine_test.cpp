#include <gtest/gtest.h>

#include <atomic>
#include <sstream>
#include <thread>
#include <vector>

#include "framework/nodes/utility/reverse.h"
#include "host/graph.h"
#include "host/qsl/interpreter.h"
#include "shading/shading_engine.h"
#include "test_nodes.h"

namespace {

// Samples laid out as an option's offsets say, with uvCoord (i + 0.5)/n.
class Batch {
public:
    Batch(const TDNshadingEngine& engine, TSEoption option, unsigned count)
        : fSize(engine.sampleSize(option)), fStorage(size_t(fSize) * count / 8 + 1) {
        const unsigned* offsets = engine.fieldOffsetTable(option);
        for (unsigned i = 0; i < count; ++i) {
            auto* s = reinterpret_cast<Tsample*>(reinterpret_cast<std::byte*>(fStorage.data()) +
                                                 size_t(i) * fSize);
            s->initialize(nullptr, nullptr, offsets);
            s->setUvCoord((float(i) + 0.5f) / float(count), 1.0f - float(i) / float(count));
            fSamples.push_back(s);
        }
    }
    Tsample** samples() { return fSamples.data(); }
    Tsample& operator[](size_t i) { return *fSamples[i]; }

private:
    unsigned fSize;
    std::vector<uint64_t> fStorage;
    std::vector<Tsample*> fSamples;
};

class ShadingEngine : public ::testing::Test {
protected:
    void load(const std::string& scene) {
        std::ostringstream out;
        qsl::Interpreter(graph, out).runText(scene, "scene.qsl");
        engine = dynamic_cast<TDNshadingEngine*>(graph.findNode("sg"));
        ASSERT_NE(engine, nullptr);
    }
    void TearDown() override { TrenderThreadBase::deleteAllOpuses(); }

    TdependGraph graph;
    TDNshadingEngine* engine = nullptr;
};

// lambert computes its colour, then its matte opacity: the list copies the
// eight sample fields lambert reads before each. The second copies find the
// values in place and are skipped; the colour and the opacity still come
// out of a batch as they would alone.
TEST_F(ShadingEngine, RepeatedCopiesOfSampleFieldsAreSkipped) {
    load("node lambert l\nset l.color 0.5 0.25 1\nset l.diffuse 1\nset l.ambientColor 0.25 0.25 "
         "0.25\n"
         "node shadingEngine sg\nconnect l.outColor sg.surfaceShader\n");
    ASSERT_TRUE(engine->analyse(0, nullptr));
    const TshadingOpus* opus = engine->controlBlock(0);
    unsigned copiesFromFields = 0;
    for (const TSEinstruction& in : opus->instructions())
        if (in.opcode == kOpCopy && in.copy.descriptor->source.mode == kDataSampleField)
            ++copiesFromFields;
    EXPECT_EQ(copiesFromFields, 16u);
    EXPECT_EQ(opus->repeatedCopies(), 8u);

    Batch batch(*engine, 0, 64);
    engine->controlBlock(0)->shade(64, batch.samples());
    for (unsigned i : {0u, 63u}) {
        // No lights: the ambient colour times the colour.
        EXPECT_FLOAT_EQ(batch[i].outColor()->x, 0.125f);
        EXPECT_FLOAT_EQ(batch[i].outColor()->z, 0.25f);
        EXPECT_FLOAT_EQ(batch[i].outMatteOpacity()->x, 1.0f);
    }
}

TEST_F(ShadingEngine, AVaryingNetworkShadesABatchToTheRightValues) {
    load("node testUvColor uv\nnode reverse rev\nnode shadingEngine sg\n"
         "set uv.gain 0.25\n"
         "connect uv.outColor rev.input\n"
         "node testUvColor out\n"
         "connect rev.output out.transparency\n"
         "connect out.outColor sg.surfaceShader\n");
    TbitField64 provided;
    ASSERT_TRUE(engine->analyse(0, &provided));
    EXPECT_TRUE(provided.test(TsampleFields::outColor));
    EXPECT_TRUE(provided.test(TsampleFields::outTransparency));
    EXPECT_FALSE(provided.test(TsampleFields::outGlowColor)); // nothing serves it
    EXPECT_TRUE(engine->needs(0, TsampleFields::uvCoord));
    EXPECT_FALSE(engine->surfaceIsOpaque()); // transparency varies

    Batch batch(*engine, 0, 64);
    engine->controlBlock(0)->shade(64, batch.samples());
    for (unsigned i : {0u, 13u, 63u}) {
        const float u = (float(i) + 0.5f) / 64.0f, v = 1.0f - float(i) / 64.0f;
        // out.outColor is its own UV and gain 0 ...
        EXPECT_EQ(batch[i].outColor()->x, u);
        EXPECT_EQ(batch[i].outColor()->y, v);
        EXPECT_EQ(batch[i].outColor()->z, 0.0f);
        // ... and its transparency is 1 - (u, v, 0.25) through the reverse.
        EXPECT_EQ(batch[i].outTransparency()->x, 1.0f - u);
        EXPECT_EQ(batch[i].outTransparency()->z, 0.75f);
        EXPECT_TRUE(batch[i].isSet(TsampleFields::outColor));
    }
}

TEST_F(ShadingEngine, ConstantTransparencyDecidesOpacity) {
    load("node testUvColor a\nnode shadingEngine sg\nconnect a.outColor sg.surfaceShader\n");
    TbitField64 provided;
    ASSERT_TRUE(engine->analyse(0, &provided));
    EXPECT_TRUE(engine->surfaceIsOpaque()); // constant zero

    TdependGraph other;
    std::ostringstream out;
    qsl::Interpreter(other, out)
        .runText("node testUvColor a\nnode shadingEngine sg\nset a.transparency 0.5 0.5 0.5\n"
                 "connect a.outColor sg.surfaceShader\n",
                 "half.qsl");
    auto* half = dynamic_cast<TDNshadingEngine*>(other.findNode("sg"));
    ASSERT_TRUE(half->analyse(0, &provided));
    EXPECT_FALSE(half->surfaceIsOpaque());
    Batch batch(*half, 0, 3);
    half->controlBlock(0)->shade(3, batch.samples());
    EXPECT_EQ(batch[2].outTransparency()->y, 0.5f); // a captured constant reaches every sample
}

TEST_F(ShadingEngine, AShaderWithoutOutColorLeavesTheFieldUnprovided) {
    load("node reverse r\nnode shadingEngine sg\nconnect r.output sg.surfaceShader\n");
    TbitField64 provided;
    EXPECT_FALSE(engine->analyse(0, &provided));
    EXPECT_FALSE(provided.test(TsampleFields::outColor));
    EXPECT_EQ(engine->controlBlock(0), nullptr);
}

TEST_F(ShadingEngine, ANodeReadByTwoConsumersRunsOnDemand) {
    load("node testUvColor shared\nnode reverse a\nnode reverse b\nnode testUvColor out\n"
         "node shadingEngine sg\n"
         "connect shared.outColor a.input\nconnect shared.outColor b.input\n"
         "connect a.outputX out.gain\nconnect b.output out.transparency\n"
         "connect out.outColor sg.surfaceShader\n");
    ASSERT_TRUE(engine->analyse(0, nullptr));
    std::ostringstream report;
    engine->compileReport(report, 0, false);
    EXPECT_NE(report.str().find("node shared (testUvColor), block 2, on demand"), std::string::npos)
        << report.str();
    EXPECT_EQ(engine->controlBlock(0)->numberOfSegments(), 2u) << report.str();

    TdnTestUvColor::sComputes = 0;
    TdnTestUvColor::sElements = 0;
    Batch batch(*engine, 0, 8);
    engine->controlBlock(0)->shade(8, batch.samples());
    // shared runs once for the batch, however many consumers read it; out
    // once: 2 computes of 8 elements.
    EXPECT_EQ(TdnTestUvColor::sComputes.load(), 2);
    EXPECT_EQ(TdnTestUvColor::sElements.load(), 16);
    const float u = 0.5f / 8.0f;
    EXPECT_EQ(batch[0].outColor()->z, 1.0f - u);        // gain = 1 - shared.u
    EXPECT_EQ(batch[0].outTransparency()->x, 1.0f - u); // 1 - shared.outColor
    // The next batch is shaded anew: its values, not the last batch's.
    Batch next(*engine, 0, 4);
    engine->controlBlock(0)->shade(4, next.samples());
    EXPECT_EQ(TdnTestUvColor::sComputes.load(), 4);
    EXPECT_EQ(next[3].outTransparency()->x, 1.0f - 3.5f / 4.0f);
}

TEST_F(ShadingEngine, ANodeReadThroughTwoOutputsItWritesTogetherRunsOnce) {
    // shared's outColor and outTransparency come out of one compute: each
    // output read is a segment of its own, and either run serves both.
    // src feeds shared's transparency, so that it varies.
    load("node testUvColor src\nnode testUvColor shared\nnode reverse a\n"
         "node testUvColor out\nnode shadingEngine sg\n"
         "set shared.gain 0.5\nconnect src.outColor shared.transparency\n"
         "connect shared.outColor a.input\nconnect shared.outTransparency out.transparency\n"
         "connect a.outputZ out.gain\nconnect out.outColor sg.surfaceShader\n");
    ASSERT_TRUE(engine->analyse(0, nullptr));
    std::ostringstream report;
    engine->compileReport(report, 0, false);
    const std::string text = report.str();
    const size_t line = text.find("node shared (testUvColor)");
    ASSERT_NE(line, std::string::npos) << text;
    EXPECT_NE(text.substr(line, text.find('\n', line) - line).find("on demand"), std::string::npos)
        << text;
    EXPECT_EQ(engine->controlBlock(0)->numberOfSegments(), 3u) << text;

    TdnTestUvColor::sComputes = 0;
    Batch batch(*engine, 0, 8);
    engine->controlBlock(0)->shade(8, batch.samples());
    // src, shared and out once each: the second read finds shared's values
    // (and src's) in place.
    EXPECT_EQ(TdnTestUvColor::sComputes.load(), 3);
    // Sample 5: uv (5.5 / 8, 1 - 5 / 8). out.gain = 1 - shared.outColor.z
    // = 1 - 0.5; out.outTransparency is src's colour (u, v, 0) handed on.
    EXPECT_EQ(batch[5].outColor()->x, 0.6875f);
    EXPECT_EQ(batch[5].outColor()->z, 0.5f);
    EXPECT_EQ(batch[5].outTransparency()->x, 0.6875f);
    EXPECT_EQ(batch[5].outTransparency()->y, 0.375f);
    EXPECT_EQ(batch[5].outTransparency()->z, 0.0f);
}

TEST_F(ShadingEngine, AFeedbackLoopCompilesWithoutRecursingForever) {
    load("node testUvColor uv\nnode reverse r1\nnode reverse r2\nnode testUvColor out\n"
         "node shadingEngine sg\n"
         "connect r2.output r1.input\nconnect r1.output r2.input\n"
         "connect uv.outColorR r1.inputX\n"
         "connect r1.output out.transparency\n"
         "connect out.outColor sg.surfaceShader\n");
    ASSERT_TRUE(engine->analyse(0, nullptr));
    Batch batch(*engine, 0, 4);
    engine->controlBlock(0)->shade(4, batch.samples());
    // r1.inputX comes from uv: r1.outputX = 1 - u in every sample.
    EXPECT_EQ(batch[1].outTransparency()->x, 1.0f - 1.5f / 4.0f);
}

TEST_F(ShadingEngine, ArrayElementsMixVaryingAndConstantValues) {
    load("node testUvColor uv\nnode plusMinusAverage sum\nnode testUvColor out\n"
         "node shadingEngine sg\n"
         "set sum.operation Sum\n"
         "connect uv.outColor sum.input3D[0]\n"
         "set sum.input3D[4] 0.25 0.5 0.75\n"
         "connect sum.output3D out.transparency\n"
         "connect out.outColor sg.surfaceShader\n");
    // input3D[0] is (u, v, 0) per sample, input3D[4] the constant set; the
    // operation is one for the whole batch.
    const float u = 2.5f / 4.0f, v = 1.0f - 2.0f / 4.0f;
    const struct {
        const char* operation;
        T3Float expected;
    } cases[] = {{"Sum", {u + 0.25f, v + 0.5f, 0.75f}},
                 {"Subtract", {u - 0.25f, v - 0.5f, -0.75f}},
                 {"Average", {(u + 0.25f) / 2.0f, (v + 0.5f) / 2.0f, 0.375f}}};
    for (const auto& c : cases) {
        load(std::string("set sum.operation ") + c.operation + "\n");
        TrenderThreadBase::deleteAllOpuses();
        ASSERT_TRUE(engine->analyse(0, nullptr));
        Batch batch(*engine, 0, 4);
        engine->controlBlock(0)->shade(4, batch.samples());
        EXPECT_EQ(batch[2].outTransparency()->x, c.expected.x) << c.operation;
        EXPECT_EQ(batch[2].outTransparency()->y, c.expected.y) << c.operation;
        EXPECT_EQ(batch[2].outTransparency()->z, c.expected.z) << c.operation;
    }
}

TEST_F(ShadingEngine, ASecondAnalysisReusesTheOpus) {
    load("node testUvColor a\nnode shadingEngine sg\nconnect a.outColor sg.surfaceShader\n");
    ASSERT_TRUE(engine->analyse(0, nullptr));
    TshadingOpus* first = engine->controlBlock(0);
    ASSERT_TRUE(engine->analyse(0, nullptr));
    EXPECT_EQ(engine->controlBlock(0), first);
    EXPECT_EQ(TrenderThreadBase::opusReferences(engine, 0), 2u);
    TrenderThreadBase::deleteOpus(engine, 0, false);
    EXPECT_EQ(TrenderThreadBase::opusReferences(engine, 0), 1u);
}

TEST_F(ShadingEngine, ResettingAnEngineThatWasNeverInitialisedKeepsItsOpuses) {
    load("node testUvColor a\nnode shadingEngine sg\nconnect a.outColor sg.surfaceShader\n");
    ASSERT_TRUE(engine->analyse(0, nullptr)); // a compile without a render set-up
    TshadingOpus* opus = engine->controlBlock(0);
    ASSERT_FALSE(engine->isInitialized());
    engine->resetShadingEngine(); // only the (clear) mark is touched
    EXPECT_EQ(engine->controlBlock(0), opus);
    EXPECT_EQ(TrenderThreadBase::opusReferences(engine, 0), 1u);
    // Once a render has set the engine up, a reset frees them.
    engine->initializeConnected();
    ASSERT_TRUE(engine->isInitialized());
    engine->resetShadingEngine();
    EXPECT_FALSE(engine->isInitialized());
    EXPECT_EQ(engine->controlBlock(0), nullptr);
    EXPECT_EQ(TrenderThreadBase::opusReferences(engine, 0), 0u);
}

TEST_F(ShadingEngine, TwoThreadsRunEachOnDemandOnce) {
    load("node testUvColor a\nnode shadingEngine sg\nconnect a.outColor sg.surfaceShader\n");
    ASSERT_TRUE(engine->analyse(0, nullptr));
    TdnTestUvColor::sOnDemand = 0;
    TshadingOpus* opus = engine->controlBlock(0);
    auto work = [&] {
        Batch batch(*engine, 0, 64);
        for (int pass = 0; pass < 3; ++pass)
            opus->shade(64, batch.samples());
    };
    std::thread t1(work), t2(work);
    t1.join();
    t2.join();
    EXPECT_EQ(TdnTestUvColor::sOnDemand.load(), 1);
}

TEST_F(ShadingEngine, ThreadsShareTheTablesOfPartlyConnectedCompoundsAndElements) {
    // colorIfTrue varies through its red child only; input3D[0] through its
    // green child only. Shading must read the shared tables and constants,
    // never write them (run under ThreadSanitizer).
    load("node testUvColor uv\n"
         "node plusMinusAverage sum\nset sum.input3D[0] 1 2 3\n"
         "connect uv.outColorG sum.input3D[0].input3Dy\n"
         "node condition cond\nset cond.operation \"Greater Than\"\n"
         "set cond.colorIfTrue 0.5 0.25 0.125\nset cond.colorIfFalse 1 1 1\n"
         "connect uv.outColorR cond.colorIfTrueR\n"
         "connect sum.output3Dy cond.firstTerm\n"
         "node shadingEngine sg\nconnect cond.outColor sg.surfaceShader\n");
    ASSERT_TRUE(engine->analyse(0, nullptr));
    TshadingOpus* opus = engine->controlBlock(0);
    std::atomic<int> wrong{0};
    auto work = [&] {
        Batch batch(*engine, 0, 64);
        for (int pass = 0; pass < 4; ++pass) {
            opus->shade(64, batch.samples());
            // v = 1 - i / 64 is above 0, so the test passes: (u, 0.25, 0.125).
            for (unsigned i = 0; i < 64; ++i) {
                const T3Float* c = batch[i].outColor();
                if (c->x != (float(i) + 0.5f) / 64.0f || c->y != 0.25f || c->z != 0.125f)
                    ++wrong;
            }
        }
    };
    std::thread t1(work), t2(work);
    t1.join();
    t2.join();
    EXPECT_EQ(wrong.load(), 0);
}

TEST_F(ShadingEngine, MergingTakesTheOtherGroupsMembersAndVisibilityFollowsThem) {
    load("node transform t\nnode mesh ball -parent t\nset ball.primitive sphere\n"
         "node transform hidden\nset hidden.visibility false\n"
         "node mesh ghost -parent hidden\nset ghost.primitive sphere\n"
         "node shadingEngine sg\nnode shadingEngine other\n"
         "member other ball\nmember sg ghost\n");
    EXPECT_FALSE(TDNshadingEngine::sIsUsedOnVisibleShape(*engine)); // only a hidden shape
    auto* other = dynamic_cast<TDNshadingEngine*>(graph.findNode("other"));
    TDGcommand command(graph);
    EXPECT_EQ(engine->merge(command, graph.findNode("t")), ~0u); // not a shading group
    EXPECT_EQ(engine->merge(command, other), 0u);
    EXPECT_EQ(other->memberCount(), 0u);
    EXPECT_EQ(engine->memberCount(), 2u);
    EXPECT_TRUE(TDNshadingEngine::sIsUsedOnVisibleShape(*engine));
}

TEST_F(ShadingEngine, MergingMovesTheOtherGroupsLightLinks) {
    load("node transform k\nnode testLight key -parent k\n"
         "node shadingEngine sg\nnode shadingEngine other\n"
         "connect key.message lightLinker1.link[7].light\n"
         "connect other.message lightLinker1.link[7].object\n"
         "connect key.message lightLinker1.shadowIgnore[2].shadowLightIgnored\n"
         "connect other.message lightLinker1.shadowIgnore[2].shadowObjectIgnored\n");
    auto* other = dynamic_cast<TDNshadingEngine*>(graph.findNode("other"));
    TDGcommand command(graph);
    ASSERT_EQ(engine->merge(command, other), 0u);
    // The pairs stand where they stood, with this group as their object.
    EXPECT_EQ(graph.findPlug("lightLinker1.link[7].object").source().node(), engine);
    EXPECT_EQ(graph.findPlug("lightLinker1.link[7].light").source().node(), graph.findNode("key"));
    EXPECT_EQ(graph.findPlug("lightLinker1.shadowIgnore[2].shadowObjectIgnored").source().node(),
              engine);
    TplugArray left;
    Tplug(other, &TdependNode::aMessage)
        .getAllDestinationsToNode(graph.findNode("lightLinker1"), left);
    EXPECT_TRUE(left.empty());
    // Both groups were linked to the default light set when made; the
    // merged group keeps one such pair on `link`, not two.
    TplugArray mine;
    Tplug(engine, &TdependNode::aMessage).getAllDestinations(mine);
    int withDefaultSet = 0;
    for (const Tplug& end : mine)
        if (end.attribute()->longName() == "object" &&
            end.parent()[end.parent().children()[0].attribute()].source().node() ==
                graph.findNode("defaultLightSet"))
            ++withDefaultSet;
    EXPECT_EQ(withDefaultSet, 1);
    // Undone, the links go back to the other group.
    command.undoDG();
    EXPECT_EQ(graph.findPlug("lightLinker1.link[7].object").source().node(), other);
}

TEST_F(ShadingEngine, ShadeWithNoSamplesTouchesNothing) {
    load("node testUvColor a\nnode shadingEngine sg\nconnect a.outColor sg.surfaceShader\n");
    ASSERT_TRUE(engine->analyse(0, nullptr));
    TdnTestUvColor::sComputes = 0;
    engine->controlBlock(0)->shade(0, nullptr);
    EXPECT_EQ(TdnTestUvColor::sComputes.load(), 0);
}

} // namespace
