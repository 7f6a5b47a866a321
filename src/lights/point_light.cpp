#include "lights/point_light.h"
#include "shading/scratch.h"

#include <algorithm>
#include <cmath>

ORVO_REGISTER_NODE(TpointLightShape)

ORVO_DEPENDENCIES(TpointLightShape) {
    Tattribute* inputs[] = {&FogRadius,  &ObjectType,    &FogType,
                            &PointWorld, &FarPointWorld, &FogIntensity};
    for (Tattribute* input : inputs)
        affectsAll(m, *input, TlightShape::aLightData);
}

T2Float TpointLightShape::projection(const T3Float& local) {
    const T3Float e = OrvoNormalizeIfLong(local);
    const float r = std::sqrt(e.z * e.z + e.x * e.x);
    const float fv = r != 0.0f ? std::atan2(e.y, r) : 0.0f;
    const float fu = e.x != 0.0f ? std::atan2(e.x, e.z) : 0.0f;
    const float pi = float(M_PI);
    return {fu * 0.5f / pi + 0.5f, fv / pi + 0.5f};
}

float TpointLightShape::fogAmount(float length, float radius, int fogType, int decayRate) {
    const float h = length * 0.5f;
    // A chord longer than the sphere is wide: the ray crossed all of it.
    if (h > radius)
        return 1.0f;
    const float w = radius * radius - h * h + radius;
    float t = length / (2.0f * w);
    switch (fogType) {
    case kExponential: {
        t = std::min(t, 1.0f);
        const double u = 1.0 - std::pow(1.0 - double(t), 1.0 / double(decayRate + 2));
        t = float(u * u);
        break;
    }
    case kLinear:
        if (decayRate > 1)
            t = float(1.0 - std::pow(1.0 - double(t), 1.0 / double(decayRate)));
        t = t * t;
        break;
    default:
        if (decayRate == kQuadDecay)
            t = t * t;
        else if (decayRate == kCubicDecay)
            t = t * t * t;
        break;
    }
    return t;
}

bool TpointLightShape::projectTextureCoordinates(LightBatch& b, T2Float* uv) {
    const TvectorDataHandle world = b.block.vectorInputValue(aPointWorld, b.first, b.count);
    for (unsigned i = 0; i < b.count; ++i) {
        const float* w = world[int(i)].asFloat3();
        uv[i] = projection(OrvoTransformPoint(fWorldToLocal, {w[0], w[1], w[2]}));
    }
    return true;
}

void TpointLightShape::illuminate(LightBatch& b) {
    TnonAmbientLightShape::illuminate(b);
    TshadeScratch scratch;
    auto* fog = ORVO_SCRATCH_ARRAY(scratch, uint8_t, b.count);
    if (!markFogSamples(b, fog))
        return;
    // A fog sample glows by the length of its ray inside the fog sphere,
    // not by its distance from the light.
    const TvectorDataHandle radius = b.block.vectorInputValue(aFogRadius, b.first, b.count);
    const TvectorDataHandle type = b.block.vectorInputValue(aFogType, b.first, b.count);
    const TvectorDataHandle rate = b.block.vectorInputValue(aDecayRate, b.first, b.count);
    const TvectorDataHandle amount = b.block.vectorInputValue(aFogIntensity, b.first, b.count);
    const TvectorDataHandle intensity = b.block.vectorInputValue(aIntensity, b.first, b.count);
    for (unsigned i = 0; i < b.count; ++i) {
        if (!fog[i] || b.skip[i])
            continue;
        const int e = int(i);
        T3Float a, c;
        fogSegment(b, i, fWorldToEye, a, c);
        const float t =
            fogAmount(OrvoLength(c - a), radius[e].asFloat(), type[e].asShort(), rate[e].asShort());
        b.scalar[i] = t * amount[e].asFloat() * intensity[e].asFloat();
    }
}

bool TpointLightShape::pointLightFogLookup(LightBatch& b) const {
    return integerValue(b.block.vectorInputValue(aObjectType, b.first, 1)[0]) == 2;
}
