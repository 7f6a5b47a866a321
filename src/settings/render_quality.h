#pragma once

// renderQuality: how finely a render samples. Ray depths, the edge
// anti-aliasing preset, the pixel filter, shading and visibility sample
// counts and the contrast thresholds of adaptive sampling. Choosing a
// preset is a choice on this node alone: it does not itself write the
// sample counts.

#include "framework/node_pattern.h"
#include "settings/settings_values.h"

class TdnRenderQuality;

template <>
struct TdnKernel<TdnRenderQuality> {
    enum : int16_t { kHighestAA = 0, kHighAA = 1, kMediumAA = 2, kLowAA = 3 };
    enum : int16_t {
        kBoxPixelFilter = 0,
        kTrianglePixelFilter = 2,
        kGaussianPixelFilter = 4,
        kQuadraticBSplinePixelFilter = 5,
        kPlugInPixelFilter = 1000,
    };
};

#define ORVO_SCHEMA_TdnRenderQuality(A, C2, C3)                                                    \
    A(TattributeInt32, Reflections, "reflections", "rfl", .input().setNativeDefaultData(1).min(0)) \
    A(TattributeInt32, Refractions, "refractions", "rfr", .input().setNativeDefaultData(6).min(0)) \
    A(TattributeInt32, Shadows, "shadows", "sl", .input().setNativeDefaultData(2).min(0))          \
    A(TattributeFloat, RayTraceBias, "rayTraceBias", "rtb",                                        \
      .input().setNativeDefaultData(0.0f).min(0))                                                  \
    A(TattributeEnum, EdgeAntiAliasing, "edgeAntiAliasing", "eaa",                                 \
      .input()                                                                                     \
          .ORVO_FIELD(kHighestAA, "Highest Quality")                                               \
          .ORVO_FIELD(kHighAA, "High Quality")                                                     \
          .ORVO_FIELD(kMediumAA, "Medium Quality")                                                 \
          .ORVO_FIELD(kLowAA, "Low Quality")                                                       \
          .setNativeDefaultData(kLowAA))                                                           \
    A(TattributeBoolean, RenderSample, "renderSample", "rsdn", .input())                           \
    A(TattributeBoolean, UseMultiPixelFilter, "useMultiPixelFilter", "ufil", .input())             \
    A(TattributeEnum, PixelFilterType, "pixelFilterType", "pft",                                   \
      .input()                                                                                     \
          .ORVO_FIELD(kBoxPixelFilter, "Box Filter")                                               \
          .ORVO_FIELD(kTrianglePixelFilter, "Triangle Filter")                                     \
          .ORVO_FIELD(kGaussianPixelFilter, "Gaussian Filter")                                     \
          .ORVO_FIELD(kQuadraticBSplinePixelFilter, "Quadratic B-Spline Filter")                   \
          .ORVO_FIELD(kPlugInPixelFilter, "Plug in Filter")                                        \
          .setNativeDefaultData(kTrianglePixelFilter))                                             \
    A(TattributeFloat, PixelFilterWidthX, "pixelFilterWidthX", "pfwx",                             \
      .input().setNativeDefaultData(2.2f).range(1, 3))                                             \
    A(TattributeFloat, PixelFilterWidthY, "pixelFilterWidthY", "pfwy",                             \
      .input().setNativeDefaultData(2.2f).range(1, 3))                                             \
    A(TattributeFloat, PlugInFilterWeight, "plugInFilterWeight", "pifw",                           \
      .input().setNativeDefaultData(1.0f))                                                         \
    A(TattributeInt32, ShadingSamples, "shadingSamples", "ss",                                     \
      .input().setNativeDefaultData(1).range(1, 32))                                               \
    A(TattributeInt32, MaxShadingSamples, "maxShadingSamples", "mss",                              \
      .input().setNativeDefaultData(8).range(1, 32))                                               \
    A(TattributeInt32, VisibilitySamples, "visibilitySamples", "mvs",                              \
      .input().setNativeDefaultData(1).range(1, 32))                                               \
    A(TattributeInt32, MaxVisibilitySamples, "maxVisibilitySamples", "mvm",                        \
      .input().setNativeDefaultData(4).range(2, 32))                                               \
    A(TattributeInt32, VolumeSamples, "volumeSamples", "vs",                                       \
      .input().setNativeDefaultData(1).min(1))                                                     \
    A(TattributeInt32, ParticleSamples, "particleSamples", "pss",                                  \
      .input().setNativeDefaultData(1).range(1, 32))                                               \
    A(TattributeBoolean, EnableRaytracing, "enableRaytracing", "ert", .input())                    \
    A(TattributeFloat, RedThreshold, "redThreshold", "rct",                                        \
      .input().setNativeDefaultData(0.4f).range(0, 1))                                             \
    A(TattributeFloat, GreenThreshold, "greenThreshold", "gct",                                    \
      .input().setNativeDefaultData(0.3f).range(0, 1))                                             \
    A(TattributeFloat, BlueThreshold, "blueThreshold", "bct",                                      \
      .input().setNativeDefaultData(0.6f).range(0, 1))                                             \
    A(TattributeFloat, CoverageThreshold, "coverageThreshold", "cct",                              \
      .input().setNativeDefaultData(0.125f).range(0, 1))

