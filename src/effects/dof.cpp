#include "effects/dof.h"

#include "host/scene/camera.h"

ORVO_REGISTER_NODE(TdnDOF)
ORVO_DEPENDENCIES(TdnDOF) {}

bool TdnDOF::wanted(const TcameraShape& camera) {
    return camera.values().depthOfField;
}

bool TdnDOF::computeDOF(unsigned width, unsigned height, const TcameraShape& camera,
                        double verticalFieldOfView, const orvo::post::TpostImage& image,
                        const float* depth) {
    const TcameraShape::Values v = camera.values();
    if (v.orthographic)
        return false;
    orvo::post::TdofCamera dof;
    dof.focusDistance = v.focusDistance;
    dof.focusRegionScale = v.focusRegionScale;
    dof.focalLength = v.focalLength;
    dof.fStop = v.fStop;
    dof.verticalFieldOfView = verticalFieldOfView;
    dof.cameraScale = v.cameraScale;
    return orvo::post::computeDOF(width, height, dof, image, depth);
}
