#include <gtest/gtest.h>

#include "textures/noise.h"
#include "textures/noise_test_support.h"
#include "textures/texture_test_support.h"

namespace {

using orvo_test::expectGrey;
using orvo_test::PlacedTexture;
using orvo_test::ScopedNoiseTable;
using orvo_test::set;
using Values = std::vector<double>;

struct FlatTable : ScopedNoiseTable {
    explicit FlatTable(float c) {
        for (int i = 0; i <= Tnoise::kTableSize; ++i)
            (*this)[i] = c;
    }
};

TEST(Noise, PerlinWispyAndSpaceTimeOfAFlatTable) {
    FlatTable table(0.25f); // noise3 = 0.25 everywhere
    PlacedTexture t("noise");
    set(t.g, "t.noiseType", {"Perlin Noise"});
    // depthMax 3, amplitude 1, ratio 0.707: 0.25 (1 + 0.707 + 0.499849) =
    // 0.5517122; * 0.5 + 0.5.
    expectGrey(t.at(0.3, 0.6), 0.7758561f, 1e-6f, "perlin");
    set(t.g, "t.noiseType", {"Wispy"}); // the smear moves a flat noise nowhere
    expectGrey(t.at(0.3, 0.6), 0.7758561f, 1e-6f, "wispy");
    // Inflection is the texture's absolute: no remapping.
    set(t.g, "t.inflection", {"true"});
    expectGrey(t.at(0.3, 0.6), 0.5517122f, 1e-6f, "absolute");
    set(t.g, "t.inflection", {"false"});
    // noise4 of a flat table: L = 2.25, c = 1.25 * 21568.16, fract(60660.45)
    // = 0.45 at every node: 16 * 0.45 * 0.125 - 1 = -0.1;
    // -0.1 * 2.206849 * 0.5 + 0.5.
    set(t.g, "t.noiseType", {"SpaceTime"});
    expectGrey(t.at(0.3, 0.6), 0.3896576f, 1e-5f, "space time");
    expectGrey(t.at(-1e7, -1e7), 0.5f, 1e-6f, "outside");
}

TEST(Noise, WaveFromTheTable) {
    ScopedNoiseTable table;
    // Octave 0 of the two-axis wave: direction (1, 0), phase 0.5.
    table[0] = 1.0f;
    table[2] = 0.5f;
    PlacedTexture t("noise");
    set(t.g, "t.noiseType", {"Wave"});
    set(t.g, "t.numWaves", Values{1});
    set(t.g, "t.depthMax", Values{1});
    set(t.g, "t.frequency", Values{1});
    // cos(2 pi u + pi / 2) * 0.5 + 0.5.
    expectGrey(t.at(0.0, 0.3), 0.5f, 1e-6f, "u = 0");
    expectGrey(t.at(0.25, 0.3), 0.0f, 1e-6f, "u = 0.25");
    expectGrey(t.at(0.75, 0.3), 1.0f, 1e-6f, "u = 0.75");
}

TEST(Noise, BillowWithoutDensityIsTheThreshold) {
    PlacedTexture t("noise");            // billow by default
    set(t.g, "t.randomness", Values{2}); // min(1, 2 - 2) = 0: no blobs
    expectGrey(t.at(0.3, 0.6), 0.0f, 0.0f, "no blobs");
    set(t.g, "t.threshold", Values{0.3});
    expectGrey(t.at(0.3, 0.6), 0.3f, 1e-6f, "threshold");
}

} // namespace