ORVO_NODE(TdnRenderQuality, TdependNode, "renderQuality", "RQUA", 521, "kRenderQuality",
          "rendernode/settings", "n_renderQuality")

class TdnRenderQuality : public TdnPattern<TdnRenderQuality, TdependNode> {
public:
    ORVO_SETTING_INT(reflections, setReflections, Reflections)
    ORVO_SETTING_INT(refractions, setRefractions, Refractions)
    ORVO_SETTING_INT(shadows, setShadows, Shadows)
    ORVO_SETTING_FLOAT(rayTraceBias, setRayTraceBias, RayTraceBias)
    ORVO_SETTING_INT(easMode, setEasMode, EdgeAntiAliasing)
    ORVO_SETTING_BOOL(renderSample, setRenderSample, RenderSample)
    ORVO_SETTING_BOOL(useMultiPixelFilter, setUseMultiPixelFilter, UseMultiPixelFilter)
    ORVO_SETTING_INT(pixelFilterType, setPixelFilterType, PixelFilterType)
    ORVO_SETTING_FLOAT(pixelFilterWidthX, setPixelFilterWidthX, PixelFilterWidthX)
    ORVO_SETTING_FLOAT(pixelFilterWidthY, setPixelFilterWidthY, PixelFilterWidthY)
    ORVO_SETTING_FLOAT(plugInFilterWeight, setPlugInFilterWeight, PlugInFilterWeight)
    ORVO_SETTING_INT(shadingSamples, setShadingSamples, ShadingSamples)
    ORVO_SETTING_INT(maxShadingSamples, setMaxShadingSamples, MaxShadingSamples)
    ORVO_SETTING_INT(visibilitySamples, setVisibilitySamples, VisibilitySamples)
    ORVO_SETTING_INT(maxVisibilitySamples, setMaxVisibilitySamples, MaxVisibilitySamples)
    ORVO_SETTING_INT(volumeSamples, setVolumeSamples, VolumeSamples)
    ORVO_SETTING_INT(particleSamples, setParticleSamples, ParticleSamples)
    ORVO_SETTING_BOOL(enableRaytracing, setEnableRaytracing, EnableRaytracing)
    ORVO_SETTING_FLOAT(redThreshold, setRedThreshold, RedThreshold)
    ORVO_SETTING_FLOAT(greenThreshold, setGreenThreshold, GreenThreshold)
    ORVO_SETTING_FLOAT(blueThreshold, setBlueThreshold, BlueThreshold)
    ORVO_SETTING_FLOAT(coverageThreshold, setCoverageThreshold, CoverageThreshold)

    // The four contrast thresholds together, each winning over a connection.
    void setThreshold(float red, float green, float blue, float coverage);

    // Breaks the connection that drives `attribute`; false when none did.
    bool disconnectForOverride(const Tattribute& attribute) {
        return orvo::settings::breakIncomingConnection(*this, attribute);
    }
};
