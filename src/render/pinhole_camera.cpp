#include "render/pinhole_camera.h"

#include <algorithm>

TpinholeCamera::TpinholeCamera(const TcameraShape::Values& v, unsigned width, unsigned height)
    : fWidth(std::max(1u, width)), fHeight(std::max(1u, height)), fNear(v.nearClipPlane),
      fFar(v.farClipPlane), fOrthographic(v.orthographic) {
    const double aspect = double(fHeight) / double(fWidth);
    if (fOrthographic) {
        fHalfWidth = 0.5 * v.orthographicWidth;
    } else {
        // The film back is in inches and the focal length in millimetres.
        fHalfWidth = v.horizontalFilmAperture * 25.4 * 0.5 / v.focalLength;
    }
    fHalfHeight = fHalfWidth * aspect;
}

void TpinholeCamera::ray(double x, double y, T3Float& origin, T3Float& direction) const {
    const double sx = (2.0 * x / fWidth - 1.0) * fHalfWidth;
    const double sy = (1.0 - 2.0 * y / fHeight) * fHalfHeight;
    if (fOrthographic) {
        origin = {float(sx), float(sy), 0.0f};
        direction = {0.0f, 0.0f, -1.0f};
    } else {
        origin = {0.0f, 0.0f, 0.0f};
        direction = {float(sx), float(sy), -1.0f};
    }
}

void TpinholeCamera::differentials(T3Float& dOriginDx, T3Float& dOriginDy, T3Float& dDirectionDx,
                                   T3Float& dDirectionDy) const {
    const float stepX = float(2.0 * fHalfWidth / fWidth);
    const float stepY = float(-2.0 * fHalfHeight / fHeight);
    if (fOrthographic) {
        dOriginDx = {stepX, 0.0f, 0.0f};
        dOriginDy = {0.0f, stepY, 0.0f};
        dDirectionDx = dDirectionDy = {0.0f, 0.0f, 0.0f};
    } else {
        dOriginDx = dOriginDy = {0.0f, 0.0f, 0.0f};
        dDirectionDx = {stepX, 0.0f, 0.0f};
        dDirectionDy = {0.0f, stepY, 0.0f};
    }
}
