#include <gtest/gtest.h>

#include "framework/nodes/utility/gamma_correct.h"
#include "framework/nodes/utility/utility_test_support.h"

namespace {

using orvo_test::setWords;
using Words = std::vector<std::string>;

TEST(GammaCorrect, RaisesToOneOverGammaAfterCuttingNegatives) {
    TdependGraph g;
    g.createNode("gammaCorrect", "gc");
    // 0.25^(1/2) = 0.5;  4^(1/0.5) = 16;  max(0, -1)^(1/3) = 0.
    setWords(g, "gc.value", {"0.25", "4", "-1"});
    setWords(g, "gc.gamma", {"2", "0.5", "3"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("gc.outValue")), (Words{"0.5", "16", "0"}));
}

TEST(GammaCorrect, GammaZeroGivesTheValueClampedAtZero) {
    TdependGraph g;
    g.createNode("gammaCorrect", "gc");
    setWords(g, "gc.value", {"-2", "0.3", "5"});
    setWords(g, "gc.gamma", {"0", "0", "0"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("gc.outValue")), (Words{"0", "0.300000012", "5"}));
}

} // namespace
