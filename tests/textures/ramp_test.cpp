#include <gtest/gtest.h>

#include <cmath>

#include "textures/noise_test_support.h"
#include "textures/ramp.h"
#include "textures/texture_test_support.h"

namespace {

using orvo_test::expectGrey;
using orvo_test::expectRgba;
using orvo_test::PlacedTexture;
using orvo_test::set;
using Values = std::vector<double>;

void entry(PlacedTexture& t, int index, double position, Values colour) {
    const std::string at = "t.colorEntryList[" + std::to_string(index) + "]";
    set(t.g, at + ".position", Values{position});
    set(t.g, at + ".color", colour);
}

// The colour alone, with alpha its luminance.
void expectColour(const std::vector<float>& got, float r, float g, float b, const char* what) {
    expectRgba(got, r, g, b, 0.3f * r + 0.59f * g + 0.11f * b, 1e-5f, what);
}

TEST(Ramp, EmptyListReadsBlackToWhite) {
    PlacedTexture t("ramp");
    // V ramp by default, linear: the grey is v; alpha is always luminance.
    expectGrey(t.at(0.3, 0.25), 0.25f, 1e-6f, "v = 0.25");
    expectGrey(t.at(0.3, 1.0), 0.9999f, 1e-6f, "top edge"); // the placement's 0.9999
    expectGrey(t.at(0.3, -0.25), 0.75f, 1e-6f, "negative v");
    set(t.g, "t.type", {"U Ramp"});
    expectGrey(t.at(0.3, 0.8), 0.3f, 1e-6f, "u ramp");
    set(t.g, "t.type", {"Diagonal Ramp"});
    expectGrey(t.at(0.3, 0.8), 0.55f, 1e-6f, "diagonal"); // (0.3 + 0.8) / 2
}

TEST(Ramp, ShapesByHand) {
    PlacedTexture t("ramp");
    // Radial: atan2(u - 0.5, v - 0.5) / 2 pi + 0.5.
    set(t.g, "t.type", {"Radial Ramp"});
    expectGrey(t.at(0.5, 0.75), 0.5f, 1e-6f, "radial up");     // atan2(0, 0.25) = 0
    expectGrey(t.at(0.75, 0.5), 0.75f, 1e-6f, "radial right"); // pi / 2
    expectGrey(t.at(0.5, 0.5), 0.0f, 0.0f, "radial centre");   // both within 1e-5
    set(t.g, "t.type", {"Circular Ramp"});
    expectGrey(t.at(0.5, 0.75), 0.3535f, 1e-6f, "circular"); // 0.25 * 1.414
    set(t.g, "t.type", {"Box Ramp"});
    expectGrey(t.at(0.6, 0.8), 0.6f, 1e-6f, "box"); // 2 max(0.1, 0.3)
    // UV: ramp(2 |v - 0.5|) times ramp(2 |u - 0.5|): 0.6 * 0.5.
    set(t.g, "t.type", {"UV Ramp"});
    expectGrey(t.at(0.75, 0.8), 0.3f, 1e-6f, "uv");
    // Tartan: their mean, (0.6 + 0.5) / 2; an unknown type is tartan too.
    set(t.g, "t.type", {"Tartan Ramp"});
    expectGrey(t.at(0.75, 0.8), 0.55f, 1e-6f, "tartan");
    set(t.g, "t.type", Values{9});
    expectGrey(t.at(0.75, 0.8), 0.55f, 1e-6f, "type 9");
}

TEST(Ramp, InterpolationsBetweenRedAndWhite) {
    PlacedTexture t("ramp");
    entry(t, 0, 0.0, {1, 0, 0});
    entry(t, 3, 1.0, {1, 1, 1});
    // At v = 0.25, t = 0.25; green and blue are the weight w.
    const std::vector<std::pair<const char*, float>> cases = {
        {"None", 0.0f},
        {"Linear", 0.25f},
        {"Exponential Up", 0.0625f},   // t t
        {"Exponential Down", 0.4375f}, // 1 - 0.75^2
        {"Smooth", 0.1464466f},        // (cos(1.25 pi) + 1) / 2
        {"Bump", 0.3826834f},          // difference 2 > 0: sin(pi / 8)
        {"Spike", 0.0761205f},         // 1 + sin(-0.375 pi)
    };
    for (const auto& [label, w] : cases) {
        set(t.g, "t.interpolation", {label});
        expectColour(t.at(0.5, 0.25), 1.0f, w, w, label);
    }
    // Falling from white to red the difference is negative: Bump and Spike
    // swap.
    entry(t, 0, 0.0, {1, 1, 1});
    entry(t, 3, 1.0, {1, 0, 0});
    set(t.g, "t.interpolation", {"Bump"});
    expectColour(t.at(0.5, 0.25), 1.0f, 1.0f - 0.0761205f, 1.0f - 0.0761205f, "bump down");
    set(t.g, "t.interpolation", {"Spike"});
    expectColour(t.at(0.5, 0.25), 1.0f, 1.0f - 0.3826834f, 1.0f - 0.3826834f, "spike down");
}

TEST(Ramp, EntryEdgeCases) {
    PlacedTexture t("ramp");
    // One entry: its colour everywhere.
    entry(t, 2, 0.7, {0.2, 0.4, 0.6});
    expectColour(t.at(0.1, 0.1), 0.2f, 0.4f, 0.6f, "one entry");
    // Equal positions: the first scanned is both sides, and wins.
    entry(t, 5, 0.7, {0, 1, 0});
    expectColour(t.at(0.1, 0.7), 0.2f, 0.4f, 0.6f, "on the shared position");
    // Above every entry: the lower colour; below every entry: the higher.
    expectColour(t.at(0.1, 0.9), 0.2f, 0.4f, 0.6f, "above");
    expectColour(t.at(0.1, 0.2), 0.2f, 0.4f, 0.6f, "below");
    // Positions out of range count as clamped to 0 .. 1 (the value held here
    // came through a connection, which no limit holds).
    TdependNode* md = t.g.createNode("multiplyDivide", "md");
    (void)md;
    set(t.g, "md.input1", Values{-2, 0, 0});
    t.g.connect(t.g.findPlug("md.outputX"), t.g.findPlug("t.colorEntryList[5].position"));
    entry(t, 2, 1.0, {0, 0, 1});
    // Green at -2 -> 0, blue at 1: v = 0.5 is their mix.
    expectColour(t.at(0.1, 0.5), 0.0f, 0.5f, 0.5f, "clamped position");
}

TEST(Ramp, FourCornersByArrayIndex) {
    PlacedTexture t("ramp");
    set(t.g, "t.type", {"Four Corner Ramp"});
    // Entry positions do not matter here.
    entry(t, 0, 0.9, {1, 0, 0});
    entry(t, 1, 0.1, {0, 1, 0});
    // Only two corners: the v = 1 side is black. At (0.25, 0.5): red * 0.75
    // * 0.5 + green * 0.25 * 0.5.
    expectColour(t.at(0.25, 0.5), 0.375f, 0.125f, 0.0f, "two corners");
    entry(t, 2, 0.5, {0, 0, 1});
    entry(t, 3, 0.5, {1, 1, 1});
    // + blue * 0.75 * 0.5 + white * 0.25 * 0.5.
    expectColour(t.at(0.25, 0.5), 0.5f, 0.25f, 0.5f, "four corners");
}

TEST(Ramp, WavesAndNoises) {
    PlacedTexture t("ramp"); // black to white along v
    // vWave: v + sin(2 pi 0.25) * 0.1 = 0.6.
    set(t.g, "t.vWave", Values{0.1});
    expectGrey(t.at(0.25, 0.5), 0.6f, 1e-6f, "v wave");
    // uWave uses the changed v: U ramp, u - sin(2 pi 0.6) * 0.2.
    set(t.g, "t.type", {"U Ramp"});
    set(t.g, "t.uWave", Values{0.2});
    expectGrey(t.at(0.25, 0.5), 0.25f - std::sin(2.0f * 3.14159265f * 0.6f) * 0.2f, 1e-5f,
               "u wave");
    set(t.g, "t.uWave", Values{0});
    set(t.g, "t.vWave", Values{0});

    orvo_test::ScopedNoiseTable table;
    table[0] = 1.0f; // noise2 is 0.25 at (0, 0) and 0 far from it
    // noise 0.4 moves both coordinates by 0.25 * 0.4 = 0.1.
    set(t.g, "t.noise", Values{0.4});
    expectGrey(t.at(0.0, 0.0), 0.1f, 1e-6f, "noise");
    set(t.g, "t.noise", Values{0});
    // Value noise 1 at (0, 0): black gets value 0.25.
    set(t.g, "t.type", {"V Ramp"});
    set(t.g, "t.valNoise", Values{1});
    expectGrey(t.at(0.0, 0.0), 0.25f, 1e-6f, "value noise");
    set(t.g, "t.valNoise", Values{0});
    // Hue noise 1 on red: hue 0 + 0.25 * 360 = 90: (0.5, 1, 0).
    entry(t, 0, 0.0, {1, 0, 0});
    entry(t, 1, 1.0, {1, 0, 0});
    set(t.g, "t.hueNoise", Values{1});
    expectColour(t.at(0.0, 0.0), 0.5f, 1.0f, 0.0f, "hue noise");
    // Saturation noise 1: saturation 1 + 0.25 held at 1: red stays red.
    set(t.g, "t.hueNoise", Values{0});
    set(t.g, "t.satNoise", Values{1});
    expectColour(t.at(0.0, 0.0), 1.0f, 0.0f, 0.0f, "saturation noise");
}

TEST(Ramp, EffectsAndOutside) {
    PlacedTexture t("ramp");
    // Alpha is the luminance whatever alphaIsLuminance says, then the
    // effects: grey 0.25 inverted is 0.75, alpha 1 - 0.25.
    set(t.g, "t.invert", {"true"});
    set(t.g, "t.alphaIsLuminance", {"true"});
    expectGrey(t.at(0.5, 0.25), 0.75f, 1e-6f, "inverted");
    set(t.g, "t.defaultColor", Values{0, 1, 0});
    expectRgba(t.at(-1e7, -1e7), 0.0f, 1.0f, 0.0f, 0.59f, 1e-6f, "outside");
}

TEST(Ramp, BakingFillsAnEmptyList) {
    PlacedTexture t("ramp");
    auto* ramp = static_cast<TdnRamp*>(t.texture);
    TuInt32Array indices;
    ramp->getExistingMultiAttributeIndices(Tplug(ramp, &TdnRamp::aColorEntryList), indices);
    EXPECT_TRUE(indices.empty());
    expectGrey(t.baked(0.3, 0.4), 0.4f, 1e-6f, "baked");
    ramp->getExistingMultiAttributeIndices(Tplug(ramp, &TdnRamp::aColorEntryList), indices);
    EXPECT_EQ(indices, (TuInt32Array{0, 1}));
    EXPECT_EQ(t.g.evaluateToWords(t.g.findPlug("t.colorEntryList[1].color")),
              (std::vector<std::string>{"1", "1", "1"}));
}

} // namespace
