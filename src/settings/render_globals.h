#pragma once

// renderGlobals: what a render is told to do. The output format and its
// file-name options, the frame range, motion blur, region, the hooks that
// run in the scene language around the render, and the links to the
// quality and resolution nodes. It computes nothing: renders, the naming
// code and scripts read its stored values.
//
// Times (startFrame, endFrame, byFrame) are in frames; the defaults 1, 10
// and 1 are the scene's first ten frames.

#include "framework/node_pattern.h"
#include "settings/settings_values.h"

class TdnRenderGlobals;
class TdnRenderQuality;
class TdnResolution;

template <>
struct TdnKernel<TdnRenderGlobals> {
    // imageFormat: the output formats. The gaps in the numbering are kept:
    // scenes store the numbers.
    enum eOutFormat : int16_t {
        kGIF = 0,
        kSI = 1,
        kRLA = 2,
        kTIFF = 3,
        kTIFF16 = 4,
        kSGI = 5,
        kVELD = 6,
        kIFF = 7,
        kJPEG = 8,
        kEPS = 9,
        kIFF16 = 10,
        kCINEON = 11,
        kQUANTEL = 12,
        kSGI16 = 13,
        kTARGA = 19,
        kBMP = 20,
        kSGIMV = 21,
        kQT = 22,
        kAVI = 23,
        kMACPAINT = 30,
        kPHOTOSHOP = 31,
        kPNG = 32,
        kQUICKDRAW = 33,
        kQTIMAGE = 34,
        kDDS = 35,
        kPHOTOSHOPLAYERED = 36,
        kEXR = 40,
        kIMF = 50,
        kCustom = 51,
        kSWF = 60,
        kAI = 61,
        kSVG = 62,
        kSWFT = 63,
    };
    enum : int16_t {
        kEXRCompressionNone = 0,
        kEXRCompressionRLE = 1,
        kEXRCompressionZIPS = 2,
        kEXRCompressionZIP = 3,
        kEXRCompressionPIZ = 4,
        kEXRCompressionPXR24 = 5,
        kEXRCompressionB44 = 6,
    };
    enum : int16_t { kEXRPixelTypeFloat = 0, kEXRPixelTypeHalf = 1 };
    enum eAnimationRange : int16_t { kUseGlobals = 0, kUseStartEnd = 1 };
    enum : int16_t { kDefaultFieldExt = 0, kNoFieldExt = 1, kArbFieldExt = 2 };
    enum : int16_t { kDefaultOutputExt = 0, kNoOutputExt = 1, kArbOutputExt = 2 };
    enum ePeriodInExt : int16_t { kNothingInExt = 0, kPeriodInExt = 1, kUnderscoreInExt = 2 };
    enum eMultiCamNamingMode : int16_t { kBufferNamingAutomatic = 0, kBufferNamingCustom = 1 };
    enum eMotionBlurType : int16_t { kUseMotionBlur2D = 0, kUseMotionBlur3D = 1 };
    enum : int16_t { kAllRenderable = 0, kRenderTargetsOnly = 1, kOmitRenderTargets = 2 };
};

// Shorthands for the schema below.
#define ORVO_RG_BOOL(A, Name, Long, Short, On)                                                     \
    A(TattributeBoolean, Name, Long, Short, .input().setNativeDefaultData(On))
#define ORVO_RG_INT(A, Name, Long, Short, Default)                                                 \
    A(TattributeInt32, Name, Long, Short, .input().setNativeDefaultData(Default))
#define ORVO_RG_FLOAT(A, Name, Long, Short, Default)                                               \
    A(TattributeFloat, Name, Long, Short, .input().setNativeDefaultData(Default))
#define ORVO_RG_STRING(A, Name, Long, Short) A(TattributeTyped, Name, Long, Short, .input())

