#include <gtest/gtest.h>

#include <sstream>

#include "host/graph.h"
#include "host/qsl/interpreter.h"
#include "lights/light_at_point.h"
#include "shading/shading_engine.h"
#include "shading/test_nodes.h"

namespace {

TEST(LightAtPoint, GivesEachLightsRecordAtThePoint) {
    TdependGraph graph;
    std::ostringstream out;
    qsl::Interpreter(graph, out)
        .runText(R"(
node testLightSum sum
node shadingEngine sg
connect sum.outColor sg.surfaceShader
node transform key
node testLight keyShape -parent key
set keyShape.color 0.5 1 0
set keyShape.intensity 4
node transform fill
node testLight fillShape -parent fill
set fillShape.intensity 0.25
node objectSet rig
member rig keyShape fillShape
connect rig.message sg.linkedLights
)",
                 "rig.qsl");
    auto* engine = dynamic_cast<TDNshadingEngine*>(graph.findNode("sg"));
    {
        TlightAtPoint meter(10, -1, 0, {engine}, nullptr, nullptr);
        ASSERT_EQ(meter.numberOfLights(), 2u);
        _lightAtPointInformation info[2];
        ASSERT_EQ(meter.lightAtPoint(T3Float{3.0f, 0.0f, -1.0f}, info), 2u);
        // The key: 0.5 1 0 times 4; the test light puts the point's x in
        // preShadowIntensity and itself in the blind data.
        EXPECT_EQ(info[0].reference,
                  reinterpret_cast<uint64_t>(static_cast<void*>(graph.findNode("keyShape"))));
        EXPECT_FLOAT_EQ(info[0].intensity[0], 2.0f);
        EXPECT_FLOAT_EQ(info[0].intensity[1], 4.0f);
        EXPECT_FLOAT_EQ(info[0].preShadowIntensity, 3.0f);
        EXPECT_EQ(info[0].flags, 2u); // diffuse only
        EXPECT_FLOAT_EQ(info[1].intensity[2], 0.25f);
        // A second point is shaded afresh.
        ASSERT_EQ(meter.lightAtPoint(T3Float{-7.0f, 0.0f, 0.0f}, info), 2u);
        EXPECT_FLOAT_EQ(info[1].preShadowIntensity, -7.0f);
    }
    TrenderThreadBase::resetShadingGroups();
}

TEST(LightAtPoint, SpotAndPointLightsAnswerThroughTheGroupAsTheyShade) {
    // A spot 5 above the origin looking down (a 40 degree cone), a point
    // light 3 along +Z decaying by the square, both linked to the group.
    TdependGraph graph;
    std::ostringstream out;
    qsl::Interpreter(graph, out)
        .runText(R"(
node testLightSum sum
node shadingEngine sg
connect sum.outColor sg.surfaceShader
node transform spot
set spot.translate 0 5 0
set spot.rotate -90 0 0
node spotLight spotShape -parent spot
set spotShape.intensity 2
node transform bulb
set bulb.translate 0 0 3
node pointLight bulbShape -parent bulb
set bulbShape.intensity 9
set bulbShape.decayRate 2
node objectSet rig
member rig spotShape bulbShape
connect rig.message sg.linkedLights
)",
                 "rig.qsl");
    auto* engine = dynamic_cast<TDNshadingEngine*>(graph.findNode("sg"));
    {
        TlightAtPoint meter(10, -1, 0, {engine}, nullptr, nullptr);
        ASSERT_EQ(meter.numberOfLights(), 2u);
        _lightAtPointInformation info[2];
        // Under the spot, on its axis: 2, from straight above. The bulb is
        // 3 away: 9 / 9.
        ASSERT_EQ(meter.lightAtPoint(T3Float{0.0f, 0.0f, 0.0f}, info), 2u);
        EXPECT_NEAR(info[0].intensity[0], 2.0f, 1e-5);
        EXPECT_NEAR(info[0].direction[1], 1.0f, 1e-5);
        EXPECT_NEAR(info[1].intensity[0], 1.0f, 1e-5);
        EXPECT_EQ(info[1].flags, 6u); // diffuse and specular
        // 4 along +X: atan(4 / 5) = 38.7 degrees off the spot's axis, out
        // of its cone; 5 from the bulb: 9 / 25.
        ASSERT_EQ(meter.lightAtPoint(T3Float{4.0f, 0.0f, 0.0f}, info), 2u);
        EXPECT_EQ(info[0].intensity[0], 0.0f);
        EXPECT_EQ(info[0].flags, 0u);
        EXPECT_NEAR(info[1].intensity[0], 0.36f, 1e-5);
    }
    TrenderThreadBase::resetShadingGroups();
}

TEST(LightAtPoint, WithoutAGroupThereIsNothingToMeasure) {
    TlightAtPoint meter(10, 0, 0, {}, nullptr, nullptr);
    _lightAtPointInformation info[1];
    EXPECT_EQ(meter.numberOfLights(), 0u);
    EXPECT_EQ(meter.lightAtPoint(T3Float{}, info), 0u);
}

} // namespace
