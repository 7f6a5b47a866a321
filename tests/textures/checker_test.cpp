#include <gtest/gtest.h>

#include "textures/checker.h"
#include "textures/texture_test_support.h"

namespace {

using orvo_test::expectGrey;
using orvo_test::expectRgba;
using orvo_test::PlacedTexture;
using orvo_test::set;
using Values = std::vector<double>;

TEST(Checker, SquaresEdgesAndTilesByHand) {
    PlacedTexture t("checker");
    // Zero filter size: a = b = 1e-8, full contrast, e = 1. (0.25, 0.25) is
    // a color1 square: white, alpha = w1 = 1; (0.75, 0.25) is color2: black.
    expectGrey(t.at(0.25, 0.25), 1.0f, 0.0f, "color1 square");
    expectGrey(t.at(0.75, 0.25), 0.0f, 0.0f, "color2 square");
    // At (0, 0) p = q = 0 < a: c = p c / a = 0, e = 0.5: the even mix.
    expectGrey(t.at(0.0, 0.0), 0.5f, 0.0f, "corner");
    // u = 0.5 exactly: fract of 2u is 0, an edge again.
    expectGrey(t.at(0.5, 0.25), 0.5f, 0.0f, "centre line");
    // (1, 1) becomes 0.9999 in the placement: p = q = 0.0002 > a, so a
    // color1 square (both above 0.5).
    expectGrey(t.at(1.0, 1.0), 1.0f, 0.0f, "top corner");
    // Negative coordinates: -0.25 reads as 0.75, a color2 square.
    expectGrey(t.at(-0.25, 0.25), 0.0f, 0.0f, "negative u");
    // Repeat 2: u = 0.3 * 2 = 0.6, v = 0.1 * 2 = 0.2: a color2 square.
    set(t.g, "p.repeatUV", Values{2, 2});
    expectGrey(t.at(0.3, 0.1), 0.0f, 0.0f, "second tile");
}

TEST(Checker, FilterBoxSoftensTheBoard) {
    PlacedTexture t("checker");
    // filter size 0.1: a = b = 0.2. At (0.05, 0.2): p = 0.1 < a, q = 0.4;
    // p b = 0.02 is not above q a = 0.08, so c = p / a = 0.5, e = 0.75, on a
    // color1 square: 0.75 white and 0.25 black.
    set(t.g, "p.uvFilterSize", Values{0.1, 0.1});
    expectGrey(t.at(0.05, 0.2), 0.75f, 1e-6f, "near an edge");
    // Contrast 0.5 halves c: e = (0.25 + 1) / 2.
    set(t.g, "t.contrast", Values{0.5});
    expectGrey(t.at(0.05, 0.2), 0.625f, 1e-6f, "half contrast");
    // Filter size 0.6: a = b = 1.2 > 1. At (0.25, 0.25): p = q = 0.5 < a,
    // c = 0.5 * 0.5 / 1.2, then * (2 - 1.2): e = (1/6 + 1) / 2 = 0.583333.
    set(t.g, "p.uvFilterSize", Values{0.6, 0.6});
    expectGrey(t.at(0.25, 0.25), 0.5833333f, 1e-6f, "wide box");
    // A box of 2 or more on one axis is the even mix everywhere.
    set(t.g, "p.uvFilterSize", Values{1.0, 0.0});
    expectGrey(t.at(0.25, 0.25), 0.5f, 0.0f, "box of 2");
    // filter -3 (connected: a value set on the plug is held at 0) acts as
    // 0: the size is only |filterOffset| = 0.05, a = 0.1, and at
    // (0.25, 0.25) the square is clear: c = contrast 0.5, e = 0.75.
    t.g.createNode("multiplyDivide", "md");
    set(t.g, "md.input1", Values{-3, 0, 0});
    t.g.connect(t.g.findPlug("md.outputX"), t.g.findPlug("t.filter"));
    set(t.g, "t.filterOffset", Values{-0.05});
    expectGrey(t.at(0.25, 0.25), 0.75f, 0.0f, "negative filter");
}

TEST(Checker, OutsideGivesTheDefaultColour) {
    PlacedTexture t("checker");
    set(t.g, "t.defaultColor", Values{1, 0, 0});
    // Alpha is the luminance of the default colour: 0.3.
    expectRgba(t.at(-1e7, -1e7), 1.0f, 0.0f, 0.0f, 0.3f, 1e-7f, "outside marker");
    // Wrap off sends u = 1.5 outside in the placement.
    set(t.g, "p.wrapU", {"false"});
    expectRgba(t.at(1.5, 0.3), 1.0f, 0.0f, 0.0f, 0.3f, 1e-7f, "unwrapped");
}

TEST(Checker, EffectsAndAlphaIsLuminance) {
    PlacedTexture t("checker");
    set(t.g, "t.color1", Values{0.2, 0.4, 1.0});
    set(t.g, "t.colorGain", Values{2, 1, 0.5});
    set(t.g, "t.colorOffset", Values{0.1, 0, 0});
    set(t.g, "t.alphaGain", Values{0.5});
    set(t.g, "t.alphaOffset", Values{0.25});
    // color1 square: (0.2 * 2 + 0.1, 0.4, 0.5); alpha 1 * 0.5 + 0.25.
    expectRgba(t.at(0.25, 0.25), 0.5f, 0.4f, 0.5f, 0.75f, 1e-6f, "gain and offset");
    // Invert: (0.8, 0.6, 0) then the gain and offset: (1.7, 0.6, 0); alpha
    // (1 - 1) * 0.5 + 0.25.
    set(t.g, "t.invert", {"true"});
    expectRgba(t.at(0.25, 0.25), 1.7f, 0.6f, 0.0f, 0.25f, 1e-6f, "inverted");
    // Alpha is luminance before the effects, so invert inverts it:
    // 0.3 * 0.2 + 0.59 * 0.4 + 0.11 * 1 = 0.406; 1 - 0.406 = 0.594;
    // * 0.5 + 0.25 = 0.547.
    set(t.g, "t.alphaIsLuminance", {"true"});
    EXPECT_NEAR(t.at(0.25, 0.25)[3], 0.547f, 1e-6f);
}

TEST(Checker, UnseenColourIsNotEvaluated) {
    PlacedTexture t("checker");
    TdependNode* feed = t.g.createNode("reverse", "r");
    t.g.connect(t.g.findPlug("r.output"), t.g.findPlug("t.color2"));
    // A sample wholly on a color1 square never asks for color2.
    expectGrey(t.at(0.25, 0.25), 1.0f, 0.0f, "color1 square");
    EXPECT_EQ(t.g.computeCount(feed), 0u);
    // On a color2 square it does: reverse of 0 is 1, and alpha is w1 = 0.
    expectRgba(t.at(0.75, 0.25), 1.0f, 1.0f, 1.0f, 0.0f, 0.0f, "color2 square");
    EXPECT_EQ(t.g.computeCount(feed), 1u);
}

} // namespace
