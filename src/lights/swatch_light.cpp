#include "lights/swatch_light.h"

#include <cmath>

ORVO_REGISTER_NODE(TdnSwatchLight)

ORVO_DEPENDENCIES(TdnSwatchLight) {
    affectsAll(m, PointCamera, LightData);
}

TlightData TdnSwatchLight::recordAt(const T3Float& p) {
    TlightData r{};
    float d[3] = {kPosition.x - p.x, kPosition.y - p.y, kPosition.z - p.z};
    const float length = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
    if (length > 1e-6f) {
        for (float& c : d)
            c /= length;
    } else {
        d[0] = 0.0f;
        d[1] = 0.0f;
        d[2] = 1.0f;
    }
    for (int i = 0; i < 3; ++i) {
        r.direction[i] = d[i];
        r.intensity[i] = 1.0f;
    }
    r.ambient = false;
    r.diffuse = true;
    r.specular = true;
    r.shadowFraction = 0.0f;
    // The luminance of white at intensity 1.
    r.preShadowIntensity = OrvoLuminance(1.0f, 1.0f, 1.0f);
    r.blindData = nullptr;
    return r;
}

bool TdnSwatchLight::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                       unsigned count) {
    if (!computesAttribute(plug.attribute()))
        return TshadingDependNode::computePlug(plug, block);
    const TvectorDataHandle points = block.vectorInputValue(aPointCamera, first, count);
    const TvectorDataHandle records = block.vectorOutputValue(aLightData, first);
    for (unsigned i = 0; i < count; ++i) {
        const float* p = points[int(i)].asFloat3();
        *records[int(i)].asLightData() = recordAt({p[0], p[1], p[2]});
        records[int(i)].setClean();
    }
    return true;
}
