#include "framework/nodes/utility/blend_colors.h"

ORVO_REGISTER_NODE(TdnBlendColors)

ORVO_DEPENDENCIES(TdnBlendColors) {
    affectsAll(m, Blender, Output);
    affectsPaired(m, Color1, Output);
    affectsPaired(m, Color2, Output);
    affectsAll(m, RenderPassMode, Output);
}

namespace {
inline float blend(float w, float a, float b) {
    return w * a + (1.0f - w) * b;
}
} // namespace

bool TdnBlendColors::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                       unsigned count) {
    const Tattribute* asked = plug.attribute();
    if (!computesAttribute(asked))
        return TdependNode::vectorComputePlug(plug, block, first, count);
    const TvectorDataHandle blender = block.vectorInputValue(aBlender, first, count);

    // A single channel asked for reads only that channel of the colours.
    const TattributeFloat* channelOut[3] = {&aOutputR, &aOutputG, &aOutputB};
    for (int c = 0; c < 3; ++c) {
        if (asked != channelOut[c])
            continue;
        const TattributeFloat* channel1[3] = {&aColor1R, &aColor1G, &aColor1B};
        const TattributeFloat* channel2[3] = {&aColor2R, &aColor2G, &aColor2B};
        const TvectorDataHandle a = block.vectorInputValue(*channel1[c], first, count);
        const TvectorDataHandle b = block.vectorInputValue(*channel2[c], first, count);
        const TvectorDataHandle out = block.vectorOutputValue(*channelOut[c], first);
        for (unsigned i = 0; i < count; ++i) {
            const int e = int(i);
            out[e].set(blend(blender[e].asFloat(), a[e].asFloat(), b[e].asFloat()));
        }
        return true;
    }

    const TvectorDataHandle color1 = block.vectorInputValue(aColor1, first, count);
    const TvectorDataHandle color2 = block.vectorInputValue(aColor2, first, count);
    const TvectorDataHandle out = block.vectorOutputValue(aOutput, first);
    for (unsigned i = 0; i < count; ++i) {
        const int e = int(i);
        const float w = blender[e].asFloat();
        const float* a = color1[e].asFloat3();
        const float* b = color2[e].asFloat3();
        const float result[3] = {blend(w, a[0], b[0]), blend(w, a[1], b[1]), blend(w, a[2], b[2])};
        out[e].set(3, result);
    }
    return true;
}
