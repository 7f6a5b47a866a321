#pragma once

#include "framework/node_pattern.h"

// multiplyDivide: input1 combined with input2 component by component.
#define ORVO_SCHEMA_TdnMultiplyDivide(A, C2, C3)                                                   \
    A(TattributeEnumOf, Operation, "operation", "op",                                              \
      .input()                                                                                     \
          .ORVO_FIELD(kNone, "No operation")                                                       \
          .ORVO_FIELD(kMultiply, "Multiply")                                                       \
          .ORVO_FIELD(kDivide, "Divide")                                                           \
          .ORVO_FIELD(kPower, "Power")                                                             \
          .setNativeDefaultData(1))                                                                \
    C3(Tattribute3Float, Input1, "input1", "i1", ORVO_XYZ,                                         \
       .inputParent().setNativeDefaultData(0, 0, 0), .input())                                     \
    C3(Tattribute3Float, Input2, "input2", "i2", ORVO_XYZ,                                         \
       .inputParent().setNativeDefaultData(1, 1, 1), .input())                                     \
    C3(Tattribute3Float, Output, "output", "o", ORVO_XYZ, .output().setNativeDefaultData(0, 0, 0), \
       .output())

class TdnMultiplyDivide;
template <>
struct TdnKernel<TdnMultiplyDivide> {
    enum : int16_t { kNone = 0, kMultiply = 1, kDivide = 2, kPower = 3 };
};

ORVO_NODE(TdnMultiplyDivide, TshadingDependNode, "multiplyDivide", "RMDI", 444, "kMultiplyDivide",
          "utility/general:drawdb/shader/operation/multiplyDivide", "n_multiplyDivide")

class TdnMultiplyDivide : public TdnPattern<TdnMultiplyDivide, TshadingDependNode> {
public:
    // What a divisor at or near zero gives, whatever the dividend.
    static constexpr float kDivideByZeroResult = 100000.0f;

    bool computePlug(const Tplug& plug, TdataBlock& block) override;
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
    void shadingNodeOnDemand(Tplug& plug, TdataBlock& block) override;

private:
    // Set once the divide-by-zero warning was shown. A plain byte: render
    // threads racing on it can at worst show the warning twice.
    bool fWarnedDivideByZero = false;
};
