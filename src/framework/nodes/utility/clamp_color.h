#pragma once

#include "framework/node_pattern.h"
#include "framework/nodes/utility/render_utilities.h"

// clamp: input held between min and max, channel by channel.
#define ORVO_SCHEMA_TdnClampColor(A, C2, C3)                                                       \
    C3(Tattribute3Float, Min, "min", "mn", ORVO_RGB, .inputParent().setNativeDefaultData(0, 0, 0), \
       .input())                                                                                   \
    C3(Tattribute3Float, Max, "max", "mx", ORVO_RGB, .inputParent().setNativeDefaultData(0, 0, 0), \
       .input())                                                                                   \
    C3(Tattribute3Float, Input, "input", "ip", ORVO_RGB,                                           \
       .inputParent().setNativeDefaultData(0, 0, 0), .input())                                     \
    C3(Tattribute3Float, Output, "output", "op", ORVO_RGB,                                         \
       .output().setNativeDefaultData(0, 0, 0), .output())                                         \
    ORVO_RENDER_PASS_MODE(A)

class TdnClampColor;
template <>
struct TdnKernel<TdnClampColor> : public TrenderPassModeKernel {};

ORVO_NODE(TdnClampColor, TdependNode, "clamp", "RCL3", 39, "kClampColor",
          "utility/color:drawdb/shader/operation/clamp", "n_clamp")

class TdnClampColor : public TdnPattern<TdnClampColor, TdependNode> {
public:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
};
