#include <gtest/gtest.h>

#include "framework/nodes/utility/reverse.h"
#include "host/graph.h"

namespace {

using Words = std::vector<std::string>;

TEST(Graph, NamesAreUniqueAndDefaultNamesCount) {
    TdependGraph graph;
    EXPECT_EQ(graph.createNode("reverse")->name(), "reverse1");
    EXPECT_EQ(graph.createNode("reverse")->name(), "reverse2");
    graph.createNode("reverse", "mine");
    EXPECT_THROW(graph.createNode("reverse", "mine"), TgraphError);
    EXPECT_THROW(graph.createNode("reverse", "1bad"), TgraphError);
    EXPECT_THROW(graph.createNode("nonsense", "x"), TgraphError);
    graph.renameNode(graph.findNode("mine"), "yours");
    EXPECT_EQ(graph.findNode("mine"), nullptr);
    EXPECT_NE(graph.findNode("yours"), nullptr);
    EXPECT_EQ(graph.nodes().size(), 3u);
}

TEST(Graph, PlugNamesResolveLongAndShortNames) {
    TdependGraph graph;
    graph.createNode("reverse", "r");
    EXPECT_EQ(graph.findPlug("r.i").attribute(), &TdnReverse::aInput);
    EXPECT_EQ(graph.findPlug("r.input.inputX").attribute(), &TdnReverse::aInputX);
    EXPECT_EQ(graph.findPlug("r.oz").name(), "r.outputZ");
    EXPECT_THROW(graph.findPlug("r"), TgraphError);
    EXPECT_THROW(graph.findPlug("q.input"), TgraphError);
    EXPECT_THROW(graph.findPlug("r.input[0]"), TgraphError); // not an array
    EXPECT_THROW(graph.findPlug("r.output.inputX"), TgraphError);
}

TEST(Graph, ConnectionsCheckShapeDirectionAndUniqueness) {
    TdependGraph graph;
    graph.createNode("reverse", "a");
    graph.createNode("reverse", "b");
    graph.createNode("reverse", "c");
    EXPECT_NE(graph.whyNotConnectable(graph.findPlug("a.output"), graph.findPlug("b.inputX")), "");
    EXPECT_NE(graph.whyNotConnectable(graph.findPlug("a.input"), graph.findPlug("b.output")), "");
    EXPECT_EQ(graph.whyNotConnectable(graph.findPlug("a.outputX"), graph.findPlug("b.inputY")), "");
    graph.connect(graph.findPlug("a.output"), graph.findPlug("b.input"));
    EXPECT_NE(graph.whyNotConnectable(graph.findPlug("c.output"), graph.findPlug("b.input")), "");
    EXPECT_EQ(graph.findPlug("b.input").source(), graph.findPlug("a.output"));
    TplugArray out;
    graph.findPlug("a.output").getAllDestinations(out);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].name(), "b.input");
    EXPECT_THROW(graph.setPlugValueFromWords(graph.findPlug("b.inputX"), {"1"}), TgraphError);
}

TEST(Graph, ChildConnectionsOverrideTheParentsValue) {
    TdependGraph graph;
    graph.createNode("reverse", "a");
    graph.createNode("reverse", "b");
    graph.createNode("reverse", "c");
    graph.setPlugValueFromWords(graph.findPlug("a.input"), {"0.25", "0.25", "0.25"});
    graph.setPlugValueFromWords(graph.findPlug("c.input"), {"0.5", "0.5", "0.5"});
    graph.connect(graph.findPlug("a.output"), graph.findPlug("b.input"));
    graph.connect(graph.findPlug("c.outputY"), graph.findPlug("b.inputY"));
    // b.input = (0.75, 0.5, 0.75) so b.output = (0.25, 0.5, 0.25).
    EXPECT_EQ(graph.evaluateToWords(graph.findPlug("b.output")), (Words{"0.25", "0.5", "0.25"}));
}

TEST(Graph, DirtPropagatesOnlyDownstream) {
    TdependGraph graph;
    TdependNode* a = graph.createNode("reverse", "a");
    TdependNode* b = graph.createNode("reverse", "b");
    TdependNode* side = graph.createNode("reverse", "side");
    graph.connect(graph.findPlug("a.output"), graph.findPlug("b.input"));
    graph.connect(graph.findPlug("a.output"), graph.findPlug("side.input"));
    graph.evaluate(graph.findPlug("b.output"));
    graph.evaluate(graph.findPlug("side.output"));
    EXPECT_EQ(graph.computeCount(a), 1u);
    EXPECT_EQ(graph.computeCount(b), 1u);
    EXPECT_EQ(graph.computeCount(side), 1u);

    // Setting b's own input leaves a clean.
    graph.disconnect(graph.findPlug("a.output"), graph.findPlug("b.input"));
    graph.setPlugValueFromWords(graph.findPlug("b.input"), {"1", "1", "1"});
    EXPECT_EQ(graph.evaluateToWords(graph.findPlug("b.output")), (Words{"0", "0", "0"}));
    graph.evaluate(graph.findPlug("side.output"));
    EXPECT_EQ(graph.computeCount(a), 1u);
    EXPECT_EQ(graph.computeCount(b), 2u);
    EXPECT_EQ(graph.computeCount(side), 1u);
}

TEST(Graph, CyclesEvaluateWithoutLooping) {
    TdependGraph graph;
    graph.createNode("reverse", "a");
    graph.createNode("reverse", "b");
    graph.connect(graph.findPlug("a.output"), graph.findPlug("b.input"));
    graph.connect(graph.findPlug("b.output"), graph.findPlug("a.input"));
    // Each node reads what the other last held: the values stay finite.
    const Words w = graph.evaluateToWords(graph.findPlug("b.output"));
    ASSERT_EQ(w.size(), 3u);
}

TEST(Graph, DeletingANodeBreaksItsConnections) {
    TdependGraph graph;
    graph.createNode("reverse", "a");
    graph.createNode("reverse", "b");
    graph.connect(graph.findPlug("a.output"), graph.findPlug("b.input"));
    graph.deleteNode(graph.findNode("a"));
    EXPECT_TRUE(graph.connections().empty());
    EXPECT_TRUE(graph.findPlug("b.input").source().isNull());
    EXPECT_EQ(graph.evaluateToWords(graph.findPlug("b.outputX")), Words{"1"});
}

TEST(GraphCommand, UndoRestoresNodesValuesAndConnections) {
    TdependGraph graph;
    graph.createNode("reverse", "keep");
    graph.setPlugValueFromWords(graph.findPlug("keep.input"), {"0.5", "0.5", "0.5"});
    {
        TDGcommand command(graph);
        command.newNodeToAdd("reverse", "temp");
        command.newPlugValue(graph.findPlug("keep.input"), {"0.25", "0", "0"});
        command.newConnectionToMake(graph.findPlug("temp.outputZ"), graph.findPlug("keep.inputZ"));
        EXPECT_EQ(graph.evaluateToWords(graph.findPlug("keep.outputX")), Words{"0.75"});
        command.undoDG();
        EXPECT_EQ(graph.findNode("temp"), nullptr);
        EXPECT_TRUE(graph.connections().empty());
        EXPECT_EQ(graph.evaluateToWords(graph.findPlug("keep.output")),
                  (Words{"0.5", "0.5", "0.5"}));
        command.doDG();
        EXPECT_NE(graph.findNode("temp"), nullptr);
        EXPECT_EQ(graph.connections().size(), 1u);
        EXPECT_EQ(graph.evaluateToWords(graph.findPlug("keep.outputX")), Words{"0.75"});
    }
}

} // namespace
