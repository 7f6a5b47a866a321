#pragma once

// rampShader: the material an artist drives by curves instead of single
// values. Colour, transparency, incandescence, specular colour, roll-off,
// reflectivity and environment are ramps, looked up by the light angle, the
// facing angle or the brightness. It sits beside lambert: it shares its
// refraction inputs, its pass handling and its light loop with the lights'
// blind data, and traces mirror rays as the specular materials do.

#include "framework/curve_attributes.h"
#include "materials/lambert.h"

// The implicit sample inputs, the refraction and matte attributes named as
// lambert names them.
#define ORVO_RAMP_SHADER_SAMPLE(A, C2, C3)                                                         \
    A(TattributeAddr, ObjectId, "objectId", "oi", .implicitSample())                               \
    A(TattributeInt32, PrimitiveId, "primitiveId", "pi",                                           \
      .implicitSample().setNativeDefaultData(0))                                                   \
    A(TattributeAddr, RaySampler, "raySampler", "rtr", .implicitSample())                          \
    A(TattributeInt16, RayDepth, "rayDepth", "rd", .implicitSample().setNativeDefaultData(0))      \
    A(TattributeInt32, RayInstance, "rayInstance", "ryi",                                          \
      .implicitSample().setNativeDefaultData(0))                                                   \
    ORVO_C3_NAMED(A, PointCamera, "pointCamera", "pc", "pointCameraX", "pointCameraY",             \
                  "pointCameraZ", "px", "py", "pz", 1.0f, 1.0f, 1.0f, .implicitSample(),           \
                  .implicitSample())                                                               \
    C3(Tattribute3Float, NormalCamera, "normalCamera", "n", ORVO_XYZ,                              \
       .implicitSample().setNativeDefaultData(1, 1, 1), .implicitSample())                         \
    ORVO_C3_NAMED(A, RayDirection, "rayDirection", "rad", "rayDirectionX", "rayDirectionY",        \
                  "rayDirectionZ", "rdx", "rdy", "rdz", 0.0f, 0.0f, 1.0f, .implicitSample(),       \
                  .implicitSample())                                                               \
    ORVO_C3_NAMED(A, TriangleNormalCamera, "triangleNormalCamera", "tnc", "triangleNormalCameraX", \
                  "triangleNormalCameraY", "triangleNormalCameraZ", "tnx", "tny", "tnz", 0.0f,     \
                  1.0f, 0.0f, .implicitSample(), .implicitSample())                                \
    A(TattributeFltMatrix, MatrixEyeToWorld, "matrixEyeToWorld", "e2w", .implicitSample())         \
    A(TattributeArrayOf<TattributeLightData>, LightData, "lightDataArray", "ltd",                  \
      .implicitLight();                                                                            \
      TdnLambert::setMaterialLightDefaults(LightData))                                             \
    A(TattributeInt16, RefractedRayDepthLimit, "refractionLimit", "rdl",                           \
      .input().setNativeDefaultData(6).min(0).softMax(10))                                         \
    A(TattributeFloat, RefractiveIndex, "refractiveIndex", "rfi",                                  \
      .input().setNativeDefaultData(1.0f).min(0.01).softMax(3))                                    \
    A(TattributeFloat, MediumRefractiveIndex, "mediumRefractiveIndex", "mrfi",                     \
      .implicitSample().setNativeDefaultData(1.0f))                                                \
    A(TattributeBoolean, RtRefractedColor, "refractions", "rfc",                                   \
      .input().setNativeDefaultData(false))                                                        \
    A(TattributeFloat, TranslucenceDepth, "translucenceDepth", "trsd",                             \
      .input().softRange(0, 5).setNativeDefaultData(TdnLambert::translucenceDepthDefault()))       \
    A(TattributeFloat, OpacityDepth, "opacityDepth", "opad",                                       \
      .input().setNativeDefaultData(0.0f).softRange(0, 5))                                         \
    A(TattributeBoolean, HideSource, "hideSource", "hs", .input().setNativeDefaultData(false))     \
    A(TattributeFloat, SurfaceThickness, "surfaceThickness", "thik",                               \
      .input().setNativeDefaultData(0.0f).min(0).softMax(1))                                       \
    A(TattributeFloat, FakeRefractionCaustics, "shadowAttenuation", "fakc",                        \
      .input().setNativeDefaultData(0.5f).range(0, 1))                                             \
    A(TattributeFloat, TransparencyDepth, "transparencyDepth", "trdp",                             \
      .input().setNativeDefaultData(0.0f).min(0).softMax(10))                                      \
    A(TattributeFloat, LightAbsorbance, "lightAbsorbance", "absb",                                 \
      .input().setNativeDefaultData(0.0f).min(0).softMax(10))                                      \
    A(TattributeBoolean, ChromaticAberration, "chromaticAberration", "crab",                       \
      .input().setNativeDefaultData(false))                                                        \
    A(TattributeEnumOf, MatteOpacityMode, "matteOpacityMode", "mom",                               \
      .input()                                                                                     \
          .ORVO_FIELD(kBlackHoleM, "Black Hole")                                                   \
          .ORVO_FIELD(kSolidMatte, "Solid Matte")                                                  \
          .ORVO_FIELD(kOpacityGain, "Opacity Gain")                                                \
          .setNativeDefaultData(2))                                                                \
    A(TattributeFloat, MatteOpacityGain, "matteOpacity", "mog",                                    \
      .input().setNativeDefaultData(1.0f).softRange(0, 1))

