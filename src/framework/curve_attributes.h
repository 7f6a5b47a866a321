#pragma once

// Curve attributes: an array of entries, each a position, a value (a float
// or a colour) and the interpolation toward the next entry, which the
// host's Tramp evaluates. A type that has curves derives its kernel from
// TcurveKernel, which names the interpolation enumerators.

#include "framework/node_pattern.h"
#include "host/ramp.h"

// A curve attribute's entries for a run of samples, read in place.
struct TcurveRun {
    TrampData layout;
    TvectorDataHandle entries;

    TcurveRun(TdataBlock& block, unsigned first, unsigned count, const Tattribute& curve,
              const Tattribute& position, const Tattribute& value, const Tattribute& interp)
        : layout(TrampData::of(curve, position, value, interp)),
          entries(block.vectorInputValue(curve, first, count)) {}
    Tramp at(int i) const {
        return Tramp(layout, entries.isNull() ? nullptr : entries[i].asMultiHeader());
    }
};

// The run of curve `Name` of node type T, a colour or a float curve.
#define ORVO_COLOR_CURVE_RUN(T, Name, block, first, count)                                         \
    TcurveRun(block, first, count, T::a##Name, T::a##Name##Position, T::a##Name##Color,            \
              T::a##Name##Interp)
#define ORVO_FLOAT_CURVE_RUN(T, Name, block, first, count)                                         \
    TcurveRun(block, first, count, T::a##Name, T::a##Name##Position, T::a##Name##FloatValue,       \
              T::a##Name##Interp)

struct TcurveKernel {
    enum : int16_t {
        kNone = TrampData::kNone,
        kLinear = TrampData::kLinear,
        kSmooth = TrampData::kSmooth,
        kSpline = TrampData::kSpline,
    };
};

// The interpolation enum of a curve entry.
#define ORVO_CURVE_INTERP(A, Name, Long, Short)                                                    \
    A(TattributeEnum, Name##Interp, Long "_Interp", Short "i",                                     \
      .input()                                                                                     \
          .ORVO_FIELD(kNone, "None")                                                               \
          .ORVO_FIELD(kLinear, "Linear")                                                           \
          .ORVO_FIELD(kSmooth, "Smooth")                                                           \
          .ORVO_FIELD(kSpline, "Spline")                                                           \
          .setNativeDefaultData(0)                                                                 \
          .lastChildOf(Name))

// A curve of float values: entries of position, value and interpolation.
#define ORVO_FLOAT_CURVE(A, Name, Long, Short)                                                     \
    A(TattributeArrayOf<TattributeCompound>, Name, Long, Short, .inputParent())                    \
    A(TattributeFloat, Name##Position, Long "_Position", Short "p",                                \
      .input().setNativeDefaultData(0.0f).childOf(Name))                                           \
    A(TattributeFloat, Name##FloatValue, Long "_FloatValue", Short "fv",                           \
      .input().setNativeDefaultData(0.0f).childOf(Name))                                           \
    ORVO_CURVE_INTERP(A, Name, Long, Short)

// A curve of colours.
#define ORVO_COLOR_CURVE(A, C3, Name, Long, Short)                                                 \
    A(TattributeArrayOf<TattributeCompound>, Name, Long, Short, .inputParent())                    \
    A(TattributeFloat, Name##Position, Long "_Position", Short "p",                                \
      .input().setNativeDefaultData(0.0f).childOf(Name))                                           \
    C3(Tattribute3Float, Name##Color, Long "_Color", Short "c", ORVO_RGB,                          \
       .inputParent().colour().setNativeDefaultData(0, 0, 0).childOf(Name), .input())              \
    ORVO_CURVE_INTERP(A, Name, Long, Short)
