#include "framework/nodes/utility/rgb_to_hsv.h"

ORVO_REGISTER_NODE(TdnRgbToHsv)

ORVO_DEPENDENCIES(TdnRgbToHsv) {
    affectsAll(m, InRgb, OutHsv);
    affectsAll(m, RenderPassMode, OutHsv);
}

bool TdnRgbToHsv::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                    unsigned count) {
    if (!computesAttribute(plug.attribute()))
        return TdependNode::vectorComputePlug(plug, block, first, count);
    const TvectorDataHandle input = block.vectorInputValue(aInRgb, first, count);
    const TvectorDataHandle output = block.vectorOutputValue(aOutHsv, first);
    for (unsigned i = 0; i < count; ++i) {
        const float* in = input[int(i)].asFloat3();
        T3Float hsv;
        TrenderUtilities::RGBtoHSV(T3Float{in[0], in[1], in[2]}, hsv);
        output[int(i)].set(hsv);
    }
    return true;
}
