// Render layers, cameras and the light base: values read through a layer,
// membership, renderable cameras, and a light type derived through the
// node pattern.

#include "host/scene/render_layer.h"

#include <numbers>

#include "host/scene/camera.h"
#include "host/scene/light_shape.h"
#include "scene_test_support.h"

// A light of this test binary, derived from the host base as the light
// types are.
#define ORVO_SCHEMA_TtestLight(A, C2, C3) A(TattributeFloat, Spread, "spread", "spr", .input())
ORVO_NODE(TtestLight, TlightShape, "testLight", "TLIT", 9102, "kTestLight", "test/light",
          "n_testLight")
class TtestLight : public TdnPattern<TtestLight, TlightShape>, public TshadingNode {};
ORVO_REGISTER_NODE(TtestLight)
ORVO_DEPENDENCIES(TtestLight) {}

namespace {

// A default layer and `hero`, which is current, holds `ball` and turns the
// floor off.
const char* kLayers = "node transform ball\nnode shape ballShape -parent ball\n"
                      "node transform floor\nnode shape floorShape -parent floor\n"
                      "node renderLayerManager manager\n"
                      "node renderLayer base\nnode renderLayer hero\n"
                      "connect base.message manager.defaultRenderLayer\n"
                      "connect hero.message manager.currentRenderLayer\n"
                      "set hero.displayOrder 2\n"
                      "member hero ball\n"
                      "connect floor.visibility hero.adjustments[0].plug\n"
                      "set hero.adjustments[0].value \"false\"\n";

TEST(RenderLayer, AnAdjustmentChangesTheValueReadThroughTheLayerOnly) {
    TdependGraph graph;
    runScene(graph, kLayers);
    auto* hero = static_cast<TdnRenderLayer*>(graph.findNode("hero"));
    auto* base = static_cast<TdnRenderLayer*>(graph.findNode("base"));
    const Tplug floorVisibility = graph.findPlug("floor.visibility");

    EXPECT_FALSE(TdnRenderLayer::readValue(floorVisibility, hero).asBool());
    EXPECT_TRUE(TdnRenderLayer::readValue(floorVisibility, base).asBool());
    EXPECT_TRUE(TdnRenderLayer::readValue(floorVisibility, nullptr).asBool());
    EXPECT_EQ(graph.evaluateToWords(floorVisibility), std::vector<std::string>{"true"});
    EXPECT_EQ(hero->adjustmentPlug(floorVisibility).name(), "hero.adjustments[0].value");
    EXPECT_TRUE(hero->adjustmentPlug(graph.findPlug("ball.visibility")).isNull());

    // The renderer sees the floor hidden while hero is current, and shown
    // again once the default layer is.
    const TdagPath floor = pathNamed(graph, "|floor|floorShape");
    EXPECT_FALSE(TdagPathUtils::isObjectVisibleToRenderer(floor));
    runScene(graph, "disconnect hero.message manager.currentRenderLayer");
    EXPECT_EQ(TdnRenderLayerManager::currentLayer(graph), base);
    EXPECT_TRUE(TdagPathUtils::isObjectVisibleToRenderer(floor));

    // A numeric compound takes one number per child.
    runScene(graph, "connect ball.translate hero.adjustments[1].plug\n"
                    "set hero.adjustments[1].value \"1 2 3\"\n");
    EXPECT_EQ(TdnRenderLayer::readValue(graph.findPlug("ball.translate"), hero).words(),
              (std::vector<std::string>{"1", "2", "3"}));
    EXPECT_EQ(TdnRenderLayer::readValue(graph.findPlug("ball.translate"), nullptr).words(),
              (std::vector<std::string>{"0", "0", "0"}));
}

TEST(RenderLayer, MembershipFollowsTheHierarchyAndBadValuesAreRefused) {
    TdependGraph graph;
    runScene(graph, kLayers);
    const auto* hero = static_cast<TdnRenderLayer*>(graph.findNode("hero"));
    EXPECT_TRUE(TdagPathUtils::inRenderLayer(pathNamed(graph, "|ball|ballShape"), hero));
    EXPECT_FALSE(TdagPathUtils::inRenderLayer(pathNamed(graph, "|floor|floorShape"), hero));
    EXPECT_TRUE(TdagObject::fromNode(graph.findNode("ballShape"))->inCurrentRenderLayer());
    EXPECT_FALSE(TdagObject::fromNode(graph.findNode("floorShape"))->inCurrentRenderLayer());
    // The default layer holds everything.
    EXPECT_TRUE(TdagPathUtils::inRenderLayer(pathNamed(graph, "|floor|floorShape"),
                                             TdnRenderLayerManager::defaultLayer(graph)));
    EXPECT_EQ(hero->order(), 2);
    EXPECT_FALSE(TdnRenderLayerManager::defaultLayerOnly(graph));
    runScene(graph, "set hero.renderable false");
    EXPECT_TRUE(TdnRenderLayerManager::defaultLayerOnly(graph));

    const std::string before = qsl::writeScene(graph);
    EXPECT_EQ(sceneError(graph, "set hero.adjustments[0].value \"perhaps\""),
              "scene.qsl:1: error: render layer 'hero': adjustments[0].value for "
              "'floor.visibility' (TattributeBoolean): 'perhaps' is not true or false");
    EXPECT_EQ(qsl::writeScene(graph), before);
}

TEST(Camera, ApertureAndFocalLengthGiveTheAngleOfView) {
    TdependGraph graph;
    runScene(graph, "node transform eye\nset eye.translate 0 0 10\n"
                    "node camera eyeShape -parent eye\n");
    auto* camera = static_cast<TcameraShape*>(graph.findNode("eyeShape"));
    // 1.41732 inches is 36 mm; 2 atan(18 / 35) = 54.432 degrees.
    EXPECT_NEAR(camera->horizontalFieldOfView() * 180 / std::numbers::pi, 54.432, 1e-3);
    // 0.94488 inches is 24 mm; 2 atan(12 / 35) = 37.849 degrees.
    EXPECT_NEAR(camera->verticalFieldOfView() * 180 / std::numbers::pi, 37.849, 1e-3);
    const TdagPath path = pathNamed(graph, "eyeShape");
    // The eye at the origin of eye space is at (0, 0, 10) in the world, and
    // the world origin is 10 in front of it (-Z).
    EXPECT_VEC_NEAR(TcameraShape::eyeToWorld(path).transformPoint({0, 0, 0}), 0, 0, 10, 1e-12);
    EXPECT_VEC_NEAR(TcameraShape::worldToEye(path).transformPoint({0, 0, 0}), 0, 0, -10, 1e-12);
}

TEST(Camera, RenderableCamerasAreReadThroughTheLayerLastPathFirst) {
    TdependGraph graph;
    runScene(graph, std::string(kLayers) +
                        "node transform a\nnode transform b\nnode camera cam -parent a\n"
                        "parent -add cam b\n"
                        "node transform c\nnode camera off -parent c\nset off.renderable false\n"
                        "connect off.renderable hero.adjustments[2].plug\n"
                        "set hero.adjustments[2].value \"true\"\n"
                        "set off.backgroundColor 2 0.5 -1\n");
    auto names = [](const TdagPathArray& paths) {
        std::vector<std::string> out;
        for (const TdagPath& p : paths)
            out.push_back(p.fullPathName());
        return out;
    };
    EXPECT_EQ(names(TcameraShape::renderableCameras(graph, nullptr)),
              (std::vector<std::string>{"|b|cam", "|a|cam"}));
    const auto* hero = static_cast<TdnRenderLayer*>(graph.findNode("hero"));
    EXPECT_EQ(names(TcameraShape::renderableCameras(graph, hero)),
              (std::vector<std::string>{"|b|cam", "|a|cam", "|c|off"}));
    const T3Float background =
        static_cast<TcameraShape*>(graph.findNode("off"))->backgroundColor(hero);
    EXPECT_VEC_NEAR(background, 2, 0.5, -1, 0);
}

TEST(LightShape, APatternTypeDerivesItsAttributesAndMatrices) {
    TdependGraph graph;
    runScene(graph, "node transform lamp\nset lamp.translate 0 4 0\n"
                    "node testLight lampShape -parent lamp\n"
                    "set lampShape.color 1 0.5 0.25\nset lampShape.intensity 2\n");
    auto* light =
        static_cast<TlightShape*>(graph.findNode("lampShape")->cast(TlightShape::sTypeof()));
    ASSERT_NE(light, nullptr);
    for (const char* name : {"lightData",
                             "lightDirection",
                             "lightIntensity",
                             "lightAmbient",
                             "lightDiffuse",
                             "lightSpecular",
                             "lightShadowFraction",
                             "preShadowIntensity",
                             "lightBlindData",
                             "color",
                             "intensity",
                             "shadowColor",
                             "pointCamera",
                             "objectId",
                             "primitiveId",
                             "rayDepth",
                             "rayDepthLimit",
                             "raySampler",
                             "uCoord",
                             "vCoord",
                             "uvFilterSize",
                             "infoBits",
                             "renderState",
                             "numShadowSamples",
                             "useRayTraceShadows",
                             "eyeToWorld",
                             "worldToEye",
                             "spread"})
        EXPECT_NE(light->findAttribute(name), nullptr) << name;
    EXPECT_VEC_NEAR(light->color(), 1, 0.5, 0.25, 0);
    EXPECT_EQ(light->intensity(), 2.0f);
    EXPECT_VEC_NEAR(light->localToWorld().transformPoint({0, 0, 0}), 0, 4, 0, 1e-12);
    EXPECT_NE(graph.findNode("lampShape")->cast(TshadingNodeTmeta()), nullptr);

    // The base light shines from its origin to the point.
    T3Float position, direction;
    EXPECT_TRUE(light->canSee({0, 0, -2}, position, direction));
    EXPECT_VEC_NEAR(direction, 0, 0, -1, 0);
    EXPECT_TRUE(light->affectsShadows(&TlightShape::aUseRayTraceShadows));
    EXPECT_FALSE(light->affectsShadows(&TlightShape::aIntensity));
}

} // namespace
