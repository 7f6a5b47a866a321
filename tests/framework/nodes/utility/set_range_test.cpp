#include <gtest/gtest.h>

#include "framework/nodes/utility/set_range.h"
#include "framework/nodes/utility/utility_test_support.h"

namespace {

using orvo_test::evalFloats;
using orvo_test::setWords;
using Words = std::vector<std::string>;

TEST(SetRange, MapsTheClampedValueAndWritesTheClampBackIntoTheInput) {
    TdependGraph g;
    g.createNode("setRange", "sr");
    setWords(g, "sr.value", {"5", "-1", "12"});
    setWords(g, "sr.oldMax", {"10", "10", "10"});
    setWords(g, "sr.min", {"1", "1", "1"});
    setWords(g, "sr.max", {"-1", "3", "3"});
    // X: 5 in [0, 10] is 0.5 of the way: 1 + 0.5 * (-1 - 1) = 0.
    // Y: -1 clamps to 0: 1 + 0 * (3 - 1) = 1.  Z: 12 clamps to 10: 1 + 1 * 2 = 3.
    EXPECT_EQ(g.evaluateToWords(g.findPlug("sr.outValue")), (Words{"0", "1", "3"}));
    // The block now holds the clamped value.
    EXPECT_EQ(g.evaluateToWords(g.findPlug("sr.value")), (Words{"5", "0", "10"}));
}

TEST(SetRange, EmptyOldRangePassesTheValueUnclampedAndLeavesTheInput) {
    TdependGraph g;
    g.createNode("setRange", "sr");
    setWords(g, "sr.value", {"7", "-3", "2"});
    setWords(g, "sr.oldMin", {"1", "1", "1"});
    // oldMax within 1e-5 of oldMin on X and Y; Z has a real range [1, 1.5]
    // and maps 2 (clamped to 1.5) onto [0, 100]: 100.
    setWords(g, "sr.oldMax", {"1", "1.000001", "1.5"});
    setWords(g, "sr.max", {"100", "100", "100"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("sr.outValue")), (Words{"7", "-3", "100"}));
    EXPECT_EQ(g.evaluateToWords(g.findPlug("sr.value")), (Words{"7", "-3", "1.5"}));
}

TEST(SetRange, OldMinAboveOldMaxLetsTheUpperBoundWin) {
    TdependGraph g;
    g.createNode("setRange", "sr");
    // min(max(10, x), 0) = 0 for every x, and (0 - 10) * (1 - 0) / (0 - 10) + 0 = 1.
    setWords(g, "sr.value", {"5", "-20", "30"});
    setWords(g, "sr.oldMin", {"10", "10", "10"});
    setWords(g, "sr.max", {"1", "1", "1"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("sr.outValue")), (Words{"1", "1", "1"}));
    EXPECT_EQ(g.evaluateToWords(g.findPlug("sr.value")), (Words{"0", "0", "0"}));
}

} // namespace
