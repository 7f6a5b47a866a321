#pragma once

// hardwareRenderingGlobals: the settings of the viewport system: draw mode,
// object filters, transparency, screen-space ambient occlusion, fog, motion
// blur, bloom, multisampling, gamma and floating-point targets. What the
// viewport reads of them is the viewport's business; this node stores them
// and tells its listeners when motion blur turns on or off.

#include <functional>
#include <vector>

#include "framework/node_pattern.h"
#include "settings/settings_values.h"

class TdependGraph;
class TdnVPRRenderGlobals;

template <>
struct TdnKernel<TdnVPRRenderGlobals> {
    enum : int16_t {
        kWire = 0,
        kShaded = 1,
        kWireOnShaded = 2,
        kDefaultMaterial = 3,
        kShadedTextured = 4,
        kWireOnShadedTextured = 5,
        kBoundingBox = 6,
    };
    enum : int16_t { kDefault = 0, kAll = 1, kNone = 2, kActive = 3, kAmbient = 4 };
    enum : int16_t { kPerObjectHoldOut = 1, kAllObjectHoldOut = 2 };
    enum : int16_t { kDisable = 0, kSystem = 1, kHardware = 2 };
    enum : int16_t {
        kSimple = 0,
        kObjectSort = 1,
        kWeightedAverage = 2,
        kDepthPeel = 3,
        kAlphaCut = 5,
    };
    enum : int16_t { kAutomatic = 0, kCustom = 1 };
    enum : int16_t { kSsaoEight = 8, kSsaoSixteen = 16, kSsaoThirtyTwo = 32 };
    enum : int16_t { kLinear = 0, kExponential = 1, kExponential2 = 2 };
    enum : int16_t { kTransform = 0 };
    enum : int16_t { kMBFour = 4, kMBEight = 8, kMBSixteen = 16, kMBThirtyTwo = 32 };
    enum : int16_t {
        kMSAAOne = 1,
        kMSAATwo = 2,
        kMSAAFour = 4,
        kMSAAEight = 8,
        kMSAASixteen = 16,
    };
    enum : int16_t { kMSAAQualityLevelZero = 0 };
    enum : int16_t {
        kFPRTFormatRGBA32 = 1,
        kFPRTFormatRGB32 = 2,
        kFPRTFormatRGBA16 = 3,
    };
};

// The filter the blur-like effects default to.
#define ORVO_VPR_FILTER OrvoMakeStringData("GaussVariableFilter1")

#define ORVO_VPR_BOOL(A, Name, Long, Short, Default)                                               \
    A(TattributeBoolean, Name, Long, Short, .input().setNativeDefaultData(Default))
#define ORVO_VPR_INT(A, Name, Long, Short, Setup)                                                  \
    A(TattributeInt32, Name, Long, Short, .input() Setup)
#define ORVO_VPR_FLOAT(A, Name, Long, Short, Setup)                                                \
    A(TattributeFloat, Name, Long, Short, .input() Setup)
#define ORVO_VPR_STRING(A, Name, Long, Short) A(TattributeTyped, Name, Long, Short, .input())
#define ORVO_VPR_RGB(C3, Name, Long, Short, Default)                                               \
    C3(Tattribute3Float, Name, Long, Short, ORVO_RGB, .inputParent(),                              \
       .input().setNativeDefaultData(Default))
#define ORVO_VPR_INT2(A, Name, Long, Short, DefX, DefY, Limits)                                    \
    A(TattributeCompound, Name, Long, Short, .inputParent())                                       \
    A(TattributeInt32, Name##X, Long "X", Short "x",                                               \
      .input().setNativeDefaultData(DefX) Limits.childOf(Name))                                    \
    A(TattributeInt32, Name##Y, Long "Y", Short "y",                                               \
      .input().setNativeDefaultData(DefY) Limits.childOf(Name))

