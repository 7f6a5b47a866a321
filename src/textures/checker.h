#pragma once

#include <algorithm>
#include <cmath>

#include "textures/tx2d.h"

// checker: two colours in a two by two board per tile, softened towards their
// even mix as the filter box grows.
#define ORVO_SCHEMA_TdnChecker(A, C2, C3)                                                          \
    C3(Tattribute3Float, Color1, "color1", "c1", ORVO_RGB,                                         \
       .inputParent().colour().setNativeDefaultData(1, 1, 1), .input())                            \
    C3(Tattribute3Float, Color2, "color2", "c2", ORVO_RGB,                                         \
       .inputParent().colour().setNativeDefaultData(0, 0, 0), .input())                            \
    A(TattributeFloat, Contrast, "contrast", "ct", .input().setNativeDefaultData(1.0f).range(0, 1))

ORVO_NODE(TdnChecker, TdnTx2D, "checker", "RTCH", 487, "kChecker",
          "texture/2d:drawdb/shader/texture/2d/checker", "n_checker")

class TdnChecker : public TdnPattern<TdnChecker, TdnTx2D> {
public:
    // The weights of color1 and color2 at a coordinate.
    struct Weights {
        float w1;
        float w2;
    };
    // Inline, as the compute's loop asks a sample at a time.
    static Weights weights(float u, float v, float sizeX, float sizeY, float filter,
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
    // A weight below this leaves its colour out.
    static constexpr float kUnseen = 1e-5f;
    // The colour the weights make.
    static T3Float mix(const Weights& w, const float* c1, const float* c2) {
        if (w.w1 < kUnseen)
            return {c2[0], c2[1], c2[2]};
        if (w.w2 < kUnseen)
            return {c1[0], c1[1], c1[2]};
        return {w.w1 * c1[0] + w.w2 * c2[0], w.w1 * c1[1] + w.w2 * c2[1],
                w.w1 * c1[2] + w.w2 * c2[2]};
    }

    // Samples per pass of the three passes, so that their flags and weights
    // stay on the stack.
    static constexpr unsigned kChunk = 256;

    ORVO_TX2D_OVERRIDES

private:
    // The compute when the filter, its offset, the contrast and the colour
    // effects are the same for every sample of the run.
    static void computeInRuns(TdataBlock& block, const Samples& s, unsigned first, unsigned count,
                              float contrast);
};
