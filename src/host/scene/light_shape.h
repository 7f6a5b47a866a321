#pragma once

// The host base of lights. It holds what every light shares: the colour
// and intensity a user sets, the sample fields the shading engine fills
// before a light computes (point, ray state, matrices), and the light data
// record that a light writes. The light types themselves derive from it
// through the node pattern and compute `lightData`.

#include "host/scene/shape.h"

#define ORVO_SCHEMA_TlightShape(A, C2, C3)                                                         \
    A(TattributeLightData, LightData, "lightData", "ltd", .output())                               \
    C3(Tattribute3Float, Color, "color", "cl", ORVO_RGB,                                           \
       .inputParent().colour().setNativeDefaultData(1, 1, 1), .input())                            \
    A(TattributeFloat, Intensity, "intensity", "in", .input().setNativeDefaultData(1.0f))          \
    C3(Tattribute3Float, ShadowColor, "shadowColor", "shc", ORVO_RGB, .inputParent().colour(),     \
       .input())                                                                                   \
    C3(Tattribute3Float, PointCamera, "pointCamera", "p", ORVO_XYZ, .implicitSample(),             \
       .implicitSample())                                                                          \
    A(TattributeAddr, ObjectId, "objectId", "oi", .implicitSample())                               \
    A(TattributeInt32, PrimitiveId, "primitiveId", "pi", .implicitSample())                        \
    A(TattributeInt16, RayDepth, "rayDepth", "rd", .implicitSample())                              \
    A(TattributeInt16, RayDepthLimit, "rayDepthLimit", "rdl",                                      \
      .input().setNativeDefaultData(1).range(0, 32767))                                            \
    A(TattributeAddr, RaySampler, "raySampler", "rtr", .implicitSample())                          \
    A(TattributeFloat, UCoord, "uCoord", "uu", .implicitSample())                                  \
    A(TattributeFloat, VCoord, "vCoord", "vv", .implicitSample())                                  \
    C2(Tattribute2Float, UvFilterSize, "uvFilterSize", "ufs", ORVO_XY, .implicitSample(),          \
       .implicitSample())                                                                          \
    A(TattributeInt32, InfoBits, "infoBits", "ib", .implicitSample())                              \
    A(TattributeInt32, RenderState, "renderState", "rst", .implicitSample())                       \
    A(TattributeInt16, NumShadowSamples, "numShadowSamples", "nss",                                \
      .input().setNativeDefaultData(1).range(0, 32767))                                            \
    A(TattributeBoolean, UseRayTraceShadows, "useRayTraceShadows", "urs", .input())                \
    A(TattributeFltMatrix, EyeToWorld, "eyeToWorld", "etw", .implicitSample())                     \
    A(TattributeFltMatrix, WorldToEye, "worldToEye", "wte", .implicitSample())
ORVO_NODE(TlightShape, Tshape, "light", "LGHT", 2105, "kLight", "host/dag/shape/light", "n_light")

class TlightShape : public TdnPattern<TlightShape, Tshape> {
public:
    // The plain values of the user's settings.
    T3Float color() const;
    float intensity() const;
    T3Float shadowColor() const;
    bool useRayTraceShadows() const;
    int numShadowSamples() const;

    // Local to world along the first path, and back.
    T4dDblMatrix localToWorld() const { return firstPath().inclusiveMatrix(); }
    T4dDblMatrix worldToLocal() const { return firstPath().inclusiveMatrixInverse(); }

    // Can the light reach `point` (in the light's space)? The base light is
    // a point at its origin that shines everywhere: it gives that origin and
    // the unit direction from it to the point. Lights with a shape override.
    virtual bool canSee(const T3Float& point, T3Float& position, T3Float& direction) const;

    // A change that a shadow computed earlier does not survive.
    virtual bool affectsShadows(const Tattribute* attribute) const;

    // The viewport's copy of the light is stale.
    void markDirtyForRefresh() { fNeedsRefresh = true; }
    bool needsRefresh() const { return fNeedsRefresh; }
    void clearRefresh() { fNeedsRefresh = false; }

private:
    bool fNeedsRefresh = false;
};