#define ORVO_SCHEMA_TdnRampShader(A, C2, C3)                                                       \
    ORVO_RAMP_SHADER_SAMPLE(A, C2, C3)                                                             \
    A(TattributeFloat, DiffuseCoeff, "diffuse", "dc",                                              \
      .input().setNativeDefaultData(0.8f).min(0).softMax(1))                                       \
    A(TattributeFloat, ForwardScatter, "forwardScatter", "fsc",                                    \
      .input().setNativeDefaultData(0.0f).softRange(-1, 1))                                        \
    ORVO_COLOR_CURVE(A, C3, Color, "color", "clr")                                                 \
    A(TattributeEnum, ColorInput, "colorInput", "cin",                                             \
      .input()                                                                                     \
          .ORVO_FIELD(kLightAngle, "Light Angle")                                                  \
          .ORVO_FIELD(kFacingAngle, "Facing Angle")                                                \
          .ORVO_FIELD(kBrightness, "Brightness")                                                   \
          .ORVO_FIELD(kNormalizedBrightness, "Normalized Brightness")                              \
          .setNativeDefaultData(0))                                                                \
    A(TattributeEnum, ShadowMode, "shadowMode", "smd",                                             \
      .input()                                                                                     \
          .ORVO_FIELD(kSmNormal, "Normal")                                                         \
          .ORVO_FIELD(kSmShadedColor, "Shaded Color")                                              \
          .ORVO_FIELD(kSmConstantColor, "Constant Color")                                          \
          .setNativeDefaultData(0))                                                                \
    C3(Tattribute3Float, ShadowColor, "shadowColor", "shc", ORVO_RGB,                              \
       .inputParent().colour().setNativeDefaultData(0, 0, 0), .input())                            \
    A(TattributeFloat, ShadowThreshold, "shadowThreshold", "sht",                                  \
      .input().setNativeDefaultData(0.0f).softRange(0, 1))                                         \
    ORVO_COLOR_CURVE(A, C3, Transparency, "transparency", "it")                                    \
    ORVO_C3_NAMED(A, AmbientColor, "ambientColor", "ambc", "ambientColorR", "ambientColorG",       \
                  "ambientColorB", "acr", "acg", "acb", 0.0f, 0.0f, 0.0f, .inputParent().colour(), \
                  .input())                                                                        \
    ORVO_COLOR_CURVE(A, C3, Incandescence, "incandescence", "ic")                                  \
    A(TattributeFloat, TranslucenceCoeff, "translucence", "tc",                                    \
      .input().setNativeDefaultData(0.0f).range(0, 1))                                             \
    A(TattributeFloat, TranslucenceFocus, "translucenceFocus", "tcf",                              \
      .input().setNativeDefaultData(0.5f).range(0, 1))                                             \
    A(TattributeFloat, GlowIntensity, "glowIntensity", "gi",                                       \
      .input().setNativeDefaultData(0.0f).min(0).softMax(1))                                       \
    A(TattributeFloat, SpecularGlow, "specularGlow", "spg",                                        \
      .input().setNativeDefaultData(0.0f).min(0).softMax(1))                                       \
    A(TattributeFloat, Eccentricity, "eccentricity", "ec",                                         \
      .input().setNativeDefaultData(0.3f).softRange(0, 1))                                         \
    A(TattributeFloat, Specularity, "specularity", "spl",                                          \
      .input().setNativeDefaultData(0.3f).softRange(0, 1))                                         \
    ORVO_FLOAT_CURVE(A, SpecularRollOff, "specularRollOff", "sro")                                 \
    A(TattributeInt16, ReflectedRayDepthLimit, "reflectionLimit", "fll",                           \
      .input().setNativeDefaultData(1).min(0).softMax(10))                                         \
    ORVO_COLOR_CURVE(A, C3, SpecularColor, "specularColor", "sc")                                  \
    ORVO_FLOAT_CURVE(A, Reflectivity, "reflectivity", "rfl")                                       \
    ORVO_COLOR_CURVE(A, C3, Environment, "environment", "env")                                     \
    ORVO_C3_NAMED(A, ReflectedColor, "reflectedColor", "rc", "reflectedColorR", "reflectedColorG", \
                  "reflectedColorB", "rr", "rg", "rb", 0.0f, 0.0f, 0.0f, .inputParent().colour(),  \
                  .input())                                                                        \
    A(TattributeFloat, ReflectionSpecular, "reflectionSpecularity", "rsp",                         \
      .input().setNativeDefaultData(1.0f).range(0, 1))                                             \
    C3(Tattribute3Float, OutColor, "outColor", "oc", ORVO_RGB,                                     \
       .output().colour().setNativeDefaultData(0, 0, 0), .output())                                \
    C3(Tattribute3Float, OutTransparency, "outTransparency", "ot", ORVO_RGB,                       \
       .output().colour().setNativeDefaultData(0, 0, 0), .output())                                \
    ORVO_C3_NAMED(A, OutGlowColor, "outGlowColor", "ogc", "outGlowColorR", "outGlowColorG",        \
                  "outGlowColorB", "ogr", "ogg", "ogb", 0.0f, 0.0f, 0.0f, .output().colour(),      \
                  .output())                                                                       \
    C3(Tattribute3Float, OutMatteOpacity, "outMatteOpacity", "omo", ORVO_RGB,                      \
       .output().setNativeDefaultData(0, 0, 0), .output())