// The image formats, shared by the settings nodes that name one; the
// enumerators are TdnKernel<TdnRenderGlobals>'s.
#define ORVO_IMAGE_FORMAT_FIELDS                                                                   \
    .ORVO_FIELD(kGIF, "GIF")                                                                       \
        .ORVO_FIELD(kSI, "SoftImage")                                                              \
        .ORVO_FIELD(kRLA, "RLA")                                                                   \
        .ORVO_FIELD(kTIFF, "Tiff")                                                                 \
        .ORVO_FIELD(kTIFF16, "Tiff16")                                                             \
        .ORVO_FIELD(kSGI, "SGI")                                                                   \
        .ORVO_FIELD(kVELD, "Veld PIX")                                                             \
        .ORVO_FIELD(kIFF, "Orvo IFF")                                                              \
        .ORVO_FIELD(kJPEG, "JPEG")                                                                 \
        .ORVO_FIELD(kEPS, "EPS")                                                                   \
        .ORVO_FIELD(kIFF16, "Orvo16 IFF")                                                          \
        .ORVO_FIELD(kCINEON, "Cineon")                                                             \
        .ORVO_FIELD(kQUANTEL, "Quantel")                                                           \
        .ORVO_FIELD(kSGI16, "SGI16")                                                               \
        .ORVO_FIELD(kTARGA, "Targa")                                                               \
        .ORVO_FIELD(kBMP, "Windows Bitmap")                                                        \
        .ORVO_FIELD(kSGIMV, "SGI Movie")                                                           \
        .ORVO_FIELD(kQT, "Quicktime")                                                              \
        .ORVO_FIELD(kAVI, "AVI")                                                                   \
        .ORVO_FIELD(kMACPAINT, "MacPaint")                                                         \
        .ORVO_FIELD(kPHOTOSHOP, "PSD")                                                             \
        .ORVO_FIELD(kPNG, "PNG")                                                                   \
        .ORVO_FIELD(kQUICKDRAW, "QuickDraw")                                                       \
        .ORVO_FIELD(kQTIMAGE, "QuickTime Image")                                                   \
        .ORVO_FIELD(kDDS, "DDS")                                                                   \
        .ORVO_FIELD(kPHOTOSHOPLAYERED, "PSD Layered")                                              \
        .ORVO_FIELD(kEXR, "EXR(exr)")                                                              \
        .ORVO_FIELD(kIMF, "IMF plugin")                                                            \
        .ORVO_FIELD(kCustom, "Custom Image Format")                                                \
        .ORVO_FIELD(kSWF, "Macromedia SWF (swf)")                                                  \
        .ORVO_FIELD(kAI, "Adobe Illustrator (ai)")                                                 \
        .ORVO_FIELD(kSVG, "SVG (svg)")                                                             \
        .ORVO_FIELD(kSWFT, "Swift3DImporter (swft)")

