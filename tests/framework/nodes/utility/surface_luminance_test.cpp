#include <gtest/gtest.h>

#include "framework/nodes/utility/surface_luminance.h"
#include "framework/nodes/utility/utility_test_support.h"

namespace {

using orvo_test::evalFloats;
using orvo_test::setWords;

// Sets the fields of light element `i` of sl.lightDataArray.
void setLight(TdependGraph& g, int i, std::vector<std::string> direction,
              std::vector<std::string> intensity, const char* ambient, const char* diffuse,
              const char* specular) {
    const std::string at = "sl.lightDataArray[" + std::to_string(i) + "].";
    setWords(g, at + "lightDirection", std::move(direction));
    setWords(g, at + "lightIntensity", std::move(intensity));
    setWords(g, at + "lightAmbient", {ambient});
    setWords(g, at + "lightDiffuse", {diffuse});
    setWords(g, at + "lightSpecular", {specular});
}

TEST(SurfaceLuminance, SumsLightsByKindThenWeighsTheSum) {
    TdependGraph g;
    g.createNode("surfaceLuminance", "sl");
    // No light: nothing arrives.
    EXPECT_EQ(evalFloats(g, "sl.outValue")[0], 0.0f);

    // The normal defaults to (0, 0, 1).
    // Diffuse from (0, 0.6, 0.8): cosine 0.8, adds 0.8 * (1, 2, 3) = (0.8, 1.6, 2.4).
    setLight(g, 0, {"0", "0.6", "0.8"}, {"1", "2", "3"}, "false", "true", "false");
    // Ambient only: adds (0.5, 0.5, 0.5) without a cosine, although it comes from behind.
    setLight(g, 1, {"0", "0", "-1"}, {"0.5", "0.5", "0.5"}, "true", "false", "false");
    // Diffuse (and ambient) from behind: cosine -1, adds nothing; ambient
    // does not count when the light is diffuse.
    setLight(g, 2, {"0", "0", "-1"}, {"7", "7", "7"}, "true", "true", "false");
    // Neither ambient, diffuse nor specular: nothing.
    setLight(g, 3, {"0", "0", "1"}, {"9", "9", "9"}, "false", "false", "false");
    // Specular only, head on: adds 1 * (1, 0, 0).
    setLight(g, 4, {"0", "0", "1"}, {"1", "0", "0"}, "false", "false", "true");
    // Sum (2.3, 2.1, 2.9): 0.3 * 2.3 + 0.59 * 2.1 + 0.11 * 2.9 = 0.69 + 1.239 + 0.319.
    EXPECT_NEAR(evalFloats(g, "sl.outValue")[0], 2.248f, 1e-5f);

    // Turning the surface to face (0, 1, 0): light 0 now has cosine 0.6,
    // light 2 cosine 0, light 4 cosine 0. Sum 0.6 * (1, 2, 3) + 0.5 = (1.1, 1.7, 2.3).
    setWords(g, "sl.normalCamera", {"0", "1", "0"});
    EXPECT_NEAR(evalFloats(g, "sl.outValue")[0], 0.3f * 1.1f + 0.59f * 1.7f + 0.11f * 2.3f, 1e-5f);
}

TEST(SurfaceLuminance, ScalarComputeReadsTheElementTheBlockStandsAt) {
    TdependGraph g;
    auto* node = static_cast<TdnSurfaceLuminance*>(g.createNode("surfaceLuminance", "sl"));
    TordinaryDataBlock block(node, 2);
    // One ambient light of intensity (1, 1, 1) in element 1 only.
    block.setCurrentIndex(1);
    Tplug light(node, &TdnSurfaceLuminance::aLightDataArray);
    light.setMultiIndex(&TdnSurfaceLuminance::aLightDataArray, 0);
    TlightData& record = *block.elementValue(light, true).asLightData();
    record.ambient = true;
    record.diffuse = false;
    record.specular = false;
    record.intensity[0] = record.intensity[1] = record.intensity[2] = 1.0f;

    const Tplug out(node, &TdnSurfaceLuminance::aOutValue);
    EXPECT_TRUE(node->computePlug(out, block));
    // 0.3 + 0.59 + 0.11 = 1, written at element 1 and nowhere else.
    EXPECT_NEAR(*static_cast<float*>(block.valueAddress(TdnSurfaceLuminance::aOutValue, 1)), 1.0f,
                1e-6f);
    EXPECT_EQ(*static_cast<float*>(block.valueAddress(TdnSurfaceLuminance::aOutValue, 0)), 0.0f);
    block.setCurrentIndex(0);
    EXPECT_TRUE(node->computePlug(out, block));
    EXPECT_EQ(*static_cast<float*>(block.valueAddress(TdnSurfaceLuminance::aOutValue, 0)), 0.0f);
    // It has no run compute.
    EXPECT_FALSE(node->vectorComputePlug(out, block, 0, 2));
}

} // namespace
