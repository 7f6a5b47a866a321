#include <gtest/gtest.h>

#include <sstream>

#include "framework/nodes/utility/shading_switch.h"
#include "host/graph.h"
#include "host/qsl/interpreter.h"
#include "shading/shading_engine.h"

// The switches outside a render, and the member table analysis builds.

namespace {

struct Scene {
    TdependGraph g;
    explicit Scene(const std::string& text) {
        std::ostringstream out;
        qsl::Interpreter(g, out).runText(text, "test.qsl");
    }
};

// With no object the output is the default, whatever the elements hold:
// the quad's default triple is 0.8 and its single 0 unless set.
TEST(ShadingSwitch, OutsideARenderGivesTheDefault) {
    Scene s(R"(
node transform t
node mesh m -parent t
node quadShadingSwitch q
connect m.message q.input[0].inShape
set q.input[0].inQuad.inTriple 1 1 1
set q.input[0].inQuad.inSingle 1
set q.default.defSingle 0.25
node singleShadingSwitch one
set one.default 0.5
)");
    const float* triple = s.g.evaluate(s.g.findPlug("q.output.outTriple")).asFloat3();
    EXPECT_FLOAT_EQ(triple[0], 0.8f);
    EXPECT_FLOAT_EQ(triple[2], 0.8f);
    EXPECT_FLOAT_EQ(s.g.evaluate(s.g.findPlug("q.output.outSingle")).asFloat(), 0.25f);
    EXPECT_FLOAT_EQ(s.g.evaluate(s.g.findPlug("one.output")).asFloat(), 0.5f);
}

// inShape takes a shape's message and nothing else.
TEST(ShadingSwitch, ShapeInputTakesOnlyShapes) {
    Scene s(R"(
node transform t
node mesh m -parent t
node lambert paint
node doubleShadingSwitch d
)");
    EXPECT_NO_THROW(s.g.connect(s.g.findPlug("m.message"), s.g.findPlug("d.input[0].inShape")));
    EXPECT_ANY_THROW(
        s.g.connect(s.g.findPlug("paint.message"), s.g.findPlug("d.input[1].inShape")));
}

// Analysis lists each connected shape once, sorted by id, and the first
// element naming a shape wins; without a renderer a shape is its own id.
// The last reference of the render empties the table.
TEST(ShadingSwitch, AnalysisTableIsSortedAndEndsWithTheRender) {
    Scene s(R"(
node transform t
node mesh a -parent t
node mesh b -parent t
node tripleShadingSwitch sw
connect b.message sw.input[2].inShape
connect a.message sw.input[5].inShape
connect a.message sw.input[7].inShape
node lambert paint
connect sw.output paint.color
node shadingEngine sg
connect paint.outColor sg.surfaceShader
)");
    auto* sw = static_cast<TdnBaseSwitch*>(s.g.findNode("sw"));
    auto* engine = static_cast<TDNshadingEngine*>(s.g.findNode("sg"));
    const uint64_t a = uint64_t(reinterpret_cast<uintptr_t>(s.g.findNode("a")));
    const uint64_t b = uint64_t(reinterpret_cast<uintptr_t>(s.g.findNode("b")));
    TbitField64 fields;
    sw->analyse(engine, nullptr, nullptr, fields);
    const auto& table = sw->memberTable();
    ASSERT_EQ(table.size(), 2u);
    EXPECT_LT(table[0].first, table[1].first);
    for (const auto& [id, index] : table)
        EXPECT_EQ(index, id == a ? 5u : 2u) << (id == a ? "a" : id == b ? "b" : "?");
    EXPECT_EQ(sw->inputPlugCount(), 3u);
    EXPECT_EQ(sw->shapeIndexPath(0), s.g.findNode("b"));
    sw->incrementReferenceCount(nullptr);
    sw->decrementReferenceCount();
    EXPECT_TRUE(sw->memberTable().empty());
}

} // namespace