#define ORVO_SCHEMA_TdnRenderGlobals(A, C2, C3)                                                    \
    ORVO_RG_INT(A, MacCodec, "macCodec", "macc", 0x726C6520)                                       \
    ORVO_RG_INT(A, MacDepth, "macDepth", "macd", 32)                                               \
    ORVO_RG_INT(A, MacQual, "macQual", "macq", 1024)                                               \
    ORVO_RG_INT(A, ComFrrt, "comFrrt", "mcfr", 24)                                                 \
    ORVO_RG_BOOL(A, RenderAll, "renderAll", "ra", true)                                            \
    ORVO_RG_BOOL(A, IgnoreFilmGate, "ignoreFilmGate", "ifg", true)                                 \
    A(TattributeMessage, Quality, "quality", "qual", .flagsOn(0))                                  \
    A(TattributeMessage, Resolution, "resolution", "res", .flagsOn(0))                             \
    ORVO_RG_BOOL(A, ClipFinalShadedColor, "clipFinalShadedColor", "clip", true)                    \
    ORVO_RG_BOOL(A, EnableDepthMaps, "enableDepthMaps", "edm", true)                               \
    ORVO_RG_BOOL(A, EnableDefaultLight, "enableDefaultLight", "edl", true)                         \
    A(TattributeTyped, CurrentRenderer, "currentRenderer", "ren",                                  \
      .input().setNativeDefaultData(OrvoMakeStringData("orvoSoftware")))                           \
    ORVO_RG_BOOL(A, EnableStrokeRender, "enableStrokeRender", "esr", true)                         \
    ORVO_RG_BOOL(A, OnlyRenderStrokes, "onlyRenderStrokes", "ors", false)                          \
    ORVO_RG_BOOL(A, StrokesDepthFile, "strokesDepthFile", "sdf", false)                            \
    A(TattributeEnum, ImageFormat, "imageFormat", "outf",                                          \
      .input() ORVO_IMAGE_FORMAT_FIELDS.setNativeDefaultData(kIFF))                                \
    ORVO_RG_STRING(A, ImfPluginKey, "imfPluginKey", "imfkey")                                      \
    ORVO_RG_FLOAT(A, GammaCorrection, "gammaCorrection", "gama", 1.0f)                             \
    A(TattributeEnum, ExrCompression, "exrCompression", "exrc",                                    \
      .input()                                                                                     \
          .ORVO_FIELD(kEXRCompressionNone, "None")                                                 \
          .ORVO_FIELD(kEXRCompressionRLE, "RLE")                                                   \
          .ORVO_FIELD(kEXRCompressionZIPS, "ZIPS")                                                 \
          .ORVO_FIELD(kEXRCompressionZIP, "ZIP")                                                   \
          .ORVO_FIELD(kEXRCompressionPIZ, "PIZ")                                                   \
          .ORVO_FIELD(kEXRCompressionPXR24, "PXR24")                                               \
          .ORVO_FIELD(kEXRCompressionB44, "B44")                                                   \
          .setNativeDefaultData(kEXRCompressionNone))                                              \
    A(TattributeEnum, ExrPixelType, "exrPixelType", "expt",                                        \
      .input()                                                                                     \
          .ORVO_FIELD(kEXRPixelTypeFloat, "32bit Float")                                           \
          .ORVO_FIELD(kEXRPixelTypeHalf, "16bit Half")                                             \
          .setNativeDefaultData(kEXRPixelTypeFloat))                                               \
    ORVO_RG_INT(A, TopRegion, "topRegion", "top", 256)                                             \
    ORVO_RG_INT(A, LeftRegion, "leftRegion", "left", 0)                                            \
    ORVO_RG_INT(A, BottomRegion, "bottomRegion", "bot", 0)                                         \
    ORVO_RG_INT(A, RightRegion, "rightRegion", "rght", 256)                                        \
    ORVO_RG_BOOL(A, UseRenderRegion, "useRenderRegion", "urr", false)                              \
    ORVO_RG_BOOL(A, Animation, "animation", "an", false)                                           \
    A(TattributeEnum, AnimationRange, "animationRange", "ar",                                      \
      .input()                                                                                     \
          .ORVO_FIELD(kUseGlobals, "Render Settings")                                              \
          .ORVO_FIELD(kUseStartEnd, "Start/End")                                                   \
          .setNativeDefaultData(kUseStartEnd))                                                     \
    A(TattributeTime, StartFrame, "startFrame", "fs", .input().setNativeDefaultData(1.0))          \
    A(TattributeTime, EndFrame, "endFrame", "ef", .input().setNativeDefaultData(10.0))             \
    A(TattributeTime, ByFrame, "byFrame", "bf", .input().setNativeDefaultData(1.0))                \
    ORVO_RG_FLOAT(A, ByFrameStep, "byFrameStep", "bfs", 1.0f)                                      \
    ORVO_RG_BOOL(A, SkipExistingFrames, "skipExistingFrames", "sef", false)                        \
    ORVO_RG_BOOL(A, ModifyExtension, "modifyExtension", "me", false)                               \
    ORVO_RG_FLOAT(A, StartExtension, "startExtension", "se", 1.0f)                                 \
    ORVO_RG_FLOAT(A, ByExtension, "byExtension", "be", 1.0f)                                       \
    A(TattributeInt32, ExtensionPadding, "extensionPadding", "ep",                                 \
      .input().setNativeDefaultData(4).range(0, 10))                                               \
    A(TattributeEnum, FieldExtControl, "fieldExtControl", "fec",                                   \
      .input()                                                                                     \
          .ORVO_FIELD(kDefaultFieldExt, ".o and .e")                                               \
          .ORVO_FIELD(kNoFieldExt, "None")                                                         \
          .ORVO_FIELD(kArbFieldExt, "User Input")                                                  \
          .setNativeDefaultData(kDefaultFieldExt))                                                 \
    A(TattributeEnum, OutFormatControl, "outFormatControl", "ofc",                                 \
      .input()                                                                                     \
          .ORVO_FIELD(kDefaultOutputExt, "As Output Format")                                       \
          .ORVO_FIELD(kNoOutputExt, "None")                                                        \
          .ORVO_FIELD(kArbOutputExt, "User Input")                                                 \
          .setNativeDefaultData(kDefaultOutputExt))                                                \
    ORVO_RG_STRING(A, OddFieldExt, "oddFieldExt", "ofe")                                           \
    ORVO_RG_STRING(A, EvenFieldExt, "evenFieldExt", "efe")                                         \
    ORVO_RG_STRING(A, OutFormatExt, "outFormatExt", "oft")                                         \
    ORVO_RG_BOOL(A, UseOrvoFileName, "useOrvoFileName", "umfn", true)                              \
    ORVO_RG_BOOL(A, UseFrameExt, "useFrameExt", "ufe", false)                                      \
    ORVO_RG_BOOL(A, PutFrameBeforeExt, "putFrameBeforeExt", "pff", false)                          \
    A(TattributeEnum, PeriodInExt, "periodInExt", "peie",                                          \
      .input()                                                                                     \
          .ORVO_FIELD(kNothingInExt, "No Period or Underscore in Extension")                       \
          .ORVO_FIELD(kPeriodInExt, "Period in Extension")                                         \
          .ORVO_FIELD(kUnderscoreInExt, "Underscore in Extension")                                 \
          .setNativeDefaultData(kPeriodInExt))                                                     \
    ORVO_RG_STRING(A, ImageFilePrefix, "imageFilePrefix", "ifp")                                   \
    ORVO_RG_STRING(A, RenderVersion, "renderVersion", "rv")                                        \
    ORVO_RG_STRING(A, BufferName, "bufferName", "bn")                                              \
    A(TattributeEnum, MultiCamNamingMode, "multiCamNamingMode", "mcnm",                            \
      .input()                                                                                     \
          .ORVO_FIELD(kBufferNamingAutomatic, "Automatic")                                         \
          .ORVO_FIELD(kBufferNamingCustom, "Custom")                                               \
          .setNativeDefaultData(kBufferNamingAutomatic))                                           \
    ORVO_RG_BOOL(A, Composite, "composite", "comp", false)                                         \
    A(TattributeFloat, CompositeThreshold, "compositeThreshold", "cth",                            \
      .input().setNativeDefaultData(0.0f).range(0, 1))                                             \
    ORVO_RG_BOOL(A, ShadowsObeyLightLinking, "shadowsObeyLightLinking", "soll", true)              \
    ORVO_RG_BOOL(A, ShadowsObeyShadowLinking, "shadowsObeyShadowLinking", "sosl", false)           \
    A(TattributeInt32, RecursionDepth, "recursionDepth", "rd",                                     \
      .input().setNativeDefaultData(2).range(0, 10))                                               \
    A(TattributeInt32, LeafPrimitives, "leafPrimitives", "lp",                                     \
      .input().setNativeDefaultData(200).range(50, 5000))                                          \
    A(TattributeFloat, SubdivisionPower, "subdivisionPower", "sp",                                 \
      .input().setNativeDefaultData(0.25f).range(0.01, 1))                                         \
    A(TattributeInt32, SubdivisionHashSize, "subdivisionHashSize", "shs",                          \
      .input().setNativeDefaultData(5).range(1, 100))                                              \
    ORVO_RG_BOOL(A, LogRenderPerformance, "logRenderPerformance", "lpr", false)                    \
    A(TattributeInt32, GeometryVector, "geometryVector", "gv",                                     \
      .input().setNativeDefaultData(20).range(1, 500))                                             \
    A(TattributeInt32, ShadingVector, "shadingVector", "sv",                                       \
      .input().setNativeDefaultData(60).range(1, 500))                                             \
    A(TattributeInt32, MaximumMemory, "maximumMemory", "mm",                                       \
      .input().setNativeDefaultData(48).range(1, 2048))                                            \
    A(TattributeInt32, NumCpusToUse, "numCpusToUse", "npu",                                        \
      .input().setNativeDefaultData(0).min(0))                                                     \
    A(TattributeInt32, InterruptFrequency, "interruptFrequency", "itf",                            \
      .input().setNativeDefaultData(1).min(-1))                                                    \
    ORVO_RG_BOOL(A, ShadowPass, "shadowPass", "shp", false)                                        \
    ORVO_RG_BOOL(A, IprShadowPass, "iprShadowPass", "isp", false)                                  \
    ORVO_RG_BOOL(A, UseFileCache, "useFileCache", "uf", true)                                      \
    ORVO_RG_BOOL(A, OptimizeInstances, "optimizeInstances", "oi", true)                            \
    ORVO_RG_BOOL(A, ReuseTessellations, "reuseTessellations", "rut", true)                         \
    ORVO_RG_BOOL(A, MatteOpacityUsesTransparency, "matteOpacityUsesTransparency", "mot", true)     \
    ORVO_RG_BOOL(A, MotionBlur, "motionBlur", "mb", false)                                         \
    ORVO_RG_FLOAT(A, MotionBlurByFrame, "motionBlurByFrame", "mbf", 1.0f)                          \
    ORVO_RG_BOOL(A, MotionBlurUseShutter, "motionBlurUseShutter", "mbus", false)                   \
    ORVO_RG_FLOAT(A, MotionBlurShutterOpen, "motionBlurShutterOpen", "mbso", -0.5f)                \
    ORVO_RG_FLOAT(A, MotionBlurShutterClose, "motionBlurShutterClose", "mbsc", 0.5f)               \
    A(TattributeMessage, FogGeometry, "fogGeometry", "fg", .flagsOn(0))                            \
    ORVO_RG_BOOL(A, ApplyFogInPost, "applyFogInPost", "afp", false)                                \
    A(TattributeInt32, PostFogBlur, "postFogBlur", "pfb",                                          \
      .input().setNativeDefaultData(1).range(0, 1000))                                             \
    ORVO_RG_STRING(A, PreQsl, "preQsl", "pram")                                                    \
    ORVO_RG_STRING(A, PostQsl, "postQsl", "poam")                                                  \
    ORVO_RG_STRING(A, PreRenderLayerQsl, "preRenderLayerQsl", "prlm")                              \
    ORVO_RG_STRING(A, PostRenderLayerQsl, "postRenderLayerQsl", "polm")                            \
    ORVO_RG_STRING(A, PreRenderQsl, "preRenderQsl", "prm")                                         \
    ORVO_RG_STRING(A, PostRenderQsl, "postRenderQsl", "pom")                                       \
    ORVO_RG_STRING(A, PreFurRenderQsl, "preFurRenderQsl", "pfrm")                                  \
    ORVO_RG_STRING(A, PostFurRenderQsl, "postFurRenderQsl", "pfom")                                \
    ORVO_RG_BOOL(A, CreateIprFile, "createIprFile", "cif", false)                                  \
    A(TattributeFloat, BlurLength, "blurLength", "bll",                                            \
      .input().setNativeDefaultData(1.0f).range(0, 100))                                           \
    A(TattributeFloat, BlurSharpness, "blurSharpness", "bls",                                      \
      .input().setNativeDefaultData(1.0f).range(0, 100))                                           \
    A(TattributeInt32, SmoothValue, "smoothValue", "smv", .input().setNativeDefaultData(2).min(0)) \
    ORVO_RG_BOOL(A, UseBlur2DMemoryCap, "useBlur2DMemoryCap", "ubc", true)                         \
    A(TattributeFloat, Blur2DMemoryCap, "blur2DMemoryCap", "mbc",                                  \
      .input().setNativeDefaultData(200.0f).min(1))                                                \
    A(TattributeEnum, MotionBlurType, "motionBlurType", "mbt",                                     \
      .input()                                                                                     \
          .ORVO_FIELD(kUseMotionBlur2D, "Motion Blur 2D")                                          \
          .ORVO_FIELD(kUseMotionBlur3D, "Motion Blur 3D")                                          \
          .setNativeDefaultData(kUseMotionBlur3D))                                                 \
    ORVO_RG_BOOL(A, UseDisplacementBoundingBox, "useDisplacementBoundingBox", "udbx", true)        \
    ORVO_RG_BOOL(A, SmoothColor, "smoothColor", "smc", false)                                      \
    ORVO_RG_BOOL(A, KeepMotionVector, "keepMotionVector", "kmv", false)                            \
    ORVO_RG_BOOL(A, IprRenderShading, "iprRenderShading", "isl", true)                             \
    ORVO_RG_BOOL(A, IprRenderShadowMaps, "iprRenderShadowMaps", "ism", true)                       \
    ORVO_RG_BOOL(A, IprRenderMotionBlur, "iprRenderMotionBlur", "imb", true)                       \
    A(TattributeMessage, Rendercallback, "rendercallback", "rcb", .flagsOn(0))                     \
    ORVO_RG_BOOL(A, RenderLayerEnable, "renderLayerEnable", "rlen", false)                         \
    ORVO_RG_BOOL(A, ForceTileSize, "forceTileSize", "frts", false)                                 \
    A(TattributeInt16, TileWidth, "tileWidth", "tlwd", .input().setNativeDefaultData(64))          \
    A(TattributeInt16, TileHeight, "tileHeight", "tlht", .input().setNativeDefaultData(64))        \
    ORVO_RG_BOOL(A, JitterFinalColor, "jitterFinalColor", "jfc", true)                             \
    ORVO_RG_BOOL(A, RaysSeeBackground, "raysSeeBackground", "rsb", true)                           \
    ORVO_RG_BOOL(A, OversamplePaintEffects, "oversamplePaintEffects", "ope", false)                \
    ORVO_RG_BOOL(A, OversamplePfxPostFilter, "oversamplePfxPostFilter", "oppf", false)             \
    ORVO_RG_BOOL(A, ColorProfileEnabled, "colorProfileEnabled", "cpe", false)                      \
    ORVO_RG_INT(A, RenderingColorProfile, "renderingColorProfile", "rcp", 2)                       \
    ORVO_RG_INT(A, InputColorProfile, "inputColorProfile", "icp", 3)                               \
    ORVO_RG_INT(A, OutputColorProfile, "outputColorProfile", "ocp", 2)                             \
    ORVO_RG_STRING(A, ShaderBinList, "shaderBinList", "sbl")                                       \
    A(TattributeMessage, SwatchCamera, "swatchCamera", "sc", .flagsOn(0))                          \
    A(TattributeEnum, RenderedOutput, "renderedOutput", "ro",                                      \
      .input()                                                                                     \
          .ORVO_FIELD(kAllRenderable, "All Renderable")                                            \
          .ORVO_FIELD(kRenderTargetsOnly, "Render Targets Only")                                   \
          .ORVO_FIELD(kOmitRenderTargets, "Omit Render Targets")                                   \
          .setNativeDefaultData(kAllRenderable))                                                   \
    ORVO_RG_STRING(A, DefaultTraversalSet, "defaultTraversalSet", "dts")

