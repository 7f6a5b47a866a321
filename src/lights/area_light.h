#pragma once

// areaLight: a square two units across in the light's XY plane, shining
// from its front (-Z) side. Its intensity and direction are those of a
// point at its centre, decayed by the distance to it; what a surface makes
// of it goes through the square itself: materials ask how much of the
// square a point sees (integrateLambertianReflectance) and where in it a
// highlight lies. Its shadow rays aim at points spread over the square, so
// its shadows soften with its size.

#include "lights/extended_light.h"
#include "lights/non_extended_light_shape.h"

#define ORVO_SCHEMA_TareaLightShape(A, C2, C3)                                                     \
    A(TattributeMessage, LightGlow, "lightGlow", "lg", .flagsOn(0))                                \
    ORVO_LIGHT_WORLD_POINT(A, PointWorld, "pointWorld", "pw", "tx", "ty", "tz", 1)                 \
    C3(Tattribute3Float, NormalCamera, "normalCamera", "n", ORVO_XYZ,                              \
       .implicitSample().setNativeDefaultData(0, 0, 1), .implicitSample())                         \
    A(TattributeChar, ObjectType, "objectType", "ot", .implicitSample().setNativeDefaultData(1))
ORVO_NODE(TareaLightShape, TnonExtendedLightShape, "areaLight", "ARLT", 305, "kAreaLight",
          "light:drawdb/light/areaLight", "n_areaLight")

class TareaLightShape : public TdnPattern<TareaLightShape, TnonExtendedLightShape> {
public:
    // The square's integral is no cosine.
    TareaLightShape() { setCosineOnly(false); }
    // The square's corners in the light's space, in the order the shadow
    // rays' bilinear targets weigh them.
    static constexpr T3Float kCorners[4] = {
        {1.0f, 1.0f, 0.0f}, {-1.0f, 1.0f, 0.0f}, {-1.0f, -1.0f, 0.0f}, {1.0f, -1.0f, 0.0f}};

    // The square in eye space, made once a frame.
    const TextendedLight& extendedLight() const { return fExtended; }
    int cachedDecayRate() const { return fDecayRate; }
    const T3Float& eyeNormal() const { return fEyeNormal; }

    float integrateLambertianReflectance(const T3dFltVector& lightDirection,
                                         const T4dFltPoint& point, const T3dFltVector& normal,
                                         bool flag) override;
    T3dFltVector maxPhongSpecularDirection(const T3dFltVector& lightDirection,
                                           const T4dFltPoint& point, const T3dFltVector& view,
                                           const T3dFltVector& normal,
                                           const T3dFltVector* hint) override;
    float lightAttenuation(const T4dFltPoint& point, const T3dFltVector& normal,
                           bool flag) override;
    float hemisphereCoverage(const T3dFltVector& lightDirection, const T4dFltPoint& point,
                             const T3dFltVector& normal, bool flag) override;

    void shadingNodeOnDemand(Tplug& plug, TdataBlock& block) override;

protected:
    bool projectTextureCoordinates(LightBatch& b, T2Float* uv) override;
    void computeShadowColors(LightBatch& b, float radius, unsigned rays, const uint8_t* mask,
                             Tspectrum* reflectance, uint8_t* penumbra) override;
    const Tattribute* objectTypeAttribute() const override { return &aObjectType; }

private:
    // local-to-world x world-to-eye applied to the square.
    void prepareExtendedLight(const T4dFltMatrix& toEye);

    TextendedLight fExtended;
    T3Float fEyeNormal{0.0f, 0.0f, -1.0f};
    int fDecayRate = 0;
};
