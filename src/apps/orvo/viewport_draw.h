#pragma once

// Drawing a scene as the viewport does: the render's view of the scene
// (objects in eye space, the camera) drawn with fixed-function OpenGL into
// an offscreen port, each object in its shading group's material info
// colours and texture, lit by the scene's lights.

#include <string>

#include "host/scene/dag.h"
#include "render/pixel_filter.h"

class TdependGraph;

namespace orvo::cli {

struct ViewRequest {
    std::string sceneName; // in messages
    unsigned width = 640, height = 360;
    TdagPath camera; // unset: the first renderable camera
};

// What the draw gives: the picture in the rendering space (linear), alpha 1.
// Throws TrenderError when the scene has nothing to look through, and
// std::runtime_error when no drawing context can be made.
TrenderedImage drawViewport(TdependGraph& graph, const ViewRequest& request);

// The camera named `name` (a camera shape or its transform); throws
// UserError starting with `command` when there is none.
TdagPath findCameraPath(TdependGraph& graph, const std::string& name, const std::string& command);

} // namespace orvo::cli
