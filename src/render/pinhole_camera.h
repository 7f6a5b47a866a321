#pragma once

// The view of the render: a pinhole (or orthographic) camera made from a
// camera shape's film aperture and focal length. Rays start in the camera's
// eye space (the eye at the origin looking down -Z, +Y up), which is the
// space the shading samples use for everything "Camera".

#include "host/scene/camera.h"
#include "host/scene/matrix.h"

class TpinholeCamera {
public:
    // A camera for an image of `width` by `height` pixels. The horizontal
    // film aperture sets the horizontal angle of view; the vertical angle
    // follows from the image's aspect ratio, so pixels stay square whatever
    // the film back's own aspect.
    TpinholeCamera(const TcameraShape::Values& values, unsigned width, unsigned height);

    // The ray through raster position (x, y): x from 0 at the left edge to
    // width at the right, y from 0 at the top to height at the bottom. The
    // direction is not unit length: its Z component is -1, so a distance
    // along it is a depth, and the clipping planes apply as they are.
    void ray(double x, double y, T3Float& origin, T3Float& direction) const;

    // How the ray changes from one pixel to the next (ray differentials):
    // the change of origin and direction per pixel step in x and in y.
    // For a pinhole the origin does not move; for an orthographic view the
    // direction does not turn.
    void differentials(T3Float& dOriginDx, T3Float& dOriginDy, T3Float& dDirectionDx,
                       T3Float& dDirectionDy) const;

    unsigned width() const { return fWidth; }
    unsigned height() const { return fHeight; }
    double nearClip() const { return fNear; }
    double farClip() const { return fFar; }
    bool orthographic() const { return fOrthographic; }
    // Half the width and height of the image plane at distance 1 (for an
    // orthographic camera: half the width and height of the view).
    double halfWidth() const { return fHalfWidth; }
    double halfHeight() const { return fHalfHeight; }

private:
    unsigned fWidth, fHeight;
    double fHalfWidth, fHalfHeight;
    double fNear, fFar;
    bool fOrthographic;
};
