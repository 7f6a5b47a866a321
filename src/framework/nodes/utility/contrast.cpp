#include "framework/nodes/utility/contrast.h"

#include <cmath>

ORVO_REGISTER_NODE(TdnContrast)

ORVO_DEPENDENCIES(TdnContrast) {
    affectsPaired(m, Value, OutValue);
    affectsPaired(m, Contrast, OutValue);
    affectsPaired(m, Bias, OutValue);
    affectsAll(m, RenderPassMode, OutValue);
}

bool TdnContrast::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                    unsigned count) {
    if (!computesAttribute(plug.attribute()))
        return TdependNode::vectorComputePlug(plug, block, first, count);
    const TvectorDataHandle value = block.vectorInputValue(aValue, first, count);
    const TvectorDataHandle contrast = block.vectorInputValue(aContrast, first, count);
    const TvectorDataHandle bias = block.vectorInputValue(aBias, first, count);
    const TvectorDataHandle output = block.vectorOutputValue(aOutValue, first);
    const float logHalf = std::log(0.5f);
    for (unsigned i = 0; i < count; ++i) {
        const int e = int(i);
        const float* x = value[e].asFloat3();
        const float* k = contrast[e].asFloat3();
        const float* b = bias[e].asFloat3();
        float out[3];
        for (int c = 0; c < 3; ++c) {
            // First bend the value so that the bias lands on one half, then
            // apply an S curve around one half.
            const float exponent = logHalf / std::log(b[c]);
            const float v = std::pow(x[c], exponent);
            if (0.5f > v)
                out[c] = std::pow(2.0f * v, k[c]) * 0.5f;
            else
                out[c] = 1.0f - std::pow(2.0f * (1.0f - v), k[c]) * 0.5f;
        }
        output[e].set(3, out);
    }
    return true;
}
