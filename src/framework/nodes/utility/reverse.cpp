#include "framework/nodes/utility/reverse.h"

ORVO_REGISTER_NODE(TdnReverse)

// inputX to outputX and so on, then input to output.
ORVO_DEPENDENCIES(TdnReverse) {
    affectsPaired(m, Input, Output);
}

bool TdnReverse::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                   unsigned count) {
    if (!computesAttribute(plug.attribute()))
        return TdependNode::computePlug(plug, block);
    const TvectorDataHandle input = block.vectorInputValue(aInput, first, count);
    const TvectorDataHandle output = block.vectorOutputValue(aOutput, first);
    for (unsigned i = 0; i < count; ++i) {
        const float* in = input[int(i)].asFloat3();
        const float out[3] = {1.0f - in[0], 1.0f - in[1], 1.0f - in[2]};
        output[int(i)].set(3, out);
    }
    return true;
}
