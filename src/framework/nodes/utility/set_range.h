#pragma once

#include "framework/node_pattern.h"

// setRange: maps value from [oldMin, oldMax] onto [min, max], component by
// component, clamping to the old range first.
#define ORVO_SCHEMA_TdnSetRange(A, C2, C3)                                                         \
    C3(Tattribute3Float, Value, "value", "v", ORVO_XYZ,                                            \
       .inputParent().setNativeDefaultData(0, 0, 0), .input())                                     \
    C3(Tattribute3Float, Min, "min", "n", ORVO_XYZ, .inputParent().setNativeDefaultData(0, 0, 0),  \
       .input())                                                                                   \
    C3(Tattribute3Float, Max, "max", "m", ORVO_XYZ, .inputParent().setNativeDefaultData(0, 0, 0),  \
       .input())                                                                                   \
    C3(Tattribute3Float, OldMin, "oldMin", "on", ORVO_XYZ,                                         \
       .inputParent().setNativeDefaultData(0, 0, 0), .input())                                     \
    C3(Tattribute3Float, OldMax, "oldMax", "om", ORVO_XYZ,                                         \
       .inputParent().setNativeDefaultData(0, 0, 0), .input())                                     \
    C3(Tattribute3Float, OutValue, "outValue", "o", ORVO_XYZ,                                      \
       .output().setNativeDefaultData(0, 0, 0), .output())

ORVO_NODE(TdnSetRange, TdependNode, "setRange", "RRNG", 470, "kSetRange",
          "utility/general:drawdb/shader/operation/setRange", "n_setRange")

class TdnSetRange : public TdnPattern<TdnSetRange, TdependNode> {
public:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
};
