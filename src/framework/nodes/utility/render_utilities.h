#pragma once

// Helpers shared by the arithmetic and colour utility nodes: the zero
// tolerance, colour-space conversions and the renderPassMode enum that the
// colour utilities carry.

#include <cmath>
#include <cstdint>

#include "host/types.h"

class Tattribute;
class TdependNode;
class Tplug;

class TrenderUtilities {
public:
    // |x| at or below this counts as zero, and two values this close are
    // equal. One tolerance for every utility, so that networks behave alike.
    static constexpr float epsilon = 1e-5f;

    static bool isZero(float x) { return std::fabs(x) <= epsilon; }
    static bool nearlyEqual(float a, float b) { return std::fabs(a - b) <= epsilon; }

    // Luminance of a colour in the rendering space.
    static float luminance(float r, float g, float b) { return OrvoLuminance(r, g, b); }

    // Hue in degrees [0, 360), saturation and value.
    static void RGBtoHSV(const T3Float& rgb, T3Float& hsv);
    // The inverse. A hue of 360 is read as 0; a hue beyond that (or below
    // 0) falls outside the six sectors and leaves `rgb` as it was, so a
    // caller that preloads `rgb` keeps its previous value.
    static void HSVtoRGB(T3Float hsv, T3Float& rgb);

    // Luminance with the broadcast weights, the same as luminance().
    static float ntscLuminance(const T3Float& c) { return luminance(c.x, c.y, c.z); }
    // A sine of period 1 from two parabolas: exact at the quarter periods,
    // within 0.06 between them. For settings and viewport code that wants
    // a smooth wave cheaply.
    static float cheapSin(float x);

    // ---- plug helpers for settings and viewport code. They live with the
    // render info (framework/render_info.cpp), which decides what a render
    // node is. T is bool, int16_t, int32_t, float, double, T2Float, T3Float
    // or Tstring; each answers false when the plug's value does not fit T.
    // The value through the graph (connections pulled).
    template <class T>
    static bool getValue(const Tplug& plug, T& out);
    // Sets the plug's value; false when it is connected or cannot take it.
    template <class T>
    static bool setValue(const Tplug& plug, const T& value);
    // The plug, a compound above it or a child below it has a source on a
    // render node: a connection from an animation curve or another
    // non-render node does not count as shading.
    static bool isConnected(const Tplug& plug);
    static bool isPlugOnRenderNode(const Tplug& plug);
    // The value the plug holds itself, unless it is connected.
    template <class T>
    static bool getUnconnectedValue(const Tplug& plug, T& out);
    template <class T>
    static bool getUnconnectedValue(const TdependNode* node, const Tattribute& attribute, T& out);
    template <class T>
    static bool getUnconnectedValue(const TdependNode* node, const char* attributeName, T& out);
    // The attribute's own default.
    template <class T>
    static bool getDefaultValue(const Tattribute& attribute, T& out);
    // When the plug is fed by a multiplyDivide that multiplies, and the
    // multiplier (input2, or its child that matches the output child) is
    // not connected: that multiplier. A whole output needs its three
    // multipliers equal.
    static bool getMultiplierNodeGainValue(const Tplug& plug, float& gain);
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
