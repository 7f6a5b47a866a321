#pragma once

// Depth of field as a post pass: each pixel is spread over a disc as wide
// as its circle of confusion, found from its depth, the focus distance and
// the aperture; the picture is what the discs add up to.

#include <cstdint>
#include <map>
#include <vector>

#include "post/shader_glow.h"

namespace orvo::post {

// What the pass reads from the camera.
struct TdofCamera {
    double focusDistance = 5.0;
    double focusRegionScale = 1.0;
    double sceneUnit = 1.0;    // scene units to the focus distance's units
    double focalLength = 35.0; // millimetres
    double fStop = 5.6;
    double verticalFieldOfView = 0.5; // radians, the whole angle
    double cameraScale = 1.0;
};

// The widest circle of confusion, in pixels.
inline constexpr int kMaxDofRadius = 25;
inline constexpr int kDofFilterSize = 2 * kMaxDofRadius + 1; // 51

// Pixels of blur radius a unit of |depth - focus| / depth makes, for a
// picture `width` pixels wide.
double dofScale(const TdofCamera& camera, unsigned width);
// A pixel's blur radius at `depth` (0 or less, or infinite: nothing was
// hit there, as far as can be), at most kMaxDofRadius.
float dofRadius(const TdofCamera& camera, double scale, float depth);

// A disc of the given radius on the 51 x 51 cells around a pixel: each
// cell's share of coverage in 8-bit fixed point (the integers, 256 for a
// whole cell) and as floats normalised over the disc.
struct TdofFilter {
    float radius = 0.0f;
    std::vector<float> weights; // 51 x 51
    std::vector<int32_t> fixed; // 51 x 51
    // Row by row (dy from -25): the half-width of the run of whole cells
    // around the centre column (-1 for none), which a spread adds as one
    // span, and the partly covered cells outside it, added one by one.
    struct Edge {
        int dx;
        float weight;
    };
    std::vector<int> run;                 // 51
    std::vector<std::vector<Edge>> edges; // 51
    float whole = 0.0f;                   // the weight of a whole cell
};
void createDofFilter(float radius, TdofFilter& filter);

// Spreads the picture by its depth (one float a pixel, rows from the
// top). False when it cannot start: no picture, no depth, or a camera
// that gives no sensible scale.
bool computeDOF(unsigned width, unsigned height, const TdofCamera& camera, const TpostImage& image,
                const float* depth);

} // namespace orvo::post
