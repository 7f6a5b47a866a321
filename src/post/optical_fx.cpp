#include "post/optical_fx.h"

#include <algorithm>
#include <cmath>

#include "post/glow_noise.h"

namespace orvo::post {

namespace {

// The falloff of the linear kind and those built on it: 1 on the line of
// sight, falling with the cosine at a rate the working spread sets.
double linearFalloff(double spread, double cosine) {
    double divisor = spread + cosine;
    if (divisor == 0.0)
        divisor = 1e-5;
    return (spread + 1.0) / divisor;
}

// The ball kind: a flat disc out to the cosine `spread`.
double ballFalloff(double spread, double cosine) {
    if (cosine <= spread)
        return 0.0;
    const double divisor = spread >= 0.999999 ? 1e-6 : 1.0 - spread;
    return (cosine - spread) / divisor;
}

double byKind(int kind, double x) {
    if (kind == 2)
        return std::sqrt(std::max(0.0, x));
    if (kind == 3)
        return x * x;
    return x;
}

} // namespace

void computeSpreads(TopticalFXParams& p) {
    const double g = p.glowSpread / 30.0, h = p.haloSpread / 30.0;
    switch (p.glowType) {
    case 2:
        p.G = 1.0 / (std::pow(g * 0.5, 3.0) - 1.0);
        break;
    case 3:
        p.G = 1.0 - g * g;
        break;
    case 5:
        p.G = 1.0 / (std::pow(2.0 * g, 3.0) - 1.0);
        break;
    default:
        p.G = 1.0 / (g * g * g - 1.0);
        break;
    }
    switch (p.haloType) {
    case 2:
        p.H = 1.0 / ((h * 0.5) * (h * 0.5) - 1.0);
        break;
    case 3:
        p.H = 1.0 - h * h;
        break;
    default:
        p.H = 1.0 / (h * h - 1.0);
        break;
    }
}

double flareRings(const TopticalFXRay& ray, const TopticalFXLight& light) {
    const double px = light.px, py = light.py;
    const double r = std::sqrt(px * px + py * py);
    if (!(0.5 - r * 0.5 > 0.0))
        return 0.0;
    const double w = (0.5 - r * 0.5) * 0.5;
    const double sx = px / 6.0, sy = py / 6.0;
    // The point walks along the line through the light and the picture's
    // centre, one ring a step; the ring is where it meets the pixel.
    double x = ray.dx - 5.4 * sx, y = ray.dy - 5.4 * sy;
    double sum = 0.0;
    for (int n = 0; n < 11; ++n, x += sx, y += sy) {
        double outer = kFlareRings[n][0], inner = kFlareRings[n][1];
        if (n == 4 || n == 5)
            inner *= 4.0 * w;
        else if (n == 6) {
            outer *= 5.0 * w;
            inner *= 3.0 * w;
        } else if (n == 8)
            outer *= 5.0 * w;
        const double distance = std::sqrt(x * x + y * y);
        if (distance >= outer)
            continue;
        const double full = (1.0 - outer * 4.0) * w;
        sum += distance <= inner ? full : full * (1.0 - (distance - inner) / (outer - inner));
    }
    return sum;
}

void lensFlare(const TopticalFXParams& p, const TopticalFXRay& ray, const TopticalFXLight& light,
               float rgb[3]) {
    rgb[0] = rgb[1] = rgb[2] = 0.0f;
    const double px = light.px, py = light.py;
    const double r = std::sqrt(px * px + py * py);
    if (!p.lensFlare || p.flareIntensity == 0.0f || !(0.5 - r * 0.5 > 0.0))
        return;
    const double w = (0.5 - r * 0.5) * 0.5;
    // More circles than this would not show apart from one another.
    const double N = std::min(100000.0, std::max(0.0, double(p.flareNumCircles)));
    const double small = p.flareMinSize * 0.1, big = p.flareMaxSize * 0.1;
    double span = big - small, S;
    if (!(span > 0.0)) {
        span = 0.0;
        S = 1.0;
    } else {
        S = span * 4.0 * small / big + span;
    }
    const double divisor = N > 0.0 ? N : 1.0;
    const double stepX = (px - p.flareHorizontal * 0.25) * p.flareLength * 3.0 / divisor;
    const double stepY = (py - p.flareVertical * 0.25) * p.flareLength * 3.0 / divisor;
    double ox = px + ray.dx - stepX * 0.43, oy = py + ray.dy - stepY * 0.43;
    const int last = int(std::trunc(N));
    for (int i = 0; i <= last; ++i, ox -= stepX, oy -= stepY) {
        const double k = (randomNoise(i) + 1.0) * 0.5;
        const double radius = span * k * k * k + small;
        const double d = std::sqrt(ox * ox + oy * oy);
        if (!(radius > d))
            continue;
        if (p.hexagonFlare) {
            const double a = radius * 0.8660254;
            if (d > a) {
                const double hp = oy * 0.9396926 + ox * 0.3420201;
                const double hq = (ox * 0.9396926 - oy * 0.3420201) * 0.8660254;
                const auto within = [a](double v) {
                    return v >= -a && v <= a;
                };
                if (!within(hp) || !within(hp * 0.5 + hq) || !within(hp * 0.5 - hq))
                    continue;
            }
        }
        const double sharp =
            p.flareFocus != 1.0f
                ? ((1.0 - p.flareFocus) * 0.6 * ((randomNoise(i + 92) + 1.0) * 0.5) +
                   p.flareFocus) *
                      radius
                : radius;
        double b = (S - (radius - small)) / S;
        if (i == last)
            b *= N - std::trunc(N);
        if (i > int(std::trunc(0.6 * N)))
            b *= 1.0 - (i - 0.6 * N) / (0.45 * N);
        double amount = d > sharp ? b * w * (1.0 - (d - sharp) / (radius - sharp)) : b * w;
        float colour[3] = {p.flareColor[0] * 255.0f, p.flareColor[1] * 255.0f,
                           p.flareColor[2] * 255.0f};
        if (p.flareColSpread != 0.0f) {
            float h, s, v;
            RGBtoHSV(colour, h, s, v);
            h = std::fmod(h + float(p.flareColSpread * randomNoise(i + 30) * 180.0), 360.0f);
            if (h < 0.0f)
                h += 360.0f;
            HSVtoRGB(h, s, v, colour);
        }
        // Over 255: the light's colour, in 0..255 steps, scales it back.
        amount *= p.flareIntensity * (randomNoise(i + 83) * 0.7 + 1.0);
        amount = std::max(0.0, amount) / 255.0;
        for (int c = 0; c < 3; ++c)
            rgb[c] += float(colour[c] * amount);
    }
}

float opticalGlowNoise(float x, float y, float amount, float threshold, float scaleU, float scaleV,
                       float offsetU, float offsetV, float rotation) {
    if (amount == 0.0f || threshold == 0.0f)
        return 0.0f;
    double rx = x, ry = y;
    if (rotation != 0.0f) {
        const double a = rotation * 0.017453292519943295;
        rx = x * std::cos(a) - y * std::sin(a);
        ry = x * std::sin(a) + y * std::cos(a);
    }
    double u = scaleU * rx + offsetU + 0.11, v = scaleV * ry + offsetV + 0.11;
    double sum = 0.0, amplitude = 1.0;
    for (int octave = 0; octave < 4; ++octave) {
        sum += glowNoise(u + 0.1, v + 0.03) * amplitude;
        amplitude *= 0.7;
        u *= 2.0;
        v *= 2.0;
    }
    const double t = sum / 2.7 + 0.5;
    return float(std::min(double(threshold), t) / threshold * amount);
}

void HSVtoRGB(float h, float s, float v, float rgb[3]) {
    if (s <= 0.0f) {
        rgb[0] = rgb[1] = rgb[2] = v;
        return;
    }
    float hh = std::fmod(h, 360.0f);
    if (hh < 0.0f)
        hh += 360.0f;
    hh /= 60.0f;
    const int sector = std::min(5, int(hh));
    const float f = hh - float(sector);
    const float p = v * (1.0f - s), q = v * (1.0f - s * f), t = v * (1.0f - s * (1.0f - f));
    const float table[6][3] = {{v, t, p}, {q, v, p}, {p, v, t}, {p, q, v}, {t, p, v}, {v, p, q}};
    for (int c = 0; c < 3; ++c)
        rgb[c] = table[sector][c];
}

void RGBtoHSV(const float rgb[3], float& h, float& s, float& v) {
    const float mx = std::max({rgb[0], rgb[1], rgb[2]});
    const float mn = std::min({rgb[0], rgb[1], rgb[2]});
    v = mx;
    const float delta = mx - mn;
    s = mx > 0.0f ? delta / mx : 0.0f;
    if (delta <= 0.0f) {
        h = 0.0f;
        return;
    }
    if (rgb[0] == mx)
        h = 60.0f * (rgb[1] - rgb[2]) / delta;
    else if (rgb[1] == mx)
        h = 60.0f * (2.0f + (rgb[2] - rgb[0]) / delta);
    else
        h = 60.0f * (4.0f + (rgb[0] - rgb[1]) / delta);
    if (h < 0.0f)
        h += 360.0f;
}

bool glowEffect(const TopticalFXParams& p, const TopticalFXRay& ray, const TopticalFXLight& light,
                float result[4]) {
    const double c = -double(ray.z);
    if (c <= 0.0)
        return false;
    if (light.colour[0] == 0.0f && light.colour[1] == 0.0f && light.colour[2] == 0.0f)
        return true;
    double x2 = 0.0;
    switch (p.glowType) {
    case 1:
    case 2:
    case 4:
    case 5:
        x2 = linearFalloff(p.G, c);
        break;
    case 3:
        x2 = ballFalloff(p.G, c);
        break;
    default:
        break;
    }
    float hue = 0.0f, saturation = 0.0f, V = 1.0f;
    if (p.glowType == 4) {
        hue = float(std::clamp(x2, 0.0, 1.0) * 390.0);
        saturation = hue > 60.0f ? std::max(0.0f, 0.8f - (hue - 60.0f) / 250.0f) : 0.8f;
        hue = std::min(hue, 200.0f);
    } else if (p.glowType == 5) {
        const double d = x2 - 0.1, e = (0.08 - d) / 0.08;
        hue = float(300.0 * (0.08 - d < 0.0 ? 1.0 : e > 1.0 ? 0.0 : 1.0 - e));
        hue = std::min(hue, 250.0f);
        saturation = 0.95f;
        V = float(std::max(0.0, std::min(1.0, (0.08 - std::fabs(d)) / 0.08 * 2.0 + 0.4) * 3000.0));
    }
    const double c2 = c * c;
    double x1 = 0.0;
    switch (p.haloType) {
    case 1:
    case 2:
    case 4:
        x1 = linearFalloff(p.H, c2);
        break;
    case 3:
        x1 = ballFalloff(p.H, c);
        break;
    case 5: {
        x1 = linearFalloff(p.H, c2);
        const double e = 0.02 - std::fabs(x1 - 0.3);
        if (e >= 0.0)
            x1 += (e / 0.02) * (e / 0.02);
        break;
    }
    default:
        break;
    }
    if (p.haloType == 4)
        x1 += flareRings(ray, light);
    if (x2 <= 0.0 && x1 <= 0.0 && !p.lensFlare)
        return true;
    if (x2 > 1e-5) {
        const double n =
            1.0 - opticalGlowNoise(ray.x, ray.y, p.glowNoise, p.noiseThreshold, p.noiseUscale,
                                   p.noiseVscale, p.noiseUoffset, p.noiseVoffset, p.rotation);
        x2 *= n * n;
    }
    if (x2 > 1e-5) {
        const double n = radialGlowNoise(ray.y, ray.x, p.glowStarLevel, p.starPoints,
                                         p.glowRadialNoise, p.radialFrequency, p.rotation);
        if (n != 1.0) {
            const double m = std::max(0.0, x2);
            x2 = n * x2 * (1.0 - m) + m * x2;
        }
    }
    x2 = byKind(p.glowType, x2);
    x1 = byKind(p.haloType, x1);
    if (p.glowOpacity > 0.0f)
        result[3] += float(p.glowOpacity * x2);
    float glow[3];
    double haloWeight;
    if (p.glowType == 4 || p.glowType == 5) {
        const double value = V * p.glowIntensity * (p.glowType == 4 ? x2 * 10.0 : x2 * x2 * x2);
        HSVtoRGB(hue, saturation, float(value), glow);
        haloWeight = 2.0 * p.haloIntensity * x1;
    } else {
        glow[0] = glow[1] = glow[2] = float(4.0 * p.glowIntensity * x2);
        haloWeight = 4.0 * p.haloIntensity * x1;
    }
    float flare[3];
    lensFlare(p, ray, light, flare);
    for (int k = 0; k < 3; ++k) {
        const double lit = glow[k] * p.glowColor[k] + haloWeight * p.haloColor[k];
        result[k] += float((lit + flare[k]) * light.colour[k]);
    }
    return true;
}

void addGlow(const TopticalFXParams& params, const TopticalFXRay& ray, const TopticalFXLight& light,
             float pixel[4], unsigned x, unsigned y) {
    float result[4] = {0, 0, 0, 0};
    if (!glowEffect(params, ray, light, result))
        return;
    bool nan = false;
    for (int c = 0; c < 3; ++c) {
        nan = nan || std::isnan(result[c]);
        if (result[c] > 0.1f)
            result[c] += (glowDither(x, y, unsigned(c), 17u) + 1.0f) * 0.5f;
    }
    if (nan)
        result[0] = result[1] = result[2] = 255.0f;
    const float a = std::isnan(result[3]) ? 0.0f : result[3];
    if (a != 0.0f) {
        pixel[3] += a * 255.0f;
        for (int c = 0; c < 3; ++c)
            pixel[c] = a >= 1.0f ? result[c] : result[c] + pixel[c] * (1.0f - a);
    } else {
        for (int c = 0; c < 3; ++c)
            pixel[c] += result[c];
        pixel[3] += (result[0] + result[1] + result[2]) / 3.0f;
    }
}

namespace {

// The unit eye-space ray through a pixel's centre, and its place on the
// picture in -1..1.
void pixelRay(const TpostView& view, double x, double y, double d[3], double& sx, double& sy) {
    sx = (x + 0.5) / view.width * 2.0 - 1.0;
    sy = 1.0 - (y + 0.5) / view.height * 2.0;
    d[0] = sx * view.halfWidth;
    d[1] = sy * view.halfHeight;
    d[2] = -1.0;
    const double length = std::sqrt(d[0] * d[0] + d[1] * d[1] + 1.0);
    for (int k = 0; k < 3; ++k)
        d[k] /= length;
}

// The light's view: w away from the light, u and v across.
struct LightFrame {
    double u[3], v[3], w[3];
    explicit LightFrame(const float toLight[3]) {
        for (int k = 0; k < 3; ++k)
            w[k] = -toLight[k];
        const double up[3] = {std::fabs(w[1]) > 0.999 ? 1.0 : 0.0,
                              std::fabs(w[1]) > 0.999 ? 0.0 : 1.0, 0.0};
        u[0] = up[1] * w[2] - up[2] * w[1];
        u[1] = up[2] * w[0] - up[0] * w[2];
        u[2] = up[0] * w[1] - up[1] * w[0];
        const double length = std::sqrt(u[0] * u[0] + u[1] * u[1] + u[2] * u[2]);
        for (double& c : u)
            c /= length;
        v[0] = w[1] * u[2] - w[2] * u[1];
        v[1] = w[2] * u[0] - w[0] * u[2];
        v[2] = w[0] * u[1] - w[1] * u[0];
    }
    TopticalFXRay ray(const double d[3]) const {
        TopticalFXRay r;
        r.x = float(d[0] * u[0] + d[1] * u[1] + d[2] * u[2]);
        r.y = float(d[0] * v[0] + d[1] * v[1] + d[2] * v[2]);
        r.z = float(d[0] * w[0] + d[1] * w[1] + d[2] * w[2]);
        return r;
    }
};

bool lightShows(const TopticalFXParams& params, const TopticalFXLight& light) {
    return params.active && light.toLight[2] < 0.0f &&
           (light.colour[0] > 0.0f || light.colour[1] > 0.0f || light.colour[2] > 0.0f);
}

} // namespace

TpixelRect adjustViewport(const TopticalFXParams& params, const TopticalFXLight& light,
                          const TpostView& view) {
    TpixelRect rect;
    if (!lightShows(params, light) || view.width == 0 || view.height == 0)
        return rect;
    const TpixelRect full{0, 0, int(view.width), int(view.height)};
    // Rings and circles lie along the line through the picture's centre.
    if (params.lensFlare || params.haloType == 4)
        return full;
    // The widest angle at which glow and halo still reach half a step,
    // without noise (which only takes away): walk in from the side.
    const LightFrame frame(light.toLight);
    double reach = 0.0;
    for (int i = 1024; i > 0; --i) {
        const double angle = 1.5707963267948966 * i / 1024.0;
        TopticalFXRay ray;
        ray.x = float(std::sin(angle));
        ray.z = -float(std::cos(angle));
        TopticalFXParams quiet = params;
        quiet.glowNoise = quiet.glowRadialNoise = quiet.glowStarLevel = 0.0f;
        float result[4] = {0, 0, 0, 0};
        glowEffect(quiet, ray, light, result);
        if (std::max({result[0], result[1], result[2]}) >= 0.5f || result[3] > 0.001f) {
            reach = std::min(1.5707963267948966, angle + 1.5707963267948966 / 1024.0);
            break;
        }
    }
    if (reach <= 0.0)
        return rect;
    // The cone's rim on the picture, at 64 points around it.
    double x0 = 1e30, y0 = 1e30, x1 = -1e30, y1 = -1e30;
    const double cr = std::cos(reach), sr = std::sin(reach);
    for (int k = 0; k < 64; ++k) {
        const double phi = 6.283185307179586 * k / 64.0;
        double d[3];
        for (int j = 0; j < 3; ++j)
            d[j] =
                -frame.w[j] * cr + (frame.u[j] * std::cos(phi) + frame.v[j] * std::sin(phi)) * sr;
        if (d[2] > -1e-3)
            return full; // the cone reaches behind the picture's plane
        const double sx = d[0] / -d[2] / view.halfWidth, sy = d[1] / -d[2] / view.halfHeight;
        const double px = (sx + 1.0) * 0.5 * view.width, py = (1.0 - sy) * 0.5 * view.height;
        x0 = std::min(x0, px);
        x1 = std::max(x1, px);
        y0 = std::min(y0, py);
        y1 = std::max(y1, py);
    }
    // The chords between rim points cut inside the circle by a little.
    const double margin = 0.01 * std::max(x1 - x0, y1 - y0) + 2.0;
    rect.x0 = int(std::clamp(std::floor(x0 - margin), 0.0, double(view.width)));
    rect.y0 = int(std::clamp(std::floor(y0 - margin), 0.0, double(view.height)));
    rect.x1 = int(std::clamp(std::ceil(x1 + margin), 0.0, double(view.width)));
    rect.y1 = int(std::clamp(std::ceil(y1 + margin), 0.0, double(view.height)));
    return rect;
}

bool addOpticalFX(const TopticalFXParams& params, const TopticalFXLight& light,
                  const TpostView& view, const TpostImage& image, unsigned firstLine,
                  unsigned lastLine) {
    if (!lightShows(params, light) || !image.pixels)
        return false;
    const TpixelRect rect = adjustViewport(params, light, view);
    const LightFrame frame(light.toLight);
    const bool hasAlpha = image.channels >= 4;
    const int yEnd = std::min(rect.y1, int(std::min<unsigned>(lastLine, image.height - 1)) + 1);
    for (int y = std::max(rect.y0, int(firstLine)); y < yEnd; ++y)
        for (int x = rect.x0; x < rect.x1; ++x) {
            double d[3], sx, sy;
            pixelRay(view, x, y, d, sx, sy);
            TopticalFXRay ray = frame.ray(d);
            ray.dx = float(sx - light.px);
            ray.dy = float(sy - light.py);
            float* pixel = image.at(unsigned(x), unsigned(y));
            float work[4] = {pixel[0] * 255.0f, pixel[1] * 255.0f, pixel[2] * 255.0f,
                             hasAlpha ? pixel[3] * 255.0f : 0.0f};
            const float before[4] = {work[0], work[1], work[2], work[3]};
            addGlow(params, ray, light, work, unsigned(x), unsigned(y));
            // Where the effect adds nothing the pixel keeps its value, over
            // 1 included.
            if (std::equal(work, work + 4, before))
                continue;
            for (int c = 0; c < 3; ++c)
                pixel[c] = std::clamp(work[c], 0.0f, 255.0f) / 255.0f;
            if (hasAlpha)
                pixel[3] = std::clamp(work[3], 0.0f, 255.0f) / 255.0f;
        }
    return true;
}

} // namespace orvo::post
