#pragma once

// shaderGlow: how the glow of shaded surfaces spreads over the picture. While
// a frame renders, each glowing sample is splatted into a coarse array;
// after the frame the array is thresholded, convolved with a large filter
// whose shape this node sets (once for glow, once for halo) and added back
// over the picture. There is one set of working data for the process, as
// one render runs at a time.

#include <cstdint>

#include "framework/node_pattern.h"
#include "post/shader_glow.h"

class TdependGraph;
class TdnShaderGlow;

template <>
struct TdnKernel<TdnShaderGlow> {
    enum : int16_t {
        kgNoGlow = 0,
        kgLinearGlow = 1,
        kgExpGlow = 2,
        kgBallGlow = 3,
        kgLensGlow = 4,
        kgRimGlow = 5,
    };
    enum : int16_t {
        khNoGlow = 0,
        khLinearGlow = 1,
        khExpGlow = 2,
        khBallGlow = 3,
        khLensGlow = 4,
        khRimGlow = 5,
    };
};

// The glow kinds, by the prefix of their fields (kg or kh).
#define ORVO_GLOW_TYPE_FIELDS(p)                                                                   \
    .ORVO_FIELD(p##NoGlow, "None")                                                                 \
        .ORVO_FIELD(p##LinearGlow, "Linear")                                                       \
        .ORVO_FIELD(p##ExpGlow, "Exponential")                                                     \
        .ORVO_FIELD(p##BallGlow, "Ball")                                                           \
        .ORVO_FIELD(p##LensGlow, "Lens Flare")                                                     \
        .ORVO_FIELD(p##RimGlow, "Rim Halo")

// One of the twin blocks, glow or halo: Name prefix, long prefix, short
// prefix, kind-field prefix, then the defaults that differ.
#define ORVO_GLOW_BLOCK(A, C3, N, l, s, k, spread)                                                 \
    A(TattributeEnum, N##Type, l "Type", s "t",                                                    \
      .input() ORVO_GLOW_TYPE_FIELDS(k).setNativeDefaultData(1))                                   \
    A(TattributeFloat, N##Intensity, l "Intensity", s "i", .input().setNativeDefaultData(1.0f))    \
    C3(Tattribute3Float, N##Color, l "Color", s "c", ORVO_RGB,                                     \
       .inputParent().colour().setNativeDefaultData(1, 1, 1), .input())                            \
    A(TattributeFloat, N##Spread, l "Spread", s "s", .input().setNativeDefaultData(spread))        \
    A(TattributeFloat, N##Eccentricity, l "Eccentricity", s "ecc",                                 \
      .input().setNativeDefaultData(0.1f))                                                         \
    A(TattributeFloat, N##RadialNoise, l "RadialNoise", s "n",                                     \
      .input().setNativeDefaultData(0.0f))                                                         \
    A(TattributeFloat, N##StarLevel, l "StarLevel", s "v", .input().setNativeDefaultData(0.0f))    \
    A(TattributeFloat, N##Opacity, l "Opacity", s "o", .input().setNativeDefaultData(0.0f))        \
    A(TattributeFloat, N##RingIntensity, l "RingIntensity", s "ri",                                \
      .input().setNativeDefaultData(0.0f))                                                         \
    A(TattributeFloat, N##RingFrequency, l "RingFrequency", s "rf",                                \
      .input().setNativeDefaultData(0.5f))                                                         \
    A(TattributeInt32, N##FilterWidth, l "FilterWidth", s "fw", .input().setNativeDefaultData(1))

#define ORVO_SCHEMA_TdnShaderGlow(A, C2, C3)                                                       \
    ORVO_GLOW_BLOCK(A, C3, Glow, "glow", "g", kg, 0.05f)                                           \
    ORVO_GLOW_BLOCK(A, C3, Halo, "halo", "h", kh, 0.3f)                                            \
    A(TattributeFloat, Quality, "quality", "qual", .input().setNativeDefaultData(0.5f).min(0))     \
    A(TattributeFloat, Threshold, "threshold", "th",                                               \
      .input().setNativeDefaultData(0.0f).range(0, 1))                                             \
    A(TattributeFloat, RadialFrequency, "radialFrequency", "rf",                                   \
      .input().setNativeDefaultData(0.5f))                                                         \
    A(TattributeFloat, StarPoints, "starPoints", "sp", .input().setNativeDefaultData(4.0f))        \
    A(TattributeFloat, Rotation, "rotation", "ra", .input().setNativeDefaultData(0.0f))            \
    A(TattributeBoolean, AutoExposure, "autoExposure", "ae", .input().setNativeDefaultData(true))

ORVO_NODE(TdnShaderGlow, TdependNode, "shaderGlow", "SHGL", 471, "kShaderGlow",
          "postprocess/shaderGlow", "n_shaderGlow")

class TdnShaderGlow : public TdnPattern<TdnShaderGlow, TdependNode> {
public:
    // Copies the attributes into the process's working data.
    void reset();

    // Sets the pass up for a picture of width x height pixels of a frame
    // `realSize` pixels across. False, with the statics cleared, when
    // neither glow nor halo would show.
    bool initShaderGlow(int width, int height, int realSize, bool printMessages);
    // The colour (0..255, alpha ignored) of a sample at pixel (x, y), added
    // into the array. False when the pass is off.
    static bool addShaderGlow(const float rgba[4], float x, float y);
    // Merges a render thread's tile into the array.
    static void addShaderGlowTile(const orvo::post::TglowTile& tile);
    // Sets the cell under pixel (x, y): a lit cell to clamp(cell x multiply
    // + add), a black one to `add`, each in whole steps of 0..255.
    static void overlayShaderGlow(const float add[3], float multiply, float x, float y);
    // Threshold, share, convolve: run once after the frame.
    void calculateGlow();
    // Adds glow and halo over the whole picture, or over one line of it.
    void addShaderGlowToArray(const orvo::post::TpostImage& image);
    void addShaderGlowToScanline(unsigned line, const orvo::post::TpostImage& image);

    // Whether any shader of the graph's shader list glows.
    static bool isShaderGlowOn(TdependGraph& graph);
    // The scene's shader glow: shaderGlow1 as the scene made it.
    static TdnShaderGlow* find(TdependGraph& graph);

    static PX_ShaderGlow& data() { return fsData; }
    static int useShaderGlow() { return fUseShaderGlow; }
    static int sgWide() { return fSgWide; }
    static int sgHigh() { return fSgHigh; }
    static float sgRes() { return fSgRes; }
    static PX_Rgb* shaderGlowArray() { return fShaderGlowArray; }
    // Frees the working arrays and turns the pass off.
    static void clear();

private:
    bool initShaderGlow2(int width, int height);
    PX_GlowParams& primary() { return fPrimaryIsHalo ? fsData.halo : fsData.glow; }

    static PX_ShaderGlow fsData;
    static int fUseShaderGlow;
    static int fRealSize;
    static bool fPrintMsg;
    static PX_Rgb* fShaderGlowArray;
    static int fSgWide, fSgHigh, fSgMax;
    static float fSgRes;
    static bool fPrimaryIsHalo;
};

// The renderer's splat: skips a black sample; `data` is not used.
bool addShaderGlowToBuffer(void* data, float x, float y, const float rgba[4]);
