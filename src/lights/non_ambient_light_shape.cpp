#include "lights/non_ambient_light_shape.h"

#include <cstring>

ORVO_REGISTER_NODE(TnonAmbientLightShape)

ORVO_DEPENDENCIES(TnonAmbientLightShape) {
    affectsAll(m, DecayRate, TlightShape::aLightData);
    affectsAll(m, EmitDiffuse, TlightShape::aLightData);
    affectsAll(m, EmitSpecular, TlightShape::aLightData);
}

float TnonAmbientLightShape::decay(float intensity, float d, int rate) {
    if (d <= 1.0f)
        return intensity;
    switch (rate) {
    case kLinearDecay:
        return intensity / d;
    case kQuadDecay:
        return intensity / (d * d);
    case kCubicDecay:
        return intensity / (d * d * d);
    default:
        return intensity;
    }
}

void TnonAmbientLightShape::illuminate(LightBatch& b) {
    TrenderLightShape::illuminate(b);
    const TvectorDataHandle rate = b.block.vectorInputValue(aDecayRate, b.first, b.count);
    for (unsigned i = 0; i < b.count; ++i)
        if (!b.skip[i])
            b.scalar[i] = decay(b.scalar[i], b.distance[i], rate[int(i)].asShort());
}

void TnonAmbientLightShape::readEmitFlags(LightBatch& b, uint8_t* diffuse, uint8_t* specular) {
    const TvectorDataHandle d = b.block.vectorInputValue(aEmitDiffuse, b.first, b.count);
    const TvectorDataHandle s = b.block.vectorInputValue(aEmitSpecular, b.first, b.count);
    // The flags are seldom driven per sample: a value the block keeps once
    // (stride 0) fills the run at once.
    auto read = [&b](const TvectorDataHandle& flag, uint8_t* out) {
        if (flag.stride() == 0) {
            std::memset(out, flag[0].asBool() ? 1 : 0, b.count);
            return;
        }
        for (unsigned i = 0; i < b.count; ++i)
            out[i] = flag[int(i)].asBool();
    };
    read(d, diffuse);
    read(s, specular);
}

bool TnonAmbientLightShape::refreshesViewportLight(const Tattribute* attribute) const {
    return attribute == &aDecayRate || TrenderLightShape::refreshesViewportLight(attribute);
}