#define ORVO_SCHEMA_TdnVPRRenderGlobals(A, C2, C3)                                                 \
    A(TattributeCompound, BatchRenderControls, "batchRenderControls", "brc", .inputParent())       \
    A(TattributeEnum, RenderMode, "renderMode", "rm",                                              \
      .input()                                                                                     \
          .ORVO_FIELD(kWire, "Wire")                                                               \
          .ORVO_FIELD(kShaded, "Shaded")                                                           \
          .ORVO_FIELD(kWireOnShaded, "Wire On Shaded")                                             \
          .ORVO_FIELD(kDefaultMaterial, "Default Material")                                        \
          .ORVO_FIELD(kShadedTextured, "Shaded And Textured")                                      \
          .ORVO_FIELD(kWireOnShadedTextured, "Wire On Shaded And Textured")                        \
          .ORVO_FIELD(kBoundingBox, "Bounding Box")                                                \
          .setNativeDefaultData(kShadedTextured)                                                   \
          .childOf(BatchRenderControls))                                                           \
    A(TattributeEnum, LightingMode, "lightingMode", "lm",                                          \
      .input()                                                                                     \
          .ORVO_FIELD(kDefault, "Default")                                                         \
          .ORVO_FIELD(kAll, "All")                                                                 \
          .ORVO_FIELD(kNone, "None")                                                               \
          .ORVO_FIELD(kActive, "Active")                                                           \
          .ORVO_FIELD(kAmbient, "Full Ambient")                                                    \
          .setNativeDefaultData(kAll)                                                              \
          .childOf(BatchRenderControls))                                                           \
    ORVO_VPR_STRING(A, ObjectTypeFilterNameArray, "objectTypeFilterNameArray", "otfna")            \
    ORVO_VPR_STRING(A, ObjectTypeFilterValueArray, "objectTypeFilterValueArray", "otfva")          \
    ORVO_VPR_STRING(A, PluginObjectTypeFilterNameArray, "pluginObjectTypeFilterNameArray",         \
                    "potfna")                                                                      \
    ORVO_VPR_STRING(A, PluginObjectTypeFilterValueArray, "pluginObjectTypeFilterValueArray",       \
                    "potfva")                                                                      \
    ORVO_VPR_STRING(A, RenderOverrideName, "renderOverrideName", "on")                             \
    ORVO_VPR_STRING(A, FragmentLibraryName, "fragmentLibraryName", "lib")                          \
    ORVO_VPR_STRING(A, CurrentRendererName, "currentRendererName", "cur")                          \
    ORVO_VPR_BOOL(A, HoldOutMode, "holdOutMode", "hom", true)                                      \
    A(TattributeEnum, HoldOutDetailMode, "holdOutDetailMode", "hodm",                              \
      .input()                                                                                     \
          .ORVO_FIELD(kPerObjectHoldOut, "Per Object Hold-Out")                                    \
          .ORVO_FIELD(kAllObjectHoldOut, "All Object Hold-Out")                                    \
          .setNativeDefaultData(kPerObjectHoldOut))                                                \
    ORVO_VPR_BOOL(A, XrayMode, "xrayMode", "xry", false)                                           \
    ORVO_VPR_BOOL(A, XrayJointDisplay, "xrayJointDisplay", "jxr", false)                           \
    ORVO_VPR_BOOL(A, SingleSidedLighting, "singleSidedLighting", "sslt", false)                    \
    ORVO_VPR_INT(A, ColorBakeResolution, "colorBakeResolution", "cbr",                             \
                 .setNativeDefaultData(64).range(4, 8192))                                         \
    ORVO_VPR_INT(A, BumpBakeResolution, "bumpBakeResolution", "bbr",                               \
                 .setNativeDefaultData(64).range(4, 8192))                                         \
    ORVO_VPR_INT(A, MaxHardwareLights, "maxHardwareLights", "mhl",                                 \
                 .setNativeDefaultData(8).min(1))                                                  \
    ORVO_VPR_BOOL(A, UseMaximumHardwareLights, "useMaximumHardwareLights", "uml", true)            \
    ORVO_VPR_BOOL(A, ConsolidateWorld, "consolidateWorld", "cons", true)                           \
    A(TattributeEnum, VertexAnimationCache, "vertexAnimationCache", "vac",                         \
      .input()                                                                                     \
          .ORVO_FIELD(kDisable, "Disable")                                                         \
          .ORVO_FIELD(kSystem, "System")                                                           \
          .ORVO_FIELD(kHardware, "Hardware")                                                       \
          .setNativeDefaultData(kDisable))                                                         \
    ORVO_VPR_BOOL(A, HwInstancing, "hwInstancing", "hwi", false)                                   \
    ORVO_VPR_BOOL(A, CompressSharedVertexData, "compressSharedVertexData", "csvd", false)          \
    A(TattributeEnum, TransparencyAlgorithm, "transparencyAlgorithm", "ta",                        \
      .input()                                                                                     \
          .ORVO_FIELD(kSimple, "Simple")                                                           \
          .ORVO_FIELD(kObjectSort, "Object Sorting")                                               \
          .ORVO_FIELD(kWeightedAverage, "Weighted Average")                                        \
          .ORVO_FIELD(kDepthPeel, "Depth Peeling")                                                 \
          .ORVO_FIELD(kAlphaCut, "Alpha Cut")                                                      \
          .setNativeDefaultData(kObjectSort))                                                      \
    ORVO_VPR_FLOAT(A, TransparencyQuality, "transparencyQuality", "tq",                            \
                   .setNativeDefaultData(0.33f).range(0, 1))                                       \
    ORVO_VPR_BOOL(A, TransparentShadow, "transparentShadow", "ts", false)                          \
    ORVO_VPR_BOOL(A, EnableTextureMaxRes, "enableTextureMaxRes", "etmr", false)                    \
    A(TattributeEnum, TextureMaxResMode, "textureMaxResMode", "tmrm",                              \
      .input()                                                                                     \
          .ORVO_FIELD(kAutomatic, "Automatic")                                                     \
          .ORVO_FIELD(kCustom, "Custom")                                                           \
          .setNativeDefaultData(kAutomatic))                                                       \
    ORVO_VPR_INT(A, TextureMaxResolution, "textureMaxResolution", "tmr",                           \
                 .setNativeDefaultData(2048).max(16384))                                           \
    ORVO_VPR_INT(A, TextureAutoMaxResolution, "textureAutoMaxResolution", "tamr",                  \
                 .setNativeDefaultData(2048).max(16384))                                           \
    ORVO_VPR_BOOL(A, SsaoEnable, "ssaoEnable", "aoon", false)                                      \
    ORVO_VPR_FLOAT(A, SsaoAmount, "ssaoAmount", "aoam", .setNativeDefaultData(1.0f).range(0, 3))   \
    ORVO_VPR_INT(A, SsaoRadius, "ssaoRadius", "aora", .setNativeDefaultData(16).range(1, 64))      \
    A(TattributeTyped, SsaoFilter, "ssaoFilter", "aoft",                                           \
      .input().setNativeDefaultData(ORVO_VPR_FILTER))                                              \
    ORVO_VPR_INT(A, SsaoFilterRadius, "ssaoFilterRadius", "aofr",                                  \
                 .setNativeDefaultData(16).range(1, 64))                                           \
    A(TattributeEnum, SsaoSamples, "ssaoSamples", "aosm",                                          \
      .input()                                                                                     \
          .ORVO_FIELD(kSsaoEight, "8")                                                             \
          .ORVO_FIELD(kSsaoSixteen, "16")                                                          \
          .ORVO_FIELD(kSsaoThirtyTwo, "32")                                                        \
          .setNativeDefaultData(kSsaoSixteen))                                                     \
    ORVO_VPR_BOOL(A, RenderDepthOfField, "renderDepthOfField", "adof", false)                      \
    ORVO_VPR_BOOL(A, HwFogEnable, "hwFogEnable", "hfon", false)                                    \
    A(TattributeEnum, HwFogFalloff, "hwFogFalloff", "hff",                                         \
      .input()                                                                                     \
          .ORVO_FIELD(kLinear, "Linear")                                                           \
          .ORVO_FIELD(kExponential, "Exponential")                                                 \
          .ORVO_FIELD(kExponential2, "Exponential squared")                                        \
          .setNativeDefaultData(kLinear))                                                          \
    ORVO_VPR_FLOAT(A, HwFogDensity, "hwFogDensity", "hfd",                                         \
                   .setNativeDefaultData(0.1f).range(0, 1))                                        \
    ORVO_VPR_FLOAT(A, HwFogStart, "hwFogStart", "hfs", .setNativeDefaultData(0.0f))                \
    ORVO_VPR_FLOAT(A, HwFogEnd, "hwFogEnd", "hfe", .setNativeDefaultData(100.0f))                  \
    ORVO_VPR_RGB(C3, HwFogColor, "hwFogColor", "hfc", 0.5f)                                        \
    ORVO_VPR_FLOAT(A, HwFogAlpha, "hwFogAlpha", "hfa", .setNativeDefaultData(1.0f))                \
    ORVO_VPR_BOOL(A, MotionBlurEnable, "motionBlurEnable", "mbe", false)                           \
    A(TattributeEnum, MotionBlurType, "motionBlurType", "mbt",                                     \
      .input().ORVO_FIELD(kTransform, "Transform").setNativeDefaultData(kTransform))               \
    ORVO_VPR_FLOAT(A, MotionBlurShutterOpenFraction, "motionBlurShutterOpenFraction", "mbsof",     \
                   .setNativeDefaultData(0.2f).range(0.01, 2))                                     \
    A(TattributeEnum, MotionBlurSampleCount, "motionBlurSampleCount", "mbsc",                      \
      .input()                                                                                     \
          .ORVO_FIELD(kMBFour, "4")                                                                \
          .ORVO_FIELD(kMBEight, "8")                                                               \
          .ORVO_FIELD(kMBSixteen, "16")                                                            \
          .ORVO_FIELD(kMBThirtyTwo, "32")                                                          \
          .setNativeDefaultData(kMBEight))                                                         \
    ORVO_VPR_BOOL(A, MotionBlurCurved, "motionBlurCurved", "mbc", false)                           \
    A(TattributeTyped, MotionBlurFadeFilter, "motionBlurFadeFilter", "mbff",                       \
      .input().setNativeDefaultData(ORVO_VPR_FILTER))                                              \
    ORVO_VPR_FLOAT(A, MotionBlurFadeAmount, "motionBlurFadeAmount", "mbfa",                        \
                   .setNativeDefaultData(0.5f).range(0, 1))                                        \
    ORVO_VPR_RGB(C3, MotionBlurFadeTint, "motionBlurFadeTint", "mbft", 0.0f)                       \
    ORVO_VPR_FLOAT(A, MotionBlurFadeEmphasis, "motionBlurFadeEmphasis", "mbfe",                    \
                   .setNativeDefaultData(0.0f))                                                    \
    ORVO_VPR_BOOL(A, MotionBlurMultiframeEnable, "motionBlurMultiframeEnable", "mbme", false)      \
    ORVO_VPR_INT2(A, MotionBlurMultiframeChartSize, "motionBlurMultiframeChartSize", "mbcs", 256,  \
                  256, .range(1, 4096))                                                            \
    ORVO_VPR_INT2(A, MotionBlurAtlasSize, "motionBlurAtlasSize", "mbas", 8, 4, )                   \
    ORVO_VPR_BOOL(A, BloomEnable, "bloomEnable", "blen", false)                                    \
    ORVO_VPR_FLOAT(A, BloomThreshold, "bloomThreshold", "blth", .setNativeDefaultData(0.0f))       \
    A(TattributeTyped, BloomFilter, "bloomFilter", "blfl",                                         \
      .input().setNativeDefaultData(ORVO_VPR_FILTER))                                              \
    ORVO_VPR_FLOAT(A, BloomFilterRadius, "bloomFilterRadius", "blfr", .setNativeDefaultData(0.0f)) \
    ORVO_VPR_FLOAT(A, BloomFilterAux, "bloomFilterAux", "blfa", .setNativeDefaultData(0.0f))       \
    ORVO_VPR_FLOAT(A, BloomAmount, "bloomAmount", "blat", .setNativeDefaultData(0.0f))             \
    ORVO_VPR_BOOL(A, MultiSampleEnable, "multiSampleEnable", "msaa", false)                        \
    A(TattributeEnum, MultiSampleCount, "multiSampleCount", "aasc",                                \
      .input()                                                                                     \
          .ORVO_FIELD(kMSAAOne, "1")                                                               \
          .ORVO_FIELD(kMSAATwo, "2")                                                               \
          .ORVO_FIELD(kMSAAFour, "4")                                                              \
          .ORVO_FIELD(kMSAAEight, "8")                                                             \
          .ORVO_FIELD(kMSAASixteen, "16")                                                          \
          .setNativeDefaultData(kMSAAEight))                                                       \
    A(TattributeEnum, MultiSampleQuality, "multiSampleQuality", "aasq",                            \
      .input().ORVO_FIELD(kMSAAQualityLevelZero, "0").setNativeDefaultData(kMSAAQualityLevelZero)) \
    ORVO_VPR_BOOL(A, LineAAEnable, "lineAAEnable", "laa", false)                                   \
    ORVO_VPR_BOOL(A, GammaCorrectionEnable, "gammaCorrectionEnable", "gamm", false)                \
    ORVO_VPR_FLOAT(A, GammaValue, "gammaValue", "gmmv", .setNativeDefaultData(2.2f))               \
    ORVO_VPR_BOOL(A, FloatingPointRTEnable, "floatingPointRTEnable", "fprt", false)                \
    A(TattributeEnum, FloatingPointRTFormat, "floatingPointRTFormat", "rtfm",                      \
      .input()                                                                                     \
          .ORVO_FIELD(kFPRTFormatRGBA32, "R32G32B32A32_FLOAT")                                     \
          .ORVO_FIELD(kFPRTFormatRGB32, "R32G32B32_FLOAT")                                         \
          .ORVO_FIELD(kFPRTFormatRGBA16, "R16G16B16A16_FLOAT")                                     \
          .setNativeDefaultData(kFPRTFormatRGBA32))                                                \
    ORVO_VPR_BOOL(A, QuadDrawAlwaysOnTop, "quadDrawAlwaysOnTop", "qdaot", false)                   \
    ORVO_VPR_RGB(C3, QuadDrawOverrideColor, "quadDrawOverrideColor", "qdoc", 0.0f)                 \
    ORVO_VPR_FLOAT(A, QuadDrawOverrideTransparency, "quadDrawOverrideTransparency", "qdot",        \
                   .setNativeDefaultData(0.0f))                                                    \
    ORVO_VPR_BOOL(A, IsCustomUVBorderColor, "isCustomUVBorderColor", "isuvbc", false)              \
    ORVO_VPR_RGB(C3, CustomUVBorderColor, "customUVBorderColor", "uvbc", 0.0f)

