// The render info of a scene: the default nodes a scene starts with, lights
// and shading groups joining the lists and the default light links, what a
// written scene keeps of it; the render callback list; the render
// utilities.

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "framework/nodes/utility/multiply_divide.h"
#include "framework/nodes/utility/render_utilities.h"
#include "framework/render_info.h"
#include "framework/render_lists.h"
#include "host/graph.h"
#include "host/qsl/interpreter.h"
#include "host/scene/light_shape.h"
#include "lights/light_link.h"
#include "lights/light_list.h"
#include "materials/lambert.h"
#include "shading/shading_engine.h"

// Inputs named only by their short names: "volumeShader" with no long name,
// and one whose long name is something else.
#define ORVO_SCHEMA_TdnTestVolumeTaker(A, C2, C3)                                                  \
    A(TattributeTyped, ShortOnly, "", "volumeShader", .disconnect(1))                              \
    A(TattributeTyped, LongWins, "fogInput", "volumeShader", .disconnect(1))

ORVO_NODE(TdnTestVolumeTaker, TdependNode, "testVolumeTaker", "TVOL", 9150, "kTestVolumeTaker",
          "test/volumeTaker", "n_testVolumeTaker")
class TdnTestVolumeTaker : public TdnPattern<TdnTestVolumeTaker, TdependNode> {};
ORVO_REGISTER_NODE(TdnTestVolumeTaker)
ORVO_DEPENDENCIES(TdnTestVolumeTaker) {}

namespace {

class RenderInfo : public ::testing::Test {
protected:
    void run(const std::string& text) { run(graph, text); }
    void run(TdependGraph& g, const std::string& text) {
        qsl::Interpreter(g, out).runText(text, "scene.qsl");
    }
    TrenderInfo& info() { return *TrenderInfo::find(graph); }
    TdnLightLink& linker() { return *info().activeLinkNode(); }
    Tplug plug(const std::string& name) { return graph.findPlug(name); }
    std::string sourceOf(const std::string& destination) {
        const Tplug s = graph.sourceOf(plug(destination));
        return s.isNull() ? std::string() : s.name();
    }
    // Every connection as "source -> destination", sorted.
    static std::vector<std::string> connections(const TdependGraph& g) {
        std::vector<std::string> all;
        for (const auto& [s, d] : g.connections())
            all.push_back(s.name() + " -> " + d.name());
        std::sort(all.begin(), all.end());
        return all;
    }
    static std::vector<std::string> members(const TobjectSet& set) {
        TselectionList items;
        set.completeGroupedMembers(items);
        std::vector<std::string> names;
        for (const TdagSelectionItem& i : items)
            names.push_back(i.name());
        return names;
    }

