#pragma once

// Shapes: the DAG leaves that are drawn, rendered or that light and view
// the scene. A shape sits under a transform.

#include <string>

#include "host/scene/dag.h"

#define ORVO_SCHEMA_Tshape(A, C2, C3)
ORVO_NODE(Tshape, TdagObject, "shape", "SHAP", 2103, "kShape", "host/dag/shape", "n_shape")

class Tshape : public TdnPattern<Tshape, TdagObject> {
public:
    // Geometry that a renderer turns into surfaces (meshes, not cameras or
    // lights).
    virtual bool isRenderableGeometry() const { return false; }
    // Bounds in object space; false for a shape without any.
    virtual bool boundingBox(T3Float& min, T3Float& max) const;
    // Checks what the shape reads (files, arrays) and throws TgraphError,
    // naming the shape and the fault, when it cannot be built. Scene loading
    // calls it so that a bad input fails the load rather than the render.
    virtual void checkInputs() {}

    // The folder of the scene file that made the shape: relative file names
    // are read from there. Empty: the working folder.
    void setSceneFolder(std::string folder) { fSceneFolder = std::move(folder); }
    const std::string& sceneFolder() const { return fSceneFolder; }

    static Tshape* fromNode(TdependNode* node) {
        return node ? static_cast<Tshape*>(node->cast(sTypeof())) : nullptr;
    }

private:
    std::string fSceneFolder;
};
