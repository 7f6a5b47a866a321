// Object sets, partitions and the selection list: members by instance and
// by node, the questions asked both ways, restrictions, exclusive
// partitions and types that derive from a set.

#include "host/scene/object_set.h"

#include "host/scene/mesh.h"
#include "scene_test_support.h"

// A set type of this test binary that mixes in the shading-node interface,
// as a shading group does.
#define ORVO_SCHEMA_TtestShadingSet(A, C2, C3)                                                     \
    A(TattributeFloat, Gain, "gain", "gn", .input().setNativeDefaultData(1.0f))
ORVO_NODE(TtestShadingSet, TobjectSet, "testShadingSet", "TSSE", 9101, "kTestShadingSet",
          "test/shadingSet", "n_testShadingSet")
class TtestShadingSet : public TdnPattern<TtestShadingSet, TobjectSet>, public TshadingNode {
public:
    TtestShadingSet() { setRestrictions(kRenderableOnly); }
};
ORVO_REGISTER_NODE(TtestShadingSet)
ORVO_DEPENDENCIES(TtestShadingSet) {}

namespace {

std::vector<std::string> memberNames(const TobjectSet& set) {
    TselectionList members;
    set.completeGroupedMembers(members);
    std::vector<std::string> names;
    for (const TdagSelectionItem& item : members)
        names.push_back(item.name());
    return names;
}

TobjectSet* setNamed(const TdependGraph& graph, const std::string& name) {
    return static_cast<TobjectSet*>(graph.findNode(name)->cast(TobjectSet::sTypeof()));
}

// Two transforms share one mesh: |left|shared and |right|shared.
const char* kInstanced = "node transform left\nnode transform right\n"
                         "node mesh shared -parent left\nparent -add shared right\n"
                         "set shared.primitive box\n"
                         "node transform solo\nnode mesh soloShape -parent solo\n";

TEST(ObjectSet, MembersAndTheReverseQueryAgreeForInstances) {
    TdependGraph graph;
    runScene(graph, std::string(kInstanced) + "node objectSet s1\nnode objectSet s2\n"
                                              "member s1 right|shared soloShape\n"
                                              "member s2 shared\n");
    const TobjectSet* s1 = setNamed(graph, "s1");
    const TobjectSet* s2 = setNamed(graph, "s2");
    EXPECT_EQ(memberNames(*s1), (std::vector<std::string>{"|right|shared", "|solo|soloShape"}));
    // A node named whole joins with every instance, in instance order.
    EXPECT_EQ(memberNames(*s2), (std::vector<std::string>{"|left|shared", "|right|shared"}));

    // Every member of every set finds the set again, and nothing else does.
    for (TdagIterator it(graph); !it.isDone(); it.next()) {
        SCOPED_TRACE(it.path().fullPathName());
        const std::vector<TobjectSet*> sets = TobjectSet::setsOf(it.path());
        for (const TobjectSet* set : {s1, s2}) {
            TselectionList members;
            set->completeGroupedMembers(members);
            const bool listed = std::find(sets.begin(), sets.end(), set) != sets.end();
            EXPECT_EQ(members.has(it.path()), listed);
            EXPECT_EQ(set->isMember(it.path()), listed);
        }
    }
    EXPECT_EQ(TobjectSet::setsOf(pathNamed(graph, "|left|shared")),
              (std::vector<TobjectSet*>{setNamed(graph, "s2")}));
    EXPECT_EQ(s1->memberCount(), 2u);

    // A group in a set holds what is below it for the group walk only.
    runScene(graph, "node objectSet groups\nmember groups left");
    EXPECT_TRUE(TobjectSet::setsOf(pathNamed(graph, "|left|shared")).size() == 1u);
    EXPECT_EQ(TobjectSet::setsOfPathAndGroups(pathNamed(graph, "|left|shared")).size(), 2u);

    // Removing one instance keeps the other.
    runScene(graph, "member -remove s2 left|shared");
    EXPECT_EQ(memberNames(*s2), (std::vector<std::string>{"|right|shared"}));
}

TEST(ObjectSet, NodeMembersAndRefusedMembers) {
    TdependGraph graph;
    runScene(graph, std::string(kInstanced) + "node objectSet s\nnode renderLayer layer\n"
                                              "member s layer\n");
    const TobjectSet* s = setNamed(graph, "s");
    EXPECT_EQ(memberNames(*s), std::vector<std::string>{"layer"});
    EXPECT_EQ(TobjectSet::setsOf(graph.findNode("layer")),
              (std::vector<TobjectSet*>{setNamed(graph, "s")}));

    const std::string before = qsl::writeScene(graph);
    EXPECT_EQ(sceneError(graph, "member s s"), "scene.qsl:1: error: set 's' cannot hold itself");
    EXPECT_EQ(sceneError(graph, "member s soloShape nobody"),
              "scene.qsl:1: error: no node named 'nobody'");
    EXPECT_EQ(sceneError(graph, "member s solo|nobody"),
              "scene.qsl:1: error: no DAG path 'solo|nobody'");
    EXPECT_EQ(sceneError(graph, "member left shared"),
              "scene.qsl:1: error: 'left' (transform) is neither an object set nor a render layer");
    EXPECT_EQ(qsl::writeScene(graph), before); // soloShape did not stay in
}

TEST(ObjectSet, RenderableOnlySetsTakeTheShapesBelowAGroup) {
    TdependGraph graph;
    runScene(graph, std::string(kInstanced) +
                        "node testShadingSet sg\n"
                        "node transform eye\nnode camera eyeShape -parent eye\n"
                        "member sg right solo\n");
    const TobjectSet* sg = setNamed(graph, "sg");
    EXPECT_EQ(memberNames(*sg), (std::vector<std::string>{"|right|shared", "|solo|soloShape"}));
    EXPECT_EQ(sceneError(graph, "member sg eyeShape"),
              "scene.qsl:1: error: set 'sg' holds only renderable geometry; '|eye|eyeShape' "
              "(camera) is not");

    // The derived type keeps the set's attributes and the interface it mixes in.
    TdependNode* node = graph.findNode("sg");
    EXPECT_NE(node->findAttribute("dagSetMembers"), nullptr);
    EXPECT_NE(node->findAttribute("gain"), nullptr);
    EXPECT_EQ(node->cast(TshadingNodeTmeta()),
              static_cast<TshadingNode*>(static_cast<TtestShadingSet*>(node)));
    EXPECT_EQ(node->cast(TobjectSet::sTypeof()), static_cast<TobjectSet*>(node));
}

TEST(Partition, MembersAreExclusiveAcrossItsSets) {
    TdependGraph graph;
    runScene(graph, std::string(kInstanced) +
                        "node partition p\nnode testShadingSet sg1\nnode testShadingSet sg2\n"
                        "connect sg1.partition p.sets[0]\nconnect sg2.partition p.sets[1]\n"
                        "member sg1 shared soloShape\n"
                        "member sg2 right|shared\n");
    // The right instance moved; the left one and the solo shape stayed.
    EXPECT_EQ(memberNames(*setNamed(graph, "sg1")),
              (std::vector<std::string>{"|left|shared", "|solo|soloShape"}));
    EXPECT_EQ(memberNames(*setNamed(graph, "sg2")), std::vector<std::string>{"|right|shared"});

    auto* p = static_cast<Tpartition*>(graph.findNode("p"));
    EXPECT_EQ(p->sets().size(), 2u);
    EXPECT_EQ(setNamed(graph, "sg1")->partitions(), std::vector<Tpartition*>{p});

    // A set sharing a member cannot join.
    runScene(graph, "node objectSet loose\nmember loose soloShape");
    TDGcommand command(graph);
    EXPECT_THROW(p->addSet(*setNamed(graph, "loose"), command), TgraphError);
    EXPECT_EQ(p->sets().size(), 2u);
}

TEST(ObjectSetUtility, MoveItemsToSetTakesThemOutAndUndoes) {
    TdependGraph graph;
    runScene(graph, std::string(kInstanced) + "node objectSet a\nnode objectSet b\n"
                                              "member a shared soloShape\n");
    TobjectSet* a = setNamed(graph, "a");
    TobjectSet* b = setNamed(graph, "b");
    TselectionList moving;
    moving.add(pathNamed(graph, "|left|shared"));
    {
        TDGcommand command(graph);
        TobjectSet_utility::moveItemsToSet(moving, a, *b, command);
        EXPECT_EQ(memberNames(*a), (std::vector<std::string>{"|right|shared", "|solo|soloShape"}));
        EXPECT_EQ(memberNames(*b), std::vector<std::string>{"|left|shared"});
        command.undoDG();
    }
    EXPECT_EQ(memberNames(*a),
              (std::vector<std::string>{"|left|shared", "|right|shared", "|solo|soloShape"}));
    EXPECT_EQ(b->memberCount(), 0u);
}

} // namespace
