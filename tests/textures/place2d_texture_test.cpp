#include <gtest/gtest.h>

#include <cmath>

#include "textures/noise_test_support.h"
#include "textures/place2d_texture.h"
#include "textures/texture_test_support.h"

namespace {

using orvo_test::eval;
using orvo_test::set;
using Values = std::vector<double>;

constexpr float kOut = -1e7f;

class Placement : public testing::Test {
protected:
    TdependGraph g;
    TdnPlace2dTx* p = static_cast<TdnPlace2dTx*>(g.createNode("place2dTexture", "p"));

    // outU, outV, outUvFilterSizeX, outUvFilterSizeY for a sample.
    std::vector<float> place(double u, double v, double fu = 0.1, double fv = 0.2) {
        set(g, "p.uvCoord", Values{u, v});
        set(g, "p.uvFilterSize", Values{fu, fv});
        std::vector<float> out = eval(g, "p.outUV");
        const std::vector<float> fs = eval(g, "p.outUvFilterSize");
        out.insert(out.end(), fs.begin(), fs.end());
        return out;
    }
    void runOnDemand() {
        Tplug plug(p, &TdnPlace2dTx::aOutUV);
        p->shadingNodeOnDemand(plug, p->forceGetDatablock());
    }
};

TEST_F(Placement, OutsideMarkerNeedsBothComponents) {
    // u = -1e7 alone passes the pipeline: coverage 1 with wrap keeps it as it
    // is, and the filter size is scaled by repeat 1 / coverage 1.
    EXPECT_EQ(place(-1e7, 0.3), (std::vector<float>{kOut, 0.3f, 0.1f, 0.2f}));
    // Both: the marker, and the filter size unscaled even with repeat 2.
    set(g, "p.repeatUV", Values{2, 2});
    EXPECT_EQ(place(-1e7, -1e7), (std::vector<float>{kOut, kOut, 0.1f, 0.2f}));
}

TEST_F(Placement, ZeroCoverageMakesEverySampleOutside) {
    set(g, "p.coverage", Values{0, 1});
    set(g, "p.repeatUV", Values{2, 3});
    // No division by 0, and the filter size passes through unscaled.
    for (double u : {0.0, 0.5, 1.0})
        EXPECT_EQ(place(u, 0.5), (std::vector<float>{kOut, kOut, 0.1f, 0.2f})) << u;
}

TEST_F(Placement, CoverageWithoutWrap) {
    set(g, "p.wrapU", {"false"});
    set(g, "p.coverage", Values{0.5, 1});
    // 0.6 / 0.5 = 1.2 is outside; the filter size is still scaled by
    // repeat / coverage: 0.1 * 1 / 0.5 = 0.2 and 0.2 * 1 / 1.
    EXPECT_EQ(place(0.6, 0.5), (std::vector<float>{kOut, kOut, 0.2f, 0.2f}));
    // 0.3 / 0.5 = 0.6 is inside.
    EXPECT_FLOAT_EQ(place(0.3, 0.5)[0], 0.6f);
    // translateFrame moves the frame: (0.6 - 0.2) / 0.5 = 0.8.
    set(g, "p.translateFrame", Values{0.2, 0});
    EXPECT_FLOAT_EQ(place(0.6, 0.5)[0], 0.8f);
}

TEST_F(Placement, CoverageWithWrap) {
    set(g, "p.coverage", Values{0.5, 1});
    // 0.25 <= 0.5: 0.25 / 0.5 = 0.5.
    EXPECT_FLOAT_EQ(place(0.25, 0.5)[0], 0.5f);
    // 0.75 > 0.5: 0.75 - 1 = -0.25, / 0.5 = -0.5: outside.
    EXPECT_EQ(place(0.75, 0.5)[0], kOut);
    // -0.75: -0.75 - (-1) + 1 = 1.25 > 0.5, - 1 = 0.25, / 0.5 = 0.5.
    EXPECT_FLOAT_EQ(place(-0.75, 0.5)[0], 0.5f);
    // 2.2: 2.2 - 2 = 0.2, / 0.5 = 0.4.
    EXPECT_NEAR(place(2.2, 0.5)[0], 0.4f, 1e-6f);
}

TEST_F(Placement, TopEdgeBelongsToTheTile) {
    // 1.0 exactly becomes 0.9999, then repeat 1, offset 0.
    const std::vector<float> out = place(1.0, 1.0);
    EXPECT_EQ(out[0], 0.9999f);
    EXPECT_EQ(out[1], 0.9999f);
    // Repeat 3 and offset 0.5: 0.9999 * 3 + 0.5.
    set(g, "p.repeatUV", Values{3, 1});
    set(g, "p.offset", Values{0.5, 0});
    EXPECT_FLOAT_EQ(place(1.0, 0.5)[0], 0.9999f * 3.0f + 0.5f);
}

TEST_F(Placement, StaggerOnOddRowsNegativeOnesIncluded) {
    set(g, "p.stagger", {"true"});
    set(g, "p.repeatUV", Values{1, 2});
    // v = 0.75 * 2 = 1.5: row 1 is odd, u + 0.5.
    EXPECT_FLOAT_EQ(place(0.2, 0.75)[0], 0.7f);
    // v = 0.25 * 2 = 0.5: row 0, no shift.
    EXPECT_FLOAT_EQ(place(0.2, 0.25)[0], 0.2f);
    // Offset -1: v = 0.25 * 2 - 1 = -0.5, floor -1 is odd.
    set(g, "p.offset", Values{0, -1});
    EXPECT_FLOAT_EQ(place(0.2, 0.25)[0], 0.7f);
    // v = 0.75 * 2 - 1 = 0.5: row 0.
    EXPECT_FLOAT_EQ(place(0.2, 0.75)[0], 0.2f);
}

TEST_F(Placement, MirrorOddTiles) {
    set(g, "p.mirrorU", {"true"});
    set(g, "p.mirrorV", {"true"});
    set(g, "p.repeatUV", Values{2, 2});
    // u = 0.7 * 2 = 1.4 in tile 1: 2 + 1 - 1.4 = 1.6; v = 0.2 * 2 = 0.4 in tile 0.
    const std::vector<float> out = place(0.7, 0.2);
    EXPECT_NEAR(out[0], 1.6f, 1e-6f);
    EXPECT_NEAR(out[1], 0.4f, 1e-6f);
    // With stagger the U mirror sees the staggered u: v = 0.8 * 2 = 1.6 is
    // row 1, u = 0.2 * 2 + 0.5 = 0.9 stays in tile 0; v mirrors to 1.4.
    set(g, "p.stagger", {"true"});
    const std::vector<float> staggered = place(0.2, 0.8);
    EXPECT_NEAR(staggered[0], 0.9f, 1e-6f);
    EXPECT_NEAR(staggered[1], 1.4f, 1e-6f);
}

TEST_F(Placement, RotationsAndTheirFilterBox) {
    // rotateUV a quarter turn about (0.5, 0.5): (0.75, 0.5) -> (0.5, 0.75).
    set(g, "p.rotateUV", Values{M_PI / 2});
    std::vector<float> out = place(0.75, 0.5, 0.1, 0.2);
    EXPECT_NEAR(out[0], 0.5f, 1e-6f);
    EXPECT_NEAR(out[1], 0.75f, 1e-6f);
    // The footprint turns with it: m = (0, -1; 1, 0), a = |-0.2| = 0.2,
    // b = |0.1| = 0.1, k = sqrt(0.02 / (0.1 * 0.2)) = 1.
    EXPECT_NEAR(out[2], 0.2f, 1e-6f);
    EXPECT_NEAR(out[3], 0.1f, 1e-6f);

    // rotateFrame an eighth turn, square footprint 0.1: a = b = 0.1 * sqrt(2)
    // and k = sqrt(0.01 / 0.02): the box keeps the area, 0.1 by 0.1.
    set(g, "p.rotateUV", Values{0});
    set(g, "p.rotateFrame", Values{M_PI / 4});
    out = place(0.5, 0.75, 0.1, 0.1);
    EXPECT_NEAR(out[2], 0.1f, 1e-6f);
    EXPECT_NEAR(out[3], 0.1f, 1e-6f);
    // The frame turns the other way from the coordinate: (0, 0.25) from the
    // centre goes to (-0.25 sin, 0.25 cos) = (-0.1768, 0.1768).
    EXPECT_NEAR(out[0], 0.5f - 0.1767767f, 1e-6f);
    EXPECT_NEAR(out[1], 0.5f + 0.1767767f, 1e-6f);
}

TEST_F(Placement, NoiseReadsTheCoordinateBeforeTheChange) {
    orvo_test::ScopedNoiseTable table;
    table[0] = 1.0f; // noise2(0, 0) = 0.25, and 0 near (0.5, 0.5)
    set(g, "p.noiseUV", Values{0.1, 0.4});
    const std::vector<float> out = place(0.0, 0.0);
    EXPECT_NEAR(out[0], 0.025f, 1e-7f); // 0 + 0.25 * 0.1
    EXPECT_NEAR(out[1], 0.0f, 1e-7f);   // 0 + noise2(0.5, 0.5) * 0.4
}

TEST_F(Placement, FastSkipsOnlyWhatTheTestAllows) {
    set(g, "p.fast", {"true"});
    // Wrap is on by default: the test says transform, and fast has no effect.
    runOnDemand();
    EXPECT_TRUE(p->cachedDoTransform());
    EXPECT_EQ(g.evaluateToWords(g.findPlug("p.doTransform")), std::vector<std::string>{"true"});
    // Wrap off and a negative offset, which passes as no transform at all:
    // the coordinate goes through untouched, 1.0 and beyond included.
    set(g, "p.wrapU", {"false"});
    set(g, "p.wrapV", {"false"});
    set(g, "p.offset", Values{-0.3, 0});
    runOnDemand();
    EXPECT_FALSE(p->cachedDoTransform());
    EXPECT_EQ(g.evaluateToWords(g.findPlug("p.doTransform")), std::vector<std::string>{"false"});
    EXPECT_EQ(place(1.5, 1.0), (std::vector<float>{1.5f, 1.0f, 0.1f, 0.2f}));
    // A repeat of 2 is a transform.
    set(g, "p.repeatUV", Values{2, 1});
    runOnDemand();
    EXPECT_TRUE(p->cachedDoTransform());
}

TEST_F(Placement, BakingLeavesUnequalArraysAlone) {
    // (The bake of every texture behind a placement is checked against the
    // render compute with the 2D textures.)
    TdoubleArray keepU{7.0}, keepV{8.0};
    T2Float size{1.0f, 2.0f};
    p->mapToTxUV(TdoubleArray{0.1, 0.2}, TdoubleArray{0.5}, keepU, keepV, size);
    EXPECT_EQ(keepU, TdoubleArray{7.0});
    EXPECT_EQ(keepV, TdoubleArray{8.0});
    EXPECT_EQ(size.x, 1.0f);
}

TEST_F(Placement, RunOfSamplesEqualsSamplesOneByOne) {
    // More samples than one chunk of stack records, with rotation and noise
    // varying per sample.
    const unsigned n = 150;
    TordinaryDataBlock run(p, n), ones(p, n);
    for (TordinaryDataBlock* b : {&run, &ones})
        for (unsigned e = 0; e < n; ++e) {
            auto put = [&](const Tattribute& a, int i, double v) {
                a.numericSet(b->valueAddress(a, e), i, v);
            };
            put(TdnPlace2dTx::aUvCoord, 0, 0.013 * e - 0.4);
            put(TdnPlace2dTx::aUvCoord, 1, 0.007 * e);
            put(TdnPlace2dTx::aUvFilterSize, 0, 0.01);
            put(TdnPlace2dTx::aUvFilterSize, 1, 0.02);
            put(TdnPlace2dTx::aCoverage, 0, 1.0);
            put(TdnPlace2dTx::aCoverage, 1, 0.7);
            put(TdnPlace2dTx::aRepeatUV, 0, 2.0);
            put(TdnPlace2dTx::aRepeatUV, 1, 1.0);
            put(TdnPlace2dTx::aWrapU, 0, 1.0);
            put(TdnPlace2dTx::aWrapV, 0, e % 3 ? 1.0 : 0.0);
            put(TdnPlace2dTx::aRotateUV, 0, e < 70 ? 0.0 : 0.01 * (e / 5));
            put(TdnPlace2dTx::aRotateFrame, 0, e % 2 ? 0.2 : 0.0);
            put(TdnPlace2dTx::aNoiseUV, 0, e % 4 == 0 ? 0.05 : 0.0);
        }
    const Tplug plug(p, &TdnPlace2dTx::aOutUV);
    ASSERT_TRUE(p->vectorComputePlug(plug, run, 0, n));
    for (unsigned e = 0; e < n; ++e)
        ASSERT_TRUE(p->vectorComputePlug(plug, ones, e, 1));
    for (unsigned e = 0; e < n; ++e)
        for (const Tattribute* a :
             {&TdnPlace2dTx::aOutU, &TdnPlace2dTx::aOutV, &TdnPlace2dTx::aOutUvFilterSizeX,
              &TdnPlace2dTx::aOutUvFilterSizeY})
            EXPECT_EQ(a->numericGet(run.valueAddress(*a, e), 0),
                      a->numericGet(ones.valueAddress(*a, e), 0))
                << a->longName() << " " << e;
}

TEST_F(Placement, FilterSizeAloneEqualsTheWholePlacement) {
    // A reader of the filter size alone runs only its steps; on samples that
    // are outside, without coverage, scaled and rotated, it must
    // give what the whole placement gives.
    const unsigned n = 12;
    TordinaryDataBlock whole(p, n), alone(p, n);
    for (TordinaryDataBlock* b : {&whole, &alone})
        for (unsigned e = 0; e < n; ++e) {
            auto put = [&](const Tattribute& a, int i, double v) {
                a.numericSet(b->valueAddress(a, e), i, v);
            };
            const bool outside = e == 1;
            put(TdnPlace2dTx::aUvCoord, 0, outside ? -1e7 : 0.1 * e);
            put(TdnPlace2dTx::aUvCoord, 1, outside ? -1e7 : 0.05 * e);
            put(TdnPlace2dTx::aUvFilterSize, 0, 0.01 * (e + 1));
            put(TdnPlace2dTx::aUvFilterSize, 1, 0.02);
            put(TdnPlace2dTx::aCoverage, 0, e == 2 ? 0.0 : 0.5);
            put(TdnPlace2dTx::aCoverage, 1, 1.0);
            put(TdnPlace2dTx::aRepeatUV, 0, 3.0);
            put(TdnPlace2dTx::aRepeatUV, 1, 2.0);
            put(TdnPlace2dTx::aWrapU, 0, 1.0);
            put(TdnPlace2dTx::aWrapV, 0, 1.0);
            put(TdnPlace2dTx::aRotateUV, 0, e >= 6 ? 0.3 : 0.0);
            put(TdnPlace2dTx::aRotateFrame, 0, e >= 9 ? 0.2 : 0.0);
        }
    ASSERT_TRUE(p->vectorComputePlug(Tplug(p, &TdnPlace2dTx::aOutUV), whole, 0, n));
    ASSERT_TRUE(p->vectorComputePlug(Tplug(p, &TdnPlace2dTx::aOutUvFilterSize), alone, 0, n));
    for (unsigned e = 0; e < n; ++e)
        for (const Tattribute* a :
             {&TdnPlace2dTx::aOutUvFilterSizeX, &TdnPlace2dTx::aOutUvFilterSizeY})
            EXPECT_EQ(a->numericGet(alone.valueAddress(*a, e), 0),
                      a->numericGet(whole.valueAddress(*a, e), 0))
                << a->longName() << " " << e;
    // Without rotation the box is scaled by repeat / coverage: 3 / 0.5 = 6
    // on U, 2 on V; an outside sample and an empty coverage keep it.
    EXPECT_FLOAT_EQ(float(TdnPlace2dTx::aOutUvFilterSizeX.numericGet(
                        alone.valueAddress(TdnPlace2dTx::aOutUvFilterSizeX, 0), 0)),
                    6.0f * 0.01f);
    EXPECT_FLOAT_EQ(float(TdnPlace2dTx::aOutUvFilterSizeY.numericGet(
                        alone.valueAddress(TdnPlace2dTx::aOutUvFilterSizeY, 3), 0)),
                    2.0f * 0.02f);
    for (unsigned e : {1u, 2u})
        EXPECT_FLOAT_EQ(float(TdnPlace2dTx::aOutUvFilterSizeX.numericGet(
                            alone.valueAddress(TdnPlace2dTx::aOutUvFilterSizeX, e), 0)),
                        0.01f * float(e + 1))
            << e;
}

} // namespace
