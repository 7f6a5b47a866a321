#include "host/scene/camera.h"

#include <cmath>

#include "host/scene/render_layer.h"

ORVO_REGISTER_NODE(TcameraShape)
ORVO_DEPENDENCIES(TcameraShape) {}

namespace {
double plain(const TdependNode* node, const Tattribute& a) {
    return TdnRenderLayer::readValue(Tplug(node, &a), nullptr).asDouble();
}
} // namespace

TcameraShape::Values TcameraShape::values() const {
    Values v;
    v.focalLength = plain(this, aFocalLength);
    v.horizontalFilmAperture = plain(this, aHorizontalFilmAperture);
    v.verticalFilmAperture = plain(this, aVerticalFilmAperture);
    v.nearClipPlane = plain(this, aNearClipPlane);
    v.farClipPlane = plain(this, aFarClipPlane);
    v.orthographic = plain(this, aOrthographic) != 0.0;
    v.orthographicWidth = plain(this, aOrthographicWidth);
    v.depthOfField = plain(this, aDepthOfField) != 0.0;
    v.focusDistance = plain(this, aFocusDistance);
    v.fStop = plain(this, aFStop);
    v.focusRegionScale = plain(this, aFocusRegionScale);
    v.cameraScale = plain(this, aCameraScale);
    return v;
}

// The film back is in inches, the focal length in millimetres: half the
// aperture over the focal length is the tangent of half the angle.
double TcameraShape::horizontalFieldOfView() const {
    const Values v = values();
    return 2.0 * std::atan(v.horizontalFilmAperture * 25.4 * 0.5 / v.focalLength);
}

double TcameraShape::verticalFieldOfView() const {
    const Values v = values();
    return 2.0 * std::atan(v.verticalFilmAperture * 25.4 * 0.5 / v.focalLength);
}

bool TcameraShape::isRenderable(const TdnRenderLayer* layer) const {
    return TdnRenderLayer::readValue(Tplug(this, &aRenderable), layer).asBool();
}

T3Float TcameraShape::backgroundColor(const TdnRenderLayer* layer) const {
    return TdnRenderLayer::readValue(Tplug(this, &aBackgroundColor), layer).asFloat3();
}

TdagPathArray TcameraShape::renderableCameras(const TdependGraph& graph,
                                              const TdnRenderLayer* layer) {
    TdagPathArray out;
    for (TdependNode* node : graph.nodes()) {
        auto* camera = dynamic_cast<TcameraShape*>(node);
        if (!camera || !camera->isRenderable(layer))
            continue;
        const TdagPathArray paths = camera->getAllPaths();
        out.insert(out.end(), paths.rbegin(), paths.rend());
    }
    return out;
}
