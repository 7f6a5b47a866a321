#pragma once

#include "textures/tx2d.h"

// mountain: rock and snow from two fractal passes in (u, v), one for the
// slope, one for the height.
#define ORVO_SCHEMA_TdnMountain(A, C2, C3)                                                         \
    C3(Tattribute3Float, SnowColor, "snowColor", "sc", ORVO_RGB,                                   \
       .inputParent().colour().setNativeDefaultData(1, 1, 1), .input())                            \
    C3(Tattribute3Float, RockColor, "rockColor", "rc", ORVO_RGB,                                   \
       .inputParent().colour().setNativeDefaultData(0.262f, 0.102f, 0.0f), .input())               \
    A(TattributeFloat, Amplitude, "amplitude", "a", .input().setNativeDefaultData(1.0f).min(0.0))  \
    A(TattributeFloat, SnowRoughness, "snowRoughness", "sr",                                       \
      .input().setNativeDefaultData(0.4f).range(0, 1))                                             \
    A(TattributeFloat, RockRoughness, "rockRoughness", "rr",                                       \
      .input().setNativeDefaultData(0.707f).range(0, 1))                                           \
    A(TattributeFloat, Boundary, "boundary", "bo",                                                 \
      .input().setNativeDefaultData(1.0f).range(0, 1))                                             \
    A(TattributeFloat, SnowAltitude, "snowAltitude", "sa",                                         \
      .input().setNativeDefaultData(0.5f).min(0.0))                                                \
    A(TattributeFloat, SnowDropoff, "snowDropoff", "sd",                                           \
      .input().setNativeDefaultData(2.0f).min(0.0))                                                \
    A(TattributeFloat, SnowSlope, "snowSlope", "ss", .input().setNativeDefaultData(0.8f).min(0.0)) \
    A(TattributeFloat, DepthMax, "depthMax", "dmx",                                                \
      .input().setNativeDefaultData(20.0f).range(0, 40))

ORVO_NODE(TdnMountain, TdnTx2D, "mountain", "RTMO", 495, "kMountain",
          "texture/2d:drawdb/shader/texture/2d/mountain", "n_mountain")

class TdnMountain : public TdnPattern<TdnMountain, TdnTx2D> {
public:
    struct Params {
        float amplitude = 1.0f, snowRoughness = 0.4f, rockRoughness = 0.707f, boundary = 1.0f;
        float snowAltitude = 0.5f, snowDropoff = 2.0f, snowSlope = 0.8f, depthMax = 20.0f;
    };
    // The colour (snow or rock) and the height at (u, v) for a filtered size.
    static T3Float pattern(const Params& p, float u, float v, float filtered, const float* snow,
                           const float* rock, float& height);

    ORVO_TX2D_OVERRIDES
};