class TdnRampShader;
template <>
struct TdnKernel<TdnRampShader> : public TcurveKernel {
    enum eColorInput : int16_t {
        kLightAngle = 0,
        kFacingAngle = 1,
        kBrightness = 2,
        kNormalizedBrightness = 3,
    };
    enum eShadowMode : int16_t { kSmNormal = 0, kSmShadedColor = 1, kSmConstantColor = 2 };
    enum eMatteOpacityMode : int16_t { kBlackHoleM = 0, kSolidMatte = 1, kOpacityGain = 2 };
};

ORVO_NODE(TdnRampShader, TshadingDependNode, "rampShader", "RRPS", 891, "kRampShader",
          "shader/surface:drawdb/shader/surface/rampShader", "n_rampShader")

class TdnRampShader : public TdnPattern<TdnRampShader, TshadingDependNode> {
public:
    TdnRampShader();

    // A material is computed a batch at a time.
    bool computePlug(const Tplug& plug, TdataBlock& block) override;
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;

    // ---- shading network
    void analyse(TDNshadingEngine* engine, TSEnodeDescription* description, void* option,
                 TbitField64& fields) override;
    void shadingNodeInit(TframeSampleData* frame) override;
    void endOfRender() override;
    void groupedAttrs(const Tattribute* attribute, TattributeArray& out) override;
    // Refracts while `refractions` is on; reflects while it can.
    unsigned transparencyOptions() override;

    // The cut-off of translucence, set by the last shadingNodeInit.
    float translucenceCutoff() const { return fTranslucenceCutoff; }

    // One colour for the viewport: the colour ramp's middle.
    T3Float getHardwareShadingAttributes();

protected:
    void computeRampShader(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count);
    void computeRampShaderOutput(const Tplug& plug, TdataBlock& block, unsigned first,
                                 unsigned count);
    void computeTransparency(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count);
    void computeBlackHole(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count);
    // Leaves in outColor what each sample's mirror ray sees: the traced
    // colour, reflectedColor where that is driven, or the background.
    void computeReflection(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count);

private:
    // The transparency ramp at each sample's facing ratio.
    void transparencies(TdataBlock& block, unsigned first, unsigned count, T3Float* out);
    void outputChunk(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count,
                     int pass);

    float fTranslucenceCutoff;
    bool fReflectedColorDriven = false;
};