ORVO_NODE(TdnVPRRenderGlobals, TdependNode, "hardwareRenderingGlobals", "HRRG", 1066,
          "kHardwareRenderingGlobals", "rendernode/settings", "n_hardwareRenderingGlobals")

// Sent to a node's listeners when motion blur turns on or off.
struct TVPRrenderGlobalsMotionblurModifiedMsg {
    TdnVPRRenderGlobals* node;
    bool enabled;
};

class TdnVPRRenderGlobals : public TdnPattern<TdnVPRRenderGlobals, TdependNode> {
public:
    using K = TdnKernel<TdnVPRRenderGlobals>;

    // The current instance, "hardwareRenderingGlobals", made once in `graph`
    // as an implicit default; currentGlobals finds it in the current graph.
    static TdnVPRRenderGlobals* createCurrentGlobals(TdependGraph& graph);
    static TdnVPRRenderGlobals* currentGlobals(const TdependGraph* graph = nullptr);

    Tstring getString(const Tattribute& attribute) const;
    // Array settings hold their elements as words separated by blanks.
    std::vector<Tstring> getStringArray(const Tattribute& attribute) const;
    std::vector<int32_t> getInt32Array(const Tattribute& attribute) const;
    bool getBoolean(const Tattribute& attribute) const;
    void setEnum(const Tattribute& attribute, int value);
    void setBoolean(const Tattribute& attribute, bool value);
    void setInt(const Tattribute& attribute, int value);
    void setRenderOverrideName(const Tstring& name);
    void setFragmentLibraryName(const Tstring& name);
    void setCurrentRendererName(const Tstring& name);

    // True when motion blur is driven by a connection, else its value.
    bool isMotionblurOnOrAnimated() const;

    using MotionblurListener = std::function<void(const TVPRrenderGlobalsMotionblurModifiedMsg&)>;
    void addMotionblurListener(MotionblurListener listener) {
        fListeners.push_back(std::move(listener));
    }

    bool setCachedValue(const Tplug& plug, const TdataHandle& value) override;
    void connectionMade(const Tplug& mine, const Tplug& other, bool asSource) override;
    void connectionBroken(const Tplug& mine, const Tplug& other, bool asSource) override;
    void setDirty(TmsgDirty& msg) override { TdnPattern::setDirty(msg); }

private:
    void sendMotionblur(bool enabled);
    std::vector<MotionblurListener> fListeners;
};
