#pragma once

#include "framework/node_pattern.h"

// condition: compares two terms and passes one of two colours on.
#define ORVO_SCHEMA_TdnCondition(A, C2, C3)                                                        \
    A(TattributeEnum, Operation, "operation", "op",                                                \
      .input()                                                                                     \
          .ORVO_FIELD(kEqual, "Equal")                                                             \
          .ORVO_FIELD(kNotEqual, "Not Equal")                                                      \
          .ORVO_FIELD(kGreaterThan, "Greater Than")                                                \
          .ORVO_FIELD(kGreaterEqual, "Greater or Equal")                                           \
          .ORVO_FIELD(kLessThan, "Less Than")                                                      \
          .ORVO_FIELD(kLessEqual, "Less or Equal")                                                 \
          .setNativeDefaultData(0))                                                                \
    A(TattributeFloat, FirstTerm, "firstTerm", "ft", .input().setNativeDefaultData(0.0f))          \
    A(TattributeFloat, SecondTerm, "secondTerm", "st", .input().setNativeDefaultData(0.0f))        \
    C3(Tattribute3Float, ColorIfTrue, "colorIfTrue", "ct", ORVO_RGB,                               \
       .inputParent().setNativeDefaultData(0, 0, 0), .input())                                     \
    C3(Tattribute3Float, ColorIfFalse, "colorIfFalse", "cf", ORVO_RGB,                             \
       .inputParent().setNativeDefaultData(1, 1, 1), .input())                                     \
    C3(Tattribute3Float, OutColor, "outColor", "oc", ORVO_RGB, .output(), .output())

class TdnCondition;
template <>
struct TdnKernel<TdnCondition> {
    enum : int16_t {
        kEqual = 0,
        kNotEqual = 1,
        kGreaterThan = 2,
        kGreaterEqual = 3,
        kLessThan = 4,
        kLessEqual = 5,
    };
};

ORVO_NODE(TdnCondition, TdependNode, "condition", "RCND", 37, "kCondition",
          "utility/general:drawdb/shader/operation/condition", "n_condition")

class TdnCondition : public TdnPattern<TdnCondition, TdependNode> {
public:
    // Runs up to this many elements keep their selection mask on the stack.
    static constexpr unsigned kStackMaskSize = 65536;

    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
};
