#include <gtest/gtest.h>

#include <cmath>

#include "render/pixel_filter.h"

namespace {

// The one-dimensional weight is exp(-2 d^2) - exp(-2 * 1.5^2) inside the
// radius (standard deviation 0.5: exp(-d^2 / (2 * 0.25))).
TEST(PixelFilter, TruncatedGaussianWeights) {
    const double floor = std::exp(-4.5);
    EXPECT_NEAR(TpixelFilter::weight1d(0.0f), 1.0 - floor, 1e-6);
    EXPECT_NEAR(TpixelFilter::weight1d(0.5f), std::exp(-0.5) - floor, 1e-6);
    EXPECT_NEAR(TpixelFilter::weight1d(-1.0f), std::exp(-2.0) - floor, 1e-6);
    EXPECT_EQ(TpixelFilter::weight1d(1.5f), 0.0f);
    EXPECT_EQ(TpixelFilter::weight1d(-2.0f), 0.0f);
    EXPECT_NEAR(TpixelFilter::weight(0.5f, -1.0f),
                (std::exp(-0.5) - floor) * (std::exp(-2.0) - floor), 1e-6);
}

TEST(PixelFilter, SamplesStayInTheirStrata) {
    float x = 0, y = 0;
    OrvoSampleOffset(3, 7, 0, 1, 0, x, y);
    EXPECT_EQ(x, 0.5f);
    EXPECT_EQ(y, 0.5f);
    // Four samples: one in each quarter, row by row.
    for (unsigned pixel = 0; pixel < 50; ++pixel)
        for (unsigned k = 0; k < 4; ++k) {
            OrvoSampleOffset(pixel, 2 * pixel, k, 4, 9, x, y);
            const float left = (k % 2) * 0.5f, top = (k / 2) * 0.5f;
            EXPECT_GE(x, left);
            EXPECT_LT(x, left + 0.5f);
            EXPECT_GE(y, top);
            EXPECT_LT(y, top + 0.5f);
        }
    // Three samples: two columns; the second row holds one sample as wide
    // as the pixel.
    for (unsigned pixel = 0; pixel < 50; ++pixel) {
        OrvoSampleOffset(pixel, 0, 1, 3, 0, x, y);
        EXPECT_GE(x, 0.5f);
        EXPECT_LT(y, 0.5f);
        OrvoSampleOffset(pixel, 0, 2, 3, 0, x, y);
        EXPECT_GE(y, 0.5f);
        EXPECT_LT(y, 1.0f);
        EXPECT_GE(x, 0.0f);
        EXPECT_LT(x, 1.0f);
    }
}

TEST(PixelFilter, JitterDependsOnPixelSampleAndSeedOnly) {
    float a = 0, b = 0, c = 0, d = 0;
    OrvoSampleOffset(5, 6, 2, 9, 1, a, b);
    OrvoSampleOffset(5, 6, 2, 9, 1, c, d);
    EXPECT_EQ(a, c);
    EXPECT_EQ(b, d);
    int moved = 0;
    for (unsigned seed = 2; seed < 12; ++seed) {
        OrvoSampleOffset(5, 6, 2, 9, seed, c, d);
        moved += (c != a || d != b);
    }
    EXPECT_EQ(moved, 10);
}

TEST(PixelFilter, OneSampleGivesItsValueToEveryPixelItReaches) {
    TpixelSums sums(0, 0, 5, 5);
    sums.splat(2.5f, 2.5f, {0.25f, 0.5f, 1.0f, 1.0f, 0.75f});
    const TrenderedImage image = OrvoResolve(sums);
    // Pixel centres within 1.5 of (2.5, 2.5) in both axes: columns and rows
    // 1 to 3. Farther ones get nothing.
    for (unsigned y = 0; y < 5; ++y)
        for (unsigned x = 0; x < 5; ++x) {
            const float* p = image.at(x, y);
            const bool reached = x >= 1 && x <= 3 && y >= 1 && y <= 3;
            EXPECT_FLOAT_EQ(p[0], reached ? 0.25f : 0.0f) << x << " " << y;
            EXPECT_FLOAT_EQ(p[2], reached ? 1.0f : 0.0f) << x << " " << y;
            EXPECT_FLOAT_EQ(p[3], reached ? 1.0f : 0.0f) << x << " " << y;
            EXPECT_FLOAT_EQ(p[4], reached ? 0.75f : 0.0f) << x << " " << y;
        }
}

// Samples at the centres of pixels (1, 1) and (2, 1), valued 1 and 0:
// pixel (1, 1) is w(0) / (w(0) + w(1)) with the one-dimensional weights
// (the vertical weights are alike and cancel): 0.988891 / 1.113117.
TEST(PixelFilter, NeighboursBlendByTheirWeights) {
    TpixelSums sums(0, 0, 4, 3);
    sums.splat(1.5f, 1.5f, {1.0f, 1.0f, 1.0f, 1.0f, 1.0f});
    sums.splat(2.5f, 1.5f, {0.0f, 0.0f, 0.0f, 0.0f, 0.0f});
    const TrenderedImage image = OrvoResolve(sums);
    EXPECT_NEAR(image.at(1, 1)[0], 0.888399, 1e-5);
    EXPECT_NEAR(image.at(2, 1)[0], 1.0 - 0.888399, 1e-5);
    // Pixel 0 is reached by the first sample alone (the second is 2 away).
    EXPECT_FLOAT_EQ(image.at(0, 1)[0], 1.0f);
}

// A tile's sums reach past the tile; adding them to the frame keeps the
// part inside the frame.
TEST(PixelFilter, TilesAddIntoTheFrameWhereTheyOverlap) {
    TpixelSums frame(0, 0, 4, 4);
    TpixelSums tile(-2, -2, 6, 6); // pixels (0, 0) to (1, 1) and a margin of 2
    tile.splat(0.5f, 0.5f, {1.0f, 0.0f, 0.0f, 1.0f, 1.0f});
    frame.add(tile);
    TpixelSums other(2, 2, 2, 2);
    other.splat(3.5f, 3.5f, {0.0f, 1.0f, 0.0f, 1.0f, 1.0f});
    frame.add(other);
    const TrenderedImage image = OrvoResolve(frame);
    EXPECT_FLOAT_EQ(image.at(0, 0)[0], 1.0f);
    EXPECT_FLOAT_EQ(image.at(1, 1)[0], 1.0f);
    EXPECT_FLOAT_EQ(image.at(3, 3)[1], 1.0f);
    // The first sample is 2 pixels from (2, 2) on each axis, beyond the
    // radius: only the second counts there.
    EXPECT_FLOAT_EQ(image.at(2, 2)[1], 1.0f);
    EXPECT_FLOAT_EQ(image.at(2, 2)[0], 0.0f);
}

} // namespace
