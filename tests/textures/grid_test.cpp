#include <gtest/gtest.h>

#include "textures/grid.h"
#include "textures/texture_test_support.h"

namespace {

using orvo_test::expectGrey;
using orvo_test::expectRgba;
using orvo_test::PlacedTexture;
using orvo_test::set;
using Values = std::vector<double>;

TEST(Grid, LinesAndFillerByHand) {
    PlacedTexture t("grid");
    // A zero filter size leaves a box of 1e-8. Lines are within 0.05 of a
    // tile border (half of uWidth 0.1).
    expectGrey(t.at(0.5, 0.5), 0.0f, 0.0f, "filler");  // k = 1, w = 0.5 - 0.5
    expectGrey(t.at(0.02, 0.5), 1.0f, 0.0f, "u line"); // k = 0, w = 1
    expectGrey(t.at(0.5, 0.97), 1.0f, 0.0f, "v line");
    // On the line's edge half the box is filler: k = 0.5, w = 0.5.
    expectGrey(t.at(0.05, 0.5), 0.5f, 1e-6f, "edge");
    // (1, 1) becomes 0.9999, in both lines; -0.02 reads as 0.98.
    expectGrey(t.at(1.0, 1.0), 1.0f, 0.0f, "top corner");
    expectGrey(t.at(-0.02, 0.5), 1.0f, 0.0f, "negative u");
    expectGrey(t.at(0.0, 0.0), 1.0f, 0.0f, "origin");
    // Contrast 0.5 on filler: d = 0.25, w = 0.25.
    set(t.g, "t.contrast", Values{0.5});
    expectGrey(t.at(0.5, 0.5), 0.25f, 1e-6f, "half contrast");
}

TEST(Grid, FilterBoxAndColours) {
    PlacedTexture t("grid");
    set(t.g, "t.fillerColor", Values{0.2, 0.4, 0.6});
    set(t.g, "t.lineColor", Values{1, 0, 0});
    // Filter size 0.1: a box of 0.2. At (0.05, 0.5) it spans -0.05 .. 0.15,
    // of which 0.05 .. 0.15 is filler: k = 0.1 * 0.2 / (0.2 * 0.2) = 0.5,
    // w = 0.5: filler + (line - filler) / 2 = (0.6, 0.2, 0.3).
    set(t.g, "p.uvFilterSize", Values{0.1, 0.1});
    expectRgba(t.at(0.05, 0.5), 0.6f, 0.2f, 0.3f, 0.5f, 1e-6f, "half covered");
    // Clear filler even with the box: w = 0.
    expectRgba(t.at(0.5, 0.5), 0.2f, 0.4f, 0.6f, 0.0f, 1e-6f, "filler");
    // No line widths: the filler covers everything.
    set(t.g, "t.uWidth", Values{0});
    set(t.g, "t.vWidth", Values{0});
    expectRgba(t.at(0.02, 0.02), 0.2f, 0.4f, 0.6f, 0.0f, 1e-6f, "no lines");
    // Outside: the default colour, alpha its luminance.
    expectRgba(t.at(-1e7, -1e7), 0.5f, 0.5f, 0.5f, 0.5f, 1e-6f, "outside");
}

} // namespace
