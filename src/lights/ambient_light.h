#pragma once

// ambientLight: light that arrives without a cosine. With ambientShade 0 it
// is the same everywhere; towards 1 it shades more and more like a point
// source at its position. Its shadows are ray traced only, toward a sphere of
// shadowRadius.

#include "lights/render_light_shape.h"

#define ORVO_SCHEMA_TambientLightShape(A, C2, C3)                                                  \
    A(TattributeFloat, AmbientShade, "ambientShade", "as",                                         \
      .input().setNativeDefaultData(0.45f).range(0, 1))                                            \
    A(TattributeChar, ObjectType, "objectType", "ot", .implicitSample().setNativeDefaultData(1))   \
    A(TattributeFloat, ShadowRadius, "shadowRadius", "sr",                                         \
      .input().setNativeDefaultData(0.0f).min(0.0))                                                \
    A(TattributeBoolean, CastSoftShadows, "castSoftShadows", "cw",                                 \
      .input().setNativeDefaultData(false))                                                        \
    C3(Tattribute3Float, NormalCamera, "normalCamera", "n", ORVO_XYZ,                              \
       .implicitSample().setNativeDefaultData(0, 0, 1), .implicitSample())                         \
    A(TattributeBoolean, ReceiveShadows, "receiveShadows", "gs",                                   \
      .input().setNativeDefaultData(true))
ORVO_NODE(TambientLightShape, TrenderLightShape, "ambientLight", "AMBL", 303, "kAmbientLight",
          "light:drawdb/light/ambientLight", "n_ambientLight")

class TambientLightShape : public TdnPattern<TambientLightShape, TrenderLightShape> {
public:
    // How much of the light reaches a surface with normal `n`, `l` the unit
    // direction to the light: 1 - shade * (1 - cos), never below 0.
    static float shadeFactor(const T3Float& l, const T3Float& n, float ambientShade);
    // The map coordinates of a direction from the light (in its space).
    static T2Float projection(const T3Float& direction);

    bool affectsShadows(const Tattribute* attribute) const override;

protected:
    void computeLightData(LightBatch& b) override;
    bool projectTextureCoordinates(LightBatch& b, T2Float* uv) override;
    float rayShadowRadius(LightBatch& b) const override;
    const Tattribute* objectTypeAttribute() const override { return &aObjectType; }
    const Tattribute* receiveShadowsAttribute() const override { return &aReceiveShadows; }
    bool refreshesViewportLight(const Tattribute* attribute) const override;
};
