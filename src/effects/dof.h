#pragma once

// dof: depth of field, a post pass over the picture and its depth, as the
// camera's focus distance and aperture say. It keeps no attributes of its
// own; everything it needs is the camera's.

#include "framework/node_pattern.h"
#include "post/depth_of_field.h"

class TcameraShape;
class TdnDOF;

#define ORVO_SCHEMA_TdnDOF(A, C2, C3)
ORVO_NODE(TdnDOF, TdependNode, "dof", "DOFD", 323, "kDOF", "postprocess/dof", "n_dof")

class TdnDOF : public TdnPattern<TdnDOF, TdependNode> {
public:
    // Whether the camera asks for depth of field.
    static bool wanted(const TcameraShape& camera);
    // Spreads `image` by `depth` (one float a pixel, eye-space depth, rows
    // from the top) as `camera` focuses. `verticalFieldOfView` is the
    // picture's own, in radians. False when the work cannot start.
    static bool computeDOF(unsigned width, unsigned height, const TcameraShape& camera,
                           double verticalFieldOfView, const orvo::post::TpostImage& image,
                           const float* depth);
};
