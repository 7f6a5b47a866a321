#pragma once

// volumeLight: light that fills a shape (box, sphere, cylinder or cone of
// unit size in the light's space) and nothing outside it. Across the shape
// its colour follows the colorRange ramp, from the rim (0) to the core
// (1); across a cylinder or cone the penumbra ramp fades it toward the
// side. Its direction points to the centre, away from it or down the
// light's axis; an arc below 360 degrees cuts a wedge out of the shape.
// With emitAmbient it lights like an ambient light, without a cosine.

#include "host/ramp.h"
#include "lights/point_light.h"

class TvolumeLightShape;
template <>
struct TdnKernel<TvolumeLightShape> {
    enum : int16_t {
        kBoxVolume = 0,
        kSphereVolume = 1,
        kCylinderVolume = 2,
        kConeVolume = 3,
    };
    enum : int16_t {
        kOutward = 0,
        kInward = 1,
        kDownAxis = 2,
    };
    // How a ramp blends from one entry to the next.
    enum : int16_t {
        kNone = 0,
        kLinear = 1,
        kSmooth = 2,
        kSpline = 3,
    };
};

#define ORVO_VOLUME_INTERP(A, Name, Long, Short, Parent)                                           \
    A(TattributeEnum, Name, Long, Short,                                                           \
      .input()                                                                                     \
          .ORVO_FIELD(kNone, "None")                                                               \
          .ORVO_FIELD(kLinear, "Linear")                                                           \
          .ORVO_FIELD(kSmooth, "Smooth")                                                           \
          .ORVO_FIELD(kSpline, "Spline")                                                           \
          .setNativeDefaultData(kNone)                                                             \
          .childOf(Parent))

// A channel of a colorRange entry's colour: short names of four letters.
#define ORVO_VOLUME_CHANNEL(A, Name, Long, Short)                                                  \
    A(TattributeFloat, Name, Long, Short,                                                          \
      .input().setNativeDefaultData(1.0f).childOf(ColorRangeColor))

#define ORVO_SCHEMA_TvolumeLightShape(A, C2, C3)                                                   \
    A(TattributeEnum, LightShape, "lightShape", "lis",                                             \
      .input()                                                                                     \
          .ORVO_FIELD(kBoxVolume, "Box")                                                           \
          .ORVO_FIELD(kSphereVolume, "Sphere")                                                     \
          .ORVO_FIELD(kCylinderVolume, "Cylinder")                                                 \
          .ORVO_FIELD(kConeVolume, "Cone")                                                         \
          .setNativeDefaultData(kSphereVolume))                                                    \
    A(TattributeEnum, VolumeLightDir, "volumeLightDir", "vld",                                     \
      .input()                                                                                     \
          .ORVO_FIELD(kOutward, "Outward")                                                         \
          .ORVO_FIELD(kInward, "Inward")                                                           \
          .ORVO_FIELD(kDownAxis, "Down Axis")                                                      \
          .setNativeDefaultData(kOutward))                                                         \
    A(TattributeFloat, Arc, "arc", "ac", .input().setNativeDefaultData(360.0f).range(0, 360))      \
    A(TattributeFloat, ConeEndRadius, "coneEndRadius", "cer", .input().setNativeDefaultData(0.0f)) \
    A(TattributeArrayOf<TattributeCompound>, ColorRange, "colorRange", "crg", .inputParent())      \
    A(TattributeFloat, ColorRangePosition, "colorRange_Position", "crgp",                          \
      .input().setNativeDefaultData(0.0f).childOf(ColorRange))                                     \
    A(Tattribute3Float, ColorRangeColor, "colorRange_Color", "crgc",                               \
      .inputParent().colour().setNativeDefaultData(1, 1, 1).childOf(ColorRange))                   \
    ORVO_VOLUME_CHANNEL(A, ColorRangeColorR, "colorRange_ColorR", "crcr")                          \
    ORVO_VOLUME_CHANNEL(A, ColorRangeColorG, "colorRange_ColorG", "crcg")                          \
    ORVO_VOLUME_CHANNEL(A, ColorRangeColorB, "colorRange_ColorB", "crcb")                          \
    ORVO_VOLUME_INTERP(A, ColorRangeInterp, "colorRange_Interp", "crgi", ColorRange)               \
    A(TattributeArrayOf<TattributeCompound>, Penumbra, "penumbra", "pen", .inputParent())          \
    A(TattributeFloat, PenumbraPosition, "penumbra_Position", "penp",                              \
      .input().setNativeDefaultData(0.0f).childOf(Penumbra))                                       \
    A(TattributeFloat, PenumbraFloatValue, "penumbra_FloatValue", "penfv",                         \
      .input().setNativeDefaultData(1.0f).childOf(Penumbra))                                       \
    ORVO_VOLUME_INTERP(A, PenumbraInterp, "penumbra_Interp", "peni", Penumbra)                     \
    A(TattributeBoolean, EmitAmbient, "emitAmbient", "ema", .input().setNativeDefaultData(false))  \
    A(TattributeFloat, LightAngle, "lightAngle", "lang", .input().setNativeDefaultData(0.0f))
ORVO_NODE(TvolumeLightShape, TpointLightShape, "volumeLight", "VOLL", 892, "kVolumeLight",
          "light:drawdb/light/volumeLight", "n_volumeLight")

class TvolumeLightShape : public TdnPattern<TvolumeLightShape, TpointLightShape> {
public:
    // The light at `p` (the light's space) for a shape, with `direction`
    // the volumeLightDir: colour and direction (the light's space) out.
    // False where the shape or the arc gives no light.
    static bool computeVolumeLight(const Tramp& colorRamp, const Tramp& penumbraRamp,
                                   const T3Float& p, int lightShape, float arc, int direction,
                                   float coneEndRadius, T3Float& outDirection, T3Float& outColor);
    // Inside the unit box, its faces excluded.
    static bool inside(const T3Float& p);

    // The base's needs, then those of the light's fog.
    void analyse(TDNshadingEngine* engine, TSEnodeDescription* description, void* option,
                 TbitField64& fields) override;

protected:
    void computeLightData(LightBatch& b) override;
    void illuminate(LightBatch& b) override;
    bool rayTracedShadows(LightBatch& b, Tspectrum* reflectance) override;

private:
    // The ramps of element e; an empty one is 1 throughout.
    Tramp colorRamp(TdataBlock& block, unsigned e) const;
    Tramp penumbraRamp(TdataBlock& block, unsigned e) const;
    T3Float toEye(const T3Float& localDirection) const;
};
