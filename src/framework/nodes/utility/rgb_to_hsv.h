#pragma once

#include "framework/node_pattern.h"
#include "framework/nodes/utility/render_utilities.h"

// rgbToHsv: hue in degrees, saturation and value of a colour.
#define ORVO_SCHEMA_TdnRgbToHsv(A, C2, C3)                                                         \
    C3(Tattribute3Float, InRgb, "inRgb", "i", ORVO_RGB, .inputParent().colour(), .input())         \
    C3(Tattribute3Float, OutHsv, "outHsv", "o", ORVO_HSV, .output(), .output())                    \
    ORVO_RENDER_PASS_MODE(A)

class TdnRgbToHsv;
template <>
struct TdnKernel<TdnRgbToHsv> : public TrenderPassModeKernel {};

ORVO_NODE(TdnRgbToHsv, TdependNode, "rgbToHsv", "RR2H", 465, "kRgbToHsv",
          "utility/color:drawdb/shader/operation/rgbToHsv", "n_rgbToHsv")

class TdnRgbToHsv : public TdnPattern<TdnRgbToHsv, TdependNode> {
public:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
};
