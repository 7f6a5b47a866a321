#pragma once

#include "textures/tx2d.h"
#include "textures/volume_texture.h"

// noise: a fractal sum of Perlin, billow or wave noise in (u, v), through
// the volume texture objects.
#define ORVO_SCHEMA_TdnNoise(A, C2, C3)                                                            \
    A(TattributeFloat, Amplitude, "amplitude", "a", .input().setNativeDefaultData(1.0f).min(0.0))  \
    A(TattributeFloat, Ratio, "ratio", "ra", .input().setNativeDefaultData(0.707f).min(0.0))       \
    A(TattributeFloat, Threshold, "threshold", "th", .input().setNativeDefaultData(0.0f).min(0.0)) \
    A(TattributeInt16, DepthMax, "depthMax", "dm", .input().setNativeDefaultData(3).range(1, 80))  \
    A(TattributeFloat, Frequency, "frequency", "fq", .input().setNativeDefaultData(8.0f))          \
    A(TattributeFloat, FrequencyRatio, "frequencyRatio", "fr",                                     \
      .input().setNativeDefaultData(2.0f))                                                         \
    A(TattributeBoolean, Inflection, "inflection", "in", .input().setNativeDefaultData(false))     \
    A(TattributeFloat, Time, "time", "ti", .input().setNativeDefaultData(0.0f))                    \
    A(TattributeEnum, NoiseType, "noiseType", "nty",                                               \
      .input()                                                                                     \
          .ORVO_FIELD(kPerlin, "Perlin Noise")                                                     \
          .ORVO_FIELD(kBillow, "Billow")                                                           \
          .ORVO_FIELD(kWave, "Wave")                                                               \
          .ORVO_FIELD(kWispy, "Wispy")                                                             \
          .ORVO_FIELD(kSpaceTime, "SpaceTime")                                                     \
          .setNativeDefaultData(1))                                                                \
    A(TattributeFloat, Density, "density", "d", .input().setNativeDefaultData(1.0f).min(0.0))      \
    A(TattributeFloat, Spottyness, "spottyness", "sp",                                             \
      .input().setNativeDefaultData(0.1f).min(0.0))                                                \
    A(TattributeFloat, SizeRand, "sizeRand", "sr", .input().setNativeDefaultData(0.0f).min(0.0))   \
    A(TattributeFloat, Randomness, "randomness", "rn",                                             \
      .input().setNativeDefaultData(1.0f).min(0.0))                                                \
    A(TattributeEnum, Falloff, "falloff", "fof",                                                   \
      .input()                                                                                     \
          .ORVO_FIELD(kLinear, "Linear")                                                           \
          .ORVO_FIELD(kSmooth, "Smooth")                                                           \
          .ORVO_FIELD(kFast, "Fast")                                                               \
          .ORVO_FIELD(kBubble, "Bubble")                                                           \
          .setNativeDefaultData(2))                                                                \
    A(TattributeInt16, NumWaves, "numWaves", "nw", .input().setNativeDefaultData(5).min(1.0))      \
    A(TattributeFloat, Implode, "implode", "imp", .input().setNativeDefaultData(0.0f))             \
    C2(Tattribute2Float, ImplodeCenter, "implodeCenter", "imc", ORVO_UV,                           \
       .inputParent().setNativeDefaultData(0.5f, 0.5f), .input())

class TdnNoise;
template <>
struct TdnKernel<TdnNoise> {
    enum : int16_t { kPerlin = 0, kBillow = 1, kWave = 2, kWispy = 3, kSpaceTime = 4 };
    enum : int16_t { kLinear = 0, kSmooth = 1, kFast = 2, kBubble = 3 };
};

ORVO_NODE(TdnNoise, TdnTx2D, "noise", "RTN2", 491, "kNoise",
          "texture/2d:drawdb/shader/texture/2d/noise", "n_noise")

class TdnNoise : public TdnPattern<TdnNoise, TdnTx2D> {
public:
    struct Params {
        float amplitude = 1.0f, ratio = 0.707f, threshold = 0.0f;
        int16_t depthMax = 3;
        float frequency = 8.0f, frequencyRatio = 2.0f;
        bool inflection = false;
        float time = 0.0f;
        int16_t noiseType = 1;
        float density = 1.0f, spottyness = 0.1f, sizeRand = 0.0f, randomness = 1.0f;
        int16_t falloff = 2;
        int16_t numWaves = 5;
        float implode = 0.0f;
        float implodeCenter[2] = {0.5f, 0.5f};
    };
    // The three texture objects of a batch, set up for one sample's values.
    struct Textures {
        TperlinTexture perlin;
        TbillowTexture billow;
        TcosTexture wave;
        // The object for the noise type, configured; Perlin for a type
        // beyond the enum.
        const TvolumeTexture& configure(const Params& p);
    };
    static float value(Textures& textures, const Params& p, float u, float v);

    ORVO_TX2D_OVERRIDES
};
