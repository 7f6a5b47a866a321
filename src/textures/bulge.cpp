#include "textures/bulge.h"

#include <cmath>

ORVO_REGISTER_NODE(TdnBulge)

ORVO_DEPENDENCIES(TdnBulge) {
    Tattribute* inputs[] = {&UWidth, &VWidth};
    for (Tattribute* input : inputs) {
        affectsAll(m, *input, TdnTx2D::aOutColor);
        affectsAll(m, *input, TdnTx2D::aOutAlpha);
    }
}

float TdnBulge::cheapSin(float x) {
    if (x < 0.0f)
        x += 1.0f;
    const float f = x - std::trunc(x);
    if (f < 0.5f) {
        const float d = std::fabs(f - 0.25f);
        return 1.0f - 16.0f * d * d;
    }
    const float d = f - 0.75f;
    return 16.0f * d * d - 1.0f;
}

float TdnBulge::value(float u, float v, float uWidth, float vWidth) {
    u = fract1(u) * 2.0f;
    v = fract1(v) * 2.0f;
    // The range test comes first, so a width of 1 divides by nothing.
    if (!(uWidth < u && u < 2.0f - uWidth && vWidth < v && v < 2.0f - vWidth))
        return 0.0f;
    const float s = (u - uWidth) / (1.0f - uWidth);
    const float t = (v - vWidth) / (1.0f - vWidth);
    return cheapSin(0.25f * t) * cheapSin(0.25f * s);
}

bool TdnBulge::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                 unsigned count) {
    if (!isTextureOutput(plug.attribute()))
        return TshadingDependNode::computePlug(plug, block);
    const Samples s(block, first, count);
    const TvectorDataHandle uWidth = block.vectorInputValue(aUWidth, first, count);
    const TvectorDataHandle vWidth = block.vectorInputValue(aVWidth, first, count);
    for (unsigned n = 0; n < count; ++n) {
        const int i = int(n);
        if (s.outside(i))
            continue;
        const float g = value(s.u(i), s.v(i), uWidth[i].asFloat(), vWidth[i].asFloat());
        s.finish(i, {g, g, g}, g);
    }
    return true;
}

void TdnBulge::mapUVtoClr(TplugArray& plugs, T4dDblVectorArray* colors, TdoubleArray* reserved,
                          TdoubleArray* alphas, const TdoubleArray* u, const TdoubleArray* v) {
    Bake b;
    if (!beginBake(plugs, u, v, b))
        return TtextureMethods::mapUVtoClr(plugs, colors, reserved, alphas, u, v);
    const float uWidth = plainFloat(aUWidth), vWidth = plainFloat(aVWidth);
    sizeOutputs(b, colors, alphas);
    for (size_t k = 0; k < b.count; ++k) {
        if (b.outside(k)) {
            bakeDefault(b, k, colors, alphas);
            continue;
        }
        const float g = value(b.uAt(k), b.vAt(k), uWidth, vWidth);
        bakeFinish(b, k, {g, g, g}, g, true, colors, alphas);
    }
}
