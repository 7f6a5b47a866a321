#include <gtest/gtest.h>

#include "framework/nodes/utility/contrast.h"
#include "framework/nodes/utility/utility_test_support.h"

namespace {

using orvo_test::evalFloats;
using orvo_test::expectNear3;
using orvo_test::setWords;
using Words = std::vector<std::string>;

TEST(Contrast, SCurveAroundOneHalfWithTheDefaultBias) {
    TdependGraph g;
    g.createNode("contrast", "ct");
    // Bias 0.5 gives exponent log(0.5)/log(0.5) = 1, contrast 2:
    // 0.25 -> (2*0.25)^2 * 0.5 = 0.125;  0.75 -> 1 - (2*0.25)^2 * 0.5 = 0.875;
    // 0.5 is not below one half -> 1 - 1^2 * 0.5 = 0.5.
    setWords(g, "ct.value", {"0.25", "0.75", "0.5"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("ct.outValue")), (Words{"0.125", "0.875", "0.5"}));
    // Contrast 3 on X, 1 on Y: 0.25 -> 0.5^3 * 0.5 = 0.0625; contrast 1 is the identity.
    setWords(g, "ct.contrast", {"3", "1", "2"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("ct.outValue")), (Words{"0.0625", "0.75", "0.5"}));
}

TEST(Contrast, BiasMovesThePivot) {
    TdependGraph g;
    g.createNode("contrast", "ct");
    // Bias 0.25: exponent log(0.5)/log(0.25) = 0.5, so v = sqrt(value).
    // 0.25 -> v 0.5 -> 0.5;  0.0625 -> v 0.25 -> 0.5^2 * 0.5 = 0.125;
    // 0.5625 -> v 0.75 -> 1 - 0.5^2 * 0.5 = 0.875.
    setWords(g, "ct.bias", {"0.25", "0.25", "0.25"});
    setWords(g, "ct.value", {"0.25", "0.0625", "0.5625"});
    expectNear3(evalFloats(g, "ct.outValue"), 0.5f, 0.125f, 0.875f, 1e-6f, "bias 0.25");
    // The bias is limited to [0, 1].
    setWords(g, "ct.biasX", {"4"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("ct.biasX")), (Words{"1"}));
}

} // namespace
