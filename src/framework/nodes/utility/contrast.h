#pragma once

#include "framework/node_pattern.h"
#include "framework/nodes/utility/render_utilities.h"

// contrast: pushes each component away from (or towards) the bias point.
#define ORVO_SCHEMA_TdnContrast(A, C2, C3)                                                         \
    C3(Tattribute3Float, Value, "value", "v", ORVO_XYZ,                                            \
       .inputParent().setNativeDefaultData(0, 0, 0), .input())                                     \
    C3(Tattribute3Float, Contrast, "contrast", "c", ORVO_XYZ,                                      \
       .inputParent().setNativeDefaultData(2, 2, 2), .input())                                     \
    C3(Tattribute3Float, Bias, "bias", "b", ORVO_XYZ,                                              \
       .inputParent().setNativeDefaultData(0.5f, 0.5f, 0.5f).min(0, 0, 0).max(1, 1, 1), .input())  \
    C3(Tattribute3Float, OutValue, "outValue", "o", ORVO_XYZ,                                      \
       .output().setNativeDefaultData(0, 0, 0), .output())                                         \
    ORVO_RENDER_PASS_MODE(A)

class TdnContrast;
template <>
struct TdnKernel<TdnContrast> : public TrenderPassModeKernel {};

ORVO_NODE(TdnContrast, TdependNode, "contrast", "RCON", 38, "kContrast",
          "utility/color:drawdb/shader/operation/contrast", "n_contrast")

class TdnContrast : public TdnPattern<TdnContrast, TdependNode> {
public:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
};
