#include "test_paths.h"
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "support/run_tool.h"

// A highlight checked at one sample through `orvo shade`. The scene
// (tests/scenes/materials/blinn_sun.qsl): a blinn of colour 0.5 0.1 0.1,
// eccentricity 0.3, specularColor 1, lit by a directional light of
// intensity 1 from +Y; the view looks down -Z and the normal is halfway,
// N = (0, 0.707107, 0.707107).

namespace {

void expectShade(int pass, double r, double g, double b) {
    const ToolResult out =
        runTool({"shade", std::string(ORVO_TEST_DATA_DIR) + "/scenes/materials/blinn_sun.qsl", "-g",
                 "shinySG", "--res", "1", "1", "--json", "--pass", std::to_string(pass), "--field",
                 "normalCamera=0,0.70710678,0.70710678", "--field", "rayDirection=0,0,-1",
                 "--print", "outColor"});
    ASSERT_EQ(out.exitCode, 0) << out.err;
    double c[3] = {-1, -1, -1};
    ASSERT_EQ(std::sscanf(out.out.c_str(), "{\"i\": 0, \"j\": 0, \"outColor\": [%lf, %lf, %lf]}",
                          &c[0], &c[1], &c[2]),
              3)
        << out.out;
    EXPECT_NEAR(c[0], r, 1e-4) << "pass " << pass;
    EXPECT_NEAR(c[1], g, 1e-4) << "pass " << pass;
    EXPECT_NEAR(c[2], b, 1e-4) << "pass " << pass;
}

TEST(SpecularShade, BlinnHighlightAtOneSample) {
    // H = normalise(L - I) = normalise(0, 1, 1) = N: nh = 1, D = 1; nl = nv
    // = vh = 0.707107 and vh < 2 nh nl, so G = 1 / nv = 1.414214; f = (1 -
    // 0.707107)^3 = 0.025126; v = (0.7 + 0.3 f) G = 1.000606.
    expectShade(4, 1.000606, 1.000606, 1.000606);
    // Plus the diffuse colour x 0.8 x 0.707107 = (0.282843, 0.056569, ...).
    expectShade(0, 1.283449, 1.057175, 1.057175);
}

} // namespace
