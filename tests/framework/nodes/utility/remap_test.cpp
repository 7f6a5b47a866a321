#include <gtest/gtest.h>

#include <cmath>

#include "framework/nodes/utility/remap.h"
#include "framework/nodes/utility/sampler_info.h"
#include "framework/nodes/utility/utility_test_support.h"

namespace {

using orvo_test::evalFloats;
using orvo_test::expectNear3;
using orvo_test::setWords;

// One entry of a float curve: logical index, position, value, interpolation.
void entry(TdependGraph& g, const std::string& curve, int index, float position, float value,
           int interp) {
    const std::string at = "n." + curve + "[" + std::to_string(index) + "]." + curve;
    setWords(g, at + "_Position", {std::to_string(position)});
    setWords(g, at + "_FloatValue", {std::to_string(value)});
    setWords(g, at + "_Interp", {std::to_string(interp)});
}

float remapValueAt(TdependGraph& g, float input) {
    setWords(g, "n.inputValue", {std::to_string(input)});
    return evalFloats(g, "n.outValue").at(0);
}

constexpr int kNone = 0, kLinear = 1, kSmooth = 2, kSpline = 3;

TEST(RemapCurves, EntriesInPositionOrderWithTheLowerEntryChoosingTheSegment) {
    TdependGraph g;
    g.createNode("remapValue", "n");
    // No entries: 0 everywhere (times the range, plus outputMin 0).
    EXPECT_EQ(remapValueAt(g, 0.3f), 0.0f);
    // One entry holds everywhere.
    entry(g, "value", 4, 0.5f, 0.75f, kLinear);
    EXPECT_EQ(remapValueAt(g, 0.0f), 0.75f);
    EXPECT_EQ(remapValueAt(g, 2.0f), 0.75f);

    // Indices out of position order: 4 at 0.5 (None, 0), 7 at 0 (2),
    // 1 at 1 (4).
    entry(g, "value", 4, 0.5f, 0.0f, kNone);
    entry(g, "value", 7, 0.0f, 2.0f, kLinear);
    entry(g, "value", 1, 1.0f, 4.0f, kLinear);
    EXPECT_EQ(remapValueAt(g, -1.0f), 2.0f);  // held below the first
    EXPECT_EQ(remapValueAt(g, 0.25f), 1.0f);  // 2 + (0 - 2) * 0.5
    EXPECT_EQ(remapValueAt(g, 0.125f), 1.5f); // 2 + (0 - 2) * 0.25
    EXPECT_EQ(remapValueAt(g, 0.75f), 0.0f);  // None holds 0 up to the next
    EXPECT_EQ(remapValueAt(g, 1.0f), 4.0f);   // the last entry
    EXPECT_EQ(remapValueAt(g, 3.0f), 4.0f);   // held above it
    // Smooth from the first entry: u 0.25 eases to 0.0625 * 2.5 = 0.15625,
    // so 2 - 2 * 0.15625.
    entry(g, "value", 7, 0.0f, 2.0f, kSmooth);
    EXPECT_FLOAT_EQ(remapValueAt(g, 0.125f), 1.6875f);

    // Two entries at one position: the higher index comes later. At 0.5,
    // index 4 (0, None) is passed by index 9 (10, Linear), so 0.75 is
    // halfway from 10 to 4.
    entry(g, "value", 9, 0.5f, 10.0f, kLinear);
    EXPECT_EQ(remapValueAt(g, 0.75f), 7.0f);
}

TEST(RemapCurves, SplineRunsThroughItsNeighbours) {
    TdependGraph g;
    g.createNode("remapValue", "n");
    // Values 0, 1, 4, 9 at 0, 1, 2, 3 (input range 0..3 maps them to
    // positions 0, 1/3, 2/3, 1). Catmull-Rom in the middle segment at
    // u = 0.5: 0.5 * (2*1 + (4-0)*0.5 + (0-5+16-9)*0.25 + (3-0-12+9)*0.125)
    // = 2.25.
    setWords(g, "n.inputMax", {"3"});
    for (int k = 0; k < 4; ++k)
        entry(g, "value", k, float(k) / 3.0f, float(k * k), kSpline);
    EXPECT_NEAR(remapValueAt(g, 1.5f), 2.25f, 1e-5f);
    // In the first segment the missing neighbour is the entry doubled:
    // p0 = p1 = 0, p2 = 1, p3 = 4, u = 0.5:
    // 0.5 * (0 + 1*0.5 + (0-0+4-4)*0.25 + (0-0-3+4)*0.125) = 0.3125.
    EXPECT_NEAR(remapValueAt(g, 0.5f), 0.3125f, 1e-5f);
}

TEST(RemapValue, RangesAreNeitherClampedNorSwapped) {
    TdependGraph g;
    g.createNode("remapValue", "n");
    entry(g, "value", 0, 0.0f, 0.0f, kLinear);
    entry(g, "value", 1, 1.0f, 1.0f, kLinear);
    // Output 2..1: 0.25 -> 0.25 * (1 - 2) + 2.
    setWords(g, "n.outputMin", {"2"});
    setWords(g, "n.outputMax", {"1"});
    EXPECT_EQ(remapValueAt(g, 0.25f), 1.75f);
    // An empty input range sends everything to position 0, value 0 -> 2.
    setWords(g, "n.inputMin", {"0.5"});
    setWords(g, "n.inputMax", {"0.500001"});
    EXPECT_EQ(remapValueAt(g, 0.9f), 2.0f);

    // The colour curve for outColor: red at 0, white at 1, Linear; input
    // 0.5 of 0..1 gives (1, 0.5, 0.5), then * (1 - 2) + 2.
    setWords(g, "n.inputMin", {"0"});
    setWords(g, "n.inputMax", {"1"});
    setWords(g, "n.color[0].color_Color", {"1", "0", "0"});
    setWords(g, "n.color[0].color_Interp", {"1"});
    setWords(g, "n.color[1].color_Position", {"1"});
    setWords(g, "n.color[1].color_Color", {"1", "1", "1"});
    setWords(g, "n.inputValue", {"0.5"});
    expectNear3(evalFloats(g, "n.outColor"), 1.0f, 1.5f, 1.5f, 1e-6f, "outColor");
}

TEST(RemapColor, EachChannelThroughItsOwnCurve) {
    TdependGraph g;
    g.createNode("remapColor", "n");
    // red: 1 - x; green: holds 0.25; blue: none, so 0. Input range 0..2.
    entry(g, "red", 0, 0.0f, 1.0f, kLinear);
    entry(g, "red", 1, 1.0f, 0.0f, kLinear);
    entry(g, "green", 0, 0.3f, 0.25f, kLinear);
    setWords(g, "n.inputMax", {"2"});
    setWords(g, "n.color", {"0.5", "1.5", "1"});
    // Red at 0.25 -> 0.75.
    expectNear3(evalFloats(g, "n.outColor"), 0.75f, 0.25f, 0.0f, 1e-6f, "outColor");
}

TEST(RemapHsv, IdentityCurvesGiveTheColourBack) {
    TdependGraph g;
    g.createNode("remapHsv", "n");
    for (const char* curve : {"hue", "saturation", "value"}) {
        entry(g, curve, 0, 0.0f, 0.0f, kLinear);
        entry(g, curve, 1, 1.0f, 1.0f, kLinear);
    }
    setWords(g, "n.color", {"0.2", "0.5", "0.8"});
    expectNear3(evalFloats(g, "n.outColor"), 0.2f, 0.5f, 0.8f, 1e-5f, "identity");
    // A saturation curve at 0 leaves the grey of the value: 0.8.
    entry(g, "saturation", 1, 1.0f, 0.0f, kLinear);
    expectNear3(evalFloats(g, "n.outColor"), 0.8f, 0.8f, 0.8f, 1e-5f, "grey");
}

TEST(SamplerInfo, FacingRatioFromTheNormalisedRayAndNormal) {
    TdependGraph g;
    g.createNode("samplerInfo", "n");
    // Straight on, whatever the lengths: 1.
    setWords(g, "n.rayDirection", {"0", "0", "-2"});
    setWords(g, "n.normalCamera", {"0", "0", "3"});
    EXPECT_FLOAT_EQ(evalFloats(g, "n.facingRatio").at(0), 1.0f);
    // At 45 degrees: 1 / sqrt(2).
    setWords(g, "n.rayDirection", {"1", "0", "-1"});
    EXPECT_NEAR(evalFloats(g, "n.facingRatio").at(0), std::sqrt(0.5f), 1e-6f);
    // From behind: 0, not negative.
    setWords(g, "n.rayDirection", {"0", "0", "1"});
    EXPECT_EQ(evalFloats(g, "n.facingRatio").at(0), 0.0f);
}

} // namespace
