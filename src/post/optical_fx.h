#pragma once

// What a lens adds around a light in the picture: a glow and a halo that
// fall off with the angle between a pixel's ray and the ray to the light,
// rings along the line from the light through the picture's centre, and a
// lens flare of soft (or hexagonal) circles along that line. Colours are
// worked in 0..255 steps, like the glow arrays.

#include <cstdint>

#include "post/shader_glow.h"

namespace orvo::post {

// The settings of one optical effect, copied from its node once a frame.
struct TopticalFXParams {
    bool active = true;
    int32_t glowType = 1, haloType = 0, fogType = 0;
    bool lensFlare = false;
    float glowColor[3] = {1, 1, 1}, haloColor[3] = {1, 1, 1}, fogColor[3] = {1, 1, 1},
          flareColor[3] = {1, 1, 1};
    float flareIntensity = 1.0f, flareNumCircles = 20.0f, flareMinSize = 0.1f, flareMaxSize = 1.0f,
          flareColSpread = 0.5f, flareFocus = 0.6f, flareVertical = 1.0f, flareHorizontal = 1.0f,
          flareLength = 1.0f;
    bool hexagonFlare = false;
    float glowIntensity = 1.0f, haloIntensity = 1.0f, fogIntensity = 1.0f;
    float glowSpread = 1.0f, haloSpread = 1.0f, fogSpread = 1.0f;
    float glowNoise = 0.0f, fogNoise = 0.0f, glowRadialNoise = 0.0f, fogRadialNoise = 0.0f;
    float glowStarLevel = 3.0f, fogStarlevel = 0.0f, glowOpacity = 0.0f, fogOpacity = 0.0f;
    float radialFrequency = 0.5f, starPoints = 4.0f, rotation = 0.0f;
    float noiseUscale = 1.0f, noiseVscale = 1.0f, noiseUoffset = 1.0f, noiseVoffset = 0.5f,
          noiseThreshold = 0.5f;
    bool ignoreLight = false;
    float glowVisibility = 1.0f;
    float lightColor[3] = {1, 1, 1}, visibility[3] = {1, 1, 1};
    // Working spreads of glow and halo, from computeSpreads.
    double G = 0.0, H = 0.0;
};

// Where the light is, for one frame.
struct TopticalFXLight {
    // The light's position on the picture: -1 at the left and bottom edges,
    // 1 at the right and top, 0 at the centre.
    float px = 0.0f, py = 0.0f;
    // The light's colour in 0..255 steps (black: no effect).
    float colour[3] = {255, 255, 255};
    // The unit eye-space direction from the eye to the light; a light behind
    // the eye (z >= 0) shows nothing.
    float toLight[3] = {0, 0, -1};
};

// A pixel's ray as the effect sees it.
struct TopticalFXRay {
    // The unit direction in the light's view: -z toward the light, so that
    // -z is the cosine to the line of sight of the light.
    float x = 0.0f, y = 0.0f, z = -1.0f;
    // The pixel's offset from the light on the picture, in the units of
    // TopticalFXLight::px and py.
    float dx = 0.0f, dy = 0.0f;
};

void computeSpreads(TopticalFXParams& params);

// The ring table of the halo's lens kind: outer and inner radius.
inline constexpr float kFlareRings[11][2] = {{0.015f, 0.01f}, {0.018f, 0.005f}, {0.045f, 0.035f},
                                             {0.032f, 0.01f}, {0.1f, 0.09f},    {0.068f, 0.059f},
                                             {0.22f, 0.21f},  {0.038f, 0.0f},   {0.08f, 0.01f},
                                             {0.025f, 0.01f}, {0.018f, 0.01f}};

// The rings' weight at a ray (the halo's lens kind); 0 when the light is at
// or past the picture's edge.
double flareRings(const TopticalFXRay& ray, const TopticalFXLight& light);
// The lens flare at a ray: the circles' colour in 0..255 steps over 255,
// which the light's colour (in 0..255 steps) scales; 0 when the light is at
// or past the picture's edge.
void lensFlare(const TopticalFXParams& params, const TopticalFXRay& ray,
               const TopticalFXLight& light, float rgb[3]);

// The effect at one ray, added into result (r, g, b in 0..255 steps, and
// alpha). False for a ray behind the light's line of sight.
bool glowEffect(const TopticalFXParams& params, const TopticalFXRay& ray,
                const TopticalFXLight& light, float result[4]);

// glowEffect over one pixel (r, g, b, alpha in 0..255 steps): dithered,
// NaN to white, the opacity replacing what lies below.
void addGlow(const TopticalFXParams& params, const TopticalFXRay& ray, const TopticalFXLight& light,
             float pixel[4], unsigned x, unsigned y);

// The noise that breaks up a glow: four octaves over the ray's x and y.
float opticalGlowNoise(float x, float y, float amount, float threshold, float scaleU, float scaleV,
                       float offsetU, float offsetV, float rotation);

// Hue in degrees, saturation 0..1, value and colours in 0..255 steps.
void HSVtoRGB(float h, float s, float v, float rgb[3]);
void RGBtoHSV(const float rgb[3], float& h, float& s, float& v);

// A rectangle of pixels, [x0, x1) x [y0, y1).
struct TpixelRect {
    int x0 = 0, y0 = 0, x1 = 0, y1 = 0;
    bool empty() const { return x1 <= x0 || y1 <= y0; }
};

// How a picture's pixels look out: the eye-space direction through pixel
// centre (x + 0.5, y + 0.5) is (halfWidth * sx, halfHeight * sy, -1), sx
// and sy the pixel's position in -1..1 (y up).
struct TpostView {
    unsigned width = 0, height = 0;
    double halfWidth = 1.0, halfHeight = 1.0;
};

// The pixels the light's effect can reach on the picture.
TpixelRect adjustViewport(const TopticalFXParams& params, const TopticalFXLight& light,
                          const TpostView& view);

// Adds the effect over the reachable pixels of lines [firstLine, lastLine]
// of the picture (all of it by default). False when the light adds nothing
// (off, black, or behind the eye).
bool addOpticalFX(const TopticalFXParams& params, const TopticalFXLight& light,
                  const TpostView& view, const TpostImage& image, unsigned firstLine = 0,
                  unsigned lastLine = ~0u);

} // namespace orvo::post
