// Shader glow on its coarse array: sizes, filter, splat, threshold,
// reduction, exposure and the glow added back over a picture. Expected
// values are worked out by hand from the rules in the comments.

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "post/glow_noise.h"
#include "post/shader_glow.h"

using namespace orvo::post;

namespace {

PX_GlowParams linearGlow(int filterWidth, float gain, float eccentricity = 1.0f) {
    PX_GlowParams p;
    p.type = kGlowLinear;
    p.intensity = 1.0f;
    p.eccentricity = eccentricity;
    p.filterWidth = filterWidth;
    p.gain = gain;
    return p;
}

const float* cellOf(const PX_GlowParams& p, int x, int y) {
    const int half = p.filterWidth / 2;
    return &p.filter[(size_t(y + half) * size_t(p.filterWidth) + size_t(x + half)) * 4];
}

} // namespace

TEST(ShaderGlowSizes, ResolutionFilterWidthGainAndArray) {
    // Glow, spread 0.05, quality 0.5, 640 x 360, frame 640 across:
    // 0.05*300*0.05*0.5*600*600 = 135000; 135000^0.25 = 19.1680; / 30 =
    // 0.638934. width trunc(0.638934*640*0.05 = 20.45) = 20, even -> 21.
    // gain 21^2 * 0.05668934 = 25.0000. high trunc(230.02)+1 = 231, wide
    // trunc(408.92)+1 = 409.
    PX_GlowParams glow;
    glow.spread = 0.05f;
    initGlowParams(glow, 0.5f, 640, 360, 640, kGlowGain, false);
    EXPECT_NEAR(glow.resolution, 0.638934f, 1e-5f);
    EXPECT_EQ(glow.filterWidth, 21);
    EXPECT_NEAR(glow.gain, 25.0f, 1e-4f);
    EXPECT_EQ(glow.high, 231);
    EXPECT_EQ(glow.wide, 409);

    // Halo, spread 0.3: 0.3*300*0.3*0.5*360000 = 4860000; ^0.25 = 46.9525;
    // / 180 = 0.260847; width trunc(50.08) = 50 -> 51; gain 2601 *
    // 0.03844675 = 100.000.
    PX_GlowParams halo;
    halo.spread = 0.3f;
    initGlowParams(halo, 0.5f, 640, 360, 640, kHaloGain, false);
    EXPECT_NEAR(halo.resolution, 0.260847f, 1e-5f);
    EXPECT_EQ(halo.filterWidth, 51);
    EXPECT_NEAR(halo.gain, 100.0f, 1e-3f);

    // The older gains stand as they are, whatever the width: spread 0.1
    // gives 540000^0.25 / 60 = 0.451801, width trunc(28.92) = 28 -> 29, and
    // the newer gain would be 841 * 0.05668934 = 47.6757.
    PX_GlowParams older;
    older.spread = 0.1f;
    initGlowParams(older, 0.5f, 640, 360, 640, kPreV45GlowGain, true);
    EXPECT_EQ(older.filterWidth, 29);
    EXPECT_FLOAT_EQ(older.gain, 25.0f);
    PX_GlowParams newer;
    newer.spread = 0.1f;
    initGlowParams(newer, 0.5f, 640, 360, 640, kGlowGain, false);
    EXPECT_NEAR(newer.gain, 47.6757f, 1e-3f);

    // The resolution is held to 0.01..1, and the spread to at least 1e-5:
    // spread 0 -> 1e-5 -> (1e-10*300*0.5*360000)^0.25 / 0.006 = 0.0855 /
    // 0.006 > 1 -> 1; width trunc(1 * 640 * 1e-5) = 0 -> 1.
    PX_GlowParams tiny;
    initGlowParams(tiny, 0.5f, 640, 360, 640, kGlowGain, false);
    EXPECT_FLOAT_EQ(tiny.resolution, 1.0f);
    EXPECT_EQ(tiny.filterWidth, 1);
    EXPECT_EQ(tiny.wide, 641);
    // Spread 1000: (1e6*300*0.5*360000)^0.25 / 600000 = 2713.3 / 6e5 <
    // 0.01 -> 0.01. The array is trunc(6.4) + 1 = 7 by trunc(3.6) + 1 = 4;
    // the width trunc(0.01 * 640 * 1000) = 6400 is held to 2 * 7 + 1 = 15.
    PX_GlowParams huge;
    huge.spread = 1000.0f;
    initGlowParams(huge, 0.5f, 640, 360, 640, kGlowGain, false);
    EXPECT_FLOAT_EQ(huge.resolution, 0.01f);
    EXPECT_EQ(huge.wide, 7);
    EXPECT_EQ(huge.filterWidth, 15);
}

