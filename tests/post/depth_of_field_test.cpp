// Depth of field: the blur radius from depth, the disc filter, and a point
// spread over its disc. Expected values are worked out by hand.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "post/depth_of_field.h"

using namespace orvo::post;

namespace {

// Focus 10, aperture 35 * 0.1 / (3.5 * 2) = 0.5, tan(fov / 2) = 0.5: for
// 200 pixels, 100 / (0.5 * 10) * 0.5 = 10 pixels a unit of |z - 10| / z.
TdofCamera camera() {
    TdofCamera c;
    c.focusDistance = 10.0;
    c.focalLength = 35.0;
    c.fStop = 3.5;
    c.verticalFieldOfView = 2.0 * std::atan(0.5);
    return c;
}

} // namespace

TEST(DepthOfField, RadiusFromDepth) {
    const double scale = dofScale(camera(), 200);
    EXPECT_NEAR(scale, 10.0, 1e-9);
    EXPECT_NEAR(dofRadius(camera(), scale, 10.0f), 0.0f, 1e-6f);
    EXPECT_NEAR(dofRadius(camera(), scale, 20.0f), 5.0f, 1e-5f); // 10 * 10 / 20
    EXPECT_NEAR(dofRadius(camera(), scale, 5.0f), 10.0f, 1e-5f); // 10 * 5 / 5
    EXPECT_NEAR(dofRadius(camera(), scale, std::numeric_limits<float>::infinity()), 10.0f, 1e-6f);
    EXPECT_FLOAT_EQ(dofRadius(camera(), scale, 1.0f), 25.0f); // 10 * 9 = 90, capped
    // A focus region twice as deep focuses at 20.
    TdofCamera deep = camera();
    deep.focusRegionScale = 2.0;
    EXPECT_NEAR(dofRadius(deep, dofScale(deep, 200), 20.0f), 0.0f, 1e-6f);
}

TEST(DepthOfField, DiscFilter) {
    // Radius 1: coverage clamp(1.5 - distance): centre 1 (256), sides 0.5
    // (128), corners 1.5 - 1.414214 = 0.085786 (22 of 256), two away 0.
    // Sum 256 + 4 * 128 + 4 * 22 = 856.
    TdofFilter f;
    createDofFilter(1.0f, f);
    const auto at = [&](int x, int y) {
        return size_t(y + kMaxDofRadius) * kDofFilterSize + size_t(x + kMaxDofRadius);
    };
    EXPECT_EQ(f.fixed[at(0, 0)], 256);
    EXPECT_EQ(f.fixed[at(1, 0)], 128);
    EXPECT_EQ(f.fixed[at(-1, 1)], 22);
    EXPECT_EQ(f.fixed[at(2, 0)], 0);
    EXPECT_NEAR(f.weights[at(0, 0)], 256.0 / 856.0, 1e-7);
    EXPECT_NEAR(f.weights[at(0, -1)], 128.0 / 856.0, 1e-7);
    EXPECT_NEAR(f.weights[at(1, 1)], 22.0 / 856.0, 1e-7);
    // Radius 0 keeps the pixel as it is.
    createDofFilter(0.0f, f);
    EXPECT_FLOAT_EQ(f.weights[at(0, 0)], 1.0f);
    EXPECT_FLOAT_EQ(f.weights[at(1, 0)], 0.0f);
}

TEST(DepthOfField, APointSpreadsOverItsDisc) {
    // 9 x 9, black but a white pixel at (4, 4). Nine pixels wide the scale
    // is 4.5 / (0.5 * 10) * 0.5 = 0.45; at depth 90/29 the radius is 0.45 *
    // (200/29) / (90/29) = 0.45 * 20/9 = 1. Every pixel inside gets the
    // filter's weight at its offset, over a weight sum of 1.
    std::vector<float> pixels(9 * 9 * 4, 0.0f);
    for (int c = 0; c < 4; ++c)
        pixels[(4 * 9 + 4) * 4 + size_t(c)] = 1.0f;
    std::vector<float> depth(81, 90.0f / 29.0f);
    TpostImage image{pixels.data(), 9, 9, 4};
    ASSERT_TRUE(computeDOF(9, 9, camera(), image, depth.data()));
    const auto red = [&](int x, int y) {
        return pixels[(size_t(y) * 9 + size_t(x)) * 4];
    };
    EXPECT_NEAR(red(4, 4), 256.0f / 856.0f, 1e-5f);
    EXPECT_NEAR(red(5, 4), 128.0f / 856.0f, 1e-5f);
    EXPECT_NEAR(red(3, 5), 22.0f / 856.0f, 1e-5f);
    EXPECT_FLOAT_EQ(red(6, 4), 0.0f);

    // In focus (depth 10) the picture stays as it was.
    std::fill(pixels.begin(), pixels.end(), 0.0f);
    pixels[(4 * 9 + 4) * 4] = 1.0f;
    std::fill(depth.begin(), depth.end(), 10.0f);
    ASSERT_TRUE(computeDOF(9, 9, camera(), image, depth.data()));
    EXPECT_FLOAT_EQ(red(4, 4), 1.0f);
    EXPECT_FLOAT_EQ(red(5, 4), 0.0f);

    // Without depth there is nothing to do.
    EXPECT_FALSE(computeDOF(9, 9, camera(), image, nullptr));
}
