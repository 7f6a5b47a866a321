#include "textures/noise.h"

ORVO_REGISTER_NODE(TdnNoise)

ORVO_DEPENDENCIES(TdnNoise) {
    Tattribute* inputs[] = {&Amplitude,      &Ratio,        &Threshold,  &DepthMax,  &Frequency,
                            &FrequencyRatio, &Inflection,   &Time,       &NoiseType, &Density,
                            &Spottyness,     &SizeRand,     &Randomness, &Falloff,   &NumWaves,
                            &Implode,        &ImplodeCenter};
    for (Tattribute* input : inputs) {
        affectsAll(m, *input, TdnTx2D::aOutColor);
        affectsAll(m, *input, TdnTx2D::aOutAlpha);
    }
}

namespace {
using K = TdnKernel<TdnNoise>;
} // namespace

const TvolumeTexture& TdnNoise::Textures::configure(const Params& p) {
    TvolumeTexture* t;
    switch (p.noiseType) {
    case K::kBillow:
        billow.setDensity(p.density);
        billow.setSpottyness(p.spottyness);
        billow.setRandomness(p.randomness);
        billow.setSizeRand(p.sizeRand);
        billow.setFalloff(TbillowTexture::FalloffType(p.falloff));
        t = &billow;
        break;
    case K::kWave:
        wave.setNWaves(p.numWaves);
        t = &wave;
        break;
    case K::kWispy:
        perlin.setDoSmear(true);
        perlin.setAnimated(false);
        perlin.setTimeSteps(100);
        t = &perlin;
        break;
    case K::kSpaceTime:
        perlin.setDoSmear(false);
        perlin.setAnimated(true);
        perlin.setTimeSteps(100);
        t = &perlin;
        break;
    case K::kPerlin:
    default:
        perlin.setDoSmear(false);
        perlin.setAnimated(false);
        perlin.setTimeSteps(100);
        t = &perlin;
        break;
    }
    t->setGain(p.amplitude);
    t->setThreshold(p.threshold);
    t->setHarmonics(p.depthMax);
    t->setImplode(p.implode);
    t->setScale({1.0f, 1.0f, 1.0f});
    t->setOrigin({0.0f, 0.0f, 0.0f});
    t->setImplodeCenter({p.implodeCenter[0], p.implodeCenter[1], 0.0f});
    // The node's frequencyRatio is the texture's ratio, as a reciprocal; the
    // node's ratio is the texture's amplitude ratio.
    t->setRatio(p.frequencyRatio == 0.0f ? 0.0f : 1.0f / p.frequencyRatio);
    t->setFrequency(p.frequency);
    t->setAmpRatio(p.ratio);
    t->setAbsolute(p.inflection);
    return *t;
}

float TdnNoise::value(Textures& textures, const Params& p, float u, float v) {
    return textures.configure(p).getValue2(u, v, p.time);
}

namespace {
using Params = TdnNoise::Params;
using NoiseParams = TtextureParams<Params, 17>;
const NoiseParams::Table& params() {
    static const NoiseParams::Table table{{
        {&TdnNoise::aAmplitude, &Params::amplitude},
        {&TdnNoise::aRatio, &Params::ratio},
        {&TdnNoise::aThreshold, &Params::threshold},
        {&TdnNoise::aDepthMax, &Params::depthMax},
        {&TdnNoise::aFrequency, &Params::frequency},
        {&TdnNoise::aFrequencyRatio, &Params::frequencyRatio},
        {&TdnNoise::aInflection, &Params::inflection},
        {&TdnNoise::aTime, &Params::time},
        {&TdnNoise::aNoiseType, &Params::noiseType},
        {&TdnNoise::aDensity, &Params::density},
        {&TdnNoise::aSpottyness, &Params::spottyness},
        {&TdnNoise::aSizeRand, &Params::sizeRand},
        {&TdnNoise::aRandomness, &Params::randomness},
        {&TdnNoise::aFalloff, &Params::falloff},
        {&TdnNoise::aNumWaves, &Params::numWaves},
        {&TdnNoise::aImplode, &Params::implode},
        {&TdnNoise::aImplodeCenter, &Params::implodeCenter},
    }};
    return table;
}
} // namespace

bool TdnNoise::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                 unsigned count) {
    if (!isTextureOutput(plug.attribute()))
        return TshadingDependNode::computePlug(plug, block);
    const Samples s(block, first, count);
    const NoiseParams batch(params(), block, first, count);
    // Built once for the batch, on the stack, and set up per sample.
    Textures textures;
    for (unsigned n = 0; n < count; ++n) {
        const int i = int(n);
        if (s.outside(i))
            continue;
        Params p;
        batch.read(i, p);
        const float g = value(textures, p, s.u(i), s.v(i));
        s.finish(i, {g, g, g}, g);
    }
    return true;
}

void TdnNoise::mapUVtoClr(TplugArray& plugs, T4dDblVectorArray* colors, TdoubleArray* reserved,
                          TdoubleArray* alphas, const TdoubleArray* u, const TdoubleArray* v) {
    Bake b;
    if (!beginBake(plugs, u, v, b))
        return TtextureMethods::mapUVtoClr(plugs, colors, reserved, alphas, u, v);
    const Params p = NoiseParams::held(params(), forceGetDatablock());
    Textures textures;
    sizeOutputs(b, colors, alphas);
    for (size_t k = 0; k < b.count; ++k) {
        if (b.outside(k)) {
            bakeDefault(b, k, colors, alphas);
            continue;
        }
        const float g = value(textures, p, b.uAt(k), b.vAt(k));
        bakeFinish(b, k, {g, g, g}, g, true, colors, alphas);
    }
}
