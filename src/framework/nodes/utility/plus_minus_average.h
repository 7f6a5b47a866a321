#pragma once

#include "framework/node_pattern.h"

// plusMinusAverage: sum, difference or average of the elements of an array of
// scalars, pairs or triples.
#define ORVO_SCHEMA_TdnPlusMinusAverage(A, C2, C3)                                                 \
    A(TattributeEnum, Operation, "operation", "op",                                                \
      .input()                                                                                     \
          .ORVO_FIELD(kNone, "No operation")                                                       \
          .ORVO_FIELD(kSum, "Sum")                                                                 \
          .ORVO_FIELD(kSubtract, "Subtract")                                                       \
          .ORVO_FIELD(kAverage, "Average")                                                         \
          .setNativeDefaultData(1))                                                                \
    A(TattributeArrayOf<TattributeFloat>, Input1D, "input1D", "i1",                                \
      .input().setNativeDefaultData(0.0f))                                                         \
    C2(TattributeArrayOf<Tattribute2Float>, Input2D, "input2D", "i2", ORVO_LXY,                    \
       .inputParent().setNativeDefaultData(0, 0), .input())                                        \
    C3(TattributeArrayOf<Tattribute3Float>, Input3D, "input3D", "i3", ORVO_LXYZ,                   \
       .inputParent().setNativeDefaultData(0, 0, 0), .input())                                     \
    A(TattributeFloat, Output1D, "output1D", "o1", .output().setNativeDefaultData(0.0f))           \
    C2(Tattribute2Float, Output2D, "output2D", "o2", ORVO_LXY,                                     \
       .output().setNativeDefaultData(0, 0), .output())                                            \
    C3(Tattribute3Float, Output3D, "output3D", "o3", ORVO_LXYZ,                                    \
       .output().setNativeDefaultData(0, 0, 0), .output())

class TdnPlusMinusAverage;
template <>
struct TdnKernel<TdnPlusMinusAverage> {
    enum : int16_t { kNone = 0, kSum = 1, kSubtract = 2, kAverage = 3 };
};

ORVO_NODE(TdnPlusMinusAverage, TshadingDependNode, "plusMinusAverage", "RPMA", 457,
          "kPlusMinusAverage", "utility/general:drawdb/shader/operation/plusMinusAverage",
          "n_plusMinusAverage")

class TdnPlusMinusAverage : public TdnPattern<TdnPlusMinusAverage, TshadingDependNode> {
public:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
    bool shouldBeWritten(const Tplug& plug, bool isDefault, bool treatAsDefault) override;
};
