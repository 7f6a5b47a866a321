#pragma once

// Shader glow on the coarse array: how a glowing sample lands in it, the
// tile-sized buffers render threads gather into, the threshold, the
// reduction that lets glow and halo of different sizes share one gathered
// array, the convolution with auto exposure, and the glow added back over
// the picture.

#include <cstdint>
#include <string>
#include <vector>

#include "post/shader_glow_filter.h"

namespace orvo::post {

// Where a sample at `coordinate` pixels lands on one axis of an array of
// `cells` cells at `res` cells per pixel: one or two cells with weights
// that sum to `res`. Returns the number of cells.
int glowSplatAxis(float coordinate, float res, int cells, int first[2], float weight[2]);

// Adds colour `rgb` (clamped to 0..255) of a sample at pixel (x, y) to an
// array of wide x high cells, whose cell (0, 0) is cell (originX, originY)
// of the whole array of fullWide x fullHigh cells.
void splatGlow(PX_Rgb* array, int originX, int originY, int wide, int high, int fullWide,
               int fullHigh, float res, const float rgb[3], float x, float y);

// The cells of the glow array under one rectangle of pixels, for one render
// thread: samples add into it with no lock, and the frame adds the tiles
// into the whole array in tile order, so that the sums do not depend on
// which thread shaded which tile.
class TglowTile {
public:
    // Covers the pixels [x0, x1) x [y0, y1) of an array of fullWide x
    // fullHigh cells at `res` cells a pixel. Reuses its storage.
    void reset(unsigned x0, unsigned y0, unsigned x1, unsigned y1, int fullWide, int fullHigh,
               float res);
    void add(const float rgb[3], float x, float y);
    // Adds this tile's cells into the whole array.
    void addTo(PX_Rgb* array) const;
    bool empty() const { return !fTouched; }

private:
    std::vector<PX_Rgb> fCells;
    int fOriginX = 0, fOriginY = 0, fWide = 0, fHigh = 0, fFullWide = 0, fFullHigh = 0;
    float fRes = 1.0f;
    bool fTouched = false;
};

// Zeroes each cell too dim for `threshold` (0..1).
void clipGlowArray(float threshold, int wide, int high, PX_Rgb* array);

// An area-weighted box reduction of src onto the smaller dst.
void filterResizeDown(PX_Rgb* dst, int dstW, int dstH, const PX_Rgb* src, int srcW, int srcH);

// Fills `to`'s array from `from`'s: a copy for equal sizes, else a reduction.
void copyGlowArray(PX_GlowParams& to, const PX_GlowParams& from);

// Convolves the params' array with its filter and scales it for exposure, in
// place. Returns the normalisation w^2 / (v x 500) that the console line
// reports.
double shaderGlowEffect(PX_GlowParams& params, const PX_ShaderGlow& shaderGlow);

// A float picture the post effects work on: `channels` floats a pixel
// (r, g, b, alpha, ...), rows from the top, values of 1 for full white.
struct TpostImage {
    float* pixels = nullptr;
    unsigned width = 0, height = 0;
    unsigned channels = 4;
    float* at(unsigned x, unsigned y) const { return pixels + (size_t(y) * width + x) * channels; }
};

// The dither added to a channel: a value in -1..1 that depends on the pixel
// and channel only, so a picture is the same on every run.
float glowDither(unsigned x, unsigned y, unsigned channel, unsigned salt);

// Adds the params' array over lines [firstLine, lastLine] of the picture.
void glowArray(const PX_GlowParams& params, const TpostImage& image, unsigned firstLine,
               unsigned lastLine);

} // namespace orvo::post
