#pragma once

// hwRenderGlobals: the settings of the old hardware render buffer, which
// renders frames through the graphics hardware: passes, icons shown, image
// name and format, resolution and alpha.
//
// The resolution is text, "name width height aspect" or a name alone;
// a value of another form is refused when it is set.

#include "framework/node_pattern.h"
#include "settings/render_globals.h"
#include "settings/settings_values.h"

class TdependGraph;
class TdnHardwareRenderGlobals;

template <>
struct TdnKernel<TdnHardwareRenderGlobals> : TdnKernel<TdnRenderGlobals> {
    enum : int16_t {
        kAccumPass3 = 3,
        kAccumPass4 = 4,
        kAccumPass5 = 5,
        kAccumPass7 = 7,
        kAccumPass9 = 9,
        kAccumPass16 = 16,
        kAccumPass25 = 25,
        kAccumPass36 = 36,
    };
    enum : int16_t {
        kName1 = 0,
        kName1Ext = 1,
        kNameExt1 = 2,
        kName0001 = 3,
        kName0001Ext = 4,
        kNameExt0001 = 5,
    };
    enum : int16_t {
        kOff = 0,
        kHardwareAlpha = 1,
        kLuminance = 2,
        kRedChannel = 3,
        kGreenChannel = 4,
        kBlueChannel = 5,
        kClamp = 6,
        kInverseClamp = 7,
    };
    enum : int16_t { kPoints = 0, kWireframe = 1, kFlat = 2, kSmooth = 3 };
    enum : int16_t { kDefaultLight = 0, kAllLights = 1, kSelectedLights = 2 };
};

#define ORVO_HWG_BOOL(A, Name, Long, Short, Default)                                               \
    A(TattributeBoolean, Name, Long, Short, .input().setNativeDefaultData(Default))
#define ORVO_HWG_INT(A, Name, Long, Short, Default)                                                \
    A(TattributeInt32, Name, Long, Short, .input().setNativeDefaultData(Default))

#define ORVO_SCHEMA_TdnHardwareRenderGlobals(A, C2, C3)                                            \
    A(TattributeEnum, RenderPasses, "renderPasses", "rp",                                          \
      .input()                                                                                     \
          .ORVO_FIELD(kAccumPass3, "3")                                                            \
          .ORVO_FIELD(kAccumPass4, "4")                                                            \
          .ORVO_FIELD(kAccumPass5, "5")                                                            \
          .ORVO_FIELD(kAccumPass7, "7")                                                            \
          .ORVO_FIELD(kAccumPass9, "9")                                                            \
          .ORVO_FIELD(kAccumPass16, "16")                                                          \
          .ORVO_FIELD(kAccumPass25, "25")                                                          \
          .ORVO_FIELD(kAccumPass36, "36")                                                          \
          .setNativeDefaultData(kAccumPass3))                                                      \
    ORVO_HWG_BOOL(A, CameraIcons, "cameraIcons", "cai", false)                                     \
    ORVO_HWG_BOOL(A, CollisionIcons, "collisionIcons", "coi", false)                               \
    C3(Tattribute3Float, BackgroundColor, "backgroundColor", "bc", ORVO_RGB, .inputParent(),       \
       .input().setNativeDefaultData(0.0f).range(0, 1))                                            \
    ORVO_HWG_BOOL(A, EmitterIcons, "emitterIcons", "ei", false)                                    \
    A(TattributeEnum, Extension, "extension", "ex",                                                \
      .input()                                                                                     \
          .ORVO_FIELD(kName1, "name.1")                                                            \
          .ORVO_FIELD(kName1Ext, "name.1.ext")                                                     \
          .ORVO_FIELD(kNameExt1, "name.ext.1")                                                     \
          .ORVO_FIELD(kName0001, "name.0001")                                                      \
          .ORVO_FIELD(kName0001Ext, "name.0001.ext")                                               \
          .ORVO_FIELD(kNameExt0001, "name.ext.0001")                                               \
          .setNativeDefaultData(kName0001))                                                        \
    A(TattributeFloat, EdgeSmoothing, "edgeSmoothing", "es", .input().setNativeDefaultData(1.0f))  \
    ORVO_HWG_INT(A, EndFrame, "endFrame", "ef", 10)                                                \
    ORVO_HWG_INT(A, ByFrame, "byFrame", "bf", 1)                                                   \
    ORVO_HWG_BOOL(A, FieldIcons, "fieldIcons", "fii", false)                                       \
    ORVO_HWG_INT(A, StartFrame, "startFrame", "sf", 1)                                             \
    ORVO_HWG_BOOL(A, Grid, "grid", "gr", false)                                                    \
    ORVO_HWG_BOOL(A, LightIcons, "lightIcons", "li", false)                                        \
    ORVO_HWG_BOOL(A, LineSmoothing, "lineSmoothing", "ls", false)                                  \
    A(TattributeFloat, MotionBlur, "motionBlur", "mb", .input().setNativeDefaultData(0.0f))        \
    ORVO_HWG_BOOL(A, TransformIcons, "transformIcons", "ti", false)                                \
    ORVO_HWG_BOOL(A, Texturing, "texturing", "txt", true)                                          \
    ORVO_HWG_BOOL(A, MultiPassRendering, "multiPassRendering", "mpr", false)                       \
    ORVO_HWG_BOOL(A, WriteZDepth, "writeZDepth", "wzd", false)                                     \
    A(TattributeTyped, Filename, "filename", "fn", .input())                                       \
    A(TattributeEnum, ImageFormat, "imageFormat", "if",                                            \
      .input() ORVO_IMAGE_FORMAT_FIELDS.setNativeDefaultData(kIFF))                                \
    A(TattributeTyped, ImfPluginKey, "imfPluginKey", "imfkey", .input())                           \
    A(TattributeTyped, ImfPluginKeyExt, "imfPluginKeyExt", "imfext", .input())                     \
    A(TattributeTyped, Resolution, "resolution", "res", .input())                                  \
    A(TattributeEnum, AlphaSource, "alphaSource", "as",                                            \
      .input()                                                                                     \
          .ORVO_FIELD(kOff, "Off")                                                                 \
          .ORVO_FIELD(kHardwareAlpha, "Hardware Alpha")                                            \
          .ORVO_FIELD(kLuminance, "Luminance")                                                     \
          .ORVO_FIELD(kRedChannel, "Red Channel")                                                  \
          .ORVO_FIELD(kGreenChannel, "Green Channel")                                              \
          .ORVO_FIELD(kBlueChannel, "Blue Channel")                                                \
          .ORVO_FIELD(kClamp, "Clamp")                                                             \
          .ORVO_FIELD(kInverseClamp, "Inverse Clamp")                                              \
          .setNativeDefaultData(kOff))                                                             \
    A(TattributeEnum, DrawStyle, "drawStyle", "ds",                                                \
      .input()                                                                                     \
          .ORVO_FIELD(kPoints, "Points")                                                           \
          .ORVO_FIELD(kWireframe, "Wireframe")                                                     \
          .ORVO_FIELD(kFlat, "Flat Shaded")                                                        \
          .ORVO_FIELD(kSmooth, "Smooth Shaded")                                                    \
          .setNativeDefaultData(kSmooth))                                                          \
    A(TattributeEnum, LightingMode, "lightingMode", "lm",                                          \
      .input()                                                                                     \
          .ORVO_FIELD(kDefaultLight, "Default Light")                                              \
          .ORVO_FIELD(kAllLights, "All Lights")                                                    \
          .ORVO_FIELD(kSelectedLights, "Selected Lights")                                          \
          .setNativeDefaultData(kDefaultLight))                                                    \
    ORVO_HWG_BOOL(A, FullImageResolution, "fullImageResolution", "fir", false)                     \
    ORVO_HWG_BOOL(A, AntiAliasPolygons, "antiAliasPolygons", "aap", false)                         \
    ORVO_HWG_BOOL(A, GeometryMask, "geometryMask", "gh", false)                                    \
    ORVO_HWG_BOOL(A, DisplayShadows, "displayShadows", "sd", false)

