#include "framework/nodes/utility/clamp_color.h"

#include <algorithm>

ORVO_REGISTER_NODE(TdnClampColor)

ORVO_DEPENDENCIES(TdnClampColor) {
    affectsPaired(m, Min, Output);
    affectsPaired(m, Max, Output);
    affectsPaired(m, Input, Output);
    affectsAll(m, RenderPassMode, Output);
}

namespace {
// Upper bound last: when min exceeds max, max wins.
inline float clampChannel(float lo, float hi, float x) {
    return std::min(std::max(lo, x), hi);
}
} // namespace

bool TdnClampColor::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                      unsigned count) {
    const Tattribute* asked = plug.attribute();
    if (!computesAttribute(asked))
        return TdependNode::vectorComputePlug(plug, block, first, count);

    // A single channel asked for reads only that channel's inputs.
    const TattributeFloat* channelOut[3] = {&aOutputR, &aOutputG, &aOutputB};
    for (int c = 0; c < 3; ++c) {
        if (asked != channelOut[c])
            continue;
        const TattributeFloat* channelMin[3] = {&aMinR, &aMinG, &aMinB};
        const TattributeFloat* channelMax[3] = {&aMaxR, &aMaxG, &aMaxB};
        const TattributeFloat* channelIn[3] = {&aInputR, &aInputG, &aInputB};
        const TvectorDataHandle lo = block.vectorInputValue(*channelMin[c], first, count);
        const TvectorDataHandle hi = block.vectorInputValue(*channelMax[c], first, count);
        const TvectorDataHandle in = block.vectorInputValue(*channelIn[c], first, count);
        const TvectorDataHandle out = block.vectorOutputValue(*channelOut[c], first);
        for (unsigned i = 0; i < count; ++i) {
            const int e = int(i);
            out[e].set(clampChannel(lo[e].asFloat(), hi[e].asFloat(), in[e].asFloat()));
        }
        return true;
    }

    const TvectorDataHandle lo = block.vectorInputValue(aMin, first, count);
    const TvectorDataHandle hi = block.vectorInputValue(aMax, first, count);
    const TvectorDataHandle in = block.vectorInputValue(aInput, first, count);
    const TvectorDataHandle out = block.vectorOutputValue(aOutput, first);
    for (unsigned i = 0; i < count; ++i) {
        const int e = int(i);
        const float* mn = lo[e].asFloat3();
        const float* mx = hi[e].asFloat3();
        const float* x = in[e].asFloat3();
        const float result[3] = {clampChannel(mn[0], mx[0], x[0]), clampChannel(mn[1], mx[1], x[1]),
                                 clampChannel(mn[2], mx[2], x[2])};
        out[e].set(3, result);
    }
    return true;
}