TEST(ShaderGlowFilter, WeightsShapeColoursAndRings) {
    // Width 3: half 1, d 2, eccentricity 1 so t = 1 - base. Centre base 0,
    // t 1, weight 1; edge base 0.5, weight 0.5*0.5 + 0.25 = 0.5; corner
    // base 0.707107, t = 0.292893, weight t(1-t) + t^2 = t. Sum 1 + 2 +
    // 1.171573 = 4.171573; gain 25 -> x 5.992943.
    PX_ShaderGlow sg;
    PX_GlowParams p = linearGlow(3, 25.0f);
    initGlowFilter(p, sg);
    EXPECT_NEAR(cellOf(p, 0, 0)[3], 5.992943f, 1e-4f);
    EXPECT_NEAR(cellOf(p, 1, 0)[3], 2.996472f, 1e-4f);
    EXPECT_NEAR(cellOf(p, -1, 1)[3], 1.755283f, 1e-4f);
    EXPECT_FLOAT_EQ(cellOf(p, 0, -1)[0], cellOf(p, 0, -1)[3]);
    float sum = 0.0f;
    for (size_t i = 3; i < p.filter.size(); i += 4)
        sum += p.filter[i];
    EXPECT_NEAR(sum, 25.0f, 1e-4f);

    // Lens glow colours, per weight: centre red clamp(0, .5, 1) = 0.5,
    // green 1.2 - 0.6 = 0.6, blue 3 - 1 -> 1; edge (base 0.5) red 0.65,
    // green 1.2 - 0.4 = 0.8, blue 0.5.
    PX_GlowParams lens = linearGlow(3, 25.0f);
    lens.type = kGlowLensFlare;
    initGlowFilter(lens, sg);
    const float* centre = cellOf(lens, 0, 0);
    EXPECT_NEAR(centre[0] / centre[3], 0.5f, 1e-6f);
    EXPECT_NEAR(centre[1] / centre[3], 0.6f, 1e-6f);
    EXPECT_NEAR(centre[2] / centre[3], 1.0f, 1e-6f);
    const float* edge = cellOf(lens, 1, 0);
    EXPECT_NEAR(edge[0] / edge[3], 0.65f, 1e-6f);
    EXPECT_NEAR(edge[1] / edge[3], 0.8f, 1e-6f);
    EXPECT_NEAR(edge[2] / edge[3], 0.5f, 1e-6f);

    // Rings, intensity 0.5, frequency 0.5. Centre: r = (sin 0 * .5 + 1) *
    // .5 = .5, n = .5, t = 1 -> weight 1. Edge: r = (sin(.25*.5*3.14) * .5
    // + 1) * .5 = (0.382491*.5 + 1)*.5 = 0.595623, n = 0.404377, weight
    // .5*n*.5 + .25 = 0.351094. Ratio edge / centre 0.351094.
    PX_GlowParams rings = linearGlow(3, 25.0f);
    rings.ringIntensity = 0.5f;
    rings.ringFrequency = 0.5f;
    initGlowFilter(rings, sg);
    EXPECT_NEAR(cellOf(rings, 1, 0)[3] / cellOf(rings, 0, 0)[3], 0.351094f, 1e-5f);

    // A rim halo adds its rim where base is 0.8..1: width 19 (half 9, d
    // 10), cell (9, 0): base 0.9, e = 1, rim 0.1; t = 1 - 0.9 = 0.1,
    // weight 0.1 + 0.1 = 0.2 against the centre's 1.
    PX_GlowParams rim = linearGlow(19, 1.0f);
    rim.type = kGlowRimHalo;
    initGlowFilter(rim, sg);
    EXPECT_NEAR(cellOf(rim, 9, 0)[3] / cellOf(rim, 0, 0)[3], 0.2f, 1e-5f);
}

