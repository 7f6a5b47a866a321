#pragma once

#include "framework/node_pattern.h"
#include "framework/nodes/utility/render_utilities.h"

// luminance: the brightness of a colour, 0.3 R + 0.59 G + 0.11 B.
#define ORVO_SCHEMA_TdnLuminance(A, C2, C3)                                                        \
    C3(Tattribute3Float, Value, "value", "v", ORVO_RGB,                                            \
       .inputParent().colour().setNativeDefaultData(0, 0, 0).min(0, 0, 0).max(1, 1, 1), .input())  \
    A(TattributeFloat, OutValue, "outValue", "o", .output().setNativeDefaultData(0.0f))            \
    ORVO_RENDER_PASS_MODE(A)

class TdnLuminance;
template <>
struct TdnKernel<TdnLuminance> : public TrenderPassModeKernel {};

ORVO_NODE(TdnLuminance, TdependNode, "luminance", "RLUM", 381, "kLuminance",
          "utility/color:drawdb/shader/operation/luminance", "n_luminance")

class TdnLuminance : public TdnPattern<TdnLuminance, TdependNode> {
public:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
};
