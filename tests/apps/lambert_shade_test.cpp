#include "test_paths.h"
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "support/run_tool.h"

// A lambert lit by a directional light, shaded by `orvo shade` in the render
// passes a renderer uses. The scene (tests/scenes/materials/lambert_sun.qsl):
// color 0.5 0.25 1, ambientColor 0.2, incandescence 0.1 0 0, diffuse 0.8
// (the default); one directional light of intensity 2 with its direction
// to the light along +Y.

namespace {

struct Values {
    double colour[3] = {-1, -1, -1};
    double matte[3] = {-1, -1, -1};
};

Values shade(const std::string& normal, int pass) {
    const ToolResult r =
        runTool({"shade", std::string(ORVO_TEST_DATA_DIR) + "/scenes/materials/lambert_sun.qsl",
                 "-g", "claySG", "--res", "1", "1", "--json", "--pass", std::to_string(pass),
                 "--field", "normalCamera=" + normal, "--print", "outColor", "outMatteOpacity"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    Values v;
    const int n = std::sscanf(r.out.c_str(),
                              "{\"i\": 0, \"j\": 0, \"outColor\": [%lf, %lf, %lf], "
                              "\"outMatteOpacity\": [%lf, %lf, %lf]}",
                              &v.colour[0], &v.colour[1], &v.colour[2], &v.matte[0], &v.matte[1],
                              &v.matte[2]);
    EXPECT_EQ(n, 6) << r.out;
    return v;
}

void expectColour(const Values& v, double r, double g, double b, const char* what) {
    EXPECT_NEAR(v.colour[0], r, 1e-5) << what;
    EXPECT_NEAR(v.colour[1], g, 1e-5) << what;
    EXPECT_NEAR(v.colour[2], b, 1e-5) << what;
}

TEST(LambertShade, PassesTakeTheirTermsFromOneDirectionalLight) {
    // Pass 0, facing the light (d = 1): color x 2 x 0.8 x d, plus color x
    // ambient, plus incandescence.
    //   red 0.5 x 1.6 + 0.5 x 0.2 + 0.1 = 1.0; green 0.25 x 1.6 + 0.05 = 0.45;
    //   blue 1.6 + 0.2 = 1.8.
    expectColour(shade("0,1,0", 0), 1.0, 0.45, 1.8, "pass 0, facing");
    // Tilted to d = 0.6: the light term scales by 0.6.
    expectColour(shade("0,0.6,0.8", 0), 0.5 * 0.96 + 0.2, 0.25 * 0.96 + 0.05, 0.96 + 0.2,
                 "pass 0, tilted");
    // Facing away: no diffuse; ambient and incandescence stay.
    expectColour(shade("0,-1,0", 0), 0.2, 0.05, 0.2, "pass 0, away");
    // Pass 2: ambient only.
    expectColour(shade("0,1,0", 2), 0.1, 0.05, 0.2, "pass 2");
    // Pass 4: highlights only, and a lambert has none.
    expectColour(shade("0,1,0", 4), 0.0, 0.0, 0.0, "pass 4");
    // Pass 5: black colour; the matte carries the shadow, 0 when unshadowed.
    const Values shadow = shade("0,1,0", 5);
    expectColour(shadow, 0.0, 0.0, 0.0, "pass 5");
    EXPECT_NEAR(shadow.matte[0], 0.0, 1e-6);
}

} // namespace
