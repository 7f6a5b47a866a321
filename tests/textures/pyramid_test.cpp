// Pyramids in memory: their levels and texels, and how they are sampled,
// against values worked out by hand.

#include <gtest/gtest.h>

#include <cmath>

#include "textures/pyramid.h"
#include "textures/pyramid_test_support.h"

namespace {

using orvo_test::colourMap;
using orvo_test::greyMap;

constexpr float k255 = 1.0f / 255.0f;

// The one-channel texel as a byte.
unsigned byteAt(const Tpyramid& p, unsigned level, unsigned x, unsigned y) {
    return p.texelData(level, x, y)[0];
}

TEST(PyramidTables, LevelSidesSpaceAndBlocks) {
    // Sides 2^L; pixels of levels 0..L: 1, 1+4, 1+4+16, ...; blocks below L:
    // one for each level of side up to 32 (levels 0..5), then 4, 16, 64...
    EXPECT_EQ(Tpyramid::fsNumRows[0], 1u);
    EXPECT_EQ(Tpyramid::fsNumRows[13], 8192u);
    EXPECT_EQ(Tpyramid::fsSpaceRequired[0], 1u);
    EXPECT_EQ(Tpyramid::fsSpaceRequired[2], 21u);
    EXPECT_EQ(Tpyramid::fsSpaceRequired[13], 89478485u); // (4^14 - 1) / 3
    const uint32_t blocks[] = {0, 1, 2, 3, 4, 5, 6, 10, 26, 90, 346, 1370, 5466, 21850};
    for (unsigned l = 0; l < Tpyramid::kMaxLevels; ++l)
        EXPECT_EQ(Tpyramid::fsNumBlocks[l], blocks[l]) << l;
    // 6 + 4 (level 6) = 10; 10 + 16 = 26; 26 + 64 = 90.
    EXPECT_EQ(Tpyramid::maxLevelFor(1), 0u);
    EXPECT_EQ(Tpyramid::maxLevelFor(2), 1u);
    EXPECT_EQ(Tpyramid::maxLevelFor(3), 2u);
    EXPECT_EQ(Tpyramid::maxLevelFor(33), 6u);
    EXPECT_EQ(Tpyramid::maxLevelFor(8192), 13u);
}

TEST(PyramidBuild, LevelsOfOddSquareWideAndSinglePixelImages) {
    {
        // 1 x 1: maxLevel 0, the image is level 0.
        TpyramidNonSwatch p;
        ASSERT_TRUE(
            p.buildPyramidFromPixelMap(greyMap(1, 1, [](unsigned, unsigned) { return 77; })));
        EXPECT_EQ(p.maxLevel(), 0u);
        EXPECT_TRUE(p.isSquare());
        EXPECT_EQ(p.pixelSize(), 1u);
        EXPECT_EQ(byteAt(p, 0, 0, 0), 77u);
        EXPECT_EQ(p.storeBytes(), 1u);
    }
    {
        // 33 x 33: 64 is the first power of two at least 33, so maxLevel 6;
        // level 5 is 32 x 32; the top has ceil(33 / 32) = 2 blocks a row.
        TpyramidNonSwatch p;
        ASSERT_TRUE(
            p.buildPyramidFromPixelMap(greyMap(33, 33, [](unsigned, unsigned) { return 9; })));
        EXPECT_EQ(p.maxLevel(), 6u);
        EXPECT_FALSE(p.isSquare());
        EXPECT_EQ(p.levelWidth(5), 32u);
        EXPECT_EQ(p.levelWidth(6), 33u);
        EXPECT_EQ(p.blocksPerRow(6), 2u);
        EXPECT_EQ(p.blocksPerRow(5), 1u);
        // levels 0..5 hold (4^6 - 1) / 3 = 1365 pixels, then 33 * 33 = 1089.
        EXPECT_EQ(p.storeBytes(), 1365u + 1089u);
        EXPECT_EQ(p.aspect(), 1.0f);
    }
    {
        // 300 x 5: short side 5, so maxLevel 3 (8 >= 5); aspect 60.
        TpyramidNonSwatch p;
        ASSERT_TRUE(
            p.buildPyramidFromPixelMap(greyMap(300, 5, [](unsigned, unsigned) { return 1; })));
        EXPECT_EQ(p.maxLevel(), 3u);
        EXPECT_EQ(p.shortSide(), 5u);
        EXPECT_EQ(p.aspect(), 60.0f);
        EXPECT_EQ(p.levelWidth(2), 4u);
        EXPECT_EQ(p.blocksPerRow(3), 10u); // ceil(300 / 32)
        // 1000 x 1: short side 1, maxLevel 0: the image alone.
        TpyramidNonSwatch q;
        ASSERT_TRUE(q.buildPyramidFromPixelMap(
            greyMap(1000, 1, [](unsigned x, unsigned) { return uint8_t(x); })));
        EXPECT_EQ(q.maxLevel(), 0u);
        EXPECT_EQ(q.levelWidth(0), 1000u);
        EXPECT_EQ(byteAt(q, 0, 999, 0), 999u % 256);
    }
    {
        // Too big: a short side above 8192, or an empty map.
        TpyramidNonSwatch p;
        EXPECT_FALSE(p.buildPyramidFromPixelMap(TpixelMap()));
        EXPECT_FALSE(p.isBuilt());
    }
}

TEST(PyramidBuild, BoxAveragesRoundHalfUp) {
    // 4 x 4 grey, rows from the bottom:
    //   y=0: 1 2 0 0     level 1 (x, y):
    //   y=1: 3 4 0 1       (0,0) = (1+2+3+4+2) >> 2 = 3   (2.5 rounds up)
    //   y=2: 0 0 9 9       (1,0) = (0+0+0+1+2) >> 2 = 0   (0.25 rounds down)
    //   y=3: 1 1 9 9       (0,1) = (0+0+1+1+2) >> 2 = 1   (0.5 rounds up)
    //                      (1,1) = 9
    // level 0 = (3 + 0 + 1 + 9 + 2) >> 2 = 3 (3.25)
    const uint8_t rows[4][4] = {{1, 2, 0, 0}, {3, 4, 0, 1}, {0, 0, 9, 9}, {1, 1, 9, 9}};
    TpyramidNonSwatch p;
    ASSERT_TRUE(p.buildPyramidFromPixelMap(
        greyMap(4, 4, [&](unsigned x, unsigned y) { return rows[y][x]; })));
    EXPECT_TRUE(p.isSquare());
    EXPECT_EQ(p.maxLevel(), 2u);
    EXPECT_EQ(byteAt(p, 1, 0, 0), 3u);
    EXPECT_EQ(byteAt(p, 1, 1, 0), 0u);
    EXPECT_EQ(byteAt(p, 1, 0, 1), 1u);
    EXPECT_EQ(byteAt(p, 1, 1, 1), 9u);
    EXPECT_EQ(byteAt(p, 0, 0, 0), 3u);
    EXPECT_EQ(byteAt(p, 2, 3, 3), 9u);
}

TEST(PyramidBuild, NonSquareTopIsResampledByArea) {
    // 3 x 3 grey v = 9 (3y + x). maxLevel 2, level 1 is 2 x 2: each target
    // texel covers 1.5 source texels a side, weights 2/3 and 1/3.
    //   (0,0) = 4/9*0 + 2/9*9 + 2/9*27 + 1/9*36  = 2 + 6 + 4   = 12
    //   (1,0) = 2/9*9 + 4/9*18 + 1/9*36 + 2/9*45 = 2 + 8 + 4 + 10 = 24
    //   (0,1) = 2/9*27 + 1/9*36 + 4/9*54 + 2/9*63 = 6 + 4 + 24 + 14 = 48
    //   (1,1) = 1/9*36 + 2/9*45 + 2/9*63 + 4/9*72 = 4 + 10 + 14 + 32 = 60
    //   level 0 = (12 + 24 + 48 + 60 + 2) >> 2 = 36
    TpyramidNonSwatch p;
    ASSERT_TRUE(p.buildPyramidFromPixelMap(
        greyMap(3, 3, [](unsigned x, unsigned y) { return uint8_t(9 * (3 * y + x)); })));
    EXPECT_EQ(byteAt(p, 1, 0, 0), 12u);
    EXPECT_EQ(byteAt(p, 1, 1, 0), 24u);
    EXPECT_EQ(byteAt(p, 1, 0, 1), 48u);
    EXPECT_EQ(byteAt(p, 1, 1, 1), 60u);
    EXPECT_EQ(byteAt(p, 0, 0, 0), 36u);
}

TEST(PyramidBuild, ChannelsComeOutInRgbaOrder) {
    // The map holds blue, green, red, alpha; 3 channels give R, G, B, 4 give
    // R, G, B, A, and a grey map its fourth component.
    auto map = [](unsigned channels) {
        return colourMap(2, 2, channels, [](unsigned, unsigned, unsigned c) {
            return uint8_t(10 * (c + 1)); // R 10, G 20, B 30, A 40
        });
    };
    TpyramidNonSwatch rgb, rgba;
    ASSERT_TRUE(rgb.buildPyramidFromPixelMap(map(3)));
    ASSERT_TRUE(rgba.buildPyramidFromPixelMap(map(4)));
    EXPECT_EQ(rgb.pixelSize(), 3u);
    EXPECT_EQ(rgba.pixelSize(), 4u);
    const uint8_t* t = rgba.texelData(1, 1, 0);
    EXPECT_EQ(t[0], 10);
    EXPECT_EQ(t[1], 20);
    EXPECT_EQ(t[2], 30);
    EXPECT_EQ(t[3], 40);
    T3Float colour;
    float alpha = -1.0f;
    rgb.getTexel(0, 0, 0, colour, alpha);
    EXPECT_FLOAT_EQ(colour.x, 10 * k255);
    EXPECT_FLOAT_EQ(colour.z, 30 * k255);
    EXPECT_EQ(alpha, -1.0f); // no alpha channel: the caller's value stands
    rgba.getTexel(0, 0, 0, colour, alpha);
    EXPECT_FLOAT_EQ(alpha, 40 * k255);

    TpixelMap grey(1, 1, 1);
    grey.setRGBA(0, 0, 1, 2, 3, 200);
    TpyramidNonSwatch g;
    ASSERT_TRUE(g.buildPyramidFromPixelMap(grey));
    EXPECT_EQ(byteAt(g, 0, 0, 0), 200u);
}

TEST(PyramidBuild, SubRectangleIsResampledToTheTarget) {
    // The right half (x 2..3) of a 4 x 2 map, stretched to 4 x 2: each
    // target texel covers half a source texel.
    TpyramidSwatch p;
    p.setSubRectangle(2, 0, 2, 2, 4, 2);
    ASSERT_TRUE(p.buildPyramidFromPixelMap(
        greyMap(4, 2, [](unsigned x, unsigned y) { return uint8_t(10 * x + y); })));
    EXPECT_EQ(p.width(), 4u);
    EXPECT_EQ(byteAt(p, 1, 0, 0), 20u);
    EXPECT_EQ(byteAt(p, 1, 1, 0), 20u);
    EXPECT_EQ(byteAt(p, 1, 2, 1), 31u);
    EXPECT_EQ(byteAt(p, 1, 3, 1), 31u);
}

TEST(PyramidBuild, FloatImagesAverageInFloat) {
    TgenericPixelMap<float> map(2, 2, 3);
    for (unsigned y = 0; y < 2; ++y)
        for (unsigned x = 0; x < 2; ++x)
            map.setRGBA(x, y, 0.1f * float(1 + x + 2 * y), 2.5f, -1.0f, 1.0f);
    TpyramidNonSwatch p;
    ASSERT_TRUE(p.buildPyramidFromPixelMap(map));
    EXPECT_EQ(p.pixelType(), kPixelTypeFloat);
    EXPECT_EQ(p.pixelBytes(), 12u);
    T3Float c;
    float a = 0;
    // (0.1 + 0.2 + 0.3 + 0.4) / 4 = 0.25; values beyond 0..1 kept.
    p.getTexel(0, 0, 0, c, a);
    EXPECT_NEAR(c.x, 0.25f, 1e-7);
    EXPECT_EQ(c.y, 2.5f);
    EXPECT_EQ(c.z, -1.0f);
    EXPECT_FALSE(p.remapPyramidToBlocks(nullptr, false)); // floats stay in memory
}

// A 2 x 2 grey texture, 0 in column 0 and 255 in column 1.
TpyramidNonSwatch& twoColumns() {
    static TpyramidNonSwatch p;
    if (!p.isBuilt())
        p.buildPyramidFromPixelMap(greyMap(2, 2, [](unsigned x, unsigned) { return x ? 255 : 0; }));
    return p;
}

TEST(PyramidSampling, BilinearWeightsAndEdges) {
    const Tpyramid& p = twoColumns();
    TfileTextureWrapper clamp{false, false, false};
    TfileTextureWrapper wrap{true, true, false};
    float v = -1;
    // u = 0.375: x = 2 * 0.375 - 0.5 = 0.25: 0.75 of column 0, 0.25 of 1.
    p.levelVal(clamp, 1, 0.375f, 0.5f, v, false);
    EXPECT_NEAR(v, 0.25f, 1e-6);
    // u = 0.1: x = -0.3, left of the first centre. Clamped: column 0 alone.
    // Wrapped: 0.3 of the last column, 0.7 of the first.
    p.levelVal(clamp, 1, 0.1f, 0.5f, v, false);
    EXPECT_NEAR(v, 0.0f, 1e-6);
    p.levelVal(wrap, 1, 0.1f, 0.5f, v, false);
    EXPECT_NEAR(v, 0.3f, 1e-6);
    // u = 0.9: x = 1.3, beyond the last centre; fx = 2 - 1.3 = 0.7 of the
    // last column; wrapped, 0.3 of the first.
    p.levelVal(clamp, 1, 0.9f, 0.5f, v, false);
    EXPECT_NEAR(v, 1.0f, 1e-6);
    p.levelVal(wrap, 1, 0.9f, 0.5f, v, false);
    EXPECT_NEAR(v, 0.7f, 1e-6);
    // A 1-channel pyramid gives its value in R, G and B; alpha stands.
    T3Float c;
    float alpha = 0.5f;
    p.levelCol(clamp, 1, 0.375f, 0.5f, c, alpha, false);
    EXPECT_NEAR(c.x, 0.25f, 1e-6);
    EXPECT_EQ(c.x, c.z);
    EXPECT_EQ(alpha, 0.5f);
}

TEST(PyramidSampling, NearestNeedsTheNoFilterFlag) {
    const Tpyramid& p = twoColumns();
    TfileTextureWrapper noFilterClamp{false, false, true};
    TfileTextureWrapper noFilterWrap{true, true, true};
    TfileTextureWrapper filtered{false, false, false};
    float v = -1;
    // floor(2 * 0.49) = 0, floor(2 * 0.5) = 1; u = 1 is texel 2: the last
    // one clamped, the first one wrapped.
    p.levelVal(noFilterClamp, 1, 0.49f, 0.5f, v, true);
    EXPECT_EQ(v, 0.0f);
    p.levelVal(noFilterClamp, 1, 0.5f, 0.5f, v, true);
    EXPECT_FLOAT_EQ(v, 1.0f);
    p.levelVal(noFilterClamp, 1, 1.0f, 0.5f, v, true);
    EXPECT_FLOAT_EQ(v, 1.0f);
    p.levelVal(noFilterWrap, 1, 1.0f, 0.5f, v, true);
    EXPECT_EQ(v, 0.0f);
    // Without the flag, `nearest` alone still blends: x = 0.48.
    p.levelVal(filtered, 1, 0.49f, 0.5f, v, true);
    EXPECT_NEAR(v, 0.48f, 1e-6);
}

TEST(PyramidSampling, MapColorChoosesAndBlendsLevels) {
    // 64 x 64 one-texel checker: the top is 0 where x + y is even, 255
    // elsewhere; every level below is (0 + 255 + 0 + 255 + 2) >> 2 = 128.
    TpyramidNonSwatch p;
    ASSERT_TRUE(p.buildPyramidFromPixelMap(
        greyMap(64, 64, [](unsigned x, unsigned y) { return (x + y) % 2 ? 255 : 0; })));
    TfileTextureWrapper w{false, false, false};
    const float u = 0.5f / 64, v = 0.5f / 64; // the centre of top texel (0, 0)
    T3Float c;
    float a = 0;
    // filter 1/64 is one texel of the top: aspect 1 >= 64 * 1/64, the top.
    p.getMapColor(w, u, v, c, a, false, 1.0f / 64);
    EXPECT_EQ(c.x, 0.0f);
    // filter 0.02: desired = 1 / 0.02 = 50 texels; level 5 (32) and 6 (64),
    // t = (50 - 32) / 32 = 0.5625. Level 5 at u = 1/128 is 128 (x = -0.25,
    // clamped), the top is 0: (1 - 0.5625) * 128 / 255.
    p.getMapColor(w, u, v, c, a, false, 0.02f);
    EXPECT_NEAR(c.x, 0.4375f * 128 * k255, 1e-6);
    // forceTop or the no-filter flag read the top.
    p.getMapColor(w, u, v, c, a, true, 0.02f);
    EXPECT_EQ(c.x, 0.0f);
    TfileTextureWrapper off{false, false, true};
    p.getMapColor(off, u, v, c, a, false, 0.02f);
    EXPECT_EQ(c.x, 0.0f);
    // filter exactly 1 reads level 0; with the no-filter flag, the top.
    p.getMapColor(w, u, v, c, a, false, 1.0f);
    EXPECT_FLOAT_EQ(c.x, 128 * k255);
    p.getMapColor(off, u, v, c, a, false, 1.0f);
    EXPECT_EQ(c.x, 0.0f);
    // filter 0.5: desired 2, level 1 with t = 0.
    p.getMapColor(w, u, v, c, a, false, 0.5f);
    EXPECT_FLOAT_EQ(c.x, 128 * k255);
    // A batch gives what single lookups give, a filter per sample.
    const float us[] = {u, 0.3f, 0.71f}, vs[] = {v, 0.6f, 0.2f}, fs[] = {0.02f, 0.1f, 1.0f};
    T3Float colours[3];
    float alphas[3] = {};
    p.getMapColors(w, 3, us, vs, fs, 1, false, colours, alphas);
    for (int i = 0; i < 3; ++i) {
        p.getMapColor(w, us[i], vs[i], c, a, false, fs[i]);
        EXPECT_EQ(colours[i].x, c.x) << i;
    }
}

TEST(PyramidSampling, BadCoordinatesNeverReadOutside) {
    TpyramidNonSwatch p;
    ASSERT_TRUE(p.buildPyramidFromPixelMap(
        colourMap(5, 3, 4, [](unsigned x, unsigned y, unsigned c) { return uint8_t(x + y + c); })));
    T3Float c;
    float a;
    for (bool wrap : {false, true})
        for (bool noFilter : {false, true}) {
            TfileTextureWrapper w{wrap, wrap, noFilter};
            for (float u : {-1e30f, -3.5f, 0.0f, 1.0f, 7.25f, 1e30f, NAN, INFINITY})
                for (float f : {0.0f, -1.0f, 0.001f, 0.3f, 1.0f, NAN}) {
                    p.getMapColor(w, u, u, c, a, false, f);
                    p.levelCol(w, 1, u, 0.5f, c, a, true);
                }
        }
    SUCCEED();
}

} // namespace
