#pragma once

// hairTubeShader: hair seen as thin tubes along a surface tangent. The
// highlight follows the tube (a smooth bump in the difference of the light's
// and the view's angles to the tube), shifted toward the tip by
// specularShift; a second, broader lobe scatters light through the hair,
// coloured by a ramp along the tube (colorScale at the sample's U or V).

#include "materials/reflect.h"

#define ORVO_SCHEMA_TdnHairTubeShader(A, C2, C3)                                                   \
    ORVO_LAMBERT_C3(A, TangentUCamera, "tangentUCamera", "utan", X, Y, Z, "utnx", "utny", "utnz",  \
                    1.0f, 1.0f, 1.0f, .implicitSample(), .implicitSample())                        \
    ORVO_LAMBERT_C3(A, TangentVCamera, "tangentVCamera", "vtan", X, Y, Z, "vtnx", "vtny", "vtnz",  \
                    1.0f, 1.0f, 1.0f, .implicitSample(), .implicitSample())                        \
    C2(Tattribute2Float, UvCoord, "uvCoord", "uv", ORVO_UV, .implicitSample(),                     \
       .implicitSample().setNativeDefaultData(0.0f))                                               \
    A(TattributeEnumOf, TubeDirection, "tubeDirection", "tdr",                                     \
      .input()                                                                                     \
          .ORVO_FIELD(kUTangent, "U Tanget")                                                       \
          .ORVO_FIELD(kVTangent, "V Tangent")                                                      \
          .setNativeDefaultData(0))                                                                \
    A(TattributeArrayOf<TattributeCompound>, ColorScale, "colorScale", "cls", .inputParent())      \
    A(TattributeFloat, ColorScalePosition, "colorScale_Position", "clsp",                          \
      .input().setNativeDefaultData(0.0f).childOf(ColorScale))                                     \
    ORVO_LAMBERT_C3(A, ColorScaleColor, "colorScale_Color", "clsc", R, G, B, "clcr", "clcg",       \
                    "clcb", 0.0f, 0.0f, 0.0f, .inputParent().colour().childOf(ColorScale),         \
                    .input())                                                                      \
    A(TattributeEnumOf, ColorScaleInterp, "colorScale_Interp", "clsi",                             \
      .input()                                                                                     \
          .ORVO_FIELD(kNone, "None")                                                               \
          .ORVO_FIELD(kLinear, "Linear")                                                           \
          .ORVO_FIELD(kSmooth, "Smooth")                                                           \
          .ORVO_FIELD(kSpline, "Spline")                                                           \
          .setNativeDefaultData(0)                                                                 \
          .childOf(ColorScale);                                                                    \
      ColorScale.assignOffsets())                                                                  \
    A(TattributeFloat, SpecularPower, "specularPower", "sp",                                       \
      .input().setNativeDefaultData(20.0f).min(2))                                                 \
    A(TattributeFloat, SpecularShift, "specularShift", "ssh", .input().setNativeDefaultData(5.0f)) \
    A(TattributeFloat, ScatterPower, "scatterPower", "scp",                                        \
      .input().setNativeDefaultData(5.0f).min(2))                                                  \
    A(TattributeFloat, Scatter, "scatter", "sct", .input().setNativeDefaultData(0.2f).min(0))

class TdnHairTubeShader;
template <>
struct TdnKernel<TdnHairTubeShader> {
    enum eTubeDirection : int16_t { kUTangent = 0, kVTangent = 1 };
    enum eColorScaleInterp : int16_t { kNone = 0, kLinear = 1, kSmooth = 2, kSpline = 3 };
};

ORVO_NODE(TdnHairTubeShader, TdnReflect, "hairTubeShader", "RHTB", 942, "kHairTubeShader",
          "shader/surface:drawdb/shader/surface/hairTubeShader", "n_hairTubeShader")

class TdnHairTubeShader : public TdnPattern<TdnHairTubeShader, TdnReflect> {
public:
    // The tube's lobe: Sm(dot(T, L) - dot(T, E)) to the power `power`, with
    // Sm(a) = (2u - 3) u^2 + 1 at u = |a| / 2.
    static float computeSpecular(float power, const T3Float& T, const T3Float& L, const T3Float& E);

protected:
    void highlight(TdataBlock& block, unsigned first, unsigned count, int pass,
                   const T3Float* mirror, T3Float* S) override;
};
