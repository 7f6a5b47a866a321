#include <gtest/gtest.h>

#include "framework/node_pattern.h"
#include "framework/nodes/utility/reverse.h"

// Node types that exist only in this test binary.

// Never used by any test but one: registering must not build it.
#define ORVO_SCHEMA_TdnTestUnused(A, C2, C3) A(TattributeFloat, Value, "value", "v", .input())
ORVO_NODE(TdnTestUnused, TdependNode, "testUnused", "TUNU", 9001, "kTestUnused", "test/unused",
          "n_testUnused")
class TdnTestUnused : public TdnPattern<TdnTestUnused, TdependNode> {};
ORVO_REGISTER_NODE(TdnTestUnused)
ORVO_DEPENDENCIES(TdnTestUnused) {}

// Two attributes clash on a short name; the one after them must still go in.
#define ORVO_SCHEMA_TdnTestClash(A, C2, C3)                                                        \
    A(TattributeFloat, First, "first", "f", .input())                                              \
    A(TattributeFloat, Second, "second", "f", .input())                                            \
    A(TattributeFloat, Third, "third", "t", .input())
ORVO_NODE(TdnTestClash, TdependNode, "testClash", "TCLS", 9002, "kTestClash", "test/clash",
          "n_testClash")
class TdnTestClash : public TdnPattern<TdnTestClash, TdependNode> {};
ORVO_REGISTER_NODE(TdnTestClash)
ORVO_DEPENDENCIES(TdnTestClash) {}

// A shading type deriving from reverse's type: attributes are inherited.
#define ORVO_SCHEMA_TdnTestDerived(A, C2, C3) A(TattributeFloat, Gain, "gain", "gn", .input())
ORVO_NODE(TdnTestDerived, TdnReverse, "testDerived", "TDRV", 9003, "kTestDerived", "test/derived",
          "n_testDerived")
class TdnTestDerived : public TdnPattern<TdnTestDerived, TdnReverse> {};
ORVO_REGISTER_NODE(TdnTestDerived)
ORVO_DEPENDENCIES(TdnTestDerived) {
    affectsAll(m, Gain, TdnReverse::aOutput);
}

