#pragma once

#include "framework/node_pattern.h"

// reverse: output = 1 - input, component by component.
#define ORVO_SCHEMA_TdnReverse(A, C2, C3)                                                          \
    C3(Tattribute3Float, Input, "input", "i", ORVO_XYZ,                                            \
       .inputParent().setNativeDefaultData(0, 0, 0), .input())                                     \
    C3(Tattribute3Float, Output, "output", "o", ORVO_XYZ, .output().setNativeDefaultData(0, 0, 0), \
       .output())

ORVO_NODE(TdnReverse, TdependNode, "reverse", "RRVS", 464, "kReverse",
          "utility/general:drawdb/shader/operation/reverse", "n_reverse")

class TdnReverse : public TdnPattern<TdnReverse, TdependNode> {
public:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
};
