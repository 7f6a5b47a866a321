#include <gtest/gtest.h>

#include "framework/nodes/utility/blend_colors.h"
#include "framework/nodes/utility/utility_test_support.h"

namespace {

using orvo_test::setWords;
using Words = std::vector<std::string>;

TEST(BlendColors, MixesByBlender) {
    TdependGraph g;
    g.createNode("blendColors", "bc");
    // Blender 0: all color2, its default blue.
    EXPECT_EQ(g.evaluateToWords(g.findPlug("bc.output")), (Words{"0", "0", "1"}));
    // 0.25 * (1, 0, 0.5) + 0.75 * (0, 1, 0.5).
    setWords(g, "bc.blender", {"0.25"});
    setWords(g, "bc.color1", {"1", "0", "0.5"});
    setWords(g, "bc.color2", {"0", "1", "0.5"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("bc.output")), (Words{"0.25", "0.75", "0.5"}));
    // Outside [0, 1] it extrapolates: 2 * 1 + (1 - 2) * 0 = 2 on red.
    setWords(g, "bc.blender", {"2"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("bc.outputR")), (Words{"2"}));
}

TEST(BlendColors, ChannelPlugWritesOnlyItsChannel) {
    TdependGraph g;
    auto* node = static_cast<TdnBlendColors*>(g.createNode("blendColors", "bc"));
    TordinaryDataBlock block(node, 1);
    auto at = [&](const Tattribute& a) {
        return static_cast<float*>(block.valueAddress(a, 0));
    };
    at(TdnBlendColors::aBlender)[0] = 0.5f;
    at(TdnBlendColors::aColor1B)[0] = 3.0f;
    at(TdnBlendColors::aOutputR)[0] = 42.0f;
    at(TdnBlendColors::aOutputG)[0] = 42.0f;
    // 0.5 * 3 + 0.5 * 1 (color2's default blue) = 2.
    EXPECT_TRUE(node->computePlug(Tplug(node, &TdnBlendColors::aOutputB), block));
    EXPECT_EQ(at(TdnBlendColors::aOutputB)[0], 2.0f);
    EXPECT_EQ(at(TdnBlendColors::aOutputR)[0], 42.0f);
    EXPECT_EQ(at(TdnBlendColors::aOutputG)[0], 42.0f);
}

} // namespace
