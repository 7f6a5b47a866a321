#include "framework/nodes/utility/luminance.h"

ORVO_REGISTER_NODE(TdnLuminance)

ORVO_DEPENDENCIES(TdnLuminance) {
    affectsAll(m, Value, OutValue);
    affectsAll(m, RenderPassMode, OutValue);
}

bool TdnLuminance::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                     unsigned count) {
    if (!computesAttribute(plug.attribute()))
        return TdependNode::vectorComputePlug(plug, block, first, count);
    const TvectorDataHandle value = block.vectorInputValue(aValue, first, count);
    const TvectorDataHandle output = block.vectorOutputValue(aOutValue, first);
    for (unsigned i = 0; i < count; ++i) {
        const float* c = value[int(i)].asFloat3();
        output[int(i)].set(TrenderUtilities::luminance(c[0], c[1], c[2]));
    }
    return true;
}
