#include <gtest/gtest.h>

#include "textures/bulge.h"
#include "textures/texture_test_support.h"

namespace {

using orvo_test::expectGrey;
using orvo_test::PlacedTexture;
using orvo_test::set;
using Values = std::vector<double>;

TEST(Bulge, ParabolaSine) {
    EXPECT_FLOAT_EQ(TdnBulge::cheapSin(0.25f), 1.0f);
    EXPECT_FLOAT_EQ(TdnBulge::cheapSin(0.75f), -1.0f);
    EXPECT_FLOAT_EQ(TdnBulge::cheapSin(0.5f), 0.0f);    // 16 * 0.25^2 - 1
    EXPECT_FLOAT_EQ(TdnBulge::cheapSin(0.1f), 0.64f);   // 1 - 16 * 0.15^2
    EXPECT_FLOAT_EQ(TdnBulge::cheapSin(-0.25f), -1.0f); // -0.25 + 1 = 0.75
    EXPECT_FLOAT_EQ(TdnBulge::cheapSin(1.25f), 1.0f);
}

TEST(Bulge, ValuesByHand) {
    PlacedTexture t("bulge");
    // The centre: u = v = 1 after doubling, s = t = 0.9 / 0.9 = 1,
    // cheapSin(0.25)^2 = 1.
    expectGrey(t.at(0.5, 0.5), 1.0f, 1e-6f, "centre");
    // u = 0.25: 2u = 0.5, s = 0.4 / 0.9, cheapSin(0.1111) = 1 - 16 * 0.1389^2
    // = 0.691358.
    expectGrey(t.at(0.25, 0.5), 0.691358f, 1e-6f, "quarter");
    // Within the border width: 0.
    expectGrey(t.at(0.0, 0.0), 0.0f, 0.0f, "origin");
    expectGrey(t.at(0.05, 0.5), 0.0f, 0.0f, "border edge"); // 2u = 0.1 is not above 0.1
    expectGrey(t.at(1.0, 1.0), 0.0f, 0.0f, "top corner");   // 0.9999 * 2 > 1.9
    // -0.5 reads as 0.5.
    expectGrey(t.at(-0.5, 0.5), 1.0f, 1e-6f, "negative u");
    // Width 1 has no inside, and no division by 0.
    set(t.g, "t.uWidth", Values{1});
    expectGrey(t.at(0.5, 0.5), 0.0f, 0.0f, "width 1");
    expectGrey(t.at(-1e7, -1e7), 0.5f, 1e-6f, "outside");
}

} // namespace
