#pragma once

// opticalFX: what a lens adds around a light after the frame: glow, halo,
// rings and a lens flare. A node of this kind takes its light through
// `lightConnection` (connect the light shape's message to it); the effect
// reaches the pixels around the light on the picture.

#include <vector>

#include "effects/shader_glow.h"
#include "framework/node_pattern.h"
#include "post/optical_fx.h"

class TdependGraph;
class TdnOpticalFX;
class TlightShape;
struct T4dDblMatrix;

template <>
struct TdnKernel<TdnOpticalFX> : TdnKernel<TdnShaderGlow> {};

#define ORVO_OPFX_COLOUR(C3, Name, Long, Short)                                                    \
    C3(Tattribute3Float, Name, Long, Short, ORVO_RGB,                                              \
       .inputParent().colour().setNativeDefaultData(1, 1, 1), .input())
#define ORVO_OPFX_FLOAT(A, Name, Long, Short, d)                                                   \
    A(TattributeFloat, Name, Long, Short, .input().setNativeDefaultData(float(d)))

#define ORVO_SCHEMA_TdnOpticalFX(A, C2, C3)                                                        \
    A(TattributeBoolean, Active, "active", "act", .input().setNativeDefaultData(true))             \
    A(TattributeEnum, GlowType, "glowType", "gt",                                                  \
      .input() ORVO_GLOW_TYPE_FIELDS(kg).setNativeDefaultData(1))                                  \
    A(TattributeEnum, HaloType, "haloType", "ht",                                                  \
      .input() ORVO_GLOW_TYPE_FIELDS(kh).setNativeDefaultData(0))                                  \
    A(TattributeInt16, FogType, "fogType", "ft", .input().setNativeDefaultData(0).range(0, 5))     \
    A(TattributeBoolean, LensFlare, "lensFlare", "lf", .input())                                   \
    ORVO_OPFX_COLOUR(C3, GlowColor, "glowColor", "gc")                                             \
    ORVO_OPFX_COLOUR(C3, HaloColor, "haloColor", "hc")                                             \
    ORVO_OPFX_COLOUR(C3, FogColor, "fogColor", "fc")                                               \
    ORVO_OPFX_COLOUR(C3, FlareColor, "flareColor", "rc")                                           \
    ORVO_OPFX_FLOAT(A, FlareIntensity, "flareIntensity", "fi", 1.0)                                \
    A(TattributeFloat, FlareNumCircles, "flareNumCircles", "fn",                                   \
      .input().setNativeDefaultData(20.0f).min(0))                                                 \
    ORVO_OPFX_FLOAT(A, FlareMinSize, "flareMinSize", "fm", 0.1)                                    \
    ORVO_OPFX_FLOAT(A, FlareMaxSize, "flareMaxSize", "fa", 1.0)                                    \
    ORVO_OPFX_FLOAT(A, FlareColSpread, "flareColSpread", "lc", 0.5)                                \
    ORVO_OPFX_FLOAT(A, FlareFocus, "flareFocus", "ff", 0.6)                                        \
    ORVO_OPFX_FLOAT(A, FlareVertical, "flareVertical", "fv", 1.0)                                  \
    ORVO_OPFX_FLOAT(A, FlareHorizontal, "flareHorizontal", "fh", 1.0)                              \
    ORVO_OPFX_FLOAT(A, FlareLength, "flareLength", "fl", 1.0)                                      \
    A(TattributeBoolean, HexagonFlare, "hexagonFlare", "hf", .input())                             \
    ORVO_OPFX_FLOAT(A, GlowIntensity, "glowIntensity", "gi", 1.0)                                  \
    ORVO_OPFX_FLOAT(A, HaloIntensity, "haloIntensity", "hi", 1.0)                                  \
    ORVO_OPFX_FLOAT(A, FogIntensity, "fogIntensity", "oi", 1.0)                                    \
    ORVO_OPFX_FLOAT(A, GlowSpread, "glowSpread", "gs", 1.0)                                        \
    ORVO_OPFX_FLOAT(A, HaloSpread, "haloSpread", "hs", 1.0)                                        \
    ORVO_OPFX_FLOAT(A, FogSpread, "fogSpread", "fs", 1.0)                                          \
    ORVO_OPFX_FLOAT(A, GlowNoise, "glowNoise", "gd", 0.0)                                          \
    ORVO_OPFX_FLOAT(A, FogNoise, "fogNoise", "fd", 0.0)                                            \
    ORVO_OPFX_FLOAT(A, GlowRadialNoise, "glowRadialNoise", "gn", 0.0)                              \
    ORVO_OPFX_FLOAT(A, FogRadialNoise, "fogRadialNoise", "fz", 0.0)                                \
    ORVO_OPFX_FLOAT(A, GlowStarLevel, "glowStarLevel", "gv", 3.0)                                  \
    ORVO_OPFX_FLOAT(A, FogStarlevel, "fogStarlevel", "fe", 0.0)                                    \
    ORVO_OPFX_FLOAT(A, GlowOpacity, "glowOpacity", "go", 0.0)                                      \
    ORVO_OPFX_FLOAT(A, FogOpacity, "fogOpacity", "fo", 0.0)                                        \
    ORVO_OPFX_FLOAT(A, RadialFrequency, "radialFrequency", "rf", 0.5)                              \
    ORVO_OPFX_FLOAT(A, StarPoints, "starPoints", "sp", 4.0)                                        \
    ORVO_OPFX_FLOAT(A, Rotation, "rotation", "ra", 0.0)                                            \
    ORVO_OPFX_FLOAT(A, NoiseUscale, "noiseUscale", "nu", 1.0)                                      \
    ORVO_OPFX_FLOAT(A, NoiseVscale, "noiseVscale", "nv", 1.0)                                      \
    ORVO_OPFX_FLOAT(A, NoiseUoffset, "noiseUoffset", "ni", 1.0)                                    \
    ORVO_OPFX_FLOAT(A, NoiseVoffset, "noiseVoffset", "nf", 0.5)                                    \
    ORVO_OPFX_FLOAT(A, NoiseThreshold, "noiseThreshold", "nt", 0.5)                                \
    A(TattributeBoolean, IgnoreLight, "ignoreLight", "il", .input())                               \
    A(TattributeTyped, LightWorldMat, "lightWorldMat", "lw", .input())                             \
    A(TattributeMessage, LightConnection, "lightConnection", "ln", .input())                       \
    ORVO_OPFX_FLOAT(A, GlowVisibility, "glowVisibility", "gvb", 1.0)                               \
    A(Tattribute3Float, LightColor, "lightColor", "lr",                                            \
      .inputParent().colour().setNativeDefaultData(1, 1, 1))                                       \
    A(TattributeFloat, LightColorR, "lightColorR", "lcr",                                          \
      .input().setNativeDefaultData(1.0f).childOf(LightColor))                                     \
    A(TattributeFloat, LightColorG, "lightColorG", "lcg",                                          \
      .input().setNativeDefaultData(1.0f).childOf(LightColor))                                     \
    A(TattributeFloat, LightColorB, "lightColorB", "lgb",                                          \
      .input().setNativeDefaultData(1.0f).childOf(LightColor))                                     \
    A(Tattribute3Float, Visibility, "visibility", "vb",                                            \
      .inputParent().colour().setNativeDefaultData(1, 1, 1))                                       \
    A(TattributeFloat, VisibilityR, "visibilityR", "vbr",                                          \
      .input().setNativeDefaultData(1.0f).childOf(Visibility))                                     \
    A(TattributeFloat, VisibilityG, "visibilityG", "vbg",                                          \
      .input().setNativeDefaultData(1.0f).childOf(Visibility))                                     \
    A(TattributeFloat, VisibilityB, "visibilityB", "vbb",                                          \
      .input().setNativeDefaultData(1.0f).childOf(Visibility))

