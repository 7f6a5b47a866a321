#pragma once

// Node types that exist only in the host's tests, so that the graph, plug and
// node code is tested without the render model.

#include "host/node_pattern.h"

// testFlip: output = 1 - input, component by component.
#define ORVO_SCHEMA_TdnTestFlip(A, C2, C3)                                                         \
    C3(Tattribute3Float, Input, "input", "i", ORVO_XYZ,                                            \
       .inputParent().setNativeDefaultData(0, 0, 0), .input())                                     \
    C3(Tattribute3Float, Output, "output", "o", ORVO_XYZ, .output().setNativeDefaultData(0, 0, 0), \
       .output())
ORVO_NODE(TdnTestFlip, TdependNode, "testFlip", "TFLP", 9101, "kTestFlip", "test/flip",
          "n_testFlip")
class TdnTestFlip : public TdnPattern<TdnTestFlip, TdependNode> {
public:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
};

// testSum: total = the sum of the elements of values, times gain.
#define ORVO_SCHEMA_TdnTestSum(A, C2, C3)                                                          \
    A(TattributeArrayOf<TattributeFloat>, Values, "values", "v",                                   \
      .input().setNativeDefaultData(0.0f))                                                         \
    A(TattributeFloat, Gain, "gain", "g", .input().setNativeDefaultData(1.0f))                     \
    A(TattributeFloat, Total, "total", "t", .output().setNativeDefaultData(0.0f))
ORVO_NODE(TdnTestSum, TdependNode, "testSum", "TSUM", 9102, "kTestSum", "test/sum", "n_testSum")
class TdnTestSum : public TdnPattern<TdnTestSum, TdependNode> {
public:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
};
