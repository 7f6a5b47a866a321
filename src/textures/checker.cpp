#include "textures/checker.h"

#include <algorithm>
#include <cmath>

ORVO_REGISTER_NODE(TdnChecker)

ORVO_DEPENDENCIES(TdnChecker) {
    Tattribute* inputs[] = {&Color1, &Color2, &Contrast};
    for (Tattribute* input : inputs) {
        affectsAll(m, *input, TdnTx2D::aOutColor);
        affectsAll(m, *input, TdnTx2D::aOutAlpha);
    }
}

namespace {
// Asks the block for `colour` on each maximal run of needed samples, one
// request a run, and keeps where each sample's value lies. A value the
// block holds once for all samples (an unconnected colour) is the same for
// every run: after the first request it is only handed out.
void fetchRuns(TdataBlock& block, const Tattribute& colour, const bool* needed, unsigned from,
               unsigned n, const float** values) {
    std::fill(values, values + n, nullptr);
    const float* shared = nullptr;
    OrvoForEachRun(
        n, [&](unsigned j) { return needed[j]; },
        [&](unsigned start, unsigned length) {
            if (shared) {
                std::fill(values + start, values + start + length, shared);
                return;
            }
            const TvectorDataHandle h = block.vectorInputValue(colour, from + start, length);
            if (h.isConstant())
                shared = h[0].asFloats();
            for (unsigned k = 0; k < length; ++k)
                values[start + k] = h[int(k)].asFloats();
        });
}
} // namespace

bool TdnChecker::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                   unsigned count) {
    if (!isTextureOutput(plug.attribute()))
        return TshadingDependNode::computePlug(plug, block);
    const Samples s(block, first, count);
    const TvectorDataHandle contrast = block.vectorInputValue(aContrast, first, count);

    bool done[kChunk], need1[kChunk], need2[kChunk];
    Weights w[kChunk];
    const float* c1[kChunk];
    const float* c2[kChunk];
    for (unsigned base = 0; base < count; base += kChunk) {
        const unsigned n = std::min(kChunk, count - base);
        // Pass 1: weights, and which colour each sample sees.
        for (unsigned j = 0; j < n; ++j) {
            const int i = int(base + j);
            // The outside test inline; an outside sample takes the default.
            done[j] = isOutside(s.u(i), s.v(i)) && s.outside(i);
            if (done[j]) {
                need1[j] = need2[j] = false;
                continue;
            }
            const float* size = s.filterSize[i].asFloats();
            w[j] = weights(s.u(i), s.v(i), size[0], size[1], s.filter[i].asFloat(),
                           s.filterOffset[i].asFloat(), contrast[i].asFloat());
            need1[j] = !(w[j].w1 < kUnseen);
            need2[j] = !(w[j].w2 < kUnseen);
        }
        // Pass 2: the colours, only where they are seen.
        fetchRuns(block, aColor1, need1, first + base, n, c1);
        fetchRuns(block, aColor2, need2, first + base, n, c2);
        // Pass 3: the mix; alpha is the weight of color1.
        static const float kNone[3] = {0.0f, 0.0f, 0.0f};
        for (unsigned j = 0; j < n; ++j)
            if (!done[j])
                s.finish(int(base + j), mix(w[j], c1[j] ? c1[j] : kNone, c2[j] ? c2[j] : kNone),
                         w[j].w1);
    }
    return true;
}

void TdnChecker::mapUVtoClr(TplugArray& plugs, T4dDblVectorArray* colors, TdoubleArray* reserved,
                            TdoubleArray* alphas, const TdoubleArray* u, const TdoubleArray* v) {
    Bake b;
    if (!beginBake(plugs, u, v, b))
        return TtextureMethods::mapUVtoClr(plugs, colors, reserved, alphas, u, v);
    T4dDblVectorArray color1, color2;
    bakeColor(plugs, aColor1, -1, b, color1);
    bakeColor(plugs, aColor2, -1, b, color2);
    const float contrast = plainFloat(aContrast);
    sizeOutputs(b, colors, alphas);
    for (size_t k = 0; k < b.count; ++k) {
        if (b.outside(k)) {
            bakeDefault(b, k, colors, alphas);
            continue;
        }
        const Weights w = weights(b.uAt(k), b.vAt(k), b.filterSize[0], b.filterSize[1], b.filter,
                                  b.filterOffset, contrast);
        const T3Float a = narrow(color1[k]), c = narrow(color2[k]);
        const float fa[3] = {a.x, a.y, a.z}, fc[3] = {c.x, c.y, c.z};
        bakeFinish(b, k, mix(w, fa, fc), w.w1, true, colors, alphas);
    }
}
