// The light lists: the schemas that lights connect to, the record that the
// default light list makes of its array, and the watched list of paths.

#include <gtest/gtest.h>

#include "host/graph.h"
#include "lights/light_list.h"

namespace {

TlightData record(T3Float direction, T3Float intensity, float preShadow, float shadow, bool diffuse,
                  bool specular, bool ambient = false) {
    TlightData r{};
    r.direction[0] = direction.x;
    r.direction[1] = direction.y;
    r.direction[2] = direction.z;
    r.intensity[0] = intensity.x;
    r.intensity[1] = intensity.y;
    r.intensity[2] = intensity.z;
    r.preShadowIntensity = preShadow;
    r.shadowFraction = shadow;
    r.diffuse = diffuse;
    r.specular = specular;
    r.ambient = ambient;
    return r;
}

TEST(LightList, SchemasNameWhatLightsConnectTo) {
    TdependGraph graph;
    TdependNode* list = graph.createNode("lightList", "lights");
    EXPECT_EQ(list->iffTag()->text(), "LLST");
    const Tattribute* lights = list->findAttribute("l");
    ASSERT_NE(lights, nullptr);
    EXPECT_EQ(lights->longName(), "lights");
    EXPECT_TRUE(lights->isArray());

    TdependNode* defaults = graph.createNode("defaultLightList", "defaults");
    EXPECT_EQ(defaults->iffTag()->text(), "DEFL");
    EXPECT_EQ(defaults->findAttribute("lda"), defaults->findAttribute("lightDataArray"));
    EXPECT_TRUE(defaults->findAttribute("lda")->isArray());
    EXPECT_NE(defaults->findAttribute("lightDirection"), nullptr); // the array's records
    const std::vector<std::pair<const char*, const char*>> out = {{"lightData", "ltd"},
                                                                  {"lightDirectionOut", "ldo"},
                                                                  {"lightIntensityOut", "lw"},
                                                                  {"lightAmbientOut", "lya"},
                                                                  {"lightDiffuseOut", "lyf"},
                                                                  {"lightSpecularOut", "lys"},
                                                                  {"lightShadowFractionOut", "sfo"},
                                                                  {"preShadowIntensityOut", "psio"},
                                                                  {"lightBlindDataOut", "lbdo"},
                                                                  {"lightDirectionOutX", "ldox"},
                                                                  {"lightIntensityOutB", "lwb"}};
    const Tattribute* root = defaults->findAttribute("lightData");
    for (const auto& [longName, shortName] : out) {
        SCOPED_TRACE(longName);
        const Tattribute* a = defaults->findAttribute(longName);
        ASSERT_NE(a, nullptr);
        EXPECT_EQ(defaults->findAttribute(shortName), a);
        EXPECT_TRUE(a == root || a->isDescendentOf(*root));
    }
}

TEST(DefaultLightList, RecordsAddUpToOneLight) {
    // Luminances 1 and 0.3 * 2 = 0.6: the direction leans to the first.
    const TlightData records[2] = {
        record({1, 0, 0}, {1, 1, 1}, 1.0f, 0.5f, true, false),
        record({0, 1, 0}, {2, 0, 0}, 0.6f, 0.0f, false, true),
    };
    const TlightData sum = TdnDefaultLightList::combine(records, 2);
    EXPECT_FLOAT_EQ(sum.intensity[0], 3.0f);
    EXPECT_FLOAT_EQ(sum.intensity[1], 1.0f);
    EXPECT_FLOAT_EQ(sum.intensity[2], 1.0f);
    // (1, 0.6, 0) / sqrt(1.36)
    EXPECT_NEAR(sum.direction[0], 0.857492926f, 1e-6f);
    EXPECT_NEAR(sum.direction[1], 0.514495755f, 1e-6f);
    EXPECT_FLOAT_EQ(sum.direction[2], 0.0f);
    EXPECT_FLOAT_EQ(sum.preShadowIntensity, 1.6f);
    // (1 * 0.5 + 0.6 * 0) / 1.6
    EXPECT_FLOAT_EQ(sum.shadowFraction, 0.3125f);
    EXPECT_TRUE(sum.diffuse);
    EXPECT_TRUE(sum.specular);
    EXPECT_FALSE(sum.ambient);

    // No record: a dark light facing the camera; one record keeps its owner.
    const TlightData none = TdnDefaultLightList::combine(nullptr, 0);
    EXPECT_FLOAT_EQ(none.intensity[0] + none.intensity[1] + none.intensity[2], 0.0f);
    EXPECT_FLOAT_EQ(none.direction[2], 1.0f);
    EXPECT_FALSE(none.diffuse || none.specular || none.ambient);
    TlightData owned = records[0];
    int owner = 0;
    owned.blindData = &owner;
    EXPECT_EQ(TdnDefaultLightList::combine(&owned, 1).blindData, &owner);
    // Opposite directions of equal weight cancel: the camera's direction.
    const TlightData opposed[2] = {record({1, 0, 0}, {1, 1, 1}, 1, 0, true, true),
                                   record({-1, 0, 0}, {1, 1, 1}, 1, 0, true, true)};
    EXPECT_FLOAT_EQ(TdnDefaultLightList::combine(opposed, 2).direction[2], 1.0f);
}

TEST(DefaultLightList, ComputesFromConnectedLights) {
    TdependGraph graph;
    TdependNode* defaults = graph.createNode("defaultLightList", "defaults");
    const Tplug output(defaults, defaults->findAttribute("lightData"));
    const TlightData* dark = graph.evaluate(output).asLightData();
    EXPECT_FLOAT_EQ(dark->intensity[0], 0.0f);

    // Two swatch lights: one seen from (1, 1, 1), one from right below the
    // light at (-10, 10, 0).
    graph.createNode("swatchLight", "a");
    graph.createNode("swatchLight", "b");
    graph.setPlugValueFromWords(graph.findPlug("b.pointCamera"), {"-10", "10", "0"});
    graph.connect(graph.findPlug("a.lightData"), graph.findPlug("defaults.lightDataArray[0]"));
    graph.connect(graph.findPlug("b.lightData"), graph.findPlug("defaults.lightDataArray[2]"));
    const TlightData* sum = graph.evaluate(output).asLightData();
    // (-11, 9, 9) / sqrt(283) plus (0, 0, 1), normalised.
    EXPECT_NEAR(sum->direction[0], -0.373190915f, 1e-6f);
    EXPECT_NEAR(sum->direction[1], 0.305338021f, 1e-6f);
    EXPECT_NEAR(sum->direction[2], 0.876069195f, 1e-6f);
    EXPECT_FLOAT_EQ(sum->intensity[1], 2.0f);
    EXPECT_FLOAT_EQ(sum->preShadowIntensity, 2.0f);
    EXPECT_EQ(sum->blindData, nullptr);
}

struct Watcher {
    int changes = 0;
    static void modified(TrenderList&, void* self) { ++static_cast<Watcher*>(self)->changes; }
};

TEST(LightPathList, TellsItsClientsOfChangesOnly) {
    TdependGraph graph;
    auto* t = TdagObject::fromNode(graph.createNode("transform", "t"));
    TlightList list;
    Watcher watcher;
    list.addClient(&watcher, &Watcher::modified);
    const TdagPath path = t->firstPath();
    EXPECT_TRUE(list.addToList(path));
    EXPECT_FALSE(list.addToList(path));
    EXPECT_EQ(watcher.changes, 1);
    EXPECT_TRUE(list.contains(path));
    EXPECT_TRUE(list.removeFromList(path));
    EXPECT_FALSE(list.removeFromList(path));
    EXPECT_EQ(watcher.changes, 2);
    list.removeClient(&watcher);
    list.addToList(path);
    EXPECT_EQ(watcher.changes, 2);
}

} // namespace
