#pragma once

#include "textures/tx2d.h"

// grid: lines of lineColor on fillerColor, weighted by how much of the filter
// box the lines cover.
#define ORVO_SCHEMA_TdnGrid(A, C2, C3)                                                             \
    C3(Tattribute3Float, FillerColor, "fillerColor", "fc", ORVO_RGB,                               \
       .inputParent().colour().setNativeDefaultData(0, 0, 0), .input())                            \
    C3(Tattribute3Float, LineColor, "lineColor", "lc", ORVO_RGB,                                   \
       .inputParent().colour().setNativeDefaultData(1, 1, 1), .input())                            \
    A(TattributeFloat, Contrast, "contrast", "c", .input().setNativeDefaultData(1.0f).range(0, 1)) \
    A(TattributeFloat, UWidth, "uWidth", "uw", .input().setNativeDefaultData(0.1f).range(0, 1))    \
    A(TattributeFloat, VWidth, "vWidth", "vw", .input().setNativeDefaultData(0.1f).range(0, 1))

ORVO_NODE(TdnGrid, TdnTx2D, "grid", "RTGR", 490, "kGrid",
          "texture/2d:drawdb/shader/texture/2d/grid", "n_grid")

class TdnGrid : public TdnPattern<TdnGrid, TdnTx2D> {
public:
    // The weight of the lines at a coordinate: 0 on clear filler, 1 on a
    // clear line.
    static float lineWeight(float u, float v, float sizeX, float sizeY, float filter,
                            float filterOffset, float uWidth, float vWidth, float contrast);
    // fillerColor towards lineColor by the weight, each channel at least 0.
    static T3Float blend(float w, const float* filler, const float* line);

    ORVO_TX2D_OVERRIDES
};
