// Scene hooks of the graph: initialisers that give every scene its default
// nodes, observers that take new nodes in, the implicit connections they
// make, and what the scene writer keeps of all that.

#include <gtest/gtest.h>

#include <sstream>

#include "host/graph.h"
#include "host/qsl/interpreter.h"
#include "host/scene/light_shape.h"
#include "host/scene/object_set.h"

namespace {

int gInitialized = 0;
std::vector<std::string> gObserved;

TobjectSet* setNamed(const TdependGraph& graph, const char* name) {
    TdependNode* node = graph.findNode(name);
    return node ? static_cast<TobjectSet*>(node->cast(TobjectSet::sTypeof())) : nullptr;
}

// Every scene of this test gets a partition "looks" with a set "lamps".
void initialize(TdependGraph& graph) {
    ++gInitialized;
    EXPECT_TRUE(graph.inImplicitEdits());
    TdependNode* looks = graph.createNode("partition", "looks");
    TdependNode* lamps = graph.createNode("objectSet", "lamps");
    for (TdependNode* n : {looks, lamps})
        n->setNodeIsDefault(true);
    TDGcommand command(graph);
    static_cast<Tpartition*>(looks)->addSet(*setNamed(graph, "lamps"), command);
}

// ... and every light joins "lamps".
void observe(TdependNode& node, TDGcommand& command) {
    auto* light = static_cast<TlightShape*>(node.cast(TlightShape::sTypeof()));
    if (!light)
        return;
    gObserved.push_back(light->firstPath().fullPathName());
    TselectionList items;
    items.add(light->firstPath());
    setNamed(*node.graph(), "lamps")->addMembers(items, command);
}

class SceneHooks : public ::testing::Test {
protected:
    void SetUp() override {
        gInitialized = 0;
        gObserved.clear();
        TdependGraph::addSceneInitializer(&initialize);
        TdependGraph::addNodeAddedObserver(&observe);
    }
    void TearDown() override {
        TdependGraph::removeSceneInitializer(&initialize);
        TdependGraph::removeNodeAddedObserver(&observe);
    }
    void run(TdependGraph& g, const std::string& text) {
        qsl::Interpreter(g, out).runText(text, "scene.qsl");
    }
    static std::vector<std::string> members(const TdependGraph& g, const char* set) {
        TselectionList items;
        setNamed(g, set)->completeGroupedMembers(items);
        std::vector<std::string> names;
        for (const TdagSelectionItem& i : items)
            names.push_back(i.name());
        return names;
    }
    static Tplug setsSlot(const TdependGraph& g) { return g.findPlug("looks.sets[0]"); }

