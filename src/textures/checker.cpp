#include "textures/checker.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "textures/checker_run.h"

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

// One colour of the board over a chunk, asked for only where it is seen (a
// weight of at least kUnseen) and only of the samples that are not
// outside. The first sample that sees it is asked alone: a colour the
// block holds once for every sample (an unconnected one) is then known
// without walking the chunk, and handed to the mix as it is. One that
// varies is asked for run by run and gathered into a channel array a
// component, zero where it is not seen.
struct ChunkColour {
    TcheckerMixRun::Colour colour;
    alignas(64) float channels[3][TdnChecker::kChunk];

    void fetch(TdataBlock& block, const Tattribute& attribute, const float* weight,
               const bool* done, unsigned from, unsigned n) {
        colour.varies = false;
        auto seen = [&](unsigned j) {
            return !done[j] && !(weight[j] < TdnChecker::kUnseen);
        };
        unsigned j = 0;
        while (j < n && !seen(j))
            ++j;
        if (j == n)
            return;
        const TvectorDataHandle probe = block.vectorInputValue(attribute, from + j, 1);
        if (probe.isConstant()) {
            std::memcpy(colour.rgb, probe[0].asFloats(), sizeof colour.rgb);
            return;
        }
        colour.varies = true;
        for (int k = 0; k < 3; ++k) {
            std::fill(channels[k], channels[k] + OrvoRunPadded(n), 0.0f);
            colour.channel[k] = channels[k];
        }
        gather(probe, j, 1);
        OrvoForEachRun(
            n - (j + 1), [&](unsigned k) { return seen(j + 1 + k); },
            [&](unsigned start, unsigned length) {
                gather(block.vectorInputValue(attribute, from + j + 1 + start, length),
                       j + 1 + start, length);
            });
    }

private:
    void gather(const TvectorDataHandle& h, unsigned at, unsigned length) {
        for (unsigned k = 0; k < length; ++k) {
            const float* c = h[int(k)].asFloats();
            for (int ch = 0; ch < 3; ++ch)
                channels[ch][at + k] = c[ch];
        }
    }
};

} // namespace

void TdnChecker::computeInRuns(TdataBlock& block, const Samples& s, unsigned first, unsigned count,
                               float contrast) {
    static_assert(kChunk % kRunLanes == 0);
    alignas(64) float u[kChunk], v[kChunk], sizeX[kChunk], sizeY[kChunk], w1[kChunk], w2[kChunk];
    alignas(64) float out[4][kChunk];
    bool done[kChunk];
    ChunkColour colour1, colour2;

    TcheckerWeightsRun weights;
    weights.u = u;
    weights.v = v;
    weights.sizeX = sizeX;
    weights.sizeY = sizeY;
    weights.filter = s.filter[0].asFloat();
    weights.filterOffset = s.filterOffset[0].asFloat();
    weights.contrast = contrast;
    weights.w1 = w1;
    weights.w2 = w2;

    TcheckerMixRun mix;
    mix.w1 = w1;
    mix.w2 = w2;
    mix.invert = s.invertAll;
    mix.alphaIsLuminance = s.alphaIsLuminanceAll;
    std::memcpy(mix.gain, s.gainAll, sizeof mix.gain);
    std::memcpy(mix.offset, s.offsetAll, sizeof mix.offset);
    mix.alphaGain = s.alphaGainAll;
    mix.alphaOffset = s.alphaOffsetAll;
    for (int k = 0; k < 4; ++k)
        mix.out[k] = out[k];

    std::byte* colourOut = static_cast<std::byte*>(s.outColor.first().address());
    std::byte* alphaOut = static_cast<std::byte*>(s.outAlpha.first().address());
    const size_t colourStride = s.outColor.stride(), alphaStride = s.outAlpha.stride();
    for (unsigned base = 0; base < count; base += kChunk) {
        const unsigned n = std::min(kChunk, count - base);
        OrvoGatherPairs(s.uv, base, n, u, v);
        OrvoGatherPairs(s.filterSize, base, n, sizeX, sizeY);
        bool anyDone = false;
        for (unsigned j = 0; j < n; ++j) {
            // An outside sample takes the default colour here and is left
            // alone after.
            done[j] = isOutside(u[j], v[j]) && s.outside(int(base + j));
            anyDone |= done[j];
        }
        weights.count = n;
        OrvoCheckerWeights(weights);

        colour1.fetch(block, aColor1, w1, done, first + base, n);
        colour2.fetch(block, aColor2, w2, done, first + base, n);
        mix.count = n;
        mix.colour1 = colour1.colour;
        mix.colour2 = colour2.colour;
        OrvoCheckerMix(mix);

        for (unsigned j = 0; j < n; ++j) {
            if (anyDone && done[j])
                continue;
            const size_t i = base + j;
            float* c = reinterpret_cast<float*>(colourOut + i * colourStride);
            c[0] = out[0][j];
            c[1] = out[1][j];
            c[2] = out[2][j];
            *reinterpret_cast<float*>(alphaOut + i * alphaStride) = out[3][j];
        }
    }
    // What writing each value through its handle would have marked.
    TdataHandle(s.outColor.first()).setClean();
    TdataHandle(s.outAlpha.first()).setClean();
}

bool TdnChecker::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                   unsigned count) {
    if (!isTextureOutput(plug.attribute()))
        return TshadingDependNode::computePlug(plug, block);
    const Samples s(block, first, count);
    const TvectorDataHandle contrast = block.vectorInputValue(aContrast, first, count);
    if (s.effectsConstant && s.filter.isConstant() && s.filterOffset.isConstant() &&
        contrast.isConstant()) {
        computeInRuns(block, s, first, count, contrast[0].asFloat());
        return true;
    }

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
