#include <gtest/gtest.h>

#include <cmath>

#include "textures/fractal.h"
#include "textures/noise_test_support.h"
#include "textures/texture_test_support.h"

namespace {

using orvo_test::expectGrey;
using orvo_test::PlacedTexture;
using orvo_test::ScopedNoiseTable;
using orvo_test::set;
using Values = std::vector<double>;

// A table of one value c makes noise2 = c everywhere: each spline of equal
// taps is 2c, and 2 * 2c * 0.25 = c.
struct FlatTable : ScopedNoiseTable {
    explicit FlatTable(float c) {
        for (int i = 0; i <= Tnoise::kTableSize; ++i)
            (*this)[i] = c;
    }
};

TEST(Fractal, LevelsAndTheLastFraction) {
    FlatTable table(0.25f);
    PlacedTexture t("fractal");
    // Zero filter: m = 3.2e-7, L = 21.58, held at levelMax. levelMax 2.5:
    // levels 0 and 1 whole and level 2 at half: amplitudes 1, 0.707 and
    // 0.707^2 * 0.5 = 0.2499245; sum = 0.25 * 1.9569245 = 0.4892311;
    // (sum + 1) / 2 = 0.7446156.
    set(t.g, "t.levelMax", Values{2.5});
    expectGrey(t.at(0.3, 0.6), 0.7446156f, 1e-6f, "levelMax 2.5");
    // levelMin above levelMax: E = levelMax.
    set(t.g, "t.levelMin", Values{5});
    expectGrey(t.at(0.3, 0.6), 0.7446156f, 1e-6f, "levelMin above levelMax");
    set(t.g, "t.levelMin", Values{0});
    // Filter size 0.01: m = 0.32, L = ln 0.32 / -0.6931 = 1.643968: level 0,
    // and level 1 at 0.643968 * 0.707 = 0.4552854; (0.25 * 1.4552854 + 1) / 2.
    set(t.g, "t.levelMax", Values{9});
    set(t.g, "p.uvFilterSize", Values{0.01, 0.005});
    expectGrey(t.at(0.3, 0.6), 0.6819107f, 1e-6f, "filtered");
    // frequencyRatio 3: L = -ln 0.32 / ln 3 = 1.037158: level 1 at 0.037158.
    set(t.g, "t.frequencyRatio", Values{3});
    expectGrey(t.at(0.3, 0.6), (0.25f * (1.0f + 0.707f * 0.037158f) + 1.0f) / 2.0f, 1e-6f,
               "frequency ratio 3");
}

TEST(Fractal, BiasInflectionAndEdges) {
    FlatTable table(0.25f);
    PlacedTexture t("fractal");
    set(t.g, "t.levelMax", Values{1.5}); // amplitudes 1 and 0.3535
    // bias 0.5: B1 = -0.5, B2 = 2.25; d = 1 - 2 * 0.5 * 0.25 / -0.5 = 1.5,
    // e = 1.5 / 1.5 = 1, n = (2.25 - 1) / 2 = 0.625; (0.625 * 1.3535 + 1) / 2.
    set(t.g, "t.bias", Values{0.5});
    expectGrey(t.at(0.3, 0.6), 0.92296875f, 1e-6f, "bias 0.5");
    // bias 1 keeps n, bias -1 makes it 0: no division by 0 either way.
    set(t.g, "t.bias", Values{1});
    expectGrey(t.at(0.3, 0.6), (0.25f * 1.3535f + 1.0f) / 2.0f, 1e-6f, "bias 1");
    set(t.g, "t.bias", Values{-1});
    expectGrey(t.at(0.3, 0.6), 0.5f, 1e-6f, "bias -1");
    set(t.g, "t.bias", Values{0});
    // Inflection: 2 |0.25| - 1 = -0.5; (1 - 0.5 * 1.3535) / 2.
    set(t.g, "t.inflection", {"true"});
    expectGrey(t.at(0.3, 0.6), 0.161625f, 1e-6f, "inflection");
    // Amplitude 0 stops at the first level: (0 + 1) / 2 + threshold.
    set(t.g, "t.amplitude", Values{0});
    set(t.g, "t.threshold", Values{0.2});
    expectGrey(t.at(0.3, 0.6), 0.7f, 1e-6f, "amplitude 0");
    expectGrey(t.at(-1e7, -1e7), 0.5f, 1e-6f, "outside");
}

TEST(Fractal, LevelsSwapAxesUnlessOld) {
    ScopedNoiseTable table;
    table[0] = 1.0f; // noise2 is 0.25 on node (0, 0), 0 away from it
    PlacedTexture t("fractal");
    set(t.g, "t.levelMax", Values{1.5});
    // (u, v) = (0.4785, 0.05) is far from the node; level 1 reads at
    // (2 v - 0.1, 2 u + 0.043) = (0, 1), on it: 0.25 * 0.3535.
    expectGrey(t.at(0.4785, 0.05), (0.25f * 0.3535f + 1.0f) / 2.0f, 1e-5f, "swapped");
    // The old levels scale (u, v) by 2 and miss the node.
    TdnFractal::oldFractal = true;
    expectGrey(t.at(0.4785, 0.0501), 0.5f, 1e-6f, "old levels");
    TdnFractal::oldFractal = false;
}

} // namespace
