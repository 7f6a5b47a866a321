#pragma once

// directionalLight: parallel light from far away, along the light's -Z axis.
// It has no decay. With useLightPosition it lights only the half space in
// front of the plane through its position.

#include "lights/non_extended_light_shape.h"

#define ORVO_SCHEMA_TdirectionalLightShape(A, C2, C3)                                              \
    A(TattributeBoolean, UseLightPosition, "useLightPosition", "up",                               \
      .input().setNativeDefaultData(false))                                                        \
    A(TattributeChar, ObjectType, "objectType", "ot", .implicitSample().setNativeDefaultData(1))   \
    A(TattributeFloat, LightAngle, "lightAngle", "lang", .input().setNativeDefaultData(0.0f))      \
    A(Tattribute3Float, PointWorld, "pointWorld", "pw", .implicitSample())                         \
    A(TattributeFloat, PointWorldX, "pointWorldX", "tx", .implicitSample().childOf(PointWorld))    \
    A(TattributeFloat, PointWorldY, "pointWorldY", "ty", .implicitSample().childOf(PointWorld))    \
    A(TattributeFloat, PointWorldZ, "pointWorldZ", "tz", .implicitSample().childOf(PointWorld))
ORVO_NODE(TdirectionalLightShape, TnonExtendedLightShape, "directionalLight", "DIRL", 308,
          "kDirectionalLight", "light:drawdb/light/directionalLight", "n_directionalLight")

class TdirectionalLightShape : public TdnPattern<TdirectionalLightShape, TnonExtendedLightShape> {
public:
    // The angle (degrees) within which shadow rays spread: a sun of that size.
    static inline TattributeFloat& aShadowAngle = TdnAttr<TdirectionalLightShape>::aLightAngle;

    // The direction the light travels, in its own space.
    const T4dDblVector& illuminationDirection() const { return fIlluminationDirection; }
    // The same in eye space, normalised (the light's direction is its
    // opposite).
    const T3dFltVector& eyeIlluminationDirection() const { return fEyeIlluminationDirection; }

    // Every point is seen, along the light's direction, from the origin.
    bool canSee(const T3Float& point, T3Float& position, T3Float& direction) const override;
    bool affectsShadows(const Tattribute* attribute) const override;
    void shadingNodeOnDemand(Tplug& plug, TdataBlock& block) override;
    void debugMembers(TdebugOutput& out) const override;

protected:
    void markSkipped(LightBatch& b) override;
    bool projectTextureCoordinates(LightBatch& b, T2Float* uv) override;
    void illuminate(LightBatch& b) override;
    bool rayTracedShadows(LightBatch& b, Tspectrum* reflectance) override;
    const Tattribute* objectTypeAttribute() const override { return &aObjectType; }

private:
    T4dDblVector fIlluminationDirection{0.0, 0.0, -1.0, 0.0};
    T3dFltVector fEyeIlluminationDirection{0.0f, 0.0f, -1.0f};
};
