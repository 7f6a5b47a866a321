#include "textures/fractal.h"

#include <algorithm>
#include <cmath>

#include "host/env.h"
#include "textures/noise_functions.h"

ORVO_REGISTER_NODE(TdnFractal)

ORVO_DEPENDENCIES(TdnFractal) {
    Tattribute* inputs[] = {&Amplitude, &Ratio,          &Threshold, &LevelMin,
                            &LevelMax,  &FrequencyRatio, &Bias,      &Inflection,
                            &Animated,  &TimeRatio,      &Time};
    for (Tattribute* input : inputs) {
        affectsAll(m, *input, TdnTx2D::aOutColor);
        affectsAll(m, *input, TdnTx2D::aOutAlpha);
    }
}

bool TdnFractal::oldFractal = OrvoGetEnvInt("ORVO_RENDERER_OLD_RANDOM_TABLE", 0) != 0;

float TdnFractal::value(const Params& p, float u, float v, float filtered) {
    const float m = std::min(0.5f, std::max(1e-8f, filtered) * 32.0f);
    const float levels = p.frequencyRatio == 2.0f
                             ? std::log(m) / -0.6931f
                             : -std::log(m) / std::log(std::max(p.frequencyRatio, 1.01f));
    const float last = std::min(p.levelMax, std::max(p.levelMin, levels));
    const float whole = std::floor(last);
    const int lastLevel = int(whole);
    const float b1 = p.bias - 1.0f;
    const float b2 = (p.bias + 1.0f) * (p.bias + 1.0f);

    float t = p.animated ? p.time : 0.0f;
    float amp = p.amplitude, sum = 0.0f, x = u, y = v;
    for (int k = 0; k <= lastLevel; ++k) {
        if (k == lastLevel)
            amp *= last - whole; // the fraction of the last level
        if (amp == 0.0f)
            break;
        float n = p.animated ? Tnoise::noise3(x, y, t) : Tnoise::noise2(x, y);
        if (p.bias != 0.0f) {
            float g = 1.0f;
            if (n < 0.0f) {
                n = -n;
                g = -1.0f;
            }
            if (p.bias == -1.0f)
                n = 0.0f;
            if (p.bias != 1.0f) {
                const float d = 1.0f - 2.0f * p.bias * n / b1;
                const float e = (p.bias + 1.0f) / d;
                n = (b2 - e * e) * g / (4.0f * p.bias);
            } else {
                n *= g;
            }
        }
        if (p.inflection)
            n = 2.0f * std::fabs(n) - 1.0f;
        sum += n * amp;
        if (oldFractal) {
            x *= p.frequencyRatio;
            y *= p.frequencyRatio;
        } else {
            // Swap the axes with an offset, so that no two levels share a
            // lattice line.
            float nx = p.frequencyRatio * y - 0.1f;
            float ny = p.frequencyRatio * x + 0.043f;
            if (k == 2)
                ny = 1.0f - ny;
            if (k == 4)
                nx = 1.0f - nx;
            x = nx;
            y = ny;
        }
        t *= p.timeRatio;
        amp *= p.ratio;
    }
    // Only the top is clamped.
    return std::min(1.0f, (sum + 1.0f) / 2.0f + p.threshold);
}

namespace {
using Params = TdnFractal::Params;
using FractalParams = TtextureParams<Params, 11>;
const FractalParams::Table& params() {
    static const FractalParams::Table table{{
        {&TdnFractal::aAmplitude, &Params::amplitude},
        {&TdnFractal::aRatio, &Params::ratio},
        {&TdnFractal::aThreshold, &Params::threshold},
        {&TdnFractal::aLevelMin, &Params::levelMin},
        {&TdnFractal::aLevelMax, &Params::levelMax},
        {&TdnFractal::aFrequencyRatio, &Params::frequencyRatio},
        {&TdnFractal::aBias, &Params::bias},
        {&TdnFractal::aInflection, &Params::inflection},
        {&TdnFractal::aAnimated, &Params::animated},
        {&TdnFractal::aTimeRatio, &Params::timeRatio},
        {&TdnFractal::aTime, &Params::time},
    }};
    return table;
}
} // namespace

bool TdnFractal::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                   unsigned count) {
    if (!isTextureOutput(plug.attribute()))
        return TshadingDependNode::computePlug(plug, block);
    const Samples s(block, first, count);
    const FractalParams batch(params(), block, first, count);
    for (unsigned n = 0; n < count; ++n) {
        const int i = int(n);
        if (s.outside(i))
            continue;
        Params p;
        batch.read(i, p);
        const float g = value(p, s.u(i), s.v(i), s.filtered(i));
        s.finish(i, {g, g, g}, g);
    }
    return true;
}

void TdnFractal::mapUVtoClr(TplugArray& plugs, T4dDblVectorArray* colors, TdoubleArray* reserved,
                            TdoubleArray* alphas, const TdoubleArray* u, const TdoubleArray* v) {
    Bake b;
    if (!beginBake(plugs, u, v, b))
        return TtextureMethods::mapUVtoClr(plugs, colors, reserved, alphas, u, v);
    const Params p = FractalParams::held(params(), forceGetDatablock());
    sizeOutputs(b, colors, alphas);
    const float filtered = b.filtered();
    for (size_t k = 0; k < b.count; ++k) {
        if (b.outside(k)) {
            bakeDefault(b, k, colors, alphas);
            continue;
        }
        const float g = value(p, b.uAt(k), b.vAt(k), filtered);
        bakeFinish(b, k, {g, g, g}, g, true, colors, alphas);
    }
}
