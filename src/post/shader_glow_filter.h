#pragma once

// The working data of shader glow and the large filter that spreads it.
//
// Glowing samples are gathered in a coarse array (`resolution` cells per
// image pixel) so that a glow a tenth of the picture wide costs a filter of
// a few dozen cells, not hundreds of pixels. The coarser the array, the
// wider the spread: the resolution formula keeps the filter's area in
// proportion to the picture whatever the spread and quality.

#include <cstdint>
#include <vector>

// One cell of a glow array: three channels in 0..255.
struct PX_Rgb {
    float r = 0.0f, g = 0.0f, b = 0.0f;
};

// The glow kinds of a glow or halo.
enum : int32_t {
    kGlowNone = 0,
    kGlowLinear = 1,
    kGlowExponential = 2,
    kGlowBall = 3,
    kGlowLensFlare = 4,
    kGlowRimHalo = 5,
};

struct PX_GlowParams {
    int32_t type = 0;
    float intensity = 0.0f, spread = 0.0f, eccentricity = 0.0f, radialNoise = 0.0f,
          starLevel = 0.0f, opacity = 0.0f;
    float ringIntensity = 0.0f, ringFrequency = 0.0f;
    float color[4] = {255.0f, 255.0f, 255.0f, 1.0f}; // colour x 255, alpha 1
    float resolution = 1.0f;                         // array cells per image pixel
    int32_t filterWidth = 1;                         // odd, in cells
    std::vector<PX_Rgb> glowArray;                   // wide x high + 1 cells
    int32_t wide = 0, high = 0;
    std::vector<float> filter; // filterWidth^2 cells of r, g, b, alpha
    float gain = 0.0f;         // the filter's target sum
};

struct PX_ShaderGlow {
    PX_GlowParams glow, halo;
    float quality = 0.5f, threshold = 0.0f, radialFrequency = 0.5f, starPoints = 4.0f,
          rotation = 0.0f;
    bool autoExposure = true;
};

namespace orvo::post {

// The filter gains. The older filter's are used as they stand; the newer
// ones are per filter cell, so a wide filter gains as much per cell as a
// narrow one.
inline constexpr float kPreV45GlowGain = 25.0f;
inline constexpr float kPreV45HaloGain = 100.0f;
inline constexpr float kGlowGain = 0.05668934f;
inline constexpr float kHaloGain = 0.03844675f;

// Sizes one params for a picture of width x height pixels whose full frame
// is `realSize` pixels across: resolution, filter width, gain and array
// size. Frees its array and filter.
void initGlowParams(PX_GlowParams& params, float quality, int width, int height, int realSize,
                    float gainConstant, bool preV45);

// Builds the params' filter for its kind, once: it is kept while it exists.
void initGlowFilter(PX_GlowParams& params, const PX_ShaderGlow& shaderGlow);

} // namespace orvo::post
