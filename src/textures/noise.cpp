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

bool TdnNoise::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                 unsigned count) {
    if (!isTextureOutput(plug.attribute()))
        return TshadingDependNode::computePlug(plug, block);
    const Samples s(block, first, count);
    const TvectorDataHandle amplitude = block.vectorInputValue(aAmplitude, first, count);
    const TvectorDataHandle ratio = block.vectorInputValue(aRatio, first, count);
    const TvectorDataHandle threshold = block.vectorInputValue(aThreshold, first, count);
    const TvectorDataHandle depthMax = block.vectorInputValue(aDepthMax, first, count);
    const TvectorDataHandle frequency = block.vectorInputValue(aFrequency, first, count);
    const TvectorDataHandle frequencyRatio = block.vectorInputValue(aFrequencyRatio, first, count);
    const TvectorDataHandle inflection = block.vectorInputValue(aInflection, first, count);
    const TvectorDataHandle time = block.vectorInputValue(aTime, first, count);
    const TvectorDataHandle noiseType = block.vectorInputValue(aNoiseType, first, count);
    const TvectorDataHandle density = block.vectorInputValue(aDensity, first, count);
    const TvectorDataHandle spottyness = block.vectorInputValue(aSpottyness, first, count);
    const TvectorDataHandle sizeRand = block.vectorInputValue(aSizeRand, first, count);
    const TvectorDataHandle randomness = block.vectorInputValue(aRandomness, first, count);
    const TvectorDataHandle falloff = block.vectorInputValue(aFalloff, first, count);
    const TvectorDataHandle numWaves = block.vectorInputValue(aNumWaves, first, count);
    const TvectorDataHandle implode = block.vectorInputValue(aImplode, first, count);
    const TvectorDataHandle implodeCenter = block.vectorInputValue(aImplodeCenter, first, count);
    // Built once for the batch, on the stack, and set up per sample.
    Textures textures;
    for (unsigned n = 0; n < count; ++n) {
        const int i = int(n);
        if (s.outside(i))
            continue;
        Params p;
        p.amplitude = amplitude[i].asFloat();
        p.ratio = ratio[i].asFloat();
        p.threshold = threshold[i].asFloat();
        p.depthMax = depthMax[i].asShort();
        p.frequency = frequency[i].asFloat();
        p.frequencyRatio = frequencyRatio[i].asFloat();
        p.inflection = inflection[i].asBool();
        p.time = time[i].asFloat();
        p.noiseType = noiseType[i].asShort();
        p.density = density[i].asFloat();
        p.spottyness = spottyness[i].asFloat();
        p.sizeRand = sizeRand[i].asFloat();
        p.randomness = randomness[i].asFloat();
        p.falloff = falloff[i].asShort();
        p.numWaves = numWaves[i].asShort();
        p.implode = implode[i].asFloat();
        const float* c = implodeCenter[i].asFloats();
        p.implodeCenter[0] = c[0];
        p.implodeCenter[1] = c[1];
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
    TordinaryDataBlock& block = forceGetDatablock();
    Params p;
    p.amplitude = plainFloat(aAmplitude);
    p.ratio = plainFloat(aRatio);
    p.threshold = plainFloat(aThreshold);
    p.depthMax = block.inputValue(aDepthMax).asShort();
    p.frequency = plainFloat(aFrequency);
    p.frequencyRatio = plainFloat(aFrequencyRatio);
    p.inflection = plainBool(aInflection);
    p.time = plainFloat(aTime);
    p.noiseType = block.inputValue(aNoiseType).asShort();
    p.density = plainFloat(aDensity);
    p.spottyness = plainFloat(aSpottyness);
    p.sizeRand = plainFloat(aSizeRand);
    p.randomness = plainFloat(aRandomness);
    p.falloff = block.inputValue(aFalloff).asShort();
    p.numWaves = block.inputValue(aNumWaves).asShort();
    p.implode = plainFloat(aImplode);
    const float* c = block.inputValue(aImplodeCenter).asFloats();
    p.implodeCenter[0] = c[0];
    p.implodeCenter[1] = c[1];
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
