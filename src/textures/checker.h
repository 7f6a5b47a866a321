#pragma once

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
    static Weights weights(float u, float v, float sizeX, float sizeY, float filter,
                           float filterOffset, float contrast);
    // The colour the weights make; a weight below 1e-5 leaves its colour out.
    static T3Float mix(const Weights& w, const float* c1, const float* c2);

    // Samples per pass of the three passes, so that their flags and weights
    // stay on the stack.
    static constexpr unsigned kChunk = 256;

    ORVO_TX2D_OVERRIDES
};
