#pragma once

// The checker's arithmetic over a run of samples held in arrays, one value
// a lane, in the widest vectors the processor offers. The vector width is
// chosen at the first call from what the processor reports; the build
// itself stays baseline x86-64.
//
// Every lane computes exactly what the checker's one-sample formulas give
// (the same operations in the same order, no fused multiply-adds), so a
// picture does not depend on the machine that rendered it.

// Arrays passed to these functions hold `count` values padded as
// run_lanes.h says.

#include "textures/run_lanes.h"

struct TcheckerWeightsRun {
    unsigned count = 0;
    const float* u = nullptr;
    const float* v = nullptr;
    const float* sizeX = nullptr;
    const float* sizeY = nullptr;
    // The same for every sample of the run.
    float filter = 1.0f;
    float filterOffset = 0.0f;
    float contrast = 1.0f;
    float* w1 = nullptr;
    float* w2 = nullptr;
};

// The weights of color1 and color2 at each sample.
void OrvoCheckerWeights(const TcheckerWeightsRun& run);

struct TcheckerMixRun {
    // A colour the same for every sample (`rgb`), or one array a channel.
    struct Colour {
        float rgb[3] = {0.0f, 0.0f, 0.0f};
        const float* channel[3] = {nullptr, nullptr, nullptr};
        bool varies = false;
    };
    unsigned count = 0;
    const float* w1 = nullptr;
    const float* w2 = nullptr;
    Colour colour1, colour2;
    // The colour effects, the same for every sample.
    bool invert = false;
    bool alphaIsLuminance = false;
    float gain[3] = {1.0f, 1.0f, 1.0f};
    float offset[3] = {0.0f, 0.0f, 0.0f};
    float alphaGain = 1.0f;
    float alphaOffset = 0.0f;
    // Red, green, blue and alpha out.
    float* out[4] = {nullptr, nullptr, nullptr, nullptr};
};

// The colours the weights mix, alpha the weight of color1 (or the mix's
// luminance), then the colour effects.
void OrvoCheckerMix(const TcheckerMixRun& run);
