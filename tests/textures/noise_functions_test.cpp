#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <vector>

#include "host/env.h"
#include "textures/noise_functions.h"
#include "textures/noise_test_support.h"
#include "textures/tools/noise_table_generator.h"

namespace {

using orvo_test::ScopedNoiseTable;

// ---------------------------------------------------------------- tables

TEST(NoiseTables, OldTableFollowsItsRule) {
    const float* old = Tnoise::oldTable();
    // s = 2413 -> (2413 * 25173 + 13849) & 0xFFFF = 60756298 & 0xFFFF = 4426;
    // 2 * 4426 / 65535 - 1 = -0.864927 (six digits).
    EXPECT_EQ(old[0], -0.864927f);
    // 4426 -> 18347: 2 * 18347 / 65535 - 1 = -0.440085.
    EXPECT_EQ(old[1], -0.440085f);
    // 18347 -> 30688: -0.0634623 (six significant digits).
    EXPECT_EQ(old[2], -0.0634623f);
    EXPECT_EQ(old[Tnoise::kTableSize], 0.0f);
}

TEST(NoiseTables, NewTableHasTheStatedStatistics) {
    const float* table = Tnoise::newTable();
    const auto s = orvo_noise_table::statistics(table, Tnoise::kTableSize);
    EXPECT_LT(std::fabs(s.mean), 0.000005); // 0 to five places
    EXPECT_NEAR(s.deviation, 0.5773, 0.00005);
    EXPECT_EQ(s.smallest, -0.999965f);
    EXPECT_EQ(s.largest, 0.999958f);
    EXPECT_EQ(table[Tnoise::kTableSize], 0.0f);
    // Every entry holds six significant digits.
    for (int i = 0; i < Tnoise::kTableSize; i += 997)
        EXPECT_EQ(orvo_noise_table::sixDigits(table[i]), table[i]) << i;
}

TEST(NoiseTables, NewTableIsItsSeedsTable) {
    // The shipped data is exactly what the recorded seed generates, so the
    // table is reproducible and was not edited by hand.
    std::vector<float> again(Tnoise::kTableSize);
    orvo_noise_table::generate(Tnoise::kNewTableSeed, again.data());
    const float* table = Tnoise::newTable();
    int differences = 0;
    for (int i = 0; i < Tnoise::kTableSize; ++i)
        differences += again[size_t(i)] != table[i];
    EXPECT_EQ(differences, 0);
}

TEST(NoiseTables, EnvironmentChoosesTheOldTable) {
    const float* before = Tnoise::fsTable;
    ::setenv("ORVO_RENDERER_OLD_RANDOM_TABLE", "1", 1);
    OrvoEnvRefresh();
    Tnoise::chooseTable();
    EXPECT_EQ(Tnoise::fsTable, Tnoise::oldTable());
    const float oldValue = Tnoise::noise2(0.3f, 0.7f);
    ::setenv("ORVO_RENDERER_OLD_RANDOM_TABLE", "0", 1);
    OrvoEnvRefresh();
    Tnoise::chooseTable();
    EXPECT_EQ(Tnoise::fsTable, Tnoise::newTable());
    // The same parameters make a different pattern.
    EXPECT_NE(Tnoise::noise2(0.3f, 0.7f), oldValue);
    ::unsetenv("ORVO_RENDERER_OLD_RANDOM_TABLE");
    OrvoEnvRefresh();
    Tnoise::fsTable = before;
}

TEST(NoiseTables, TableReadsWrapAsTold) {
    ScopedNoiseTable table;
    table[0] = 0.25f;
    table[5] = -0.5f;
    table[65534] = 0.75f;
    EXPECT_EQ(Tnoise::randomNoise(-5), -0.5);        // abs first
    EXPECT_EQ(Tnoise::randomNoise(65535 + 5), -0.5); // then mod 65535
    EXPECT_EQ(Tnoise::fastRandomNoiseFloat(65535), 0.25f);
    EXPECT_EQ(Tnoise::fastRandomNoiseFloat(65534), 0.75f);
    const T3Float three = Tnoise::valuesInNoiseTable(65534);
    EXPECT_EQ(three.x, 0.75f);
    EXPECT_EQ(three.y, 0.25f); // wrapped at 65535 to entry 0
    EXPECT_EQ(three.z, 0.0f);
    EXPECT_EQ(Tnoise::noiseTableSize(), 65535);
    EXPECT_EQ(Tnoise::noiseTableCubeSide(), 32);
    EXPECT_EQ(Tnoise::initialSeedValue(), 2413);
}

// ---------------------------------------------------------------- generators

TEST(NoiseGenerators, SixteenBitGenerator) {
    int seed = Tnoise::initialSeedValue();
    EXPECT_DOUBLE_EQ(Tnoise::nDrand(seed), 4426.0 / 65535.0);
    EXPECT_EQ(seed, 4426);
    EXPECT_FLOAT_EQ(Tnoise::nFrand(seed), 18347.0f / 65535.0f);
    EXPECT_EQ(seed, 18347);
}

TEST(NoiseGenerators, FortyEightBitGeneratorMatchesTheCRuntime) {
    // The state an unseeded drand48 starts from, low word first: its first
    // value is 0x657eb7255101 / 2^48 = 0.396464773760275.
    unsigned short ours[3] = {0x330E, 0xABCD, 0x1234};
    unsigned short theirs[3] = {0x330E, 0xABCD, 0x1234};
    EXPECT_NEAR(Tnoise::erand48_r(ours), 0.396464773760275, 1e-15);
    EXPECT_EQ(ours[0], 0x5101);
    EXPECT_EQ(ours[2], 0x657e);
    ::erand48(theirs);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(Tnoise::erand48_r(ours), ::erand48(theirs));
}

TEST(NoiseGenerators, RingOfDrandValuesWraps) {
    Tnoise::initNoiseState();
    const double first = Tnoise::rRand();
    EXPECT_NEAR(first, 0.396464773760275, 1e-15); // an unseeded drand48's first
    for (int i = 1; i < 3731; ++i)
        Tnoise::rRand();
    EXPECT_EQ(Tnoise::rRand(), first); // 3,731 values, then again
    Tnoise::initNoiseState();
    EXPECT_EQ(Tnoise::rRand(), first);
}

TEST(NoiseGenerators, GradientTableIsSeededUnitVectors) {
    const T3Float* g = Tnoise::gradientTable();
    // srand48(1): z = 1 - 2 * 0.0416303447718782 = 0.916739310456244.
    EXPECT_NEAR(g[0].z, 0.916739310456244, 1e-7);
    for (int i = 0; i < 256; ++i)
        EXPECT_NEAR(g[i].x * g[i].x + g[i].y * g[i].y + g[i].z * g[i].z, 1.0f, 1e-5f) << i;
}

// ---------------------------------------------------------------- lattice noise

TEST(LatticeNoise, ImpulseValuesWorkedByHand) {
    ScopedNoiseTable table;
    table[0] = 1.0f; // one bump at lattice node (0, 0, 0)
    // At a node every spline is a + b of the taps at cells -1 and 0.
    // noise2(0, 0): rows 31, 0, 1 give 0, 1, 0; (0 + 1) * 0.25.
    EXPECT_FLOAT_EQ(Tnoise::noise2(0.0f, 0.0f), 0.25f);
    // Half a cell along u (u = 0.5 / 32): row 0 is R(0, 1, 0, 0.5) =
    // ((0 - 2 + 0) 0.5 - 2 (0 - 1)) 0.5 + 0 + 1 = 1.5; along v 0 + 1.5;
    // * 0.25 = 0.375.
    EXPECT_FLOAT_EQ(Tnoise::noise2(0.5f / 32.0f, 0.0f), 0.375f);
    // noise3(0, 0, 0): 1 along each axis, * 0.125.
    EXPECT_FLOAT_EQ(Tnoise::noise3(0.0f, 0.0f, 0.0f), 0.125f);
    // The node (0, 0, 0) is the cell -1 tap of cell 1: R(1, 0, 0, 0) = 1.
    EXPECT_FLOAT_EQ(Tnoise::noise3(1.0f / 32.0f, 0.0f, 0.0f), 0.125f);

    // DNoise2 at (0, 0): rows r = (0, 1, 0), half slopes G = b - a = (0, 1, 0);
    // out[0] = G0 + G1 = 1, out[1] = r1 - r0 = 1, out[2] = (r0 + r1) * 0.25.
    float d[3];
    Tnoise::DNoise2(0.0, 0.0, d);
    EXPECT_FLOAT_EQ(d[0], 1.0f);
    EXPECT_FLOAT_EQ(d[1], 1.0f);
    EXPECT_FLOAT_EQ(d[2], 0.25f);
}

TEST(LatticeNoise, NoiseOneBorrowsTheSecondCell) {
    ScopedNoiseTable table;
    table[1] = 1.0f;
    // x = 0: cell 0 becomes i = 1 with t = -1; taps 0, 1, 0:
    // ((0 - 2 + 0)(-1) - 2 (0 - 1))(-1) + 0 + 1 = -3, * 0.25 = -0.75.
    EXPECT_FLOAT_EQ(Tnoise::noise1(0.0f), -0.75f);
    // x = 1.5 / 32: i = 1, t = 0.5: R(0, 1, 0, 0.5) = 1.5, * 0.25.
    EXPECT_FLOAT_EQ(Tnoise::noise1(1.5f / 32.0f), 0.375f);
}

TEST(LatticeNoise, AnimatedNoiseOfAFlatTable) {
    ScopedNoiseTable table;
    // All entries 0: c = 21568.16, L = 2, fract(43136.32) = 0.32 at every node
    // and every step; each spline of equal taps is twice the tap:
    // 2 * 2 * 2 * 2 * 0.32 * 0.125 - 1 = -0.36.
    EXPECT_NEAR(Tnoise::noise4(0.3f, 0.6f, 0.9f, 0.25f, 100), -0.36f, 1e-5f);
    EXPECT_NEAR(Tnoise::noise4(0.0f, 0.0f, 0.0f, 0.75f, 7), -0.36f, 1e-5f);
}

TEST(LatticeNoise, PeriodsAndReductions) {
    // noise2 repeats with period 1 on each axis; noise1 does not.
    for (float x : {0.1f, 0.37f, 0.93f}) {
        EXPECT_NEAR(Tnoise::noise2(x + 1.0f, 0.4f), Tnoise::noise2(x, 0.4f), 1e-5f);
        EXPECT_NEAR(Tnoise::noise2(0.4f, x + 1.0f), Tnoise::noise2(0.4f, x), 1e-5f);
    }
    EXPECT_NE(Tnoise::noise1(0.0f), Tnoise::noise1(1.0f - 1.0f / 64.0f));
    // -0.25 reduces to 0.75.
    EXPECT_EQ(Tnoise::noise2(-0.25f, 0.3f), Tnoise::noise2(0.75f, 0.3f));
    EXPECT_EQ(Tnoise::noise3(0.1f, -0.25f, 0.3f), Tnoise::noise3(0.1f, 0.75f, 0.3f));
    // Past 1e9: the value at 0 for noise3 and noise4, the clamped 1e9 for
    // noise2.
    EXPECT_EQ(Tnoise::noise3(2e9f, 0.2f, 0.3f), Tnoise::noise3(0.0f, 0.2f, 0.3f));
    EXPECT_EQ(Tnoise::noise4(2e9f, 0.2f, 0.3f, 0.5f, 10),
              Tnoise::noise4(0.0f, 0.2f, 0.3f, 0.5f, 10));
    EXPECT_EQ(Tnoise::noise2(2e9f, 0.2f), Tnoise::noise2(1e9f, 0.2f));
}

// ---------------------------------------------------------------- gradient noise

TEST(GradientNoise, DotProductsBlendedByTheCubic) {
    // At a lattice point every offset of the corner that counts is zero.
    EXPECT_EQ(Tnoise::gNoise3(0.0f, 0.0f, 0.0f), 0.0f);
    EXPECT_EQ(Tnoise::gNoise3(3.0f, -2.0f, 7.0f), 0.0f);
    // Half way along x: s = 0.5, only the corners (0, 0, 0) and (1, 0, 0)
    // count: 0.5 * (g0 . (0.5, 0, 0)) + 0.5 * (g1 . (-0.5, 0, 0)).
    const uint8_t* P = Tnoise::fsPermArray;
    const T3Float* G = Tnoise::gradientTable();
    const T3Float& g0 = G[P[(P[(P[0] + 0) & 255] + 0) & 255]];
    const T3Float& g1 = G[P[(P[(P[0] + 0) & 255] + 1) & 255]];
    EXPECT_NEAR(Tnoise::gNoise3(0.5f, 0.0f, 0.0f), 0.25f * g0.x - 0.25f * g1.x, 1e-6f);
    // One period of the permutation is 256 cells.
    EXPECT_NEAR(Tnoise::gNoise3(256.5f, 0.25f, 0.75f), Tnoise::gNoise3(0.5f, 0.25f, 0.75f), 1e-4f);
}

TEST(GradientNoise, Noise3CanBeReplaced) {
    Tnoise::noise3(0.0f, 0.0f, 0.0f); // installs the default
    const Tnoise::Noise3Fn saved = Tnoise::pfNoise3Compute.load();
    EXPECT_EQ(saved, &Tnoise::latticeNoise3);
    Tnoise::pfNoise3Compute.store([](float x, float, float) { return x * 2.0f; });
    EXPECT_EQ(Tnoise::noise3(0.25f, 0.0f, 0.0f), 0.5f);
    Tnoise::pfNoise3Compute.store(saved);
}

} // namespace
