#pragma once

// Helpers shared by the arithmetic and colour utility nodes: the zero
// tolerance, colour-space conversions and the renderPassMode enum that the
// colour utilities carry.

#include <cmath>
#include <cstdint>

#include "host/types.h"

class TrenderUtilities {
public:
    // |x| at or below this counts as zero, and two values this close are
    // equal. One tolerance for every utility, so that networks behave alike.
    static constexpr float epsilon = 1e-5f;

    static bool isZero(float x) { return std::fabs(x) <= epsilon; }
    static bool nearlyEqual(float a, float b) { return std::fabs(a - b) <= epsilon; }

    // Luminance of a colour in the rendering space.
    static float luminance(float r, float g, float b) { return 0.3f * r + 0.59f * g + 0.11f * b; }

    // Hue in degrees [0, 360), saturation and value.
    static void RGBtoHSV(const T3Float& rgb, T3Float& hsv);
    // The inverse. A hue of 360 is read as 0; a hue beyond that (or below
    // 0) falls outside the six sectors and leaves `rgb` as it was, so a
    // caller that preloads `rgb` keeps its previous value.
    static void HSVtoRGB(T3Float hsv, T3Float& rgb);
};

// renderPassMode, shared by the colour utilities: how a utility's result
// takes part in render passes.
struct TrenderPassModeKernel {
    enum : int16_t {
        kPassThrough = 0,
        kApplyToRenderPasses = 1,
        kNoContribution = 2,
        kWriteShaderResultToBeautyPasses = 3,
    };
};

// The schema entry of renderPassMode, for a type whose TdnKernel derives
// from TrenderPassModeKernel.
#define ORVO_RENDER_PASS_MODE(A)                                                                   \
    A(TattributeEnum, RenderPassMode, "renderPassMode", "arp",                                     \
      .input()                                                                                     \
          .ORVO_FIELD(kPassThrough, "Pass through")                                                \
          .ORVO_FIELD(kApplyToRenderPasses, "Apply to Render Passes")                              \
          .ORVO_FIELD(kNoContribution, "No Contribution")                                          \
          .ORVO_FIELD(kWriteShaderResultToBeautyPasses, "Write Shader Result to Beauty Passes")    \
          .setNativeDefaultData(1))
