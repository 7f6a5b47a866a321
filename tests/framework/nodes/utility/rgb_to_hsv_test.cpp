#include <gtest/gtest.h>

#include "framework/nodes/utility/rgb_to_hsv.h"
#include "framework/nodes/utility/utility_test_support.h"

namespace {

using orvo_test::evalFloats;
using orvo_test::expectNear3;
using orvo_test::setWords;

TEST(RgbToHsv, ConvertsThroughTheGraph) {
    TdependGraph g;
    g.createNode("rgbToHsv", "rh");
    // Maximum blue, minimum red: hue (0.4/0.6 + 3) * 60 = 220, s 0.6/0.8, v 0.8.
    setWords(g, "rh.inRgb", {"0.2", "0.4", "0.8"});
    expectNear3(evalFloats(g, "rh.outHsv"), 220.0f, 0.75f, 0.8f, 1e-4f, "rh.outHsv");
    setWords(g, "rh.inRgbB", {"0.4"});
    // Green and blue tie at the maximum: mx equals g first, min is red:
    // hue (3 - (0.4 - 0.4)/0.2) * 60 = 180.
    EXPECT_NEAR(evalFloats(g, "rh.outHsvH")[0], 180.0f, 1e-4f);
}

} // namespace