ORVO_NODE(TdnRenderGlobals, TdependNode, "renderGlobals", "RGLB", 519, "kRenderGlobals",
          "rendernode/settings", "n_renderGlobals")

// How shadows follow links (shadowLinkMode).
enum TshadowLinkMode : int {
    kShadowsIgnoreLinks = 0,
    kShadowsObeyShadowLinking = 1,
    kShadowsObeyLightLinking = 2
};

// Sets the two linking flags of a settings node (render globals and the
// hardware renderer's) for a shadowLinkMode; another mode changes nothing.
template <class Settings>
void OrvoSetShadowLinkMode(Settings& settings, int mode) {
    if (mode != kShadowsIgnoreLinks && mode != kShadowsObeyShadowLinking &&
        mode != kShadowsObeyLightLinking)
        return;
    settings.setShadowsObeyShadowLinking(mode == kShadowsObeyShadowLinking);
    settings.setShadowsObeyLightLinking(mode == kShadowsObeyLightLinking);
}

class TdnRenderGlobals : public TdnPattern<TdnRenderGlobals, TdependNode> {
public:
    using OutFormat = TdnKernel<TdnRenderGlobals>::eOutFormat;

    // ---- plain accessors, and setters that win over a connection
    ORVO_SETTING_INT(macCodec, setMacCodec, MacCodec)
    ORVO_SETTING_INT(macDepth, setOrvoMacCodecDepth, MacDepth)
    ORVO_SETTING_INT(macQual, setOrvoMacCodecSpatialQual, MacQual)
    ORVO_SETTING_INT(comFrrt, setComFrrt, ComFrrt)
    ORVO_SETTING_BOOL(renderAll, setRenderAll, RenderAll)
    ORVO_SETTING_BOOL(ignoreFilmGate, setIgnoreFilmGate, IgnoreFilmGate)
    ORVO_SETTING_BOOL(clipFinalShadedColor, setClipFinalShadedColor, ClipFinalShadedColor)
    ORVO_SETTING_BOOL(enableDefaultLight, setEnableDefaultLight, EnableDefaultLight)
    ORVO_SETTING_STRING(currentRenderer, setCurrentRenderer, CurrentRenderer)
    ORVO_SETTING_BOOL(enableStrokeRender, setEnableStrokeRender, EnableStrokeRender)
    ORVO_SETTING_BOOL(onlyRenderStrokes, setOnlyRenderStrokes, OnlyRenderStrokes)
    ORVO_SETTING_BOOL(strokesDepthFile, setStrokesDepthFile, StrokesDepthFile)
    ORVO_SETTING_INT(imageFormat, setOrvoFormat, ImageFormat)
    void setOutputFormat(int format) { setOrvoFormat(format); }
    ORVO_SETTING_STRING(imfPluginKey, setImfPluginKey, ImfPluginKey)
    ORVO_SETTING_FLOAT(gammaCorrection, setGammaCorrection, GammaCorrection)
    ORVO_SETTING_INT(exrCompression, setExrCompression, ExrCompression)
    ORVO_SETTING_INT(exrPixelType, setExrPixelType, ExrPixelType)
    ORVO_SETTING_INT(topRegion, setTopRegion, TopRegion)
    ORVO_SETTING_INT(leftRegion, setLeftRegion, LeftRegion)
    ORVO_SETTING_INT(bottomRegion, setBottomRegion, BottomRegion)
    ORVO_SETTING_INT(rightRegion, setRightRegion, RightRegion)
    ORVO_SETTING_BOOL(useRenderRegion, setUseRenderRegion, UseRenderRegion)
    ORVO_SETTING_BOOL(animation, setAnimation, Animation)
    ORVO_SETTING_INT(animationRange, setAnimationRange, AnimationRange)
    ORVO_SETTING_TIME(startFrame, setStartFrame, StartFrame)
    ORVO_SETTING_TIME(endFrame, setEndFrame, EndFrame)
    ORVO_SETTING_TIME(byFrame, setByFrame, ByFrame)
    ORVO_SETTING_FLOAT(byFrameStep, setByFrameStep, ByFrameStep)
    ORVO_SETTING_BOOL(skipExistingFrames, setSkipExistingFrames, SkipExistingFrames)
    ORVO_SETTING_BOOL(modifyExtension, setModifyExtension, ModifyExtension)
    float startExtension() const { return orvo::settings::number(*this, aStartExtension); }
    float byExtension() const { return orvo::settings::number(*this, aByExtension); }
    ORVO_SETTING_INT(extensionPadding, setExtensionPadding, ExtensionPadding)
    ORVO_SETTING_INT(fieldExtControl, setFieldExtControl, FieldExtControl)
    ORVO_SETTING_INT(outFormatControl, setOutFormatControl, OutFormatControl)
    ORVO_SETTING_STRING(oddFieldExt, setOddFieldExt, OddFieldExt)
    ORVO_SETTING_STRING(evenFieldExt, setEvenFieldExt, EvenFieldExt)
    ORVO_SETTING_STRING(outFormatExt, setOutFormatExt, OutFormatExt)
    ORVO_SETTING_BOOL(useOrvoFileName, setOrvoExtension, UseOrvoFileName)
    ORVO_SETTING_BOOL(useFrameExt, setUseFrameExt, UseFrameExt)
    ORVO_SETTING_BOOL(putFrameBeforeExt, setPutFrameBeforeExt, PutFrameBeforeExt)
    ORVO_SETTING_INT(periodInExt, setPeriodInExt, PeriodInExt)
    ORVO_SETTING_STRING(imageFilePrefix, setImageFilePrefix, ImageFilePrefix)
    ORVO_SETTING_STRING(renderVersion, setRenderVersion, RenderVersion)
    ORVO_SETTING_STRING(bufferName, setBufferName, BufferName)
    ORVO_SETTING_INT(multiCamNamingMode, setMultiCamNamingMode, MultiCamNamingMode)
    ORVO_SETTING_BOOL(composite, setComposite, Composite)
    ORVO_SETTING_FLOAT(compositeThreshold, setCompositeThreshold, CompositeThreshold)
    ORVO_SETTING_BOOL(shadowsObeyLightLinking, setShadowsObeyLightLinking, ShadowsObeyLightLinking)
    ORVO_SETTING_BOOL(shadowsObeyShadowLinking, setShadowsObeyShadowLinking,
                      ShadowsObeyShadowLinking)
    ORVO_SETTING_INT(maxRecursiveDepth, setMaxRecursiveDepth, RecursionDepth)
    ORVO_SETTING_INT(maxLeafPrimitives, setMaxLeafPrimitives, LeafPrimitives)
    ORVO_SETTING_FLOAT(subdivisionPower, setSubdivisionPower, SubdivisionPower)
    ORVO_SETTING_INT(subdivisionHashSize, setSubdivisionHashSize, SubdivisionHashSize)
    ORVO_SETTING_BOOL(logRenderPerformance, setLogRenderPerformance, LogRenderPerformance)
    ORVO_SETTING_INT(geometryVectorLength, setGeometryVectorLength, GeometryVector)
    ORVO_SETTING_INT(shadingVectorLength, setShadingVectorLength, ShadingVector)
    ORVO_SETTING_INT(maximumMemory, setMaximumMemory, MaximumMemory)
    ORVO_SETTING_INT(numCpusToUse, setNumCpusToUse, NumCpusToUse)
    void setInterruptFrequency(int value) {
        orvo::settings::setNumber(*this, aInterruptFrequency, value);
    }
    ORVO_SETTING_BOOL(shadowPass, setShadowPass, ShadowPass)
    ORVO_SETTING_BOOL(iprShadowPass, setIprShadowPass, IprShadowPass)
    ORVO_SETTING_BOOL(useFileCache, setUseFileCache, UseFileCache)
    ORVO_SETTING_BOOL(optimizeInstances, setOptimizeInstances, OptimizeInstances)
    ORVO_SETTING_BOOL(reuseTessellations, setReuseTessellations, ReuseTessellations)
    ORVO_SETTING_BOOL(matteOpacityUsesTransparency, setMatteOpacityUsesTransparency,
                      MatteOpacityUsesTransparency)
    void setMotionBlur(bool on) { orvo::settings::setNumber(*this, aMotionBlur, on); }
    ORVO_SETTING_FLOAT(motionBlurByFrame, setMotionBlurByFrame, MotionBlurByFrame)
    ORVO_SETTING_BOOL(motionBlurUseShutter, setMotionBlurUseShutter, MotionBlurUseShutter)
    ORVO_SETTING_FLOAT(useMotionBlurShutterOpen, setMotionBlurShutterOpen, MotionBlurShutterOpen)
    ORVO_SETTING_FLOAT(useMotionBlurShutterClose, setMotionBlurShutterClose, MotionBlurShutterClose)
    ORVO_SETTING_BOOL(applyFogInPost, setApplyFogInPost, ApplyFogInPost)
    ORVO_SETTING_INT(postFogBlur, setPostFogBlur, PostFogBlur)
    ORVO_SETTING_STRING(preQsl, setPreQsl, PreQsl)
    ORVO_SETTING_STRING(postQsl, setPostQsl, PostQsl)
    ORVO_SETTING_STRING(preRenderLayerQsl, setPreRenderLayerQsl, PreRenderLayerQsl)
    ORVO_SETTING_STRING(postRenderLayerQsl, setPostRenderLayerQsl, PostRenderLayerQsl)
    ORVO_SETTING_STRING(preRenderQsl, setPreRenderQsl, PreRenderQsl)
    ORVO_SETTING_STRING(postRenderQsl, setPostRenderQsl, PostRenderQsl)
    ORVO_SETTING_STRING(preFurRenderQsl, setPreFurRenderQsl, PreFurRenderQsl)
    ORVO_SETTING_STRING(postFurRenderQsl, setPostFurRenderQsl, PostFurRenderQsl)
    ORVO_SETTING_BOOL(createIprFile, setCreateIprFile, CreateIprFile)
    ORVO_SETTING_FLOAT(blurLength, setBlurLength, BlurLength)
    ORVO_SETTING_FLOAT(blurPower, setBlurPower, BlurSharpness)
    ORVO_SETTING_INT(smoothFilterSize, setSmoothFilterSize, SmoothValue)
    ORVO_SETTING_BOOL(useBlur2DMemoryCap, setUseBlur2DMemoryCap, UseBlur2DMemoryCap)
    ORVO_SETTING_FLOAT(blur2DMemoryCap, setBlur2DMemoryCap, Blur2DMemoryCap)
    ORVO_SETTING_INT(motionBlurType, setMotionBlurType, MotionBlurType)
    ORVO_SETTING_BOOL(useDisplacementBoundingBox, setUseDisplacementBoundingBox,
                      UseDisplacementBoundingBox)
    ORVO_SETTING_BOOL(smoothColor, setSmoothColor, SmoothColor)
    ORVO_SETTING_BOOL(keepMotionVector, setKeepMotionVector, KeepMotionVector)
    ORVO_SETTING_BOOL(iprRenderShading, setIprRenderShading, IprRenderShading)
    ORVO_SETTING_BOOL(iprRenderShadowMaps, setIprRenderShadowMaps, IprRenderShadowMaps)
    ORVO_SETTING_BOOL(iprRenderMotionBlur, setIprRenderMotionBlur, IprRenderMotionBlur)
    ORVO_SETTING_BOOL(renderLayerEnable, setRenderLayerEnable, RenderLayerEnable)
    ORVO_SETTING_BOOL(forceTileSize, setForceTileSize, ForceTileSize)
    ORVO_SETTING_INT(tileWidth, setTileWidth, TileWidth)
    ORVO_SETTING_INT(tileHeight, setTileHeight, TileHeight)
    ORVO_SETTING_BOOL(jitterFinalColor, setJitterFinalColor, JitterFinalColor)
    ORVO_SETTING_BOOL(raysSeeBackground, setRaysSeeBackground, RaysSeeBackground)
    ORVO_SETTING_BOOL(oversamplePaintEffects, setOversamplePaintEffects, OversamplePaintEffects)
    ORVO_SETTING_BOOL(oversamplePfxPostFilter, setOversamplePfxPostFilter, OversamplePfxPostFilter)
    ORVO_SETTING_BOOL(colorProfileEnabled, setColorProfileEnabled, ColorProfileEnabled)
    ORVO_SETTING_INT(renderingColorProfile, setRenderingColorProfile, RenderingColorProfile)
    ORVO_SETTING_INT(inputColorProfile, setInputColorProfile, InputColorProfile)
    ORVO_SETTING_INT(outputColorProfile, setOutputColorProfile, OutputColorProfile)
    ORVO_SETTING_STRING(shaderBinList, setShaderBinList, ShaderBinList)
    ORVO_SETTING_INT(renderedOutput, setRenderedOutput, RenderedOutput)
    void setDefaultTraversalSet(const Tstring& set) {
        orvo::settings::setText(*this, aDefaultTraversalSet, set);
    }

