#pragma once

#include "textures/tx2d.h"

// bulge: a soft square bump in each tile, falling to 0 at the borders of
// width uWidth and vWidth.
#define ORVO_SCHEMA_TdnBulge(A, C2, C3)                                                            \
    A(TattributeFloat, UWidth, "uWidth", "uw", .input().setNativeDefaultData(0.1f).range(0, 1))    \
    A(TattributeFloat, VWidth, "vWidth", "vw", .input().setNativeDefaultData(0.1f).range(0, 1))

ORVO_NODE(TdnBulge, TdnTx2D, "bulge", "RTBU", 486, "kBulge",
          "texture/2d:drawdb/shader/texture/2d/bulge", "n_bulge")

class TdnBulge : public TdnPattern<TdnBulge, TdnTx2D> {
public:
    // The grey value at a coordinate. No filter is used.
    static float value(float u, float v, float uWidth, float vWidth);
    // A parabola in place of a sine of period 1: within 0.06 of sin(2 pi x).
    static float cheapSin(float x);

    ORVO_TX2D_OVERRIDES
};