ORVO_NODE(TdnOpticalFX, TdependNode, "opticalFX", "OPFX", 446, "kOpticalFX",
          "postprocess/opticalFX", "n_opticalFX")

class TdnOpticalFX : public TdnPattern<TdnOpticalFX, TdependNode> {
public:
    // Copies the attributes, computes the spreads and places the light for
    // a picture seen through `worldToEye` and `view`. False when the node
    // has no light or is off.
    bool reset(const T4dDblMatrix& worldToEye, const orvo::post::TpostView& view);
    // The light found through `lightConnection`, or null.
    TlightShape* light() const;

    // Adds the effect over the whole picture, or over one line of it. False
    // when the light adds nothing.
    bool addOpticalFXtoArray(const orvo::post::TpostImage& image) const;
    bool addOpticalFXtoScanline(unsigned line, const orvo::post::TpostImage& image) const;
    // The pixels the effect reaches.
    orvo::post::TpixelRect adjustViewport() const;

    const orvo::post::TopticalFXParams& params() const { return fParams; }
    const orvo::post::TopticalFXLight& placedLight() const { return fLight; }

private:
    orvo::post::TopticalFXParams fParams;
    orvo::post::TopticalFXLight fLight;
    orvo::post::TpostView fView;
};

// The optical effects of a render.
class TopticalFXarray {
public:
    void add(TdnOpticalFX* node) { fNodes.push_back(node); }
    unsigned length() const { return unsigned(fNodes.size()); }
    TdnOpticalFX* operator[](unsigned i) const { return fNodes[i]; }
    // Every opticalFX node of the graph whose `active` is on, in creation
    // order.
    static TopticalFXarray collect(TdependGraph& graph);

private:
    std::vector<TdnOpticalFX*> fNodes;
};