    // The nodes that the message attributes link to, or null.
    TdnRenderQuality* quality() const;
    TdnResolution* resolution() const;
    TdependNode* fogGeometry() const { return orvo::settings::sourceNode(*this, aFogGeometry); }
    TdependNode* rendercallback() const {
        return orvo::settings::sourceNode(*this, aRendercallback);
    }
    TdependNode* swatchCamera() const { return orvo::settings::sourceNode(*this, aSwatchCamera); }

    // ---- operations with a rule in them
    // numCpusToUse (0: all) clamped to 1 .. the processors this process may run on.
    unsigned numberOfCpusToUse() const;
    // -1 stands; any other value, at least 0, in milliseconds (times 1000).
    int interruptFrequency() const;
    // While an IPR file is made, the IPR flags decide.
    bool enableDepthMaps() const;
    void setEnableDepthMaps(bool on) { orvo::settings::setNumber(*this, aEnableDepthMaps, on); }
    bool motionBlur() const;
    bool motionBlur2D() const { return motionBlurType() == kUseMotionBlur2D; }
    void setMotionBlur2D(bool on) { setMotionBlurType(on ? kUseMotionBlur2D : kUseMotionBlur3D); }
    // True: the host's playback range (kUseGlobals); false: start and end.
    void setGlobalAnimation(bool on) { setAnimationRange(on ? kUseGlobals : kUseStartEnd); }
    // Renumbering values; setting one turns renumbering on.
    void setStartExtension(float value);
    void setByExtension(float value);
    TshadowLinkMode shadowLinkMode() const;
    // 0 both off, 1 shadow linking, 2 light linking; other values are ignored.
    void setShadowLinkMode(int mode);
    // "null" when the attribute holds no string.
    Tstring defaultTraversalSet() const;
    // Writes the four region values and turns the region on; the flag alone.
    void setSubRegionRender(int left, int right, int bottom, int top);
    void setSubRegionRender(bool on) { setUseRenderRegion(on); }

