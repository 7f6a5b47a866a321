#include "textures/mountain.h"

#include <algorithm>
#include <cmath>

#include "textures/noise_functions.h"

ORVO_REGISTER_NODE(TdnMountain)

ORVO_DEPENDENCIES(TdnMountain) {
    Tattribute* inputs[] = {&SnowColor, &RockColor,    &Amplitude,   &SnowRoughness, &RockRoughness,
                            &Boundary,  &SnowAltitude, &SnowDropoff, &SnowSlope,     &DepthMax};
    for (Tattribute* input : inputs) {
        affectsAll(m, *input, TdnTx2D::aOutColor);
        affectsAll(m, *input, TdnTx2D::aOutAlpha);
    }
}

T3Float TdnMountain::pattern(const Params& p, float u, float v, float filtered, const float* snow,
                             const float* rock, float& height) {
    const float levels = std::min(
        p.depthMax, std::log(std::min(0.5f, std::max(1e-8f, filtered) * 32.0f)) / -0.6931f);
    const float whole = std::floor(levels);
    const int count = std::max(0, int(whole));
    const float fraction = levels - whole;

    // The slope: the two slopes of the lattice noise, summed over levels.
    double freq = 1.0, ox = 0.0, oy = 0.0;
    float gx = 0.0f, gy = 0.0f, amp = p.amplitude, d[3];
    for (int k = 0; k < count; ++k) {
        Tnoise::DNoise2(freq * u + ox, freq * v + oy, d);
        gx += d[0] * amp;
        gy += d[1] * amp;
        amp *= p.boundary;
        freq *= 2.0;
        ox += 0.1;
        oy += 0.03;
    }
    amp *= fraction;
    Tnoise::DNoise2(freq * u + ox, freq * v + oy, d);
    gx += d[0] * amp;
    gy += d[1] * amp;
    const float e = (gx * gx + gy * gy) / 2.0f;
    const float limit = std::max(0.0f, p.snowDropoff * p.snowAltitude) + p.snowSlope;
    const bool rocky = e > limit;
    const float* colour = rocky ? rock : snow;
    const float roughness = rocky ? p.rockRoughness : p.snowRoughness;

    // The height, rougher on rock than on snow.
    float fu = 1.0f, hx = 0.0f, hy = 0.0f, h = 0.0f;
    amp = p.amplitude;
    for (int k = 0; k < count; ++k) {
        h += Tnoise::noise2(fu * u + hx, fu * v + hy) * amp;
        amp *= roughness;
        fu *= 2.0f;
        hx += 0.1f;
        hy += 0.03f;
    }
    amp *= fraction;
    h += Tnoise::noise2(fu * u + hx, fu * v + hy) * amp;
    height = h;
    return {colour[0], colour[1], colour[2]};
}

namespace {
using Params = TdnMountain::Params;
using MountainParams = TtextureParams<Params, 8>;
const MountainParams::Table& params() {
    static const MountainParams::Table table{{
        {&TdnMountain::aAmplitude, &Params::amplitude},
        {&TdnMountain::aSnowRoughness, &Params::snowRoughness},
        {&TdnMountain::aRockRoughness, &Params::rockRoughness},
        {&TdnMountain::aBoundary, &Params::boundary},
        {&TdnMountain::aSnowAltitude, &Params::snowAltitude},
        {&TdnMountain::aSnowDropoff, &Params::snowDropoff},
        {&TdnMountain::aSnowSlope, &Params::snowSlope},
        {&TdnMountain::aDepthMax, &Params::depthMax},
    }};
    return table;
}
} // namespace

bool TdnMountain::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                    unsigned count) {
    if (!isTextureOutput(plug.attribute()))
        return TshadingDependNode::computePlug(plug, block);
    const Samples s(block, first, count);
    const TvectorDataHandle snow = block.vectorInputValue(aSnowColor, first, count);
    const TvectorDataHandle rock = block.vectorInputValue(aRockColor, first, count);
    const MountainParams batch(params(), block, first, count);
    for (unsigned n = 0; n < count; ++n) {
        const int i = int(n);
        if (s.outside(i))
            continue;
        Params p;
        batch.read(i, p);
        float h;
        const T3Float c =
            pattern(p, s.u(i), s.v(i), s.filtered(i), snow[i].asFloats(), rock[i].asFloats(), h);
        s.finish(i, c, (h + 1.0f) / 2.0f);
    }
    return true;
}

void TdnMountain::mapUVtoClr(TplugArray& plugs, T4dDblVectorArray* colors, TdoubleArray* reserved,
                             TdoubleArray* alphas, const TdoubleArray* u, const TdoubleArray* v) {
    Bake b;
    if (!beginBake(plugs, u, v, b))
        return TtextureMethods::mapUVtoClr(plugs, colors, reserved, alphas, u, v);
    T4dDblVectorArray snow, rock;
    bakeColor(plugs, aSnowColor, -1, b, snow);
    bakeColor(plugs, aRockColor, -1, b, rock);
    const Params p = MountainParams::held(params(), forceGetDatablock());
    sizeOutputs(b, colors, alphas);
    const float filtered = b.filtered();
    for (size_t k = 0; k < b.count; ++k) {
        if (b.outside(k)) {
            bakeDefault(b, k, colors, alphas);
            continue;
        }
        const T3Float s = narrow(snow[k]), r = narrow(rock[k]);
        const float fs[3] = {s.x, s.y, s.z}, fr[3] = {r.x, r.y, r.z};
        float h;
        const T3Float c = pattern(p, b.uAt(k), b.vAt(k), filtered, fs, fr, h);
        bakeFinish(b, k, c, (h + 1.0f) / 2.0f, true, colors, alphas);
    }
}
