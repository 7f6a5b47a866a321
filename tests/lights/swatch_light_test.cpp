// The swatch light: a fixed white key light at (-10, 10, 10) in camera
// space.

#include <gtest/gtest.h>

#include "host/graph.h"
#include "lights/swatch_light.h"

namespace {

TEST(SwatchLight, LightsFromItsFixedPlace) {
    TdependGraph graph;
    TdependNode* swatch = graph.createNode("swatchLight", "swatch");
    EXPECT_EQ(swatch->iffTag()->text(), "MULL");
    const Tplug out = graph.findPlug("swatch.lightData");
    // From the default point (1, 1, 1): (-11, 9, 9) / sqrt(283).
    const TlightData r = *graph.evaluate(out).asLightData();
    EXPECT_NEAR(r.direction[0], -0.653882128f, 1e-6f);
    EXPECT_NEAR(r.direction[1], 0.534994468f, 1e-6f);
    EXPECT_NEAR(r.direction[2], 0.534994468f, 1e-6f);
    for (float c : r.intensity)
        EXPECT_FLOAT_EQ(c, 1.0f);
    EXPECT_FALSE(r.ambient);
    EXPECT_TRUE(r.diffuse);
    EXPECT_TRUE(r.specular);
    EXPECT_FLOAT_EQ(r.shadowFraction, 0.0f);
    EXPECT_FLOAT_EQ(r.preShadowIntensity, 1.0f);

    // Straight below the light; at the light itself, towards the camera.
    graph.setPlugValueFromWords(graph.findPlug("swatch.pointCamera"), {"-10", "-5", "10"});
    const TlightData below = *graph.evaluate(out).asLightData();
    EXPECT_FLOAT_EQ(below.direction[0], 0.0f);
    EXPECT_FLOAT_EQ(below.direction[1], 1.0f);
    EXPECT_FLOAT_EQ(below.direction[2], 0.0f);
    graph.setPlugValueFromWords(graph.findPlug("swatch.pointCamera"), {"-10", "10", "10"});
    const TlightData at = *graph.evaluate(out).asLightData();
    EXPECT_FLOAT_EQ(at.direction[2], 1.0f);
}

} // namespace
