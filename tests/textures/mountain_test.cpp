#include <gtest/gtest.h>

#include "textures/mountain.h"
#include "textures/noise_test_support.h"
#include "textures/texture_test_support.h"

namespace {

using orvo_test::expectRgba;
using orvo_test::PlacedTexture;
using orvo_test::ScopedNoiseTable;
using orvo_test::set;
using Values = std::vector<double>;

TEST(Mountain, FlatGroundIsSnow) {
    ScopedNoiseTable table;
    for (int i = 0; i <= Tnoise::kTableSize; ++i)
        table[i] = 0.3f; // noise2 = 0.3, no slope
    PlacedTexture t("mountain");
    // Zero filter: levels = min(20, 21.58) = 20, no fraction. Slope 0: snow.
    // Height 0.3 (1 - 0.4^20) / 0.6 = 0.5; alpha (0.5 + 1) / 2.
    expectRgba(t.at(0.3, 0.6), 1.0f, 1.0f, 1.0f, 0.75f, 1e-6f, "snow");
    // Filter size 0.01: levels = 1.643968: one level and 0.643968 of the
    // next: h = 0.3 (1 + 0.4 * 0.643968); alpha (h + 1) / 2.
    set(t.g, "p.uvFilterSize", Values{0.01, 0.01});
    expectRgba(t.at(0.3, 0.6), 1.0f, 1.0f, 1.0f, (0.3f * (1.0f + 0.4f * 0.643968f) + 1.0f) / 2.0f,
               1e-6f, "filtered");
    expectRgba(t.at(-1e7, -1e7), 0.5f, 0.5f, 0.5f, 0.5f, 1e-6f, "outside");
}

TEST(Mountain, SteepGroundIsRock) {
    ScopedNoiseTable table;
    table[0] = 1.0f; // one bump on node (0, 0)
    PlacedTexture t("mountain");
    // At (0, 0) only level 0 sees the bump (the others read at (0.1 k, 0.03 k)):
    // slopes (1, 1), e = (1 + 1) / 2 = 1, below the limit 2 * 0.5 + 0.8: snow,
    // with height 0.25.
    expectRgba(t.at(0.0, 0.0), 1.0f, 1.0f, 1.0f, 0.625f, 1e-6f, "gentle");
    // Amplitude 2: slopes (2, 2), e = 4 > 1.8: rock; height 0.5.
    set(t.g, "t.amplitude", Values{2});
    expectRgba(t.at(0.0, 0.0), 0.262f, 0.102f, 0.0f, 0.75f, 1e-6f, "steep");
    // alphaIsLuminance: 0.3 * 0.262 + 0.59 * 0.102.
    set(t.g, "t.alphaIsLuminance", {"true"});
    expectRgba(t.at(0.0, 0.0), 0.262f, 0.102f, 0.0f, 0.13878f, 1e-6f, "luminance");
}

} // namespace
