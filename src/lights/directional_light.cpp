#include "lights/directional_light.h"

#include <cstdio>

ORVO_REGISTER_NODE(TdirectionalLightShape)

ORVO_DEPENDENCIES(TdirectionalLightShape) {
    Tattribute* inputs[] = {&UseLightPosition, &ObjectType, &LightAngle, &PointWorld};
    for (Tattribute* input : inputs)
        affectsAll(m, *input, TlightShape::aLightData);
}

void TdirectionalLightShape::shadingNodeOnDemand(Tplug& plug, TdataBlock& block) {
    TnonExtendedLightShape::shadingNodeOnDemand(plug, block);
    const T3Float towardLight{float(-fIlluminationDirection.x), float(-fIlluminationDirection.y),
                              float(-fIlluminationDirection.z)};
    const T3Float world = OrvoTransformVector(fLocalToWorld, towardLight);
    fDirection = OrvoNormalizeIfLong(OrvoTransformVector(fWorldToEye, world));
    fEyeIlluminationDirection = fDirection * -1.0f;
}

bool TdirectionalLightShape::canSee(const T3Float&, T3Float& position, T3Float& direction) const {
    position = {0.0f, 0.0f, 0.0f};
    direction = fDirection;
    return true;
}

bool TdirectionalLightShape::affectsShadows(const Tattribute* attribute) const {
    return attribute == &aLightAngle || TnonExtendedLightShape::affectsShadows(attribute);
}

void TdirectionalLightShape::debugMembers(TdebugOutput& out) const {
    TnonExtendedLightShape::debugMembers(out);
    char line[160];
    std::snprintf(line, sizeof line, "directionalLightShape.lightDirection = [%g, %g, %g]\n",
                  double(fDirection.x), double(fDirection.y), double(fDirection.z));
    out.write(line);
}

void TdirectionalLightShape::markSkipped(LightBatch& b) {
    // Behind the plane through the light's position, facing along its
    // direction, nothing is lit.
    const TvectorDataHandle use = b.block.vectorInputValue(aUseLightPosition, b.first, b.count);
    if (use.stride() == 0 && !use[0].asBool())
        return; // off for the whole run, as it mostly is
    for (unsigned i = 0; i < b.count; ++i)
        if (use[int(i)].asBool() && OrvoDot(fPosition - b.point(i), fDirection) <= 0.0f)
            b.skip[i] = 1;
}

bool TdirectionalLightShape::projectTextureCoordinates(LightBatch& b, T2Float* uv) {
    const TvectorDataHandle world = b.block.vectorInputValue(aPointWorld, b.first, b.count);
    for (unsigned i = 0; i < b.count; ++i) {
        const float* w = world[int(i)].asFloat3();
        const T3Float p = OrvoTransformPoint(fWorldToLocal, {w[0], w[1], w[2]});
        uv[i] = {p.x, p.y};
    }
    return true;
}

void TdirectionalLightShape::illuminate(LightBatch& b) {
    const TvectorDataHandle intensity = b.block.vectorInputValue(aIntensity, b.first, b.count);
    if (intensity.stride() == 0) {
        // One intensity for the run: no walk over the handle.
        const float k = intensity[0].asFloat();
        for (unsigned i = 0; i < b.count; ++i) {
            b.direction[i] = fDirection;
            b.scalar[i] = b.skip[i] ? 0.0f : k;
        }
        return;
    }
    for (unsigned i = 0; i < b.count; ++i) {
        b.direction[i] = fDirection;
        b.scalar[i] = b.skip[i] ? 0.0f : intensity[int(i)].asFloat();
    }
}

bool TdirectionalLightShape::rayTracedShadows(LightBatch& b, Tspectrum* reflectance) {
    const float angle = b.block.vectorInputValue(aShadowAngle, b.first, 1)[0].asFloat();
    return computeRtShadowDir(b, fDirection, angle, reflectance);
}