    TdependGraph graph;
    std::ostringstream out;
};

TEST_F(RenderInfo, ASceneStartsWithItsDefaultNodes) {
    run("");
    TrenderInfo* ri = TrenderInfo::find(graph);
    ASSERT_NE(ri, nullptr);
    EXPECT_EQ(TrenderInfo::getRenderInfo(graph), ri); // one per scene
    EXPECT_EQ(ri->name(), "renderPartition");
    EXPECT_EQ(ri->renderPartition(), ri);
    EXPECT_TRUE(ri->isRenderPartition());
    const std::vector<std::pair<std::string, std::string>> defaults = {
        {"renderPartition", "partition"},
        {"initialShadingGroup", "shadingEngine"},
        {"defaultLightList1", "defaultLightList"},
        {"lightList1", "lightList"},
        {"defaultLightSet", "objectSet"},
        {"initialParticleSE", "shadingEngine"},
        {"shaderList1", "shaderList"},
        {"textureList1", "textureList"},
        {"lambert1", "lambert"},
        {"postProcessList1", "postProcessList"},
        {"renderUtilityList1", "renderUtilityList"},
        {"renderingList1", "renderingList"},
        {"shaderGlow1", "shaderGlow"},
        {"defaultObjectSet", "objectSet"},
        {"renderGlobalsList1", "renderGlobalsList"},
        {"defaultRenderGlobals", "renderGlobals"},
        {"defaultRenderQuality", "renderQuality"},
        {"defaultResolution", "resolution"},
        {"defaultViewColorManager", "viewColorManager"},
        {"defaultColorMgtGlobals", "colorManagementGlobals"},
        {"hardwareRenderGlobals", "hardwareRenderGlobals"},
        {"hardwareRenderingGlobals", "hardwareRenderingGlobals"},
        {"lightLinker1", "lightLinker"}};
    ASSERT_EQ(graph.nodes().size(), defaults.size());
    for (const auto& [name, type] : defaults) {
        SCOPED_TRACE(name);
        TdependNode* node = graph.findNode(name);
        ASSERT_NE(node, nullptr);
        EXPECT_EQ(node->typeName(), type);
        EXPECT_TRUE(node->isDefaultNode());
        EXPECT_TRUE(node->isImplicitlyCreated());
    }
    EXPECT_EQ(ri->initialShadingGroup(), graph.findNode("initialShadingGroup"));
    EXPECT_EQ(ri->defaultShadingGroup(), ri->initialShadingGroup());
    EXPECT_EQ(ri->lightList(), graph.findNode("lightList1"));
    EXPECT_EQ(ri->defaultLightList(), graph.findNode("defaultLightList1"));
    EXPECT_EQ(ri->defaultLightSet(), graph.findNode("defaultLightSet"));
    EXPECT_EQ(ri->defaultObjectSet(), graph.findNode("defaultObjectSet"));
    EXPECT_EQ(&linker(), graph.findNode("lightLinker1"));
    EXPECT_EQ(ri->initialParticleSE(), graph.findNode("initialParticleSE"));
    EXPECT_EQ(ri->defaultShader(), graph.findNode("lambert1"));
    EXPECT_EQ(ri->shaderList(), graph.findNode("shaderList1"));
    EXPECT_EQ(ri->textureList(), graph.findNode("textureList1"));
    EXPECT_EQ(ri->utilityList(), graph.findNode("renderUtilityList1"));
    EXPECT_EQ(ri->renderingList(), graph.findNode("renderingList1"));
    EXPECT_EQ(ri->postProcessList(), graph.findNode("postProcessList1"));

    // Both initial groups shade with the default shader, which is the one
    // shader of the scene.
    EXPECT_EQ(sourceOf("initialShadingGroup.surfaceShader"), "lambert1.outColor");
    EXPECT_EQ(sourceOf("initialParticleSE.surfaceShader"), "lambert1.outColor");
    EXPECT_EQ(sourceOf("shaderList1.shaders[0]"), "lambert1.message");
    EXPECT_TRUE(ri->isShader(ri->defaultShader()));
    EXPECT_FALSE(ri->isTexture(ri->defaultShader()));

    // The initial groups are in the render partition and lit, and
    // shadowed, by the default light set.
    EXPECT_EQ(ri->sets(),
              (std::vector<TobjectSet*>{ri->initialShadingGroup(), ri->initialParticleSE()}));
    EXPECT_EQ(sourceOf("lightLinker1.link[0].object"), "initialShadingGroup.message");
    EXPECT_EQ(sourceOf("lightLinker1.link[0].light"), "defaultLightSet.message");
    EXPECT_EQ(sourceOf("lightLinker1.shadowLink[0].shadowObject"), "initialShadingGroup.message");
    EXPECT_EQ(sourceOf("lightLinker1.shadowLink[0].shadowLight"), "defaultLightSet.message");
    EXPECT_EQ(sourceOf("lightLinker1.link[1].object"), "initialParticleSE.message");
    EXPECT_EQ(sourceOf("lightLinker1.shadowLink[1].shadowObject"), "initialParticleSE.message");
    EXPECT_TRUE(linker().usedIndices(TdnLightLink::kIgnore).empty());
    EXPECT_TRUE(linker().usedIndices(TdnLightLink::kShadowIgnore).empty());
    // A scene as it starts writes as empty.
    EXPECT_EQ(qsl::writeScene(graph), "// orvo scene\n");
}

TEST_F(RenderInfo, ANewLightJoinsTheListAndTheDefaultLightSet) {
    run("node transform t\nnode light key -parent t\nnode transform u\n"
        "node light fill -parent u\n");
    EXPECT_EQ(sourceOf("lightList1.lights[0]"), "key.lightData");
    EXPECT_EQ(sourceOf("lightList1.lights[1]"), "fill.lightData");
    EXPECT_EQ(sourceOf("defaultLightSet.dagSetMembers[0]"), "key.instObjGroups[0]");
    EXPECT_EQ(members(*info().defaultLightSet()), (std::vector<std::string>{"|t|key", "|u|fill"}));
    EXPECT_TRUE(info().isLight(graph.findNode("key")));
    EXPECT_FALSE(info().isLight(graph.findNode("t")));
    EXPECT_EQ(info().lightList()->lights().size(), 2u);

    // Taken out of the default light set, a light is exclusive: it leaves
    // the default list of light paths.
    TdagPathArray lit;
    TlightList::getDefaultList(graph, lit);
    ASSERT_EQ(lit.size(), 2u);
    run("member -remove defaultLightSet fill\n");
    TlightList::getDefaultList(graph, lit);
    ASSERT_EQ(lit.size(), 1u);
    EXPECT_EQ(lit[0].fullPathName(), "|t|key");
}

TEST_F(RenderInfo, ANodeWithoutLightDataJoinsByItsMessage) {
    run("node reverse glow\n"); // not a light: nothing joins
    EXPECT_EQ(sourceOf("lightList1.lights[0]"), "");
    TdependNode* glow = graph.findNode("glow");
    TDGcommand command(graph);
    info().addLight(glow, command);
    EXPECT_EQ(sourceOf("lightList1.lights[0]"), "glow.message");
    EXPECT_EQ(sourceOf("defaultLightSet.dnSetMembers[0]"), "glow.message");
    EXPECT_TRUE(info().isLight(glow));
    // Adding again changes nothing; the command takes it all back.
    const size_t edits = command.size();
    info().addLight(glow, command);
    EXPECT_EQ(command.size(), edits);
    command.undoDG();
    EXPECT_FALSE(info().isLight(glow));
    EXPECT_TRUE(members(*info().defaultLightSet()).empty());
}

TEST_F(RenderInfo, WhatJoinsAsALight) {
    run("node transform t\nnode light key -parent t\nnode swatchLight swatch\n"
        "node defaultLightList other\nnode reverse r\n");
    EXPECT_TRUE(TrenderInfo::isSceneLight(graph.findNode("key")));
    EXPECT_FALSE(TrenderInfo::isSceneLight(graph.findNode("swatch")));
    EXPECT_FALSE(TrenderInfo::isSceneLight(graph.findNode("other")));
    EXPECT_FALSE(TrenderInfo::isSceneLight(graph.findNode("r")));
    EXPECT_EQ(info().lightList()->lights(), (std::vector<TdependNode*>{graph.findNode("key")}));
}

TEST_F(RenderInfo, ANewShadingGroupIsLinkedToTheDefaultLightSet) {
    run("node shadingEngine sg\n");
    auto* sg = dynamic_cast<TDNshadingEngine*>(graph.findNode("sg"));
    EXPECT_EQ(info().sets(), (std::vector<TobjectSet*>{info().initialShadingGroup(),
                                                       info().initialParticleSE(), sg}));
    EXPECT_EQ(sourceOf("sg.surfaceShader"), "lambert1.outColor");
    EXPECT_EQ(sourceOf("renderPartition.sets[2]"), "sg.partition");
    EXPECT_EQ(sourceOf("lightLinker1.link[2].object"), "sg.message");
    EXPECT_EQ(sourceOf("lightLinker1.link[2].light"), "defaultLightSet.message");
    EXPECT_EQ(sourceOf("lightLinker1.shadowLink[2].shadowObject"), "sg.message");
    EXPECT_EQ(sourceOf("lightLinker1.shadowLink[2].shadowLight"), "defaultLightSet.message");
    EXPECT_EQ(linker().usedIndices(TdnLightLink::kLink), (std::vector<unsigned>{0, 1, 2}));

    // Linking again leaves the one pair.
    TDGcommand command(graph);
    EXPECT_TRUE(info().linkWithShadowsShadingGroupToDefaultLightSet(sg, command));
    EXPECT_EQ(command.size(), 0u);
    // A group that may hold any object is not one that renders.
    auto* bare = dynamic_cast<TDNshadingEngine*>(graph.createNode("shadingEngine", "bare"));
    bare->setRestrictions(0);
    EXPECT_FALSE(info().addShadingGroup(bare, command, true));
    EXPECT_EQ(command.size(), 0u);
}

TEST_F(RenderInfo, NewRenderNodesJoinTheListTheirClassificationNames) {
    // lambert "shader/surface:...", checker "texture/2d:...", reverse
    // "utility/general:...", place2dTexture "utility/general/placement:...";
    // a light joins the light list only; a test type, a shading group and a
    // list of the scene's own ("rendernode/list") join none.
    run("node lambert paint\nnode checker c\nnode reverse r\nnode place2dTexture p\n"
        "node lambert paint2\nnode transform t\nnode light key -parent t\n"
        "node testVolumeTaker v\nnode shadingEngine sg\nnode shaderList extra\n");
    EXPECT_EQ(sourceOf("shaderList1.shaders[1]"), "paint.message"); // after lambert1
    EXPECT_EQ(sourceOf("shaderList1.shaders[2]"), "paint2.message");
    EXPECT_EQ(sourceOf("textureList1.textures[0]"), "c.message");
    EXPECT_EQ(sourceOf("renderUtilityList1.utilities[0]"), "r.message");
    EXPECT_EQ(sourceOf("renderUtilityList1.utilities[1]"), "p.message");
    for (const char* none : {"key", "v", "sg", "extra", "t"}) {
        TplugArray out;
        plug(std::string(none) + ".message").getAllDestinations(out);
        for (const Tplug& d : out)
            EXPECT_EQ(d.node()->typeName().find("List"), std::string::npos)
                << none << " -> " << d.name();
    }
    TrenderInfo& ri = info();
    EXPECT_TRUE(ri.isShader(graph.findNode("paint")));
    EXPECT_TRUE(ri.isTexture(graph.findNode("c")));
    EXPECT_TRUE(ri.isUtility(graph.findNode("p")));
    EXPECT_FALSE(ri.isUtility(graph.findNode("c")));
    EXPECT_FALSE(ri.isRendering(graph.findNode("r")));
    EXPECT_FALSE(ri.isPostProcess(graph.findNode("r")));

    // The rendering and post process lists take what they are given.
    TDGcommand command(graph);
    ri.addRendering(graph.findNode("r"), command);
    ri.addPostProcess(graph.findNode("c"), command);
    EXPECT_TRUE(ri.isRendering(graph.findNode("r")));
    EXPECT_TRUE(ri.isPostProcess(graph.findNode("c")));
    command.undoDG();
    EXPECT_FALSE(ri.isRendering(graph.findNode("r")));
    // What joined is the scene's own doing: a written scene leaves it out.
    const std::string saved = qsl::writeScene(graph);
    for (const char* list : {"shaderList1", "textureList1", "renderUtilityList1"})
        EXPECT_EQ(saved.find(list), std::string::npos) << list << " in:\n" << saved;
}

TEST_F(RenderInfo, TheDefaultShaderGoesOnlyWhereAskedAndGivesWayToTheScenes) {
    TrenderInfo& ri = *TrenderInfo::getRenderInfo(graph);
    auto* bare = dynamic_cast<TDNshadingEngine*>(graph.createNode("shadingEngine", "bare"));
    auto* given = dynamic_cast<TDNshadingEngine*>(graph.createNode("shadingEngine", "given"));
    TDGcommand command(graph);
    ASSERT_TRUE(ri.addShadingGroup(bare, command, false));
    EXPECT_EQ(sourceOf("bare.surfaceShader"), "");
    ASSERT_TRUE(ri.addShadingGroup(given, command, true));
    EXPECT_EQ(sourceOf("given.surfaceShader"), "lambert1.outColor");
    command.undoDG();
    graph.deleteNode(bare);
    graph.deleteNode(given);

    // A script's connection replaces the default, and the written scene
    // says so by the connection alone.
    run("node lambert clay\nnode shadingEngine sg\nconnect clay.outColor sg.surfaceShader\n"
        "connect clay.outColor initialShadingGroup.surfaceShader\n");
    EXPECT_EQ(sourceOf("sg.surfaceShader"), "clay.outColor");
    EXPECT_EQ(sourceOf("initialShadingGroup.surfaceShader"), "clay.outColor");
    EXPECT_EQ(sourceOf("initialParticleSE.surfaceShader"), "lambert1.outColor");
    // A connection the script made itself is not replaced.
    EXPECT_THROW(run("node lambert other\nconnect other.outColor sg.surfaceShader\n"),
                 qsl::ParseError);
    // A group whose default the script took away stays without a shader.
    run("node shadingEngine empty\ndisconnect lambert1.outColor empty.surfaceShader\n");
    const std::string saved = qsl::writeScene(graph);
    EXPECT_EQ(saved.find("disconnect lambert1.outColor sg."), std::string::npos) << saved;
    EXPECT_NE(saved.find("connect clay.outColor sg.surfaceShader\n"), std::string::npos) << saved;
    EXPECT_NE(saved.find("disconnect lambert1.outColor empty.surfaceShader\n"), std::string::npos)
        << saved;
    TdependGraph copy;
    run(copy, saved);
    const auto sourceIn = [&copy](const char* destination) {
        return copy.sourceOf(copy.findPlug(destination)).name();
    };
    EXPECT_EQ(sourceIn("sg.surfaceShader"), "clay.outColor");
    EXPECT_EQ(sourceIn("initialShadingGroup.surfaceShader"), "clay.outColor");
    EXPECT_TRUE(copy.sourceOf(copy.findPlug("empty.surfaceShader")).isNull());
    EXPECT_EQ(qsl::writeScene(copy), saved);
}

TEST_F(RenderInfo, TheDefaultLinksLightEveryGroupUntilALightIsTakenOut) {
    run("node transform t\nnode light key -parent t\nnode transform u\n"
        "node light rim -parent u\nnode transform ball\nnode mesh ballShape -parent ball\n"
        "set ballShape.primitive sphere\nnode shadingEngine sg\nmember sg ball\n");
    auto* sg = dynamic_cast<TDNshadingEngine*>(graph.findNode("sg"));
    sg->gatherLights();
    ASSERT_EQ(sg->lightList().size(), 2u);
    EXPECT_EQ(sg->lightList()[0], plug("key.lightData"));
    EXPECT_TRUE(sg->litBy(0, graph.findNode("rim")));
    EXPECT_TRUE(sg->shadowedBy(0, graph.findNode("key")));
    // Out of the default light set, a light reaches no group by default.
    run("member -remove defaultLightSet rim\n");
    sg->gatherLights();
    ASSERT_EQ(sg->lightList().size(), 1u);
    EXPECT_FALSE(sg->litBy(0, graph.findNode("rim")));
    EXPECT_FALSE(sg->shadowedBy(0, graph.findNode("rim")));
}

TEST_F(RenderInfo, AFailedScriptTakesBackWhatItsNodesJoined) {
    run("node transform t\nnode light key -parent t\n");
    const std::vector<std::string> before = connections(graph);
    EXPECT_THROW(run("node shadingEngine sg\nnode transform u\nnode light fill -parent u\n"
                     "set fill.nope 1\n"),
                 qsl::ParseError);
    EXPECT_EQ(connections(graph), before);
    EXPECT_EQ(graph.findNode("sg"), nullptr);
    EXPECT_EQ(qsl::writeScene(graph), "// orvo scene\nnode transform t\nnode light key\n"
                                      "connect key.message t.dagChildren[0]\n");
}

TEST_F(RenderInfo, AWrittenSceneKeepsOnlyWhatWasDoneToTheDefaults) {
    run("node transform t\nnode light key -parent t\n"
        "node transform ball\nnode mesh ballShape -parent ball\n"
        "node checker paint\nnode shadingEngine sg\n"
        "connect paint.outColor initialShadingGroup.surfaceShader\n"
        "set ballShape.primitive sphere\n"
        "member initialShadingGroup ball\n"
        "set lambert1.color 1 0 0\n");
    const std::string saved = qsl::writeScene(graph);
    for (const char* absent :
         {"initialShadingGroup\n", "lightList1", "defaultLightList1", "lightLinker1",
          "renderPartition", "defaultLightSet", "initialParticleSE", "node lambert lambert1",
          "shaderList1", "renderUtilityList1"})
        EXPECT_EQ(saved.find(absent), std::string::npos) << absent << " in:\n" << saved;
    for (const char* kept :
         {"node shadingEngine sg\n", "connect paint.outColor initialShadingGroup.surfaceShader\n",
          "member initialShadingGroup |ball|ballShape\n", "set lambert1.color 1 0 0\n"})
        EXPECT_NE(saved.find(kept), std::string::npos) << kept << " not in:\n" << saved;

    // Read back into a new scene: the same connections, no default twice,
    // no link twice.
    TdependGraph copy;
    run(copy, saved);
    EXPECT_EQ(qsl::writeScene(copy), saved);
    EXPECT_EQ(connections(copy), connections(graph));
    EXPECT_EQ(copy.nodes().size(), graph.nodes().size());
    TDNarray linkers;
    TdnLightLink::getLinkNodes(linkers, false, &copy);
    ASSERT_EQ(linkers.size(), 1u);
    EXPECT_EQ(static_cast<TdnLightLink*>(linkers[0])->usedIndices(TdnLightLink::kLink),
              (std::vector<unsigned>{0, 1, 2}));
}

TEST_F(RenderInfo, AnUnlinkedGroupAndAnExclusiveLightStaySoWhenReadBack) {
    run("node transform t\nnode light key -parent t\nnode shadingEngine sg\n"
        "disconnect sg.message lightLinker1.link[2].object\n"
        "disconnect defaultLightSet.message lightLinker1.link[2].light\n"
        "member -remove defaultLightSet key\n");
    const std::string saved = qsl::writeScene(graph);
    EXPECT_NE(saved.find("disconnect sg.message lightLinker1.link[2].object\n"), std::string::npos)
        << saved;
    EXPECT_NE(saved.find("member -remove defaultLightSet |t|key\n"), std::string::npos) << saved;
    TdependGraph copy;
    run(copy, saved);
    EXPECT_EQ(connections(copy), connections(graph));
    auto* sg = copy.findNode("sg");
    TdnLightLink* copied = TrenderInfo::find(copy)->activeLinkNode();
    EXPECT_FALSE(copied->isAlreadyConnected(sg, TrenderInfo::find(copy)->defaultLightSet(), 0));
    EXPECT_TRUE(copied->isAlreadyConnected(sg, TrenderInfo::find(copy)->defaultLightSet(), 2));
    EXPECT_TRUE(members(*TrenderInfo::find(copy)->defaultLightSet()).empty());
}

TEST_F(RenderInfo, TheActiveLinkerPrefersOneFromAReferencedScene) {
    run("node lightLinker extra\nnode lightLinker referenced\n");
    EXPECT_EQ(info().activeLinkNode()->name(), "lightLinker1");
    graph.findNode("referenced")->setFlagBits(TdependNode::kFromReferencedScene);
    EXPECT_EQ(info().activeLinkNode()->name(), "referenced");
}

TEST_F(RenderInfo, DeletingTheRenderInfoTakesItsDefaultsAlong) {
    run("node reverse mine\n");
    TrenderInfo::deleteRenderInfo(nullptr);
    TrenderInfo::deleteRenderInfo(TrenderInfo::find(graph));
    EXPECT_EQ(TrenderInfo::find(graph), nullptr);
    ASSERT_EQ(graph.nodes().size(), 1u);
    EXPECT_EQ(graph.nodes()[0]->name(), "mine");
}

TEST_F(RenderInfo, RenderNodesAndVolumeShading) {
    run("node reverse r\nnode transform t\nnode objectSet s\nnode checker c\n"
        "node checker fog\nnode shadingEngine sg\nnode shadingEngine sg2\n"
        "connect c.outColor sg.surfaceShader\nconnect fog.outColor sg2.volumeShader\n");
    EXPECT_TRUE(TrenderInfo::isRenderNode(graph.findNode("r")));  // a utility
    EXPECT_TRUE(TrenderInfo::isRenderNode(graph.findNode("c")));  // a texture
    EXPECT_FALSE(TrenderInfo::isRenderNode(graph.findNode("t"))); // the DAG's own
    EXPECT_FALSE(TrenderInfo::isRenderNode(graph.findNode("s")));
    EXPECT_FALSE(TrenderInfo::isRenderNode(nullptr));
    EXPECT_FALSE(TrenderInfo::usedForVolumeShading(graph.findNode("c")));
    EXPECT_TRUE(TrenderInfo::usedForVolumeShading(graph.findNode("fog")));
    EXPECT_FALSE(TrenderInfo::usedForVolumeShading(graph.findNode("r"))); // no outColor
}

TEST_F(RenderInfo, AVolumeShaderInputWithoutALongNameGoesByItsShortName) {
    run("node checker a\nnode checker b\nnode testVolumeTaker taker\n");
    TdependNode* taker = graph.findNode("taker");
    graph.connect(Tplug(graph.findNode("a"), graph.findNode("a")->findAttribute("outColor")),
                  Tplug(taker, &TdnTestVolumeTaker::aShortOnly));
    graph.connect(Tplug(graph.findNode("b"), graph.findNode("b")->findAttribute("outColor")),
                  Tplug(taker, &TdnTestVolumeTaker::aLongWins));
    EXPECT_TRUE(TrenderInfo::usedForVolumeShading(graph.findNode("a")));
    // A long name, when there is one, is the name compared.
    EXPECT_FALSE(TrenderInfo::usedForVolumeShading(graph.findNode("b")));
}

// ---------------------------------------------------------------- callbacks

struct Hook : TrenderCallback {
    Hook(int priority, std::string name, std::vector<std::string>& log, int answer = 0,
         bool glow = false)
        : TrenderCallback(priority), name(std::move(name)), log(log), answer(answer), glow(glow) {}
    int renderCallback(const TrenderCallbackData&) override {
        log.push_back(name);
        if (TdependGraph::fsCurrentGraph)
            TdependGraph::fsCurrentGraph->setTime(99.0); // a callback that moves time
        return answer;
    }
    int postProcessCallback(const TrenderCallbackData&) override {
        log.push_back(name);
        return answer;
    }
    bool useShaderGlow() override {
        log.push_back(name);
        return glow;
    }
    void initialize() override { log.push_back("init " + name); }
    std::string name;
    std::vector<std::string>& log;
    int answer;
    bool glow;
};

TEST(RenderCallback, AnEmptyListAnswersNothing) {
    ASSERT_FALSE(TrenderCallback::callbacksExist());
    EXPECT_EQ(TrenderCallback::invokeRender({}), 0);
    EXPECT_EQ(TrenderCallback::invokeShadowCast({}), 0);
    EXPECT_EQ(TrenderCallback::invokePostProcess({}), 0);
    EXPECT_FALSE(TrenderCallback::invokeCastsShadows());
    EXPECT_FALSE(TrenderCallback::invokeUseShaderGlow());
}

TEST(RenderCallback, PriorityOrderAndEarlyStops) {
    std::vector<std::string> log;
    Hook late(5, "late", log), early(1, "early", log), tie(5, "tie", log, 7, true),
        last(9, "last", log, 3);
    for (Hook* h : {&late, &early, &tie, &last})
        EXPECT_TRUE(TrenderCallback::addCallback(h));
    EXPECT_FALSE(TrenderCallback::addCallback(&late)); // in already
    // An equal priority goes before those that bear it.
    EXPECT_EQ(TrenderCallback::callbacks(),
              (std::vector<TrenderCallback*>{&early, &tie, &late, &last}));

    TdependGraph graph;
    TdependGraph::fsCurrentGraph = &graph;
    graph.setTime(12.0);
    EXPECT_EQ(TrenderCallback::invokeRender({}), 7); // tie answers and stops the rest
    EXPECT_EQ(log, (std::vector<std::string>{"early", "tie"}));
    EXPECT_EQ(graph.time(), 12.0); // time put back after each callback
    log.clear();
    EXPECT_EQ(TrenderCallback::invokePostProcess({}), 7);
    log.clear();
    TrenderCallback::invokeInitialize();
    EXPECT_EQ(log, (std::vector<std::string>{"init early", "init tie", "init late", "init last"}));
    log.clear();
    EXPECT_TRUE(TrenderCallback::invokeUseShaderGlow()); // all asked, no stop
    EXPECT_EQ(log, (std::vector<std::string>{"early", "tie", "late", "last"}));

    // Unique priorities refuse a second callback of a taken priority.
    EXPECT_TRUE(TrenderCallback::removeCallback(&tie));
    TrenderCallback::setUniquePriorities(true);
    Hook clash(9, "clash", log);
    EXPECT_FALSE(TrenderCallback::addCallback(&clash));
    TrenderCallback::setUniquePriorities(false);
    log.clear();
    EXPECT_EQ(TrenderCallback::invokeRender({}), 3);
    EXPECT_EQ(log, (std::vector<std::string>{"early", "late", "last"}));
    TdependGraph::fsCurrentGraph = nullptr;
    // Callbacks leave the list when they go.
}

TEST(RenderCallback, CallbacksLeaveTheListWhenDestroyed) {
    EXPECT_FALSE(TrenderCallback::callbacksExist());
}

// ---------------------------------------------------------------- utilities

TEST(RenderUtilities, CheapSinIsExactAtTheQuarterPeriods) {
    const std::vector<std::pair<float, float>> cases = {
        {0.25f, 1.0f},
        {0.75f, -1.0f},
        {0.0f, 0.0f},
        {0.5f, 0.0f},
        // 1 - 16 (0.125)^2; 16 (0.125)^2 - 1 on both sides of 0.75
        {0.125f, 0.75f},
        {0.625f, -0.75f},
        {0.875f, -0.75f},
        // whole periods drop; a negative x counts from the period's end
        {1.25f, 1.0f},
        {-0.25f, -1.0f},
        {-0.75f, 1.0f},
        {-1.0f, 0.0f},
        {2.375f, 0.75f}};
    for (const auto& [x, expected] : cases)
        EXPECT_FLOAT_EQ(TrenderUtilities::cheapSin(x) + 2.0f, expected + 2.0f) << x;
    EXPECT_FLOAT_EQ(TrenderUtilities::ntscLuminance({1.0f, 0.5f, 2.0f}), 0.3f + 0.295f + 0.22f);
}

TEST_F(RenderInfo, PlugHelpersReadSetAndTellShadingConnections) {
    run("node multiplyDivide md\nset md.input2 2 2 2\nset md.input1 1 3 5\n"
        "node reverse r\nconnect md.output r.input\n"
        "node reverse byHand\nnode transform t\nconnect t.translateX byHand.inputY\n"
        "node reverse half\nconnect md.outputZ half.inputX\n");
    float f = 0;
    T3Float v;
    EXPECT_TRUE(TrenderUtilities::getValue(plug("r.output"), v)); // 1 - (2, 6, 10)
    EXPECT_FLOAT_EQ(v.x, -1.0f);
    EXPECT_FLOAT_EQ(v.z, -9.0f);
    EXPECT_TRUE(TrenderUtilities::setValue(plug("byHand.inputX"), 0.25f));
    EXPECT_TRUE(TrenderUtilities::getValue(plug("byHand.inputX"), f));
    EXPECT_FLOAT_EQ(f, 0.25f);
    EXPECT_FALSE(TrenderUtilities::setValue(plug("r.input"), T3Float{1, 1, 1})); // connected
    Tstring text;
    EXPECT_TRUE(TrenderUtilities::getValue(plug("md.operation"), text));
    EXPECT_EQ(text, "1"); // as a scene writes it

    // A render node's connection counts; a transform's does not.
    EXPECT_TRUE(TrenderUtilities::isConnected(plug("r.input")));
    EXPECT_TRUE(TrenderUtilities::isConnected(plug("half.input"))); // through a child
    EXPECT_FALSE(TrenderUtilities::isConnected(plug("byHand.inputY")));
    EXPECT_FALSE(TrenderUtilities::getUnconnectedValue(plug("r.inputX"), f));
    EXPECT_TRUE(TrenderUtilities::getUnconnectedValue(graph.findNode("byHand"), "inputX", f));
    EXPECT_FLOAT_EQ(f, 0.25f);
    int16_t operation = 0;
    EXPECT_TRUE(TrenderUtilities::getDefaultValue(TdnMultiplyDivide::aOperation, operation));
    EXPECT_EQ(operation, 1);

    // The gain of a multiplying node: its unconnected multiplier.
    EXPECT_TRUE(TrenderUtilities::getMultiplierNodeGainValue(plug("half.inputX"), f));
    EXPECT_FLOAT_EQ(f, 2.0f);
    EXPECT_TRUE(TrenderUtilities::getMultiplierNodeGainValue(plug("r.input"), f));
    run("set md.input2Y 3\n");
    EXPECT_FALSE(TrenderUtilities::getMultiplierNodeGainValue(plug("r.input"), f)); // unequal
    EXPECT_FALSE(TrenderUtilities::getMultiplierNodeGainValue(plug("byHand.inputY"), f));
    run("set md.operation Divide\n");
    EXPECT_FALSE(TrenderUtilities::getMultiplierNodeGainValue(plug("half.inputX"), f));
}

} // namespace
