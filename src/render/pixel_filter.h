#pragma once

// Where the samples of a pixel go, and how they come back together.
//
// Samples are stratified: a pixel is cut into a grid of ceil(sqrt(spp))
// columns and as many rows as the count needs, and each sample is jittered
// inside its own cell. Square counts (1, 4, 9, 16...) fill every cell;
// other counts give the last row fewer, wider cells. A single sample goes
// through the pixel's centre. The jitter is a hash
// of the pixel, the sample and the frame, so a render does not depend on
// which thread shades which tile.
//
// Samples are splatted into the pixels around them with a truncated
// Gaussian of standard deviation 0.5 pixel and radius 1.5 pixels, shifted
// so that it falls to zero at the radius: a little softer than a box, with
// no negative lobes to ring at hard edges.

#include <cstdint>
#include <mutex>
#include <vector>

class TpixelFilter {
public:
    static constexpr float kRadius = 1.5f;
    static constexpr float kSigma = 0.5f;
    // The weight of a sample at offset (dx, dy) pixels from a pixel centre:
    // the product of the one-dimensional weights, 0 at and beyond the radius.
    static float weight(float dx, float dy);
    static float weight1d(float d);
};

// The position of sample `index` of `count` in pixel (x, y): an offset in
// [0, 1) x [0, 1) from the pixel's corner.
void OrvoSampleOffset(unsigned x, unsigned y, unsigned index, unsigned count, uint32_t seed,
                      float& offsetX, float& offsetY);
// A hash of four words to a float in [0, 1).
float OrvoHashToUnit(uint32_t a, uint32_t b, uint32_t c, uint32_t d);

// What a shaded sample leaves in the image.
struct TpixelValue {
    float r = 0.0f, g = 0.0f, b = 0.0f; // colour, with the background seen through
    float alpha = 0.0f;                 // how much the scene covers the background
    float matte = 0.0f;                 // the materials' matte opacity
};

// Weighted sums of samples over a rectangle of pixels. A tile's sums reach
// past the tile by the filter radius, so its edge samples reach their
// neighbours' pixels; the frame adds tiles together under a lock.
class TpixelSums {
public:
    static constexpr unsigned kChannels = 6; // r, g, b, alpha, matte, weight

    TpixelSums() = default;
    TpixelSums(int x0, int y0, unsigned width, unsigned height) { reset(x0, y0, width, height); }
    void reset(int x0, int y0, unsigned width, unsigned height);

    int x0() const { return fX0; }
    int y0() const { return fY0; }
    unsigned width() const { return fWidth; }
    unsigned height() const { return fHeight; }

    // Adds a sample at raster position (x, y) to every pixel within the
    // filter's radius that lies in this rectangle.
    void splat(float x, float y, const TpixelValue& value);
    // Adds another rectangle's sums where the two overlap.
    void add(const TpixelSums& other);
    const float* at(int x, int y) const {
        return &fSums[(size_t(y - fY0) * fWidth + size_t(x - fX0)) * kChannels];
    }

private:
    int fX0 = 0, fY0 = 0;
    unsigned fWidth = 0, fHeight = 0;
    std::vector<float> fSums;
};

// The finished frame: five floats a pixel (r, g, b, alpha, matte), rows from
// the top, and the depth of each pixel.
struct TrenderedImage {
    unsigned width = 0, height = 0;
    std::vector<float> pixels;
    // The eye-space depth of the nearest surface each pixel's samples met,
    // one float a pixel, rows from the top; infinite where they met none.
    // Empty when the renderer did not keep it.
    std::vector<float> depth;
    static constexpr unsigned kChannels = 5;
    const float* at(unsigned x, unsigned y) const {
        return &pixels[(size_t(y) * width + x) * kChannels];
    }
};

// Divides the sums by their weights. A pixel no sample reached is empty.
TrenderedImage OrvoResolve(const TpixelSums& sums);
