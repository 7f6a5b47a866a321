#pragma once

#include "textures/tx2d.h"

// ramp: colours along a line, a circle, a box or other shapes of (u, v),
// from a sparse list of (position, colour) entries, with waves, noise and
// noise in hue, saturation and value. An entry's layout is fixed as soon as
// its children are in place, before the block lays out the type.
#define ORVO_SCHEMA_TdnRamp(A, C2, C3)                                                             \
    A(TattributeEnum, Type, "type", "t",                                                           \
      .input()                                                                                     \
          .ORVO_FIELD(kVRamp, "V Ramp")                                                            \
          .ORVO_FIELD(kURamp, "U Ramp")                                                            \
          .ORVO_FIELD(kDiagRamp, "Diagonal Ramp")                                                  \
          .ORVO_FIELD(kRadialRamp, "Radial Ramp")                                                  \
          .ORVO_FIELD(kCircularRamp, "Circular Ramp")                                              \
          .ORVO_FIELD(kBoxRamp, "Box Ramp")                                                        \
          .ORVO_FIELD(kUVRamp, "UV Ramp")                                                          \
          .ORVO_FIELD(kFourRamp, "Four Corner Ramp")                                               \
          .ORVO_FIELD(kTartanRamp, "Tartan Ramp")                                                  \
          .setNativeDefaultData(0))                                                                \
    A(TattributeEnum, Interpolation, "interpolation", "in",                                        \
      .input()                                                                                     \
          .ORVO_FIELD(kNoInterp, "None")                                                           \
          .ORVO_FIELD(kLinearInterp, "Linear")                                                     \
          .ORVO_FIELD(kExpUpInterp, "Exponential Up")                                              \
          .ORVO_FIELD(kExpDnInterp, "Exponential Down")                                            \
          .ORVO_FIELD(kSmoothInterp, "Smooth")                                                     \
          .ORVO_FIELD(kBumpInterp, "Bump")                                                         \
          .ORVO_FIELD(kSpikeInterp, "Spike")                                                       \
          .setNativeDefaultData(1))                                                                \
    A(TattributeArrayOf<TattributeCompound>, ColorEntryList, "colorEntryList", "cel",              \
      .inputParent())                                                                              \
    A(TattributeFloat, Position, "position", "ep",                                                 \
      .input().setNativeDefaultData(0.0f).range(0, 1).childOf(ColorEntryList))                     \
    C3(Tattribute3Float, Color, "color", "ec", ORVO_RGB,                                           \
       .inputParent().colour().setNativeDefaultData(1, 0, 0).lastChildOf(ColorEntryList),          \
       .input())                                                                                   \
    ORVO_RAMP_AMOUNT(A, UWave, "uWave", "uw", 0.0f)                                                \
    ORVO_RAMP_AMOUNT(A, VWave, "vWave", "vw", 0.0f)                                                \
    ORVO_RAMP_AMOUNT(A, Noise, "noise", "n", 0.0f)                                                 \
    ORVO_RAMP_AMOUNT(A, NoiseFreq, "noiseFreq", "nf", 0.5f)                                        \
    ORVO_RAMP_AMOUNT(A, HueNoise, "hueNoise", "hn", 0.0f)                                          \
    ORVO_RAMP_AMOUNT(A, SatNoise, "satNoise", "sn", 0.0f)                                          \
    ORVO_RAMP_AMOUNT(A, ValNoise, "valNoise", "vn", 0.0f)                                          \
    ORVO_RAMP_AMOUNT(A, HueNoiseFreq, "hueNoiseFreq", "hnf", 0.5f)                                 \
    ORVO_RAMP_AMOUNT(A, SatNoiseFreq, "satNoiseFreq", "snf", 0.5f)                                 \
    ORVO_RAMP_AMOUNT(A, ValNoiseFreq, "valNoiseFreq", "vnf", 0.5f)

// A keyable float with a lower limit of 0 and no upper one.
#define ORVO_RAMP_AMOUNT(A, Name, Long, Short, Default)                                            \
    A(TattributeFloat, Name, Long, Short, .input().setNativeDefaultData(Default).min(0.0))

class TdnRamp;
template <>
struct TdnKernel<TdnRamp> {
    enum : int16_t {
        kVRamp = 0,
        kURamp = 1,
        kDiagRamp = 2,
        kRadialRamp = 3,
        kCircularRamp = 4,
        kBoxRamp = 5,
        kUVRamp = 6,
        kFourRamp = 7,
        kTartanRamp = 8,
    };
    enum : int16_t {
        kNoInterp = 0,
        kLinearInterp = 1,
        kExpUpInterp = 2,
        kExpDnInterp = 3,
        kSmoothInterp = 4,
        kBumpInterp = 5,
        kSpikeInterp = 6,
    };
};

ORVO_NODE(TdnRamp, TdnTx2D, "ramp", "RTRA", 497, "kRamp",
          "texture/2d:drawdb/shader/texture/2d/ramp", "n_ramp")

class TdnRamp : public TdnPattern<TdnRamp, TdnTx2D> {
public:
    // The per-sample parameters other than the entries.
    struct Params {
        int16_t type = 0;
        int16_t interpolation = 1;
        float uWave = 0.0f, vWave = 0.0f;
        float noise = 0.0f, noiseFreq = 0.5f;
        float hueNoise = 0.0f, satNoise = 0.0f, valNoise = 0.0f;
        float hueNoiseFreq = 0.5f, satNoiseFreq = 0.5f, valNoiseFreq = 0.5f;
    };

    // The weight of the higher colour at t between two entries.
    static float interpolationWeight(int16_t interpolation, float t, float channelDifference);

    // An empty list gets entry 0 at position 0, black, and entry 1 at 1,
    // white, in the node's own values. A render reads an empty list as those
    // two entries without writing anything.
    void addDefaultValuesIfEmpty();

    ORVO_TX2D_OVERRIDES
};
