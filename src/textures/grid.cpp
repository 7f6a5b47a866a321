#include "textures/grid.h"

#include <algorithm>
#include <cmath>

ORVO_REGISTER_NODE(TdnGrid)

ORVO_DEPENDENCIES(TdnGrid) {
    Tattribute* inputs[] = {&FillerColor, &LineColor, &Contrast, &UWidth, &VWidth};
    for (Tattribute* input : inputs) {
        affectsAll(m, *input, TdnTx2D::aOutColor);
        affectsAll(m, *input, TdnTx2D::aOutAlpha);
    }
}

namespace {
// How much of [c - half, c + half] lies in [lo, hi], taken relative to c so
// that a box far smaller than c's precision still measures right.
inline float overlap(float c, float half, float lo, float hi) {
    return std::max(0.0f, std::min(half, hi - c) - std::max(-half, lo - c));
}
} // namespace

float TdnGrid::lineWeight(float u, float v, float sizeX, float sizeY, float filter,
                          float filterOffset, float uWidth, float vWidth, float contrast) {
    const float f = std::max(0.0f, filter);
    const float a = std::clamp(2.0f * std::fabs(f * sizeX + filterOffset), 1e-8f, 1.0f);
    const float b = std::clamp(2.0f * std::fabs(f * sizeY + filterOffset), 1e-8f, 1.0f);
    u = fract1(u);
    v = fract1(v);
    const float hu = uWidth / 2.0f, hv = vWidth / 2.0f;
    // The filler rectangle of cell (i, j) spans i + hu .. i + 1 - hu by
    // j + hv .. j + 1 - hv: over the nine cells around, the area it shares
    // with the box is the product of the overlaps along each axis.
    float alongU = 0.0f, alongV = 0.0f;
    for (int i = -1; i <= 1; ++i) {
        alongU += overlap(u, a / 2.0f, float(i) + hu, float(i) + 1.0f - hu);
        alongV += overlap(v, b / 2.0f, float(i) + hv, float(i) + 1.0f - hv);
    }
    const float k = (alongU * alongV) / (a * b);
    const float d = (k - 0.5f) * contrast;
    const float w = 0.5f - d;
    return w < 0.001f ? 0.0f : w;
}

T3Float TdnGrid::blend(float w, const float* filler, const float* line) {
    T3Float c;
    for (int k = 0; k < 3; ++k)
        c[k] = std::max(0.0f, filler[k] + (line[k] - filler[k]) * w);
    return c;
}

bool TdnGrid::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                unsigned count) {
    if (!isTextureOutput(plug.attribute()))
        return TshadingDependNode::computePlug(plug, block);
    const Samples s(block, first, count);
    const TvectorDataHandle filler = block.vectorInputValue(aFillerColor, first, count);
    const TvectorDataHandle line = block.vectorInputValue(aLineColor, first, count);
    const TvectorDataHandle contrast = block.vectorInputValue(aContrast, first, count);
    const TvectorDataHandle uWidth = block.vectorInputValue(aUWidth, first, count);
    const TvectorDataHandle vWidth = block.vectorInputValue(aVWidth, first, count);
    for (unsigned n = 0; n < count; ++n) {
        const int i = int(n);
        if (s.outside(i))
            continue;
        const float* size = s.filterSize[i].asFloats();
        const float w = lineWeight(s.u(i), s.v(i), size[0], size[1], s.filter[i].asFloat(),
                                   s.filterOffset[i].asFloat(), uWidth[i].asFloat(),
                                   vWidth[i].asFloat(), contrast[i].asFloat());
        s.finish(i, blend(w, filler[i].asFloats(), line[i].asFloats()), std::clamp(w, 0.0f, 1.0f));
    }
    return true;
}

void TdnGrid::mapUVtoClr(TplugArray& plugs, T4dDblVectorArray* colors, TdoubleArray* reserved,
                         TdoubleArray* alphas, const TdoubleArray* u, const TdoubleArray* v) {
    Bake b;
    if (!beginBake(plugs, u, v, b))
        return TtextureMethods::mapUVtoClr(plugs, colors, reserved, alphas, u, v);
    T4dDblVectorArray filler, line;
    bakeColor(plugs, aFillerColor, -1, b, filler);
    bakeColor(plugs, aLineColor, -1, b, line);
    const float contrast = plainFloat(aContrast);
    const float uWidth = plainFloat(aUWidth), vWidth = plainFloat(aVWidth);
    sizeOutputs(b, colors, alphas);
    for (size_t k = 0; k < b.count; ++k) {
        if (b.outside(k)) {
            bakeDefault(b, k, colors, alphas);
            continue;
        }
        const float w = lineWeight(b.uAt(k), b.vAt(k), b.filterSize[0], b.filterSize[1], b.filter,
                                   b.filterOffset, uWidth, vWidth, contrast);
        const T3Float f = narrow(filler[k]), l = narrow(line[k]);
        const float ff[3] = {f.x, f.y, f.z}, fl[3] = {l.x, l.y, l.z};
        bakeFinish(b, k, blend(w, ff, fl), std::clamp(w, 0.0f, 1.0f), true, colors, alphas);
    }
}