TEST(ShaderGlowExposure, AutoExposureAndFixedScale) {
    // A 5 x 5 array with one cell (100, 50, 0) at its centre, filter as
    // above (centre 5.992943, edge 2.996472, corner 1.755283). M = 100; the
    // largest result m = 599.2943. v = (m + .001) / (100 + .001); each
    // channel x 255 * 2 / (v * 255): centre red 2 * 599.2943 * 100.001 /
    // 599.2953 = 200.0017, green 100.0008, edge red 100.0008, corner red
    // 58.5784.
    PX_ShaderGlow sg;
    PX_GlowParams p = linearGlow(3, 25.0f);
    p.wide = p.high = 5;
    p.glowArray.assign(26, PX_Rgb());
    p.glowArray[2 * 5 + 2] = {100.0f, 50.0f, 0.0f};
    // A cell below one step counts as black: it neither glows nor sets M.
    p.glowArray[0] = {0.9f, 0.5f, 0.2f};
    shaderGlowEffect(p, sg);
    EXPECT_NEAR(p.glowArray[2 * 5 + 2].r, 200.0017f, 1e-3f);
    EXPECT_NEAR(p.glowArray[2 * 5 + 2].g, 100.0008f, 1e-3f);
    EXPECT_FLOAT_EQ(p.glowArray[2 * 5 + 2].b, 0.0f);
    EXPECT_NEAR(p.glowArray[2 * 5 + 3].r, 100.0008f, 1e-3f);
    EXPECT_NEAR(p.glowArray[1 * 5 + 1].r, 58.5784f, 1e-3f);
    EXPECT_FLOAT_EQ(p.glowArray[0].r, 0.0f);
    EXPECT_FLOAT_EQ(p.glowArray[4 * 5 + 4].r, 0.0f);

    // Intensity 2: v = 599.2953 / 200.001, the peak doubles to 400, held at
    // 255; green 299.6472 * 2 * 200.001 / 599.2953 = 200.0007.
    PX_GlowParams bright = linearGlow(3, 25.0f);
    bright.intensity = 2.0f;
    bright.wide = bright.high = 5;
    bright.glowArray.assign(26, PX_Rgb());
    bright.glowArray[12] = {100.0f, 50.0f, 0.0f};
    shaderGlowEffect(bright, sg);
    EXPECT_FLOAT_EQ(bright.glowArray[12].r, 255.0f);
    EXPECT_NEAR(bright.glowArray[12].g, 200.0007f, 1e-3f);

    // Without auto exposure v = w^2 / (intensity * 500) = 9 / 5 = 1.8 at
    // intensity 0.01, and the printed normalisation 9 / (1.8 * 500) = 0.01.
    // Source (1, 0, 0): centre 5.992943 * 255 * 2 / (1.8 * 255) = 6.658826,
    // corner 1.755283 * 2 / 1.8 = 1.950314.
    sg.autoExposure = false;
    PX_GlowParams fixed = linearGlow(3, 25.0f);
    fixed.intensity = 0.01f;
    fixed.wide = fixed.high = 5;
    fixed.glowArray.assign(26, PX_Rgb());
    fixed.glowArray[12] = {1.0f, 0.0f, 0.0f};
    EXPECT_NEAR(shaderGlowEffect(fixed, sg), 0.01, 1e-9);
    EXPECT_NEAR(fixed.glowArray[12].r, 6.658826f, 1e-4f);
    EXPECT_NEAR(fixed.glowArray[6].r, 1.950314f, 1e-4f);
}

