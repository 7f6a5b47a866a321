#include "host/graph/graph_test_nodes.h"

ORVO_REGISTER_NODE(TdnTestFlip)
ORVO_DEPENDENCIES(TdnTestFlip) {
    affectsPaired(m, Input, Output);
}

bool TdnTestFlip::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
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

ORVO_REGISTER_NODE(TdnTestSum)
ORVO_DEPENDENCIES(TdnTestSum) {
    affects(m, Values, Total);
    affects(m, Gain, Total);
}

bool TdnTestSum::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                   unsigned count) {
    if (!computesAttribute(plug.attribute()))
        return TdependNode::computePlug(plug, block);
    const TvectorDataHandle values = block.vectorInputValue(aValues, first, count);
    const TvectorDataHandle gain = block.vectorInputValue(aGain, first, count);
    const TvectorDataHandle total = block.vectorOutputValue(aTotal, first);
    for (unsigned i = 0; i < count; ++i) {
        float sum = 0.0f;
        for (TmultiHandle m(values[int(i)]); !m.isDone(); m.advance())
            sum += m.reference().asFloat();
        total[int(i)].set(sum * gain[int(i)].asFloat());
    }
    return true;
}
