#include "framework/nodes/utility/set_range.h"

#include <algorithm>

#include "framework/nodes/utility/render_utilities.h"

ORVO_REGISTER_NODE(TdnSetRange)

ORVO_DEPENDENCIES(TdnSetRange) {
    affectsPaired(m, Value, OutValue);
    affectsPaired(m, Min, OutValue);
    affectsPaired(m, Max, OutValue);
    affectsPaired(m, OldMin, OutValue);
    affectsPaired(m, OldMax, OutValue);
}

bool TdnSetRange::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                    unsigned count) {
    if (!computesAttribute(plug.attribute()))
        return TdependNode::vectorComputePlug(plug, block, first, count);
    const TvectorDataHandle value = block.vectorInputValue(aValue, first, count);
    const TvectorDataHandle lo = block.vectorInputValue(aMin, first, count);
    const TvectorDataHandle hi = block.vectorInputValue(aMax, first, count);
    const TvectorDataHandle oldLo = block.vectorInputValue(aOldMin, first, count);
    const TvectorDataHandle oldHi = block.vectorInputValue(aOldMax, first, count);
    const TvectorDataHandle output = block.vectorOutputValue(aOutValue, first);
    for (unsigned i = 0; i < count; ++i) {
        const int e = int(i);
        float* in = value[e].asFloat3();
        const float* mn = lo[e].asFloat3();
        const float* mx = hi[e].asFloat3();
        const float* oldMn = oldLo[e].asFloat3();
        const float* oldMx = oldHi[e].asFloat3();
        float out[3];
        for (int c = 0; c < 3; ++c) {
            const float oldSpan = oldMx[c] - oldMn[c];
            // An empty old range maps nothing: the value passes as it is.
            if (TrenderUtilities::isZero(oldSpan)) {
                out[c] = in[c];
                continue;
            }
            // Upper bound last, so it wins when oldMin exceeds oldMax.
            const float v = std::min(std::max(oldMn[c], in[c]), oldMx[c]);
            // The clamped value goes back into the input, so that what the
            // block holds is what was mapped.
            in[c] = v;
            out[c] = (v - oldMn[c]) * (mx[c] - mn[c]) / oldSpan + mn[c];
        }
        output[e].set(3, out);
    }
    return true;
}