TEST(ShaderGlowSplat, CellsAndWeights) {
    // res 0.5, 10 cells. x 3.4: p 1.7, i 1, j trunc(2.2) = 2: weights 2 -
    // 1.7 = 0.3 and 0.2. x 2: p 1, j trunc(1.5) = 1: one cell, 0.5. x 25:
    // p 12.5, past cell 9: cell 9, 0.5.
    int first[2];
    float weight[2];
    ASSERT_EQ(glowSplatAxis(3.4f, 0.5f, 10, first, weight), 2);
    EXPECT_EQ(first[0], 1);
    EXPECT_EQ(first[1], 2);
    EXPECT_NEAR(weight[0], 0.3f, 1e-6f);
    EXPECT_NEAR(weight[1], 0.2f, 1e-6f);
    ASSERT_EQ(glowSplatAxis(2.0f, 0.5f, 10, first, weight), 1);
    EXPECT_EQ(first[0], 1);
    EXPECT_FLOAT_EQ(weight[0], 0.5f);
    ASSERT_EQ(glowSplatAxis(25.0f, 0.5f, 10, first, weight), 1);
    EXPECT_EQ(first[0], 9);
    EXPECT_FLOAT_EQ(weight[0], 0.5f);
    // Near the last cell the second cell is held at the last: x 19.5, p
    // 9.75, i 9, j min(trunc(10.25), 9) = 9 -> one cell.
    ASSERT_EQ(glowSplatAxis(19.5f, 0.5f, 10, first, weight), 1);
    EXPECT_EQ(first[0], 9);

    // (200, 100, 300) at (3.4, 2.0): blue is held at 255; cell (1, 1) gets
    // 0.3 * 0.5 = 0.15 of it (30, 15, 38.25), cell (2, 1) 0.1 (20, 10,
    // 25.5).
    std::vector<PX_Rgb> array(10 * 4);
    const float rgb[3] = {200.0f, 100.0f, 300.0f};
    splatGlow(array.data(), 0, 0, 10, 4, 10, 4, 0.5f, rgb, 3.4f, 2.0f);
    EXPECT_NEAR(array[11].r, 30.0f, 1e-4f);
    EXPECT_NEAR(array[11].g, 15.0f, 1e-4f);
    EXPECT_NEAR(array[11].b, 38.25f, 1e-4f);
    EXPECT_NEAR(array[12].r, 20.0f, 1e-4f);
    EXPECT_NEAR(array[12].b, 25.5f, 1e-4f);

    // A tile gathers the same cells and adds them where they belong.
    TglowTile tile;
    tile.reset(0, 0, 8, 4, 10, 4, 0.5f);
    tile.add(rgb, 3.4f, 2.0f);
    std::vector<PX_Rgb> merged(10 * 4);
    tile.addTo(merged.data());
    for (size_t i = 0; i < merged.size(); ++i) {
        EXPECT_EQ(merged[i].r, array[i].r) << i;
        EXPECT_EQ(merged[i].b, array[i].b) << i;
    }
}

TEST(ShaderGlowArray, ThresholdAndReduction) {
    // Threshold 0.5: T = 127.5. (100, 100, 100): s = 25, every channel 75 +
    // 25 = 100 < T: cleared. (200, 0, 0): s = 16.67, red 166.67 > T: kept.
    // Threshold 0 keeps (1, 0, 0).
    std::vector<PX_Rgb> cells = {{100, 100, 100}, {200, 0, 0}, {1, 0, 0}};
    clipGlowArray(0.5f, 2, 1, cells.data());
    EXPECT_FLOAT_EQ(cells[0].r, 0.0f);
    EXPECT_FLOAT_EQ(cells[1].r, 200.0f);
    clipGlowArray(0.0f, 3, 1, cells.data());
    EXPECT_FLOAT_EQ(cells[2].r, 1.0f);

    // 4 x 2 -> 2 x 1: (10 + 20 + 50 + 60) / 4 = 35, + 0.5; (30 + 40 + 70 +
    // 80) / 4 = 55, + 0.5.
    std::vector<PX_Rgb> src = {{10, 0, 0}, {20, 0, 0}, {30, 0, 0}, {40, 0, 0},
                               {50, 0, 0}, {60, 0, 0}, {70, 0, 0}, {80, 0, 0}};
    PX_Rgb dst[2];
    filterResizeDown(dst, 2, 1, src.data(), 4, 2);
    EXPECT_NEAR(dst[0].r, 35.5f, 1e-4f);
    EXPECT_NEAR(dst[1].r, 55.5f, 1e-4f);
    // 3 -> 2 splits the middle cell: (30 + 60 * .5) / 1.5 = 40, (60 * .5 +
    // 90) / 1.5 = 80.
    std::vector<PX_Rgb> three = {{30, 0, 0}, {60, 0, 0}, {90, 0, 0}};
    filterResizeDown(dst, 2, 1, three.data(), 3, 1);
    EXPECT_NEAR(dst[0].r, 40.5f, 1e-4f);
    EXPECT_NEAR(dst[1].r, 80.5f, 1e-4f);
    // Bright cells are held at 255.
    std::vector<PX_Rgb> bright = {{255, 0, 0}, {255, 0, 0}};
    filterResizeDown(dst, 1, 1, bright.data(), 2, 1);
    EXPECT_FLOAT_EQ(dst[0].r, 255.0f);
}

