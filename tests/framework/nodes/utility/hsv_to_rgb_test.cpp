#include <gtest/gtest.h>

#include "framework/nodes/utility/hsv_to_rgb.h"
#include "framework/nodes/utility/utility_test_support.h"

namespace {

using orvo_test::setWords;
using Words = std::vector<std::string>;

TEST(HsvToRgb, HueOf360IsZeroAndBeyondLeavesTheOutput) {
    TdependGraph g;
    g.createNode("hsvToRgb", "hr");
    // Out of range from the start: the output keeps its default zero.
    setWords(g, "hr.inHsv", {"400", "1", "1"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("hr.outRgb")), (Words{"0", "0", "0"}));
    // i 4, f 0.5: (t, p, v) = (0.5, 0, 1).
    setWords(g, "hr.inHsv", {"270", "1", "1"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("hr.outRgb")), (Words{"0.5", "0", "1"}));
    // Beyond 360: the output stays as it was.
    setWords(g, "hr.inHsvH", {"400"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("hr.outRgb")), (Words{"0.5", "0", "1"}));
    // 360 itself is red.
    setWords(g, "hr.inHsvH", {"360"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("hr.outRgb")), (Words{"1", "0", "0"}));
}

} // namespace
