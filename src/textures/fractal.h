#pragma once

#include "textures/tx2d.h"

// fractal: a band-limited sum of lattice noise over levels, the filter size
// choosing the last level.
#define ORVO_SCHEMA_TdnFractal(A, C2, C3)                                                          \
    A(TattributeFloat, Amplitude, "amplitude", "a", .input().setNativeDefaultData(1.0f).min(0.0))  \
    A(TattributeFloat, Ratio, "ratio", "ra", .input().setNativeDefaultData(0.707f).range(0, 1))    \
    A(TattributeFloat, Threshold, "threshold", "th", .input().setNativeDefaultData(0.0f).min(0.0)) \
    A(TattributeFloat, LevelMin, "levelMin", "lmn",                                                \
      .input().setNativeDefaultData(0.0f).range(0, 25))                                            \
    A(TattributeFloat, LevelMax, "levelMax", "lmx",                                                \
      .input().setNativeDefaultData(9.0f).range(0, 25))                                            \
    A(TattributeFloat, FrequencyRatio, "frequencyRatio", "fr",                                     \
      .input().setNativeDefaultData(2.0f))                                                         \
    A(TattributeFloat, Bias, "bias", "bs", .input().setNativeDefaultData(0.0f))                    \
    A(TattributeBoolean, Inflection, "inflection", "in", .input().setNativeDefaultData(false))     \
    A(TattributeBoolean, Animated, "animated", "an", .input().setNativeDefaultData(false))         \
    A(TattributeFloat, TimeRatio, "timeRatio", "tr", .input().setNativeDefaultData(2.0f))          \
    A(TattributeFloat, Time, "time", "ti", .input().setNativeDefaultData(0.0f).range(0, 100))

ORVO_NODE(TdnFractal, TdnTx2D, "fractal", "RTFR", 489, "kFractal",
          "texture/2d:drawdb/shader/texture/2d/fractal", "n_fractal")

class TdnFractal : public TdnPattern<TdnFractal, TdnTx2D> {
public:
    struct Params {
        float amplitude = 1.0f, ratio = 0.707f, threshold = 0.0f;
        float levelMin = 0.0f, levelMax = 9.0f, frequencyRatio = 2.0f, bias = 0.0f;
        bool inflection = false, animated = false;
        float timeRatio = 2.0f, time = 0.0f;
    };
    // The grey value at (u, v) for a filtered size.
    static float value(const Params& p, float u, float v, float filtered);

    // Levels scale both coordinates by frequencyRatio, without the axis swap
    // and offsets that break the lattice alignment between levels. Set at
    // load by ORVO_RENDERER_OLD_RANDOM_TABLE, with the old random table.
    static bool oldFractal;

    ORVO_TX2D_OVERRIDES
};
