#pragma once

#include "framework/curve_attributes.h"
#include "framework/node_pattern.h"
#include "framework/nodes/utility/render_utilities.h"

// remapValue, remapColor, remapHsv: a value or colour taken from an input
// range to 0..1, pushed through editable curves, and taken to an output
// range. No clamping: a curve holds its end values outside its entries.

#define ORVO_REMAP_RANGES(A)                                                                       \
    A(TattributeFloat, InputMin, "inputMin", "imn", .input().setNativeDefaultData(0.0f))           \
    A(TattributeFloat, InputMax, "inputMax", "imx", .input().setNativeDefaultData(1.0f))           \
    A(TattributeFloat, OutputMin, "outputMin", "omn", .input().setNativeDefaultData(0.0f))         \
    A(TattributeFloat, OutputMax, "outputMax", "omx", .input().setNativeDefaultData(1.0f))

// The enumerators every remap type has: the curve interpolations, and the
// render pass modes of the colour utilities.
struct TremapKernel : public TrenderPassModeKernel, public TcurveKernel {};

// ---------------------------------------------------------------- remapValue

#define ORVO_SCHEMA_TdnRemapValue(A, C2, C3)                                                       \
    A(TattributeFloat, InputValue, "inputValue", "i", .input().setNativeDefaultData(0.0f))         \
    ORVO_REMAP_RANGES(A)                                                                           \
    ORVO_FLOAT_CURVE(A, Value, "value", "vl")                                                      \
    ORVO_COLOR_CURVE(A, C3, Color, "color", "cl")                                                  \
    A(TattributeFloat, OutValue, "outValue", "ov", .output().setNativeDefaultData(0.0f))           \
    C3(Tattribute3Float, OutColor, "outColor", "oc", ORVO_RGB,                                     \
       .output().colour().setNativeDefaultData(0, 0, 0), .output())

class TdnRemapValue;
template <>
struct TdnKernel<TdnRemapValue> : public TremapKernel {};

ORVO_NODE(TdnRemapValue, TdependNode, "remapValue", "RMVL", 932, "kRemapValue",
          "utility/color:drawdb/shader/operation/remapValue", "n_remapValue")

class TdnRemapValue : public TdnPattern<TdnRemapValue, TdependNode> {
public:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
};

// ---------------------------------------------------------------- remapColor

#define ORVO_SCHEMA_TdnRemapColor(A, C2, C3)                                                       \
    C3(Tattribute3Float, Color, "color", "cl", ORVO_RGB,                                           \
       .inputParent().colour().setNativeDefaultData(0.5f, 0.5f, 0.5f), .input())                   \
    ORVO_REMAP_RANGES(A)                                                                           \
    ORVO_FLOAT_CURVE(A, Red, "red", "r")                                                           \
    ORVO_FLOAT_CURVE(A, Green, "green", "g")                                                       \
    ORVO_FLOAT_CURVE(A, Blue, "blue", "b")                                                         \
    C3(Tattribute3Float, OutColor, "outColor", "oc", ORVO_RGB,                                     \
       .output().colour().setNativeDefaultData(0, 0, 0), .output())                                \
    ORVO_RENDER_PASS_MODE(A)

class TdnRemapColor;
template <>
struct TdnKernel<TdnRemapColor> : public TremapKernel {};

ORVO_NODE(TdnRemapColor, TdependNode, "remapColor", "RMCL", 933, "kRemapColor",
          "utility/color:drawdb/shader/operation/remapColor", "n_remapColor")

class TdnRemapColor : public TdnPattern<TdnRemapColor, TdependNode> {
public:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
};

// ---------------------------------------------------------------- remapHsv

#define ORVO_SCHEMA_TdnRemapHsv(A, C2, C3)                                                         \
    C3(Tattribute3Float, Color, "color", "cl", ORVO_RGB,                                           \
       .inputParent().colour().setNativeDefaultData(0.5f, 0.5f, 0.5f), .input())                   \
    ORVO_REMAP_RANGES(A)                                                                           \
    ORVO_FLOAT_CURVE(A, Hue, "hue", "h")                                                           \
    ORVO_FLOAT_CURVE(A, Saturation, "saturation", "s")                                             \
    ORVO_FLOAT_CURVE(A, Value, "value", "v")                                                       \
    C3(Tattribute3Float, OutColor, "outColor", "oc", ORVO_RGB,                                     \
       .output().colour().setNativeDefaultData(0, 0, 0), .output())                                \
    ORVO_RENDER_PASS_MODE(A)

class TdnRemapHsv;
template <>
struct TdnKernel<TdnRemapHsv> : public TremapKernel {};

ORVO_NODE(TdnRemapHsv, TdependNode, "remapHsv", "RMHS", 934, "kRemapHsv",
          "utility/color:drawdb/shader/operation/remapHsv", "n_remapHsv")

class TdnRemapHsv : public TdnPattern<TdnRemapHsv, TdependNode> {
public:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
};
