#pragma once

// hardwareRenderGlobals: the settings of the hardware renderer: texture
// resolutions for baking, frame buffer format, lighting quality, sampling,
// motion blur, transparency, culling and geometry caching, and the movie
// codec of its output. One current instance per process.

#include "framework/node_pattern.h"
#include "settings/settings_values.h"

class TdependGraph;
class TdnHwRenderGlobals;

template <>
struct TdnKernel<TdnHwRenderGlobals> {
    enum : int16_t { kRGBA_fixed8 = 0, kRGBA_float16 = 1 };
    enum : int16_t {
        k1Sample = 1,
        k3Samples = 3,
        k4Samples = 4,
        k5Samples = 5,
        k7Samples = 7,
        k9Samples = 9,
        k16Samples = 16,
        k25Samples = 25,
        k36Samples = 36,
    };
    enum : int16_t { kBackAndFrontCulling = 0, kPrimitiveSortPerObject = 1 };
    enum : int16_t { kNone = 0, kDoubleSided = 1, kSingleSided = 2 };
    enum : int16_t { kDisableTextureCompression = 0, kEnableTextureCompression = 1 };
    enum : int16_t { kOrvoSoftware = 0, kOrvoInteractive = 1 };
};

#define ORVO_HWR_BOOL(A, Name, Long, Short, Default)                                               \
    A(TattributeBoolean, Name, Long, Short, .input().setNativeDefaultData(Default))
#define ORVO_HWR_INT(A, Name, Long, Short, Default)                                                \
    A(TattributeInt32, Name, Long, Short, .input().setNativeDefaultData(Default))

#define ORVO_SCHEMA_TdnHwRenderGlobals(A, C2, C3)                                                  \
    A(TattributeInt32, ColorTextureResolution, "colorTextureResolution", "ctrs",                   \
      .input().setNativeDefaultData(128).range(2, 2048))                                           \
    A(TattributeInt32, BumpTextureResolution, "bumpTextureResolution", "btrs",                     \
      .input().setNativeDefaultData(256).range(2, 2048))                                           \
    A(TattributeEnum, FrameBufferFormat, "frameBufferFormat", "fbfm",                              \
      .input()                                                                                     \
          .ORVO_FIELD(kRGBA_fixed8, "RGBA : 8-bits fixed per channel")                             \
          .ORVO_FIELD(kRGBA_float16, "RGBA : 16-bit float per channel")                            \
          .setNativeDefaultData(kRGBA_fixed8))                                                     \
    ORVO_HWR_BOOL(A, EnableHighQualityLighting, "enableHighQualityLighting", "ehql", true)         \
    ORVO_HWR_BOOL(A, EnableAcceleratedMultiSampling, "enableAcceleratedMultiSampling", "eams",     \
                  true)                                                                            \
    ORVO_HWR_BOOL(A, EnableEdgeAntiAliasing, "enableEdgeAntiAliasing", "eeaa", false)              \
    ORVO_HWR_BOOL(A, EnableGeometryMask, "enableGeometryMask", "engm", false)                      \
    A(TattributeEnum, NumberOfSamples, "numberOfSamples", "mes",                                   \
      .input()                                                                                     \
          .ORVO_FIELD(k1Sample, "1 Sample")                                                        \
          .ORVO_FIELD(k3Samples, "3 Samples")                                                      \
          .ORVO_FIELD(k4Samples, "4 Samples")                                                      \
          .ORVO_FIELD(k5Samples, "5 Samples")                                                      \
          .ORVO_FIELD(k7Samples, "7 Samples")                                                      \
          .ORVO_FIELD(k9Samples, "9 Samples")                                                      \
          .ORVO_FIELD(k16Samples, "16 Samples")                                                    \
          .ORVO_FIELD(k25Samples, "25 Samples")                                                    \
          .ORVO_FIELD(k36Samples, "36 Samples")                                                    \
          .setNativeDefaultData(k1Sample))                                                         \
    ORVO_HWR_BOOL(A, EnableMotionBlur, "enableMotionBlur", "emb", false)                           \
    A(TattributeFloat, MotionBlurByFrame, "motionBlurByFrame", "mbbf",                             \
      .input().setNativeDefaultData(1.0f))                                                         \
    ORVO_HWR_INT(A, NumberOfExposures, "numberOfExposures", "mbs", 3)                              \
    A(TattributeEnum, TransparencySorting, "transparencySorting", "trm",                           \
      .input()                                                                                     \
          .ORVO_FIELD(kBackAndFrontCulling, "Per Object")                                          \
          .ORVO_FIELD(kPrimitiveSortPerObject, "Per Polygon")                                      \
          .setNativeDefaultData(kBackAndFrontCulling))                                             \
    ORVO_HWR_BOOL(A, TransparentShadowCasting, "transparentShadowCasting", "tshc", true)           \
    ORVO_HWR_BOOL(A, EnableNonPowerOfTwoTexture, "enableNonPowerOfTwoTexture", "enpt", true)       \
    A(TattributeEnum, Culling, "culling", "clmt",                                                  \
      .input()                                                                                     \
          .ORVO_FIELD(kNone, "Per Object")                                                         \
          .ORVO_FIELD(kDoubleSided, "All Double Sided")                                            \
          .ORVO_FIELD(kSingleSided, "All Single Sided")                                            \
          .setNativeDefaultData(kNone))                                                            \
    A(TattributeEnum, TextureCompression, "textureCompression", "tcov",                            \
      .input()                                                                                     \
          .ORVO_FIELD(kDisableTextureCompression, "Disabled")                                      \
          .ORVO_FIELD(kEnableTextureCompression, "Enabled")                                        \
          .setNativeDefaultData(kDisableTextureCompression))                                       \
    A(TattributeFloat, LightIntensityThreshold, "lightIntensityThreshold", "lith",                 \
      .input().setNativeDefaultData(0.001f).range(0.0001, 1))                                      \
    ORVO_HWR_BOOL(A, SmallObjectCulling, "smallObjectCulling", "sobc", true)                       \
    A(TattributeFloat, CullingThreshold, "cullingThreshold", "cuth",                               \
      .input().setNativeDefaultData(0.0f).range(0, 100))                                           \
    ORVO_HWR_BOOL(A, GeometryCachingData, "graphicsHardwareGeometryCachingData", "hgcd", true)     \
    ORVO_HWR_BOOL(A, GeometryCachingIndexing, "graphicsHardwareGeometryCachingIndexing", "hgci",   \
                  true)                                                                            \
    A(TattributeInt32, MaximumGeometryCacheSize, "maximumGeometryCacheSize", "mgcs",               \
      .input().setNativeDefaultData(64).range(1, 512))                                             \
    ORVO_HWR_BOOL(A, WriteAlphaAsColor, "writeAlphaAsColor", "twa", false)                         \
    ORVO_HWR_BOOL(A, WriteZDepthAsColor, "writeZDepthAsColor", "twz", false)                       \
    ORVO_HWR_INT(A, HardwareCodec, "hardwareCodec", "hwcc", 0x726C6520)                            \
    ORVO_HWR_INT(A, HardwareDepth, "hardwareDepth", "hwdp", 32)                                    \
    ORVO_HWR_INT(A, HardwareQual, "hardwareQual", "hwql", 1024)                                    \
    ORVO_HWR_INT(A, HardwareFrameRate, "hardwareFrameRate", "hwfr", 24)                            \
    ORVO_HWR_BOOL(A, ShadowsObeyLightLinking, "shadowsObeyLightLinking", "soll", true)             \
    ORVO_HWR_BOOL(A, ShadowsObeyShadowLinking, "shadowsObeyShadowLinking", "sosl", false)          \
    ORVO_HWR_BOOL(A, BlendSpecularWithAlpha, "blendSpecularWithAlpha", "bswa", false)              \
    A(TattributeEnum, ShadingModel, "shadingModel", "shml",                                        \
      .input()                                                                                     \
          .ORVO_FIELD(kOrvoSoftware, "Orvo software render emulation")                             \
          .ORVO_FIELD(kOrvoInteractive, "Orvo interactive shader")                                 \
          .setNativeDefaultData(kOrvoSoftware))                                                    \
    ORVO_HWR_BOOL(A, HardwareEnvironmentLookup, "hardwareEnvironmentLookup", "hwel", false)

