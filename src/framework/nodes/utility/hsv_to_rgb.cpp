#include "framework/nodes/utility/hsv_to_rgb.h"

ORVO_REGISTER_NODE(TdnHsvToRgb)

ORVO_DEPENDENCIES(TdnHsvToRgb) {
    affectsAll(m, InHsv, OutRgb);
    affectsAll(m, RenderPassMode, OutRgb);
}

bool TdnHsvToRgb::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                    unsigned count) {
    if (!computesAttribute(plug.attribute()))
        return TdependNode::vectorComputePlug(plug, block, first, count);
    const TvectorDataHandle input = block.vectorInputValue(aInHsv, first, count);
    const TvectorDataHandle output = block.vectorOutputValue(aOutRgb, first);
    for (unsigned i = 0; i < count; ++i) {
        const float* in = input[int(i)].asFloat3();
        // Start from what the output holds: a hue outside the six sectors
        // converts to nothing and leaves it as it was.
        const float* previous = output[int(i)].asFloat3();
        T3Float rgb{previous[0], previous[1], previous[2]};
        TrenderUtilities::HSVtoRGB(T3Float{in[0], in[1], in[2]}, rgb);
        output[int(i)].set(rgb);
    }
    return true;
}
