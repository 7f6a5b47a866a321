#include <gtest/gtest.h>

#include "framework/nodes/utility/clamp_color.h"
#include "framework/nodes/utility/utility_test_support.h"

namespace {

using orvo_test::setWords;
using Words = std::vector<std::string>;

TEST(ClampColor, HoldsEachChannelBetweenMinAndMax) {
    TdependGraph g;
    g.createNode("clamp", "cl");
    setWords(g, "cl.input", {"-0.5", "0.5", "2"});
    setWords(g, "cl.max", {"1", "1", "1"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("cl.output")), (Words{"0", "0.5", "1"}));
}

TEST(ClampColor, MinAboveMaxGivesMax) {
    TdependGraph g;
    g.createNode("clamp", "cl");
    // min(max(0.75, x), 0.25) = 0.25 below, inside and above both bounds.
    setWords(g, "cl.min", {"0.75", "0.75", "0.75"});
    setWords(g, "cl.max", {"0.25", "0.25", "0.25"});
    setWords(g, "cl.input", {"0", "0.5", "1"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("cl.output")), (Words{"0.25", "0.25", "0.25"}));
}

TEST(ClampColor, ChannelPlugWritesOnlyItsChannel) {
    TdependGraph g;
    auto* node = static_cast<TdnClampColor*>(g.createNode("clamp", "cl"));
    TordinaryDataBlock block(node, 1);
    auto at = [&](const Tattribute& a) {
        return static_cast<float*>(block.valueAddress(a, 0));
    };
    at(TdnClampColor::aInputG)[0] = 3.0f;
    at(TdnClampColor::aMaxG)[0] = 2.0f;
    at(TdnClampColor::aOutputR)[0] = 42.0f;
    at(TdnClampColor::aOutputB)[0] = 42.0f;
    EXPECT_TRUE(node->computePlug(Tplug(node, &TdnClampColor::aOutputG), block));
    EXPECT_EQ(at(TdnClampColor::aOutputG)[0], 2.0f);
    EXPECT_EQ(at(TdnClampColor::aOutputR)[0], 42.0f);
    EXPECT_EQ(at(TdnClampColor::aOutputB)[0], 42.0f);
}

} // namespace
