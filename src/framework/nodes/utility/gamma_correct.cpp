#include "framework/nodes/utility/gamma_correct.h"

#include <algorithm>
#include <cmath>

ORVO_REGISTER_NODE(TdnGammaCorrect)

ORVO_DEPENDENCIES(TdnGammaCorrect) {
    affectsPaired(m, Value, OutValue);
    affectsPaired(m, Gamma, OutValue);
    affectsAll(m, RenderPassMode, OutValue);
}

bool TdnGammaCorrect::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                        unsigned count) {
    if (!computesAttribute(plug.attribute()))
        return TdependNode::vectorComputePlug(plug, block, first, count);
    const TvectorDataHandle value = block.vectorInputValue(aValue, first, count);
    const TvectorDataHandle gamma = block.vectorInputValue(aGamma, first, count);
    const TvectorDataHandle output = block.vectorOutputValue(aOutValue, first);
    for (unsigned i = 0; i < count; ++i) {
        const int e = int(i);
        const float* x = value[e].asFloat3();
        const float* g = gamma[e].asFloat3();
        float out[3];
        for (int c = 0; c < 3; ++c) {
            const float v = std::max(0.0f, x[c]);
            // A gamma of exactly zero has no inverse: the value passes.
            out[c] = g[c] == 0.0f ? v : std::pow(v, 1.0f / g[c]);
        }
        output[e].set(3, out);
    }
    return true;
}
