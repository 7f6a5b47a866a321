#pragma once

// pointLight: light from a point, every way at once, fading with distance
// by its decay rate. Its depth map shadows are a cube of six maps around
// it; its ray traced shadows aim at a sphere of lightRadius. The surfaces
// of the node on fogGeometry are its fog: a sphere of fogRadius that glows
// the more the longer a ray crosses it.

#include "lights/non_extended_light_shape.h"

class TpointLightShape;
template <>
struct TdnKernel<TpointLightShape> {
    enum : int16_t {
        kNormal = 0,
        kLinear = 1,
        kExponential = 2,
    };
};

#define ORVO_SCHEMA_TpointLightShape(A, C2, C3)                                                    \
    A(TattributeMessage, FogGeometry, "fogGeometry", "fg", .flagsOn(0))                            \
    A(TattributeFloat, FogRadius, "fogRadius", "fr", .input().setNativeDefaultData(1.0f))          \
    A(TattributeMessage, LightGlow, "lightGlow", "lg", .flagsOn(0))                                \
    A(TattributeChar, ObjectType, "objectType", "ot", .implicitSample().setNativeDefaultData(1))   \
    A(TattributeEnum, FogType, "fogType", "ft",                                                    \
      .input()                                                                                     \
          .ORVO_FIELD(kNormal, "Normal")                                                           \
          .ORVO_FIELD(kLinear, "Linear")                                                           \
          .ORVO_FIELD(kExponential, "Exponential")                                                 \
          .setNativeDefaultData(kNormal))                                                          \
    ORVO_LIGHT_WORLD_POINT(A, PointWorld, "pointWorld", "pw", "tx", "ty", "tz", 0)                 \
    ORVO_LIGHT_WORLD_POINT(A, FarPointWorld, "farPointWorld", "fw", "fwx", "fwy", "fwz", 0)        \
    A(TattributeFloat, FogIntensity, "fogIntensity", "fin", .input().setNativeDefaultData(1.0f))
ORVO_NODE(TpointLightShape, TnonExtendedLightShape, "pointLight", "POIT", 309, "kPointLight",
          "light:drawdb/light/pointLight", "n_pointLight")

class TpointLightShape : public TdnPattern<TpointLightShape, TnonExtendedLightShape> {
public:
    // The map coordinates of a point in the light's space: longitude about
    // Y from +Z, latitude from the XZ plane, both to 0..1.
    static T2Float projection(const T3Float& local);
    // How much of the fog's glow a ray gathers that crosses the fog sphere
    // of radius `radius` over `length`: 0 to 1, shaped by the fog type and
    // the decay rate.
    static float fogAmount(float length, float radius, int fogType, int decayRate);

protected:
    bool projectTextureCoordinates(LightBatch& b, T2Float* uv) override;
    void illuminate(LightBatch& b) override;
    const Tattribute* objectTypeAttribute() const override { return &aObjectType; }
    const Tattribute* fogGeometryAttribute() const override { return &aFogGeometry; }
    const Tattribute* fogNearAttribute() const override { return &aPointWorld; }
    const Tattribute* fogFarAttribute() const override { return &aFarPointWorld; }
    bool pointLightFogLookup(LightBatch& b) const override;
};
