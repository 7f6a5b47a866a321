#pragma once

// The camera shape: a pinhole (or orthographic) view of the scene. Eye space
// is the camera's own space: the eye at the origin looking down -Z, +Y up.

#include "host/scene/shape.h"

class TdnRenderLayer;

#define ORVO_SCHEMA_TcameraShape(A, C2, C3)                                                        \
    A(TattributeFloat, FocalLength, "focalLength", "fl",                                           \
      .input().setNativeDefaultData(35.0f).range(2.5, 100000.0))                                   \
    A(TattributeFloat, HorizontalFilmAperture, "horizontalFilmAperture", "hfa",                    \
      .input().setNativeDefaultData(1.41732f).range(0.001, 1000.0))                                \
    A(TattributeFloat, VerticalFilmAperture, "verticalFilmAperture", "vfa",                        \
      .input().setNativeDefaultData(0.94488f).range(0.001, 1000.0))                                \
    A(TattributeFloat, NearClipPlane, "nearClipPlane", "ncp",                                      \
      .input().setNativeDefaultData(0.1f).range(0.0, 1e30))                                        \
    A(TattributeFloat, FarClipPlane, "farClipPlane", "fcp",                                        \
      .input().setNativeDefaultData(10000.0f).range(0.0, 1e30))                                    \
    A(TattributeBoolean, Orthographic, "orthographic", "o", .input())                              \
    A(TattributeFloat, OrthographicWidth, "orthographicWidth", "ow",                               \
      .input().setNativeDefaultData(30.0f).range(0.0001, 1e30))                                    \
    A(TattributeBoolean, Renderable, "renderable", "rnd", .input().setNativeDefaultData(true))     \
    C3(Tattribute3Float, BackgroundColor, "backgroundColor", "bkg", ORVO_RGB,                      \
       .inputParent().colour(), .input())                                                          \
    A(TattributeBoolean, DepthOfField, "depthOfField", "dof", .input())                            \
    A(TattributeFloat, FocusDistance, "focusDistance", "fd",                                       \
      .input().setNativeDefaultData(5.0f).range(0.0, 1e30))                                        \
    A(TattributeFloat, FStop, "fStop", "fs", .input().setNativeDefaultData(5.6f).range(1.0, 64.0)) \
    A(TattributeFloat, FocusRegionScale, "focusRegionScale", "frs",                                \
      .input().setNativeDefaultData(1.0f).range(0.0, 1e30))                                        \
    A(TattributeFloat, CameraScale, "cameraScale", "cs",                                           \
      .input().setNativeDefaultData(1.0f).range(0.0001, 1e30))
ORVO_NODE(TcameraShape, Tshape, "camera", "CAMS", 2104, "kCamera", "host/dag/shape/camera",
          "n_camera")

class TcameraShape : public TdnPattern<TcameraShape, Tshape> {
public:
    // Film apertures are in inches and the focal length in millimetres.
    struct Values {
        double focalLength = 35.0;
        double horizontalFilmAperture = 1.41732;
        double verticalFilmAperture = 0.94488;
        double nearClipPlane = 0.1;
        double farClipPlane = 10000.0;
        bool orthographic = false;
        double orthographicWidth = 30.0;
        // Depth of field, a post pass over the rendered depth.
        bool depthOfField = false;
        double focusDistance = 5.0;
        double fStop = 5.6;
        double focusRegionScale = 1.0;
        double cameraScale = 1.0;
    };
    Values values() const;
    // Full angles of view, in radians.
    double horizontalFieldOfView() const;
    double verticalFieldOfView() const;

    // Eye space to world along a path to the camera, and back.
    static T4dDblMatrix eyeToWorld(const TdagPath& path) { return path.inclusiveMatrix(); }
    static T4dDblMatrix worldToEye(const TdagPath& path) { return path.inclusiveMatrixInverse(); }

    // `renderable` and `backgroundColor` as a layer sees them.
    bool isRenderable(const TdnRenderLayer* layer) const;
    T3Float backgroundColor(const TdnRenderLayer* layer) const;

    // Every path to a camera whose `renderable` is on as `layer` sees it:
    // cameras in creation order, each camera's paths last first.
    static TdagPathArray renderableCameras(const TdependGraph& graph, const TdnRenderLayer* layer);
};