namespace {

TEST(NodePattern, RegistrationBuildsNoAttributeAndCleanupBuildsToTearDown) {
    // Loading registered the type, but nothing has touched its descriptor.
    ASSERT_NE(TdependGraph::findNodeType("testUnused"), nullptr);
    EXPECT_FALSE(TdnAttr<TdnTestUnused>::fsVsData.once);
    EXPECT_EQ(TdnTestUnused::sTypeof()->iffTag(), TiffTag::make("TUNU"));
    EXPECT_EQ(TapiTypeTable::name(9001), "kTestUnused");
    EXPECT_TRUE(TclassificationMgr::isClassified("testUnused", "test"));
    EXPECT_FALSE(TclassificationMgr::isClassified("testUnused", "tes"));

    // Cleaning up a never-used type builds the descriptor only to tear it down.
    EXPECT_TRUE(TdnTestUnused::sCleanupClass());
    EXPECT_FALSE(TdnAttr<TdnTestUnused>::fsVsData.once);
    // And it can be used afterwards.
    EXPECT_TRUE(TdnTestUnused::sInitializeClass());
    EXPECT_EQ(TdnTestUnused::sVsData()->attributes().size(), 2u); // message, then its own
    // The static reference names the rebuilt attribute, which knows its
    // descriptor again.
    EXPECT_EQ(&TdnTestUnused::aValue, TdnTestUnused::sVsData()->attributes()[1]);
    EXPECT_EQ(TdnTestUnused::aValue.longName(), "value");
    EXPECT_EQ(TdnTestUnused::aValue.owner(), TdnTestUnused::sVsData());
}

TEST(NodePattern, AFailedAdditionDoesNotStopTheOthers) {
    TattributeList list;
    EXPECT_FALSE(TdnTestClash::sVsData()->appendAttributes(list));
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(list[0], &TdependNode::aMessage); // every node's, first
    EXPECT_EQ(list[1]->longName(), "first");
    EXPECT_EQ(list[2]->longName(), "third");
}

TEST(NodePattern, ConstructRefusesUnrelatedMetaclasses) {
    EXPECT_EQ(TdnReverse::construct(nullptr), nullptr);
    EXPECT_EQ(TdnReverse::construct(TdnTestUnused::sTypeof()), nullptr);
    EXPECT_EQ(TdnTestDerived::construct(TdnReverse::sTypeof()), nullptr); // a base is not derived

    // The type itself, or one derived from it, is made.
    std::unique_ptr<TdnReverse> own(TdnReverse::construct(TdnReverse::sTypeof()));
    ASSERT_NE(own, nullptr);
    EXPECT_EQ(own->typeName(), "reverse");
    std::unique_ptr<TdnReverse> derived(TdnReverse::construct(TdnTestDerived::sTypeof()));
    ASSERT_NE(derived, nullptr);
    EXPECT_EQ(derived->typeName(), "testDerived");
    EXPECT_TRUE(TdnTestDerived::sTypeof()->istype(TdnReverse::sTypeof()));
    EXPECT_TRUE(TdnTestDerived::sTypeof()->istype(TdependNode::sTypeof()));
}

TEST(NodePattern, CastFindsEachLevel) {
    TdependGraph graph;
    TdependNode* node = graph.createNode("testDerived", "d");
    EXPECT_EQ(node->cast(TdnTestDerived::sTypeof()), static_cast<TdnTestDerived*>(node));
    EXPECT_EQ(node->cast(TdnReverse::sTypeof()), static_cast<TdnReverse*>(node));
    EXPECT_EQ(node->cast(TdependNode::sTypeof()), node);
    EXPECT_EQ(node->cast(TdnTestUnused::sTypeof()), nullptr);
}

TEST(NodePattern, DerivedTypesShareTheParentsAttributes) {
    TdnTestDerived::sInitializeClass();
    const TattributeList& list = TdnTestDerived::sVsData()->attributes();
    ASSERT_EQ(list.size(), 10u); // message, reverse's eight, then gain
    EXPECT_EQ(list[0], &TdependNode::aMessage);
    EXPECT_EQ(list[1], &TdnReverse::aInput);
    EXPECT_EQ(list[9], &TdnTestDerived::aGain);
    EXPECT_EQ(TdnTestDerived::aGain.nodeNameString(), "n_testDerived");
    EXPECT_EQ(TdnReverse::aInput.nodeNameString(), "n_reverse");

    // The derived node computes through the inherited compute.
    TdependGraph graph;
    graph.createNode("testDerived", "d");
    graph.setPlugValueFromWords(graph.findPlug("d.input"), {"0.5", "0", "1"});
    EXPECT_EQ(graph.evaluateToWords(graph.findPlug("d.output")),
              (std::vector<std::string>{"0.5", "1", "0"}));
}

TEST(NodePattern, FootprintAndDebugNameTheType) {
    TdependGraph graph;
    TdependNode* node = graph.createNode("reverse", "rev1");
    Footprint fp;
    Footprint::sTrace() = true;
    node->footprint(fp);
    Footprint::sTrace() = false;
    EXPECT_EQ(fp.size, sizeof(TdnReverse));
    EXPECT_EQ(fp.trace, "Measure Footprint of TdnReverse\n");

    TdebugOutput out;
    node->debug(out, TdebugDetails{});
    EXPECT_EQ(out.text().rfind("rev1 (type reverse)\n", 0), 0u) << out.text();
    EXPECT_EQ(node->apiType(), 464);
    EXPECT_EQ(node->apiTypeString(), "kReverse");
    EXPECT_EQ(node->iffTag()->text(), "RRVS");
}

TEST(NodePattern, UnhandledPlugsFallToTheBaseWithoutReading) {
    TdependGraph graph;
    TdependNode* node = graph.createNode("reverse", "rev1");
    TordinaryDataBlock& block = node->forceGetDatablock();
    // An input is not computed by the node: both entries answer false.
    EXPECT_FALSE(node->computePlug(Tplug(node, &TdnReverse::aInput), block));
    EXPECT_FALSE(node->vectorComputePlug(Tplug(node, &TdnReverse::aInputX), block, 0, 1));
    EXPECT_EQ(graph.computeCount(node), 0u);
}

} // namespace
