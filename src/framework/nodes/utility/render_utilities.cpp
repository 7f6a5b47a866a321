#include "framework/nodes/utility/render_utilities.h"

#include <algorithm>

void TrenderUtilities::RGBtoHSV(const T3Float& rgb, T3Float& hsv) {
    const float r = rgb.x, g = rgb.y, b = rgb.z;
    const float mx = std::max({r, g, b});
    const float mn = std::min({r, g, b});
    const float d = mx - mn;
    hsv.y = mx > 0.0f ? d / mx : 0.0f;
    hsv.z = mx;
    if (isZero(d)) {
        hsv.x = 0.0f;
        return;
    }
    // Distances from the maximum, in units of the spread: the hue is the
    // sector of the maximum plus how far the middle component pulls it.
    const float p = (mx - r) / d;
    const float q = (mx - b) / d;
    const float t = (mx - g) / d;
    float h;
    if (mx == r)
        h = mn == g ? q + 5.0f : 1.0f - t;
    else if (mx == g)
        h = mn == b ? p + 1.0f : 3.0f - q;
    else
        h = mn == r ? t + 3.0f : 5.0f - p;
    if (nearlyEqual(h, 6.0f))
        h = 0.0f;
    hsv.x = h * 60.0f;
}

void TrenderUtilities::HSVtoRGB(T3Float hsv, T3Float& rgb) {
    float h = hsv.x, s = hsv.y;
    const float v = hsv.z;
    if (isZero(s)) {
        rgb = {v, v, v};
        return;
    }
    if (nearlyEqual(h, 360.0f))
        h = 0.0f;
    const float x = h / 60.0f;
    const float fi = std::floor(x);
    const float f = x - fi;
    if (s > 1.0f)
        s = 1.0f;
    const float p = (1.0f - s) * v;
    const float q = (1.0f - s * f) * v;
    const float t = (1.0f - (1.0f - f) * s) * v;
    // Outside the six sectors (or not a number) nothing is written. Tested
    // as a float so that a huge hue never overflows an integer.
    if (!(fi >= 0.0f && fi <= 5.0f))
        return;
    switch (int(fi)) {
    case 0:
        rgb = {v, t, p};
        break;
    case 1:
        rgb = {q, v, p};
        break;
    case 2:
        rgb = {p, v, t};
        break;
    case 3:
        rgb = {p, q, v};
        break;
    case 4:
        rgb = {t, p, v};
        break;
    case 5:
        rgb = {v, p, q};
        break;
    default:
        break;
    }
}
