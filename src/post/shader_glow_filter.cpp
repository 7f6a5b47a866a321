#include "post/shader_glow_filter.h"

#include <algorithm>
#include <cmath>

#include "post/glow_noise.h"

namespace orvo::post {

void initGlowParams(PX_GlowParams& params, float quality, int width, int height, int realSize,
                    float gainConstant, bool preV45) {
    params.spread = std::max(params.spread, 1e-5f);
    const double s = params.spread;
    const double resolution =
        std::pow(s * 300.0 * s * double(quality) * 600.0 * 600.0, 0.25) / (s * 600.0);
    params.resolution = float(std::clamp(resolution, 0.01, 1.0));
    params.high = int32_t(std::trunc(double(height) * params.resolution)) + 1;
    params.wide = int32_t(std::trunc(double(width) * params.resolution)) + 1;
    // A filter twice as wide as the array reaches every cell from every
    // other; a wider one (an absurd spread) would only cost memory.
    const double widest = 2.0 * std::max(params.wide, params.high) + 1.0;
    int32_t w = int32_t(std::min(widest, std::trunc(double(params.resolution) * realSize * s)));
    if (w % 2 == 0)
        ++w;
    params.filterWidth = w;
    params.gain = preV45 ? gainConstant : float(w) * float(w) * gainConstant;
    params.glowArray.clear();
    params.glowArray.shrink_to_fit();
    params.filter.clear();
    params.filter.shrink_to_fit();
}

void initGlowFilter(PX_GlowParams& params, const PX_ShaderGlow& shaderGlow) {
    if (!params.filter.empty())
        return;
    const int w = std::max(1, params.filterWidth);
    const int half = w / 2;
    const double d = half + 1;
    params.filter.assign(size_t(w) * size_t(w) * 4, 0.0f);
    const bool noisy = params.starLevel != 0.0f || params.radialNoise != 0.0f;
    double sum = 0.0;
    for (int y = -half; y <= half; ++y)
        for (int x = -half; x <= half; ++x) {
            double n = 1.0;
            if (noisy)
                n = radialGlowNoise(x, y, params.starLevel, shaderGlow.starPoints,
                                    params.radialNoise, shaderGlow.radialFrequency,
                                    shaderGlow.rotation);
            const double base = std::min(1.0, std::sqrt(double(x * x + y * y)) / d);
            const double t = 1.0 - std::pow(base, double(params.eccentricity));
            const double R = params.ringIntensity;
            if (R != 0.0) {
                const double r =
                    (std::sin(base * base * params.ringFrequency * 3.14) * 0.5 + 1.0) * R;
                n = R <= 1.0 ? n * (1.0 - r) : n * (R - r);
            }
            double rim = 0.0;
            if (params.type == kGlowRimHalo) {
                const double e = 1.0 - std::fabs((0.9 - base) / 0.1);
                if (e >= 0.0)
                    rim = ((n - 1.0) * 0.6 + 1.0) * e * 0.1;
            }
            const double weight = t * n * (1.0 - t) + t * t + rim;
            float* cell = &params.filter[(size_t(y + half) * size_t(w) + size_t(x + half)) * 4];
            cell[3] = float(weight);
            sum += weight;
            if (params.type == kGlowLensFlare) {
                // Lens glow fringes: red outside, blue at the core.
                cell[0] = float(weight * std::clamp(base * 1.3, 0.5, 1.0));
                cell[1] = float(weight * std::clamp(1.2 - std::fabs(0.3 - base) * 2.0, 0.0, 1.0));
                cell[2] = float(weight * std::clamp((1.0 - base) * 3.0 - 1.0, 0.0, 1.0));
            } else {
                cell[0] = cell[1] = cell[2] = float(weight);
            }
        }
    const float scale = sum == 0.0 ? 1.0f : float(double(params.gain) / sum);
    for (float& v : params.filter)
        v *= scale;
}

} // namespace orvo::post