ORVO_NODE(TdnHwRenderGlobals, TdependNode, "hardwareRenderGlobals", "HWRG", 523,
          "kHardwareRenderGlobals", "rendernode/settings", "n_hardwareRenderGlobals")

class TdnHwRenderGlobals : public TdnPattern<TdnHwRenderGlobals, TdependNode> {
public:
    using K = TdnKernel<TdnHwRenderGlobals>;

    // The current instance, "hardwareRenderGlobals", made once in `graph`
    // as an implicit default; currentGlobals finds it in the current graph
    // (or null).
    static TdnHwRenderGlobals* createCurrentGlobals(TdependGraph& graph);
    static TdnHwRenderGlobals* currentGlobals(const TdependGraph* graph = nullptr);

    ORVO_SETTING_BOOL(isHighQualityLightingEnabled, setHighQualityLighting,
                      EnableHighQualityLighting)
    void enableHighQualityLighting() { setHighQualityLighting(true); }
    void disableHighQualityLighting() { setHighQualityLighting(false); }
    ORVO_SETTING_BOOL(transparentShadowCasting, setTransparentShadowCasting,
                      TransparentShadowCasting)
    ORVO_SETTING_FLOAT(getLightIntensityThreshold, setLightIntensityThreshold,
                       LightIntensityThreshold)
    ORVO_SETTING_INT(textureCompression, setTextureCompression, TextureCompression)
    ORVO_SETTING_BOOL(shadowsObeyLightLinking, setShadowsObeyLightLinking, ShadowsObeyLightLinking)
    ORVO_SETTING_BOOL(shadowsObeyShadowLinking, setShadowsObeyShadowLinking,
                      ShadowsObeyShadowLinking)
    // 0 the data caching flag, 1 the indexing flag.
    bool graphicsHardwareGeometryCaching(int index) const;
    // The render globals' rule: 0 ignores links, 1 obeys shadow linking, 2
    // obeys light linking.
    void setShadowLinkMode(int mode);
};
