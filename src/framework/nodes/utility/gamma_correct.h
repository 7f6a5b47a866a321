#pragma once

#include "framework/node_pattern.h"
#include "framework/nodes/utility/render_utilities.h"

// gammaCorrect: each component raised to 1 / gamma, negatives cut to zero.
#define ORVO_SCHEMA_TdnGammaCorrect(A, C2, C3)                                                     \
    C3(Tattribute3Float, Value, "value", "v", ORVO_XYZ,                                            \
       .inputParent().setNativeDefaultData(0, 0, 0), .input())                                     \
    C3(Tattribute3Float, Gamma, "gamma", "g", ORVO_XYZ,                                            \
       .inputParent().setNativeDefaultData(1, 1, 1), .input())                                     \
    C3(Tattribute3Float, OutValue, "outValue", "o", ORVO_XYZ,                                      \
       .output().setNativeDefaultData(0, 0, 0), .output())                                         \
    ORVO_RENDER_PASS_MODE(A)

class TdnGammaCorrect;
template <>
struct TdnKernel<TdnGammaCorrect> : public TrenderPassModeKernel {};

ORVO_NODE(TdnGammaCorrect, TdependNode, "gammaCorrect", "RGAM", 333, "kGammaCorrect",
          "utility/color:drawdb/shader/operation/gammaCorrect", "n_gammaCorrect")

class TdnGammaCorrect : public TdnPattern<TdnGammaCorrect, TdependNode> {
public:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
};