ORVO_NODE(TdnHardwareRenderGlobals, TdependNode, "hwRenderGlobals", "YHRD", 523, "kHwRenderGlobals",
          "rendernode/settings", "n_hwRenderGlobals")

// Every setting of the node, in the order of its attributes.
struct TdnHardwareRenderState {
    int renderPasses = 3;
    bool cameraIcons = false, collisionIcons = false;
    float backgroundColor[3] = {0.0f, 0.0f, 0.0f};
    bool emitterIcons = false;
    int extension = 3;
    float edgeSmoothing = 1.0f;
    int endFrame = 10, byFrame = 1;
    bool fieldIcons = false;
    int startFrame = 1;
    bool grid = false, lightIcons = false, lineSmoothing = false;
    float motionBlur = 0.0f;
    bool transformIcons = false, texturing = true, multiPassRendering = false, writeZDepth = false;
    Tstring filename;
    int imageFormat = 7;
    Tstring imfPluginKey, imfPluginKeyExt, resolution;
    int alphaSource = 0, drawStyle = 3, lightingMode = 0;
    bool fullImageResolution = false, antiAliasPolygons = false, geometryMask = false,
         displayShadows = false;
};

class TdnHardwareRenderGlobals : public TdnPattern<TdnHardwareRenderGlobals, TdependNode> {
public:
    using K = TdnKernel<TdnHardwareRenderGlobals>;

    // Copies the settings of "defaultHardwareRenderGlobals" of the graph
    // (the current one when null); false when there is no such node.
    static bool state(TdnHardwareRenderState& out, const TdependGraph* graph = nullptr);

    // Whether the drawing port has an alpha buffer; the offscreen port of
    // this host draws RGBA. Tests and tools with other ports set it.
    static bool sPortHasAlphaBuffer;

    // Checks a resolution text: a name alone, or "name width height
    // aspect" with 16-bit integer width and height and a number for the
    // aspect. Empty when it is good, else the message.
    static Tstring checkResolution(const Tstring& text);

    // A hardware alpha on a port without alpha warns (the value stays); a
    // resolution of the wrong form is refused: the former value comes back
    // and the call returns false.
    bool setCachedValue(const Tplug& plug, const TdataHandle& value) override;

private:
    Tstring fResolution;
};
