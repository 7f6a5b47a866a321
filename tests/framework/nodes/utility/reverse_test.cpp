#include <gtest/gtest.h>

#include "framework/nodes/utility/reverse.h"
#include "host/graph.h"

namespace {

TEST(Reverse, OutputIsOneMinusInput) {
    TdependGraph graph;
    TdependNode* node = graph.createNode("reverse", "rev1");
    ASSERT_NE(node, nullptr);
    graph.setPlugValueFromWords(graph.findPlug("rev1.input"), {"0.25", "1", "-2"});
    const auto words = graph.evaluateToWords(graph.findPlug("rev1.output"));
    EXPECT_EQ(words, (std::vector<std::string>{"0.75", "0", "3"}));
    EXPECT_EQ(graph.evaluateToWords(graph.findPlug("rev1.outputZ")),
              (std::vector<std::string>{"3"}));
}

} // namespace

namespace {

TEST(Reverse, ChainPullsThroughConnectionsAndRecomputesWhenDirtied) {
    TdependGraph graph;
    graph.createNode("reverse", "a");
    graph.createNode("reverse", "b");
    graph.connect(graph.findPlug("a.output"), graph.findPlug("b.input"));
    graph.setPlugValueFromWords(graph.findPlug("a.input"), {"0.25", "0.5", "2"});
    EXPECT_EQ(graph.evaluateToWords(graph.findPlug("b.output")),
              (std::vector<std::string>{"0.25", "0.5", "2"}));
    EXPECT_EQ(graph.computeCount(graph.findNode("a")), 1u);
    // Clean: asking again computes nothing.
    graph.evaluateToWords(graph.findPlug("b.output"));
    EXPECT_EQ(graph.computeCount(graph.findNode("a")), 1u);
    graph.setPlugValueFromWords(graph.findPlug("a.inputY"), {"0"});
    EXPECT_EQ(graph.evaluateToWords(graph.findPlug("b.outputY")), (std::vector<std::string>{"0"}));
    EXPECT_EQ(graph.computeCount(graph.findNode("a")), 2u);
}

} // namespace
