// Clients of a node: what each edit tells them, and a client that leaves
// (or removes another) while it is being told.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/graph.h"
#include "host/graph/graph_test_nodes.h"
#include "host/node_messages.h"

namespace {

struct Recorder : Tclient {
    std::vector<std::string> heard;
    TdependGraph* graph = nullptr;
    Tclient* removeOnHearing = nullptr;
    void attributeChanged(TdependNode& node, const TattributeChangedMsg& msg) override {
        heard.push_back(node.name() + " changed " + msg.plug->attribute()->longName() + " " +
                        std::to_string(msg.flags) +
                        (msg.other ? " with " + msg.other->node()->name() : ""));
        if (removeOnHearing)
            OrvoRemoveClient(*graph, removeOnHearing);
    }
    void nodeDirty(TdependNode& node, const TnodeDirtyMsg& msg) override {
        heard.push_back(node.name() + " dirty " + msg.plug->attribute()->longName());
    }
    void nodeDeleted(TdependNode& node) override { heard.push_back(node.name() + " deleted"); }
};

} // namespace

TEST(GraphClients, HearSetsConnectionsDirtinessAndDeletion) {
    TdependGraph graph;
    TdependNode* a = graph.createNode("testFlip", "a");
    TdependNode* b = graph.createNode("testFlip", "b");
    Recorder onA, onB;
    OrvoAddClient(graph, a, &onA, kAttributeChangedMessage);
    // Added again: the kinds widen, the client is not told twice.
    OrvoAddClient(graph, a, &onA, kNodeDeletedMessage);
    OrvoAddClient(graph, b, &onB, kAttributeChangedMessage | kNodeDirtyMessage);

    const float one[3] = {1, 1, 1};
    graph.setPlugValue(Tplug(a, a->findAttribute("input")), one);
    ASSERT_EQ(onA.heard, std::vector<std::string>{"a changed input 4"});

    // b holds a value of its own (a node never evaluated has nothing to
    // dirty): its clients hear the set and the plug going dirty.
    graph.setPlugValue(Tplug(b, b->findAttribute("input")), one);
    EXPECT_EQ(onB.heard, (std::vector<std::string>{"b changed input 4", "b dirty input"}));
    onB.heard.clear();
    graph.connect(Tplug(a, a->findAttribute("output")), Tplug(b, b->findAttribute("input")));
    // 0x800 | 1 to both ends, the far end named; then b's input goes dirty.
    EXPECT_EQ(onA.heard.back(), "a changed output 2049 with b");
    ASSERT_GE(onB.heard.size(), 2u);
    EXPECT_EQ(onB.heard[0], "b changed input 2049 with a");
    EXPECT_EQ(onB.heard[1], "b dirty input");

    onA.heard.clear();
    graph.deleteNode(a);
    // Told first, and nothing more of the node after; the far end of its
    // connections hears them break (0x800 | 2).
    EXPECT_EQ(onA.heard, std::vector<std::string>{"a deleted"});
    EXPECT_EQ(onB.heard.back(), "b changed input 2050 with a");
}

TEST(GraphClients, AClientRemovedWhileOthersAreToldIsNotCalled) {
    TdependGraph graph;
    TdependNode* a = graph.createNode("testFlip", "a");
    Recorder first, second;
    first.graph = &graph;
    first.removeOnHearing = &second;
    OrvoAddClient(graph, a, &first, kAttributeChangedMessage);
    OrvoAddClient(graph, a, &second, kAttributeChangedMessage);
    const float one[3] = {1, 1, 1};
    graph.setPlugValue(Tplug(a, a->findAttribute("input")), one);
    EXPECT_EQ(first.heard.size(), 1u);
    EXPECT_TRUE(second.heard.empty());
    // Gone for good.
    first.removeOnHearing = nullptr;
    graph.setPlugValue(Tplug(a, a->findAttribute("input")), one);
    EXPECT_TRUE(second.heard.empty());
}
