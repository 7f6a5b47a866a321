#pragma once

// anisotropic: a highlight stretched along the surface's tangent, from a
// physical model of a rough surface (a Gaussian height field whose
// correlation lengths differ across the two tangents: the spreads), with a
// Fresnel term of the coating's refractive index and the shadowing of its
// slopes. The reflection can follow the same model.

#include "materials/reflect.h"

#define ORVO_SCHEMA_TdnAnisotropy(A, C2, C3)                                                       \
    ORVO_LAMBERT_C3(A, TangentUCamera, "tangentUCamera", "utan", X, Y, Z, "utnx", "utny", "utnz",  \
                    0.0f, 0.0f, 0.0f, .implicitSample(), .implicitSample())                        \
    ORVO_LAMBERT_C3(A, TangentVCamera, "tangentVCamera", "vtan", X, Y, Z, "vtnx", "vtny", "vtnz",  \
                    0.0f, 0.0f, 1.0f, .implicitSample(), .implicitSample())                        \
    A(TattributeFloat, SpreadX, "spreadX", "sprx", .input().setNativeDefaultData(13.0f))           \
    A(TattributeFloat, SpreadY, "spreadY", "spry", .input().setNativeDefaultData(3.0f).min(0.1))   \
    A(TattributeFloat, Roughness, "roughness", "roug",                                             \
      .input().setNativeDefaultData(0.7f).range(0.01, 1))                                          \
    A(TattributeFloat, Angle, "angle", "angl", .input().setNativeDefaultData(0.0f).range(0, 360))  \
    A(TattributeFloat, FresnelRefractiveIndex, "fresnelRefractiveIndex", "frfi",                   \
      .input().setNativeDefaultData(6.0f).range(1, 20))                                            \
    A(TattributeBoolean, AnisotropicReflectivity, "anisotropicReflectivity", "arfl",               \
      .input().setNativeDefaultData(true))
ORVO_NODE(TdnAnisotropy, TdnReflect, "anisotropic", "RANI", 617, "kAnisotropy",
          "shader/surface:drawdb/shader/surface/anisotropic", "n_anisotropic")

class TdnAnisotropy : public TdnPattern<TdnAnisotropy, TdnReflect> {
public:
    // The wave number of the light the model scatters, 2 pi / 0.55.
    static constexpr float kWaveNumber = 11.423973f;

    // The surface statistic of the series for a term of order `a`, the
    // tangent components (b, c) of the scattering vector and the two
    // correlation lengths (d, e), and the surface's slope correlations
    // (xx, yy, xy, before the roughness scales them). The smooth (Gaussian)
    // model is the one in use.
    using Statistic = float (*)(float a, float b, float c, float d, float e);
    using Derivatives = void (*)(float spreadX, float spreadY, float out[3]);
    static float S_smooth(float a, float b, float c, float d, float e);
    static void C_der_smooth(float spreadX, float spreadY, float out[3]);

    // The series over orders of scattering for g (the sum of the two polar
    // cosines, negated), roughness r and wave number k.
    static float S_g_analytical(float g, float r, float k, float spreadX, float spreadY, float vx,
                                float vy);
    // Fresnel reflectance at polar angle x for index n; its value head on.
    static float fresnel(float x, float n);
    static float fresnel0(float n) { return fresnel(0.0f, n); }
    // The facet term of light (tI, pI) and view (tR, pR), as
    // compute_D(azimuth, polar, azimuth, polar).
    static float compute_D(float x1, float x2, float x3, float x4);
    // Shadowing and masking of the slopes; 0 unless both polar angles lie
    // in 0 to pi / 2.
    static float compute_shadow(float r, float spreadX, float spreadY, float tI, float pI, float tR,
                                float pR);
    static float compute_BRDF(float k, float r, float spreadX, float spreadY, float n, float tI,
                              float pI, float tR, float pR);
    static float compute_specular(float k, float r, float spreadX, float spreadY, float n, float tI,
                                  float pI, float tR, float pR);

    // The model in use (see Statistic, Derivatives): one choice for the
    // process, the smooth model unless changed.
    static inline Statistic sStatistic = &S_smooth;
    static inline Derivatives sDerivatives = &C_der_smooth;

protected:
    void highlight(TdataBlock& block, unsigned first, unsigned count, int pass,
                   const T3Float* mirror, T3Float* S) override;
};
