#pragma once

// The placement's arithmetic over a run of samples held in arrays, one
// value a lane, in the widest vectors the processor offers (chosen at the
// first call). Each lane gives exactly what the one-sample placement gives:
// the same operations in the same order, no fused multiply-adds. Noise is
// not done here: a placement with noise goes a sample at a time.

// Arrays passed here hold `count` values padded as run_lanes.h says.

#include "textures/place2d_texture.h"
#include "textures/run_lanes.h"

struct TplaceRun {
    unsigned count = 0;
    const float* u = nullptr;
    const float* v = nullptr;
    const float* sizeU = nullptr;
    const float* sizeV = nullptr;
    // The same for every sample of the run.
    TdnPlace2dTx::Params params;
    TdnPlace2dTx::Rotation frame, uv;
    bool transform = true;
    // Placed coordinates (may be null: only the filter size is wanted) and
    // filter sizes.
    float* outU = nullptr;
    float* outV = nullptr;
    float* outSizeU = nullptr;
    float* outSizeV = nullptr;
};

void OrvoPlaceRun(const TplaceRun& run);
