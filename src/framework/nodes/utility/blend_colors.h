#pragma once

#include "framework/node_pattern.h"
#include "framework/nodes/utility/render_utilities.h"

// blendColors: color1 and color2 mixed by blender, channel by channel.
#define ORVO_SCHEMA_TdnBlendColors(A, C2, C3)                                                      \
    A(TattributeFloat, Blender, "blender", "b", .input())                                          \
    C3(Tattribute3Float, Color1, "color1", "c1", ORVO_RGB, .inputParent().colour(), .input())      \
    C3(Tattribute3Float, Color2, "color2", "c2", ORVO_RGB,                                         \
       .inputParent().colour().setNativeDefaultData(0, 0, 1), .input())                            \
    C3(Tattribute3Float, Output, "output", "op", ORVO_RGB,                                         \
       .output().setNativeDefaultData(0, 0, 0), .output())                                         \
    ORVO_RENDER_PASS_MODE(A)

class TdnBlendColors;
template <>
struct TdnKernel<TdnBlendColors> : public TrenderPassModeKernel {};

ORVO_NODE(TdnBlendColors, TdependNode, "blendColors", "RBL2", 31, "kBlendColors",
          "utility/color:drawdb/shader/operation/blendColors", "n_blendColors")

class TdnBlendColors : public TdnPattern<TdnBlendColors, TdependNode> {
public:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
};
