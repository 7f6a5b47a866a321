#pragma once

// phong and phongE: highlights around the mirror direction of the view.
// phong's lobe is the cosine to the mirror direction raised to a power;
// phongE's is a rational falloff inside a cone of the highlight's size, with
// a whiteness that mixes the surface colour into the highlight.

#include "materials/reflect.h"

#define ORVO_SCHEMA_TdnPhong(A, C2, C3)                                                            \
    A(TattributeFloat, CosPower, "cosinePower", "cp", .input().setNativeDefaultData(20.0f).min(2))
ORVO_NODE(TdnPhong, TdnReflect, "phong", "RPHO", 372, "kPhong",
          "shader/surface:drawdb/shader/surface/phong", "n_phong")

class TdnPhong : public TdnPattern<TdnPhong, TdnReflect> {
public:
    // cosinePower as it evaluates now, for the viewport.
    float getCosPower();

    // A lobe too narrow to matter is held at this, never 0: e^-10.
    static constexpr float kNarrowLobe = 4.54e-05f;

protected:
    void highlight(TdataBlock& block, unsigned first, unsigned count, int pass,
                   const T3Float* mirror, T3Float* S) override;
};

#define ORVO_SCHEMA_TdnPhongE(A, C2, C3)                                                           \
    A(TattributeFloat, Roughness, "roughness", "rn", .input().setNativeDefaultData(0.5f).min(0))   \
    A(TattributeFloat, HighlightSize, "highlightSize", "hls",                                      \
      .input().setNativeDefaultData(0.5f).range(0, 1))                                             \
    ORVO_LAMBERT_C3(A, Whiteness, "whiteness", "wn", R, G, B, "wnr", "wng", "wnb", 0.5f, 0.5f,     \
                    0.5f, .inputParent().colour(), .input())
ORVO_NODE(TdnPhongE, TdnReflect, "phongE", "RPHE", 373, "kPhongExplorer",
          "shader/surface:drawdb/shader/surface/phongE", "n_phongE")

class TdnPhongE : public TdnPattern<TdnPhongE, TdnReflect> {
public:
    // The lobe at x (0 at the cone's rim, 1 at its centre) for a squared
    // roughness `rug`: x rug / (x^2 (rug - 1) + 1), 0 where that
    // denominator vanishes.
    static float computeRug(float x, float rug);
    // The squared roughness; a roughness of 0 stands for a tiny one.
    static float squaredRoughness(float roughness);

protected:
    void highlight(TdataBlock& block, unsigned first, unsigned count, int pass,
                   const T3Float* mirror, T3Float* S) override;
};
