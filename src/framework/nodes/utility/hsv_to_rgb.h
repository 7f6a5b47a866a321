#pragma once

#include "framework/node_pattern.h"
#include "framework/nodes/utility/render_utilities.h"

// hsvToRgb: the colour of a hue in degrees, a saturation and a value.
#define ORVO_SCHEMA_TdnHsvToRgb(A, C2, C3)                                                         \
    C3(Tattribute3Float, InHsv, "inHsv", "i", ORVO_HSV, .inputParent().colour(), .input())         \
    C3(Tattribute3Float, OutRgb, "outRgb", "o", ORVO_RGB, .output(), .output())                    \
    ORVO_RENDER_PASS_MODE(A)

class TdnHsvToRgb;
template <>
struct TdnKernel<TdnHsvToRgb> : public TrenderPassModeKernel {};

ORVO_NODE(TdnHsvToRgb, TdependNode, "hsvToRgb", "RH2R", 357, "kHsvToRgb",
          "utility/color:drawdb/shader/operation/hsvToRgb", "n_hsvToRgb")

class TdnHsvToRgb : public TdnPattern<TdnHsvToRgb, TdependNode> {
public:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
};