    // The extension with its leading dot, or empty (see the .cpp).
    Tstring fileFormatExtension() const;
    // The format keyword ("png", "tif"...); empty for the formats that
    // have none. `format` receives the raw imageFormat value.
    Tstring fileFormatString(int* format = nullptr) const;
    // The keyword and the extension of a format, as the tables give them
    // (for kIMF and kCustom: empty and ".img").
    static const char* formatKeyword(int format);
    static const char* formatExtension(int format);

    // ---- render layers and passes, in every layer manager of the scene
    // Writes `renderable` of the named layer; false when no layer has the name.
    bool setRenderLayerState(const Tstring& layerName, bool state);
    // Turns the named pass on or off in every layer; true when any layer had it.
    bool setRenderPassState(const Tstring& passName, bool state);
    void renderLayersReset();
    void renderPassesReset();

    // ---- values that a renderer plug-in may add as dynamic attributes;
    // this host keeps none, so they read 0 and false.
    int getMemoryCostRender() const { return 0; }
    bool getUseZBuffer() const { return false; }
    bool getUseNurbUVInterpolation() const { return false; }

    // A value set on currentRenderer is news for the renderer registry.
    bool setCachedValue(const Tplug& plug, const TdataHandle& value) override;

    // Breaks the connection that drives `attribute`, so that a value set by
    // code wins. False when nothing was connected.
    bool overrideConnection(const Tattribute& attribute) {
        return orvo::settings::breakIncomingConnection(*this, attribute);
    }
};