TEST(ShaderGlowArray, AddedOverThePicture) {
    // A glow of (51, 0, 0) over grey 0.2 (51 of 255), alpha 1: red 102
    // (0.4), green 51 (0.2), both within one dither step; alpha 255 + 17
    // held at 255.
    PX_GlowParams p;
    p.type = kGlowLinear;
    p.resolution = 1.0f;
    p.wide = 2;
    p.high = 1;
    p.glowArray = {{51, 0, 0}, {51, 0, 0}, {}};
    std::vector<float> pixels = {0.2f, 0.2f, 0.2f, 1.0f, 0.2f, 0.2f, 0.2f, 1.0f};
    TpostImage image{pixels.data(), 2, 1, 4};
    glowArray(p, image, 0, 0);
    EXPECT_NEAR(pixels[0], 0.4f, 1.01f / 255.0f);
    EXPECT_NEAR(pixels[1], 0.2f, 1.01f / 255.0f);
    EXPECT_FLOAT_EQ(pixels[3], 1.0f);

    // Opacity 1 and white: o = 765 / 765 = 1, the glow replaces the pixel.
    p.opacity = 1.0f;
    p.glowArray = {{255, 255, 255}, {255, 255, 255}, {}};
    pixels = {0.0f, 0.5f, 0.1f, 0.0f, 0.3f, 0.0f, 0.9f, 0.0f};
    glowArray(p, image, 0, 0);
    for (int c = 0; c < 3; ++c) {
        EXPECT_NEAR(pixels[size_t(c)], 1.0f, 1.01f / 255.0f);
        EXPECT_NEAR(pixels[4 + size_t(c)], 1.0f, 1.01f / 255.0f);
    }
}