    TdependGraph graph;
    std::ostringstream out;
};

TEST_F(SceneHooks, AGraphBecomesASceneOnceWithItsDefaults) {
    EXPECT_FALSE(graph.isScene());
    run(graph, "");
    run(graph, "node transform t\n");
    EXPECT_TRUE(graph.isScene());
    EXPECT_EQ(gInitialized, 1);
    ASSERT_NE(graph.findNode("lamps"), nullptr);
    // The initialiser's connection is the scene's own.
    EXPECT_TRUE(graph.isImplicitConnection(setsSlot(graph)));
    EXPECT_FALSE(graph.isImplicitConnection(graph.findPlug("t.visibility")));
    TdependGraph other;
    run(other, "");
    EXPECT_EQ(gInitialized, 2);
}

TEST_F(SceneHooks, ObserversSeeTheNodeWhereTheStatementPutsIt) {
    run(graph, "node transform t\nnode light key -parent t\nnode transform u\n");
    EXPECT_EQ(gObserved, (std::vector<std::string>{"|t|key"}));
    EXPECT_EQ(members(graph, "lamps"), (std::vector<std::string>{"|t|key"}));
    EXPECT_TRUE(graph.isImplicitConnection(graph.findPlug("lamps.dagSetMembers[0]")));

    // A script that fails takes back what its nodes brought, and leaves no
    // broken implicit connection behind.
    EXPECT_THROW(run(graph, "node transform t2\nnode light fill -parent t2\nnode nope x\n"),
                 qsl::ParseError);
    EXPECT_EQ(members(graph, "lamps"), (std::vector<std::string>{"|t|key"}));
    EXPECT_TRUE(graph.brokenImplicitConnections().empty());
}

TEST_F(SceneHooks, AWrittenSceneLeavesOutWhatTheSceneMakesItself) {
    run(graph, "node transform t\nnode light key -parent t\nnode objectSet s\nmember s key\n"
               "set key.intensity 2\n");
    const std::string saved = qsl::writeScene(graph);
    EXPECT_EQ(saved, "// orvo scene\n"
                     "node transform t\n"
                     "node light key\n"
                     "node objectSet s\n"
                     "set key.intensity 2\n"
                     "connect key.message t.dagChildren[0]\n"
                     "member s |t|key\n");
    TdependGraph copy;
    run(copy, saved);
    EXPECT_EQ(qsl::writeScene(copy), saved);
    EXPECT_EQ(members(copy, "lamps"), (std::vector<std::string>{"|t|key"}));
    EXPECT_EQ(members(copy, "s"), (std::vector<std::string>{"|t|key"}));
}

TEST_F(SceneHooks, BreakingWhatTheSceneMadeIsAChangeThatIsKept) {
    run(graph, "node transform t\nnode light key -parent t\n"
               "member -remove lamps key\n"
               "disconnect lamps.partition looks.sets[0]\n");
    EXPECT_EQ(graph.brokenImplicitConnections().size(), 2u);
    const std::string saved = qsl::writeScene(graph);
    EXPECT_EQ(saved, "// orvo scene\n"
                     "node transform t\n"
                     "node light key\n"
                     "disconnect lamps.partition looks.sets[0]\n"
                     "connect key.message t.dagChildren[0]\n"
                     "member -remove lamps |t|key\n");
    TdependGraph copy;
    run(copy, saved);
    EXPECT_TRUE(members(copy, "lamps").empty());
    EXPECT_TRUE(copy.sourceOf(setsSlot(copy)).isNull());
    EXPECT_EQ(qsl::writeScene(copy), saved);

    // Making it again undoes the change: nothing is left to write.
    run(graph, "connect lamps.partition looks.sets[0]\n");
    EXPECT_TRUE(graph.isImplicitConnection(setsSlot(graph)));
    EXPECT_EQ(graph.brokenImplicitConnections().size(), 1u);
}

TEST_F(SceneHooks, ImplicitEditsStayImplicitThroughUndoAndRedo) {
    TdependNode* a = graph.createNode("objectSet", "a");
    TdependNode* p = graph.createNode("partition", "p");
    TDGcommand command(graph);
    {
        TdependGraph::TimplicitScope implicit(graph);
        static_cast<Tpartition*>(p)->addSet(*setNamed(graph, "a"), command);
    }
    const Tplug slot = graph.findPlug("p.sets[0]");
    EXPECT_TRUE(graph.isImplicitConnection(slot));
    command.undoDG();
    EXPECT_TRUE(graph.sourceOf(slot).isNull());
    EXPECT_TRUE(graph.brokenImplicitConnections().empty());
    command.doDG();
    EXPECT_TRUE(graph.isImplicitConnection(slot));
    // Deleting a node forgets what was broken on it.
    graph.disconnect(Tplug(a, &TobjectSet::aPartition), slot);
    EXPECT_EQ(graph.brokenImplicitConnections().size(), 1u);
    graph.deleteNode(a);
    EXPECT_TRUE(graph.brokenImplicitConnections().empty());
}

// Set membership clients: told of each change, and of the set going.
struct Listener {
    int changes = 0;
    int deleted = 0;
    static void changed(TobjectSet&, void* self) { ++static_cast<Listener*>(self)->changes; }
    static void gone(TobjectSet&, void* self) { ++static_cast<Listener*>(self)->deleted; }
};

TEST(ObjectSetClients, HearOfMemberChangesAndOfTheSetGoing) {
    TdependGraph graph;
    auto* set = static_cast<TobjectSet*>(graph.createNode("objectSet", "s"));
    TdependNode* node = graph.createNode("objectSet", "member");
    Listener listener;
    EXPECT_TRUE(set->addMembershipClient(&listener, &Listener::changed, &Listener::gone));
    EXPECT_FALSE(set->addMembershipClient(&listener, &Listener::changed, &Listener::gone));
    TDGcommand command(graph);
    TselectionList items;
    items.add(node);
    set->addMembers(items, command);
    EXPECT_EQ(listener.changes, 1);
    // A connection that is no membership is no change.
    graph.connect(graph.findPlug("s.message"), graph.findPlug("member.dnSetMembers[0]"));
    EXPECT_EQ(listener.changes, 1);
    command.undoDG();
    EXPECT_EQ(listener.changes, 2);
    graph.deleteNode(set);
    EXPECT_EQ(listener.deleted, 1);

    Listener quiet;
    auto* other = static_cast<TobjectSet*>(graph.createNode("objectSet", "o"));
    other->addMembershipClient(&quiet, &Listener::changed, &Listener::gone);
    EXPECT_TRUE(other->removeMembershipClient(&quiet));
    graph.deleteNode(other);
    EXPECT_EQ(quiet.deleted, 0);
}

} // namespace
