#include "lights/ambient_light.h"
#include "shading/scratch.h"

#include <algorithm>
#include <cmath>
#include <cstring>

ORVO_REGISTER_NODE(TambientLightShape)

ORVO_DEPENDENCIES(TambientLightShape) {
    Tattribute* inputs[] = {&AmbientShade, &ObjectType, &ShadowRadius, &NormalCamera,
                            &ReceiveShadows};
    for (Tattribute* input : inputs)
        affectsAll(m, *input, TlightShape::aLightData);
}

float TambientLightShape::shadeFactor(const T3Float& l, const T3Float& n, float ambientShade) {
    return std::max(0.0f, (OrvoDot(l, n) - 1.0f) * ambientShade + 1.0f);
}

T2Float TambientLightShape::projection(const T3Float& direction) {
    const T3Float d = OrvoNormalizeIfLong(direction);
    const float r = std::sqrt(d.z * d.z + d.x * d.x);
    const float fv = r != 0.0f ? std::atan(d.y / r) : 0.0f;
    const float fu = d.x != 0.0f ? std::atan(d.y / d.x) : 0.0f;
    const float pi = float(M_PI);
    return {(fu + pi / 2.0f) / pi, (fv + pi / 2.0f) / pi};
}

bool TambientLightShape::projectTextureCoordinates(LightBatch& b, T2Float* uv) {
    for (unsigned i = 0; i < b.count; ++i) {
        const T3Float world = OrvoTransformPoint(fEyeToWorld, b.point(i));
        uv[i] = projection(OrvoTransformPoint(fWorldToLocal, world));
    }
    return true;
}

float TambientLightShape::rayShadowRadius(LightBatch& b) const {
    return b.block.vectorInputValue(aShadowRadius, b.first, 1)[0].asFloat();
}

bool TambientLightShape::affectsShadows(const Tattribute* attribute) const {
    return attribute == &aShadowRadius || attribute == &aReceiveShadows ||
           TrenderLightShape::affectsShadows(attribute);
}

bool TambientLightShape::refreshesViewportLight(const Tattribute* attribute) const {
    return attribute == &aAmbientShade || TrenderLightShape::refreshesViewportLight(attribute);
}

void TambientLightShape::computeLightData(LightBatch& b) {
    b.shadows = batchGetsShadows(b.block, b.first);
    if (shadingFlag(kInputNetworkFlag))
        writeTextureCoordinates(b);
    const TvectorDataHandle normal = b.block.vectorInputValue(aNormalCamera, b.first, b.count);
    const TvectorDataHandle shade = b.block.vectorInputValue(aAmbientShade, b.first, b.count);
    const TvectorDataHandle intensity = b.block.vectorInputValue(aIntensity, b.first, b.count);
    const TvectorDataHandle color = b.block.vectorInputValue(aColor, b.first, b.count);
    for (unsigned i = 0; i < b.count; ++i) {
        const int e = int(i);
        const T3Float l = OrvoNormalizeIfLong(fPosition - b.point(i));
        const float* n = normal[e].asFloat3();
        const float k = shadeFactor(l, {n[0], n[1], n[2]}, shade[e].asFloat());
        const float* c = color[e].asFloat3();
        b.colour[i] = T3Float{c[0], c[1], c[2]} * (k * intensity[e].asFloat());
        TlightData& r = b.record(i);
        r.preShadowIntensity = luminance(b.colour[i]);
        r.shadowFraction = 0.0f;
    }
    if (b.sampler && b.shadows) {
        TshadeScratch scratch;
        auto* reflectance = ORVO_SCRATCH_ARRAY(scratch, Tspectrum, b.count);
        if (rayTracedShadows(b, reflectance))
            interpolateLightAndShadow(b, b.colour, reflectance, nullptr);
    }
    // An ambient light has no direction; materials add it without a cosine.
    const float up[3] = {0.0f, 0.0f, 1.0f};
    for (unsigned i = 0; i < b.count; ++i) {
        TlightData& r = b.record(i);
        std::memcpy(r.direction, up, sizeof r.direction);
        std::memcpy(r.intensity, &b.colour[i], sizeof r.intensity);
        r.ambient = true;
        r.diffuse = false;
        r.specular = false;
        r.blindData = blindData();
    }
}
