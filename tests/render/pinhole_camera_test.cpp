#include <gtest/gtest.h>

#include "render/pinhole_camera.h"

namespace {

void expectVector(const T3Float& v, float x, float y, float z, const char* what) {
    EXPECT_NEAR(v.x, x, 1e-5f) << what;
    EXPECT_NEAR(v.y, y, 1e-5f) << what;
    EXPECT_NEAR(v.z, z, 1e-5f) << what;
}

// Half the film back over the focal length: 2.75590551 in * 25.4 / 2 over
// 35 mm is 1, so the image plane at distance 1 runs from -1 to 1 across.
TEST(PinholeCamera, RaysCrossTheImagePlaneAtTheRasterPosition) {
    TcameraShape::Values v;
    v.focalLength = 35.0;
    v.horizontalFilmAperture = 2.75590551;
    const TpinholeCamera camera(v, 8, 4);
    EXPECT_NEAR(camera.halfWidth(), 1.0, 1e-6);
    // The vertical angle follows the image's aspect, not the film back's.
    EXPECT_NEAR(camera.halfHeight(), 0.5, 1e-6);
    T3Float origin, direction;
    camera.ray(0, 0, origin, direction);
    expectVector(origin, 0, 0, 0, "top left origin");
    expectVector(direction, -1.0f, 0.5f, -1.0f, "top left");
    camera.ray(4, 2, origin, direction);
    expectVector(direction, 0, 0, -1, "centre");
    camera.ray(8, 4, origin, direction);
    expectVector(direction, 1.0f, -0.5f, -1.0f, "bottom right");
    camera.ray(6, 1, origin, direction);
    expectVector(direction, 0.5f, 0.25f, -1.0f, "inside");

    T3Float dOx, dOy, dDx, dDy;
    camera.differentials(dOx, dOy, dDx, dDy);
    expectVector(dOx, 0, 0, 0, "a pinhole's origin stays");
    expectVector(dOy, 0, 0, 0, "a pinhole's origin stays");
    expectVector(dDx, 0.25f, 0, 0, "one pixel right");
    expectVector(dDy, 0, -0.25f, 0, "one pixel down");
}

// The defaults: 1.41732 in * 12.7 / 35 mm = 0.514284 across half the view.
TEST(PinholeCamera, DefaultFilmBackAndFocalLength) {
    const TpinholeCamera camera(TcameraShape::Values(), 640, 360);
    EXPECT_NEAR(camera.halfWidth(), 0.514284, 1e-6);
    EXPECT_NEAR(camera.halfHeight(), 0.514284 * 360.0 / 640.0, 1e-6);
    EXPECT_DOUBLE_EQ(camera.nearClip(), 0.1);
    EXPECT_DOUBLE_EQ(camera.farClip(), 10000.0);
}

TEST(PinholeCamera, OrthographicRaysAreParallelAndMoveTheirOrigin) {
    TcameraShape::Values v;
    v.orthographic = true;
    v.orthographicWidth = 30.0;
    const TpinholeCamera camera(v, 100, 50);
    T3Float origin, direction;
    camera.ray(0, 0, origin, direction);
    expectVector(origin, -15.0f, 7.5f, 0, "top left");
    expectVector(direction, 0, 0, -1, "straight ahead");
    camera.ray(75, 25, origin, direction);
    expectVector(origin, 7.5f, 0, 0, "right of centre");
    expectVector(direction, 0, 0, -1, "straight ahead");
    T3Float dOx, dOy, dDx, dDy;
    camera.differentials(dOx, dOy, dDx, dDy);
    expectVector(dOx, 0.3f, 0, 0, "one pixel is 30 / 100 wide");
    expectVector(dOy, 0, -0.3f, 0, "and as high");
    expectVector(dDx, 0, 0, 0, "the direction stays");
}

} // namespace
