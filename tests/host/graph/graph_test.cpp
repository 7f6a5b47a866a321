#include <gtest/gtest.h>

#include "host/graph.h"
#include "host/graph/graph_test_nodes.h"

namespace {

using Words = std::vector<std::string>;

TEST(Graph, NamesAreUniqueAndDefaultNamesCount) {
    TdependGraph graph;
    EXPECT_EQ(graph.createNode("testFlip")->name(), "testFlip1");
    EXPECT_EQ(graph.createNode("testFlip")->name(), "testFlip2");
    graph.createNode("testFlip", "mine");
    EXPECT_THROW(graph.createNode("testFlip", "mine"), TgraphError);
    EXPECT_THROW(graph.createNode("testFlip", "1bad"), TgraphError);
    EXPECT_THROW(graph.createNode("nonsense", "x"), TgraphError);
    graph.renameNode(graph.findNode("mine"), "yours");
    EXPECT_EQ(graph.findNode("mine"), nullptr);
    EXPECT_NE(graph.findNode("yours"), nullptr);
    EXPECT_EQ(graph.nodes().size(), 3u);
}

TEST(Graph, PlugNamesResolveLongAndShortNames) {
    TdependGraph graph;
    graph.createNode("testFlip", "r");
    EXPECT_EQ(graph.findPlug("r.i").attribute(), &TdnTestFlip::aInput);
    EXPECT_EQ(graph.findPlug("r.input.inputX").attribute(), &TdnTestFlip::aInputX);
    EXPECT_EQ(graph.findPlug("r.oz").name(), "r.outputZ");
    EXPECT_THROW(graph.findPlug("r"), TgraphError);
    EXPECT_THROW(graph.findPlug("q.input"), TgraphError);
    EXPECT_THROW(graph.findPlug("r.input[0]"), TgraphError); // not an array
    EXPECT_THROW(graph.findPlug("r.output.inputX"), TgraphError);
}

TEST(Graph, ConnectionsCheckShapeDirectionAndUniqueness) {
    TdependGraph graph;
    graph.createNode("testFlip", "a");
    graph.createNode("testFlip", "b");
    graph.createNode("testFlip", "c");
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
    graph.createNode("testFlip", "a");
    graph.createNode("testFlip", "b");
    graph.createNode("testFlip", "c");
    graph.setPlugValueFromWords(graph.findPlug("a.input"), {"0.25", "0.25", "0.25"});
    graph.setPlugValueFromWords(graph.findPlug("c.input"), {"0.5", "0.5", "0.5"});
    graph.connect(graph.findPlug("a.output"), graph.findPlug("b.input"));
    graph.connect(graph.findPlug("c.outputY"), graph.findPlug("b.inputY"));
    // b.input = (0.75, 0.5, 0.75) so b.output = (0.25, 0.5, 0.25).
    EXPECT_EQ(graph.evaluateToWords(graph.findPlug("b.output")), (Words{"0.25", "0.5", "0.25"}));
}

TEST(Graph, DirtPropagatesOnlyDownstream) {
    TdependGraph graph;
    TdependNode* a = graph.createNode("testFlip", "a");
    TdependNode* b = graph.createNode("testFlip", "b");
    TdependNode* side = graph.createNode("testFlip", "side");
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
    graph.createNode("testFlip", "a");
    graph.createNode("testFlip", "b");
    graph.connect(graph.findPlug("a.output"), graph.findPlug("b.input"));
    graph.connect(graph.findPlug("b.output"), graph.findPlug("a.input"));
    // Each node reads what the other last held: the values stay finite.
    const Words w = graph.evaluateToWords(graph.findPlug("b.output"));
    ASSERT_EQ(w.size(), 3u);
}

TEST(Graph, DeletingANodeBreaksItsConnections) {
    TdependGraph graph;
    graph.createNode("testFlip", "a");
    graph.createNode("testFlip", "b");
    graph.connect(graph.findPlug("a.output"), graph.findPlug("b.input"));
    graph.deleteNode(graph.findNode("a"));
    EXPECT_TRUE(graph.connections().empty());
    EXPECT_TRUE(graph.findPlug("b.input").source().isNull());
    EXPECT_EQ(graph.evaluateToWords(graph.findPlug("b.outputX")), Words{"1"});
}

TEST(GraphCommand, UndoRestoresNodesValuesAndConnections) {
    TdependGraph graph;
    graph.createNode("testFlip", "keep");
    graph.setPlugValueFromWords(graph.findPlug("keep.input"), {"0.5", "0.5", "0.5"});
    {
        TDGcommand command(graph);
        command.newNodeToAdd("testFlip", "temp");
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

TEST(GraphArrays, ElementsAreSparseByLogicalIndexAndFeedTheirNode) {
    TdependGraph graph;
    TdependNode* sum = graph.createNode("testSum", "s");
    graph.createNode("testFlip", "f");
    EXPECT_EQ(graph.findPlug("s.v[5]").name(), "s.values[5]");
    EXPECT_THROW(graph.findPlug("s.gain[0]"), TgraphError);

    graph.setPlugValueFromWords(graph.findPlug("s.values[0]"), {"1"});
    graph.setPlugValueFromWords(graph.findPlug("s.values[5]"), {"2.5"});
    graph.setPlugValueFromWords(graph.findPlug("s.gain"), {"2"});
    // (1 + 2.5) * 2.
    EXPECT_EQ(graph.evaluateToWords(graph.findPlug("s.total")), Words{"7"});

    // A connection into element 2 brings it into being when the total is
    // read: 1 - 0.25 = 0.75 there.
    graph.setPlugValueFromWords(graph.findPlug("f.input"), {"0.25", "0", "0"});
    graph.connect(graph.findPlug("f.outputX"), graph.findPlug("s.values[2]"));
    // (1 + 0.75 + 2.5) * 2.
    EXPECT_EQ(graph.evaluateToWords(graph.findPlug("s.total")), Words{"8.5"});
    TuInt32Array indices;
    sum->getExistingMultiAttributeIndices(graph.findPlug("s.values"), indices);
    EXPECT_EQ(std::vector<unsigned>(indices.begin(), indices.end()),
              (std::vector<unsigned>{0, 2, 5}));
    const unsigned computed = graph.computeCount(sum);

    // Upstream dirt reaches the total through the element; reading it again
    // with nothing changed computes nothing.
    graph.setPlugValueFromWords(graph.findPlug("f.inputX"), {"1"});
    EXPECT_EQ(graph.evaluateToWords(graph.findPlug("s.total")), Words{"7"});
    EXPECT_EQ(graph.computeCount(sum), computed + 1);
    graph.evaluate(graph.findPlug("s.total"));
    EXPECT_EQ(graph.computeCount(sum), computed + 1);

    // An element that a connection drives cannot be set by hand.
    EXPECT_THROW(graph.setPlugValueFromWords(graph.findPlug("s.values[2]"), {"4"}), TgraphError);
}

} // namespace
