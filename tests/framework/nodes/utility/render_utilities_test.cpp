#include <gtest/gtest.h>

#include "framework/nodes/utility/render_utilities.h"

namespace {

void expectHsv(T3Float rgb, float h, float s, float v) {
    T3Float hsv{-1.0f, -1.0f, -1.0f};
    TrenderUtilities::RGBtoHSV(rgb, hsv);
    EXPECT_NEAR(hsv.x, h, 1e-4f) << rgb.x << " " << rgb.y << " " << rgb.z;
    EXPECT_NEAR(hsv.y, s, 1e-6f) << rgb.x << " " << rgb.y << " " << rgb.z;
    EXPECT_NEAR(hsv.z, v, 1e-6f) << rgb.x << " " << rgb.y << " " << rgb.z;
}

void expectRgb(T3Float hsv, T3Float start, float r, float g, float b) {
    T3Float rgb = start;
    TrenderUtilities::HSVtoRGB(hsv, rgb);
    EXPECT_NEAR(rgb.x, r, 1e-6f) << hsv.x << " " << hsv.y << " " << hsv.z;
    EXPECT_NEAR(rgb.y, g, 1e-6f) << hsv.x << " " << hsv.y << " " << hsv.z;
    EXPECT_NEAR(rgb.z, b, 1e-6f) << hsv.x << " " << hsv.y << " " << hsv.z;
}

TEST(RenderUtilities, RgbToHsvEveryBranch) {
    // Maximum red, minimum green: h = (mx - b)/d + 5 = 6 -> wraps to 0.
    expectHsv({1, 0, 0}, 0, 1, 1);
    // ... (1, 0, 0.5): (1 - 0.5)/1 + 5 = 5.5 -> 330.
    expectHsv({1, 0, 0.5f}, 330, 1, 1);
    // Maximum red, minimum blue: 1 - (mx - g)/d = 1 - 0.5 = 0.5 -> 30.
    expectHsv({1, 0.5f, 0}, 30, 1, 1);
    // Maximum green, minimum blue: (mx - r)/d + 1 = 0.3/0.6 + 1 = 1.5 -> 90; s = 0.6/0.8.
    expectHsv({0.5f, 0.8f, 0.2f}, 90, 0.75f, 0.8f);
    // Maximum green, minimum red: 3 - (mx - b)/d = 3 - 0.5 = 2.5 -> 150.
    expectHsv({0.2f, 0.8f, 0.5f}, 150, 0.75f, 0.8f);
    // Maximum blue, minimum red: (mx - g)/d + 3 = 0.4/0.6 + 3 -> 220.
    expectHsv({0.2f, 0.4f, 0.8f}, 220, 0.75f, 0.8f);
    // Maximum blue, minimum green: 5 - (mx - r)/d = 5 - 0.5 = 4.5 -> 270.
    expectHsv({0.5f, 0.2f, 0.8f}, 270, 0.75f, 0.8f);
    // No spread: hue 0, saturation 0; black has no saturation either.
    expectHsv({0.5f, 0.5f, 0.5f}, 0, 0, 0.5f);
    expectHsv({0, 0, 0}, 0, 0, 0);
}

TEST(RenderUtilities, HsvToRgbEverySector) {
    const T3Float z{};
    expectRgb({0, 1, 1}, z, 1, 0, 0);                 // i 0, f 0: (v, t, p)
    expectRgb({30, 1, 1}, z, 1, 0.5f, 0);             // i 0, f 0.5: t = 1 - 0.5
    expectRgb({90, 0.5f, 0.8f}, z, 0.6f, 0.8f, 0.4f); // i 1: (q, v, p), q = 0.75*0.8
    expectRgb({120, 1, 1}, z, 0, 1, 0);               // i 2: (p, v, t)
    expectRgb({210, 1, 1}, z, 0, 0.5f, 1);            // i 3: (p, q, v)
    expectRgb({270, 1, 1}, z, 0.5f, 0, 1);            // i 4: (t, p, v)
    expectRgb({330, 1, 1}, z, 1, 0, 0.5f);            // i 5: (v, p, q)
    // Saturation above 1 counts as 1: i 1, f 0 -> (q, v, p) = (0.5, 0.5, 0).
    expectRgb({60, 3, 0.5f}, z, 0.5f, 0.5f, 0);
    // No saturation: grey of the value, whatever the hue.
    expectRgb({200, 0, 0.3f}, z, 0.3f, 0.3f, 0.3f);
    expectRgb({900, 1e-6f, 0.3f}, z, 0.3f, 0.3f, 0.3f);
}

TEST(RenderUtilities, HsvToRgbHueLimits) {
    const T3Float kept{0.1f, 0.2f, 0.3f};
    // 360 reads as 0 (x = 6 would be outside the sectors).
    expectRgb({360, 1, 1}, kept, 1, 0, 0);
    // Beyond: i >= 6, nothing written. Below 0: i < 0, nothing written.
    expectRgb({400, 1, 1}, kept, 0.1f, 0.2f, 0.3f);
    expectRgb({1e30f, 1, 1}, kept, 0.1f, 0.2f, 0.3f);
    expectRgb({-30, 1, 1}, kept, 0.1f, 0.2f, 0.3f);
}

TEST(RenderUtilities, RoundTrip) {
    for (const T3Float rgb :
         {T3Float{0.9f, 0.3f, 0.1f}, T3Float{0.05f, 0.6f, 0.35f}, T3Float{0.4f, 0.1f, 0.7f}}) {
        T3Float hsv, back;
        TrenderUtilities::RGBtoHSV(rgb, hsv);
        TrenderUtilities::HSVtoRGB(hsv, back);
        EXPECT_NEAR(back.x, rgb.x, 1e-5f);
        EXPECT_NEAR(back.y, rgb.y, 1e-5f);
        EXPECT_NEAR(back.z, rgb.z, 1e-5f);
    }
}

} // namespace
