#pragma once

#include "framework/node_pattern.h"

// surfaceLuminance: the luminance of the light that reaches a surface point,
// from the lights the shading engine gathers.
#define ORVO_SCHEMA_TdnSurfaceLuminance(A, C2, C3)                                                 \
    C3(Tattribute3Float, NormalCamera, "normalCamera", "n", ORVO_XYZ,                              \
       .implicitSample().setNativeDefaultData(0, 0, 1), .implicitSample())                         \
    A(TattributeArrayOf<TattributeLightData>, LightDataArray, "lightDataArray", "ltd",             \
      .implicitLight())                                                                            \
    A(TattributeFloat, OutValue, "outValue", "o", .output().setNativeDefaultData(0.0f))

ORVO_NODE(TdnSurfaceLuminance, TdependNode, "surfaceLuminance", "RSLU", 483, "kSurfaceLuminance",
          "utility/color:drawdb/shader/operation/surfaceLuminance", "n_surfaceLuminance")

// Computes one sample at a time: the light array is walked per sample.
class TdnSurfaceLuminance : public TdnPattern<TdnSurfaceLuminance, TdependNode> {
public:
    bool computePlug(const Tplug& plug, TdataBlock& block) override;
};