TEST(ShaderGlowSpread, OneGlowingPixelReachesTheFilterRadius) {
    // 200 x 100, spread 0.1, quality 20: resolution held at 1, width
    // trunc(1 * 200 * 0.1) = 20 -> 21, half 10, d 11. One white pixel at
    // (100, 50) lands whole in cell (100, 50) (x 100: p 100, j 101, weight
    // 101 - 100 = 1 to cell 100). Its glow reaches cells up to 10 away on
    // the axes (base 10/11 < 1) and none 11 away; on the diagonal cell
    // (7, 7) (base 9.90/11 = 0.9) still glows and (8, 8) (base 1.03 -> 1,
    // weight 0) does not.
    PX_ShaderGlow sg;
    sg.quality = 20.0f;
    PX_GlowParams& p = sg.glow;
    p.type = kGlowLinear;
    p.intensity = 1.0f;
    p.spread = 0.1f;
    p.eccentricity = 0.1f;
    initGlowParams(p, sg.quality, 200, 100, 200, kGlowGain, false);
    ASSERT_EQ(p.filterWidth, 21);
    ASSERT_FLOAT_EQ(p.resolution, 1.0f);
    p.glowArray.assign(size_t(p.wide) * size_t(p.high) + 1, PX_Rgb());
    const float white[3] = {255.0f, 255.0f, 255.0f};
    splatGlow(p.glowArray.data(), 0, 0, p.wide, p.high, p.wide, p.high, p.resolution, white, 100.0f,
              50.0f);
    clipGlowArray(0.0f, p.wide, p.high, p.glowArray.data());
    shaderGlowEffect(p, sg);

    std::vector<float> pixels(200 * 100 * 4, 0.0f);
    TpostImage image{pixels.data(), 200, 100, 4};
    glowArray(p, image, 0, 99);
    const auto red = [&](int x, int y) {
        return pixels[(size_t(y) * 200 + size_t(x)) * 4];
    };
    EXPECT_GT(red(100, 50), 0.9f); // the peak, 2 * 255 held at 255
    for (int k : {1, 5, 10}) {
        EXPECT_GT(red(100 + k, 50), 0.0f) << k;
        EXPECT_GT(red(100 - k, 50), 0.0f) << k;
        EXPECT_GT(red(100, 50 + k), 0.0f) << k;
        EXPECT_GT(red(100, 50 - k), 0.0f) << k;
    }
    EXPECT_FLOAT_EQ(red(111, 50), 0.0f);
    EXPECT_FLOAT_EQ(red(89, 50), 0.0f);
    EXPECT_FLOAT_EQ(red(100, 61), 0.0f);
    EXPECT_FLOAT_EQ(red(100, 39), 0.0f);
    EXPECT_GT(red(107, 57), 0.0f);
    EXPECT_FLOAT_EQ(red(108, 58), 0.0f);
    // Falls off with distance.
    EXPECT_GT(red(101, 50), red(105, 50));
    EXPECT_GT(red(105, 50), red(110, 50));
}

TEST(GlowNoise, TableStarAndRotation) {
    // The first value: (2413 * 25173 + 13849) & 0xFFFF = 60756298 mod
    // 65536 = 4426; 2 * 4426 / 65535 - 1 = -0.864927.
    EXPECT_NEAR(glowNoiseTable()[0], -0.864927, 1e-6);
    EXPECT_DOUBLE_EQ(randomNoise(-65535 - 3), glowNoiseTable()[3]);
    // The lattice wraps at 1 in both coordinates.
    EXPECT_FLOAT_EQ(glowNoise(0.3, 0.7), glowNoise(1.3, -0.3));

    // Star of 4 points, level 1. (y 1, x 1): atan2 = pi/4, a = 0.125 + 0.5
    // = 0.625, |sin(4 * 0.625 * pi)| = 1 -> 0. (y 1, x 0): a = 0.75,
    // sin(3 pi) = 0 -> 1. Level 0.5 at (1, 1): 0.5.
    EXPECT_NEAR(radialGlowNoise(1, 1, 1.0f, 4.0f, 0.0f, 0.5f, 0.0f), 0.0f, 1e-6f);
    EXPECT_NEAR(radialGlowNoise(1, 0, 1.0f, 4.0f, 0.0f, 0.5f, 0.0f), 1.0f, 1e-6f);
    EXPECT_NEAR(radialGlowNoise(1, 1, 0.5f, 4.0f, 0.0f, 0.5f, 0.0f), 0.5f, 1e-6f);
    // Rotation 45 turns a by 45/360: 0.625 + 0.125 = 0.75 -> 1. Rotation
    // 405 is the same turn.
    EXPECT_NEAR(radialGlowNoise(1, 1, 1.0f, 4.0f, 0.0f, 0.5f, 45.0f), 1.0f, 1e-6f);
    EXPECT_NEAR(radialGlowNoise(1, 1, 1.0f, 4.0f, 0.0f, 0.5f, 405.0f), 1.0f, 1e-6f);
    // Neither star nor noise: 1 everywhere, the origin too.
    EXPECT_FLOAT_EQ(radialGlowNoise(0, 0, 0.0f, 4.0f, 0.0f, 0.5f, 0.0f), 1.0f);
}
