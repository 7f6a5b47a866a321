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
constexpr float kUnseen = 1e-5f;
} // namespace

TdnChecker::Weights TdnChecker::weights(float u, float v, float sizeX, float sizeY, float filter,
                                        float filterOffset, float contrast) {
    u = fract1(u);
    v = fract1(v);
    const float f = std::max(0.0f, filter);
    const float a = std::max(1e-8f, 2.0f * std::fabs(f * sizeX + filterOffset));
    const float b = std::max(1e-8f, 2.0f * std::fabs(f * sizeY + filterOffset));
    float c = 0.0f;
    if (a < 2.0f && b < 2.0f) {
        c = contrast;
        // Distances to the nearest square edge.
        float p = 2.0f * u - std::floor(2.0f * u);
        float q = 2.0f * v - std::floor(2.0f * v);
        if (p > 0.5f)
            p = 1.0f - p;
        if (q > 0.5f)
            q = 1.0f - q;
        // A box reaching over an edge loses contrast with its overlap.
        if (a > p || b > q)
            c = p * b > q * a ? q * c / b : p * c / a;
        const float widest = std::max(a, b);
        c = widest > 1.0f ? std::max(0.0f, c * (2.0f - widest)) : std::max(0.0f, c);
    }
    const float e = (c + 1.0f) / 2.0f;
    const bool first = (u <= 0.5f && v <= 0.5f) || (u > 0.5f && v > 0.5f);
    return first ? Weights{e, 1.0f - e} : Weights{1.0f - e, e};
}

T3Float TdnChecker::mix(const Weights& w, const float* c1, const float* c2) {
    if (w.w1 < kUnseen)
        return {c2[0], c2[1], c2[2]};
    if (w.w2 < kUnseen)
        return {c1[0], c1[1], c1[2]};
    return {w.w1 * c1[0] + w.w2 * c2[0], w.w1 * c1[1] + w.w2 * c2[1], w.w1 * c1[2] + w.w2 * c2[2]};
}

namespace {
// Asks the block for `colour` on each maximal run of needed samples, one
// request a run, and keeps where each sample's value lies.
void fetchRuns(TdataBlock& block, const Tattribute& colour, const bool* needed, unsigned from,
               unsigned n, const float** values) {
    std::fill(values, values + n, nullptr);
    OrvoForEachRun(
        n, [&](unsigned j) { return needed[j]; },
        [&](unsigned start, unsigned length) {
            const TvectorDataHandle h = block.vectorInputValue(colour, from + start, length);
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
