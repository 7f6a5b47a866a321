#pragma once

#include "framework/node_pattern.h"

// samplerInfo: the geometry of the sample being shaded, handed to a network.
// The shading engine fills every input from the sample by name; only
// facingRatio is computed here.
#define ORVO_SCHEMA_TdnSamplerInfo(A, C2, C3)                                                      \
    C3(Tattribute3Float, PointCamera, "pointCamera", "p", ORVO_XYZ,                                \
       .implicitSample().setNativeDefaultData(0, 0, 0), .implicitSample())                         \
    C3(Tattribute3Float, PointObj, "pointObj", "po", ORVO_XYZ,                                     \
       .implicitSample().setNativeDefaultData(0, 0, 0), .implicitSample())                         \
    C3(Tattribute3Float, PointWorld, "pointWorld", "pw", ORVO_XYZ,                                 \
       .implicitSample().setNativeDefaultData(0, 0, 0), .implicitSample())                         \
    C3(Tattribute3Float, NormalCamera, "normalCamera", "n", ORVO_XYZ,                              \
       .implicitSample().setNativeDefaultData(0, 0, 1), .implicitSample())                         \
    A(Tattribute2Float, UvCoord, "uvCoord", "uv", .implicitSample())                               \
    A(TattributeFloat, UCoord, "uCoord", "u",                                                      \
      .implicitSample().setNativeDefaultData(0.0f).childOf(UvCoord))                               \
    A(TattributeFloat, VCoord, "vCoord", "v",                                                      \
      .implicitSample().setNativeDefaultData(0.0f).childOf(UvCoord))                               \
    C3(Tattribute3Float, RayDirection, "rayDirection", "r", ORVO_XYZ,                              \
       .implicitSample().setNativeDefaultData(0, 0, 1), .implicitSample())                         \
    ORVO_C3_NAMED(A, TangentUCamera, "tangentUCamera", "tu", "tangentUx", "tangentUy",             \
                  "tangentUz", "tux", "tuy", "tuz", 1.0f, 0.0f, 0.0f, .implicitSample(),           \
                  .implicitSample())                                                               \
    ORVO_C3_NAMED(A, TangentVCamera, "tangentVCamera", "tv", "tangentVx", "tangentVy",             \
                  "tangentVz", "tvx", "tvy", "tvz", 0.0f, 1.0f, 0.0f, .implicitSample(),           \
                  .implicitSample())                                                               \
    A(TattributeFltMatrix, MatrixEyeToWorld, "matrixEyeToWorld", "e2w", .implicitSample())         \
    C2(Tattribute2Float, PixelCenter, "pixelCenter", "pc", ORVO_XY, .implicitSample(),             \
       .implicitSample().setNativeDefaultData(0.0f))                                               \
    A(TattributeBoolean, FlippedNormal, "flippedNormal", "fn",                                     \
      .implicitSample().setNativeDefaultData(false))                                               \
    A(TattributeFloat, FacingRatio, "facingRatio", "fr", .output().setNativeDefaultData(0.0f))

ORVO_NODE(TdnSamplerInfo, TshadingDependNode, "samplerInfo", "RSIN", 474, "kSamplerInfo",
          "utility/general:drawdb/shader/operation/samplerInfo", "n_samplerInfo")

class TdnSamplerInfo : public TdnPattern<TdnSamplerInfo, TshadingDependNode> {
public:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
};
