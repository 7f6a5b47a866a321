// Reading a file texture's pyramid at a sample: the filter by filterType
// and the HDR mapping of float files.
//
// The smooth filters (Box, Quadratic, Quartic, Gaussian) weigh the texels
// of one level around the sample, separably in u and v. The footprint is the
// sample's filter size in UV narrowed by filterWidth; the box covers it, the
// other kernels reach a whole footprint to each side. The level is the finest
// on which the kernel spans at most kMaxSpan texels across, so a sample reads
// a bounded number of texels however large its footprint; on the top level a
// kernel never shrinks below one texel (the box below a texel's width), so
// magnified textures stay smooth.

#include <algorithm>
#include <cmath>

#include "textures/file_texture.h"

namespace {

// Texels a kernel spans across on the level it reads.
constexpr float kMaxSpan = 4.0f;
// The most texels one axis of a kernel reads (its span plus the partly
// covered texels at both ends, with room).
constexpr unsigned kMaxTaps = 16;

// One axis of a kernel: the first texel and the weights from there on.
struct Taps {
    int first = 0;
    unsigned count = 0;
    float w[kMaxTaps];
    float sum = 0.0f;
};

// Texel centres are at whole numbers of `centre`'s scale.
void boxTaps(float centre, float radius, Taps& t) {
    const float lo = centre - radius, hi = centre + radius;
    t.first = int(std::floor(lo + 0.5f));
    const int last = int(std::floor(hi + 0.5f));
    t.count = unsigned(std::min<int>(last - t.first + 1, int(kMaxTaps)));
    t.sum = 0.0f;
    for (unsigned k = 0; k < t.count; ++k) {
        const float i = float(t.first + int(k));
        // The length of [i - 0.5, i + 0.5] inside [lo, hi].
        const float w = std::max(0.0f, std::min(i + 0.5f, hi) - std::max(i - 0.5f, lo));
        t.w[k] = w;
        t.sum += w;
    }
}

void kernelTaps(int16_t type, float centre, float radius, Taps& t) {
    t.first = int(std::ceil(centre - radius));
    const int last = int(std::floor(centre + radius));
    t.count = unsigned(std::clamp(last - t.first + 1, 0, int(kMaxTaps)));
    t.sum = 0.0f;
    for (unsigned k = 0; k < t.count; ++k) {
        const float d = std::fabs(float(t.first + int(k)) - centre) / radius;
        const float w = TdnFileTexture::filterWeight(type, d);
        t.w[k] = w;
        t.sum += w;
    }
}

} // namespace

void TdnFileTexture::applyHdr(const Settings& s, T3Float& c) {
    const float scale = std::exp2(s.exposure);
    float rgb[3] = {c.x * scale, c.y * scale, c.z * scale};
    const float hdr = std::exp2(s.hdrExposure);
    for (float& x : rgb) {
        switch (s.hdrMapping) {
        case K::kLinear:
            x *= hdr;
            break;
        case K::kExponential:
            x = 1.0f - std::exp(-x * hdr);
            break;
        default:
            x = std::clamp(x, 0.0f, 1.0f);
            break;
        }
    }
    c = {rgb[0], rgb[1], rgb[2]};
}

float TdnFileTexture::filterWeight(int16_t filterType, float t) {
    if (!(t < 1.0f))
        return 0.0f;
    switch (filterType) {
    case K::kQuadraticFilter:
        return 1.0f - t * t;
    case K::kQuarticFilter: {
        const float q = 1.0f - t * t;
        return q * q;
    }
    case K::kGuassFilter:
        // Three standard deviations to the edge of the kernel.
        return std::exp(-4.5f * t * t);
    default:
        return 1.0f;
    }
}

bool TdnFileTexture::filterFileTexture(const Tpyramid& p, const Settings& s, float u, float v,
                                       float size, T3Float& color, float& alpha) {
    const float footprint = size * s.filterWidth;
    if (!(footprint > 0.0f) || !std::isfinite(footprint) || !std::isfinite(u) || !std::isfinite(v))
        return false;
    const bool box = s.filterType == K::kBoxFilter;
    // The kernel's reach to each side, in UV.
    const float reach = box ? 0.5f * footprint : footprint;

    // The finest level on which the kernel spans at most kMaxSpan texels.
    unsigned level = p.maxLevel();
    const float topSpan = 2.0f * reach * float(std::max(p.width(), p.height()));
    if (!s.useMaximumRes && p.hasMipmaps() && topSpan > kMaxSpan && level > 0) {
        level = 0;
        for (unsigned l = p.maxLevel(); l-- > 0;)
            if (2.0f * reach * float(1u << l) <= kMaxSpan) {
                level = l;
                break;
            }
    }
    const float w = float(p.levelWidth(level)), h = float(p.levelHeight(level));
    // The smallest reach: half a texel for the box, a texel for the others.
    const float least = box ? 0.5f : 1.0f;
    // On a level that is not the choice (useMaximumRes, no mipmaps) the reach
    // is capped so a sample stays bounded.
    const float most = 0.5f * float(kMaxTaps - 3);
    const float rx = std::clamp(reach * w, least, most);
    const float ry = std::clamp(reach * h, least, most);
    const float cx = u * w - 0.5f, cy = v * h - 0.5f;

    Taps tx, ty;
    if (box) {
        boxTaps(cx, rx, tx);
        boxTaps(cy, ry, ty);
    } else {
        kernelTaps(s.filterType, cx, rx, tx);
        kernelTaps(s.filterType, cy, ry, ty);
    }
    if (!(tx.sum > 0.0f) || !(ty.sum > 0.0f))
        return false;
    for (unsigned k = 0; k < tx.count; ++k)
        tx.w[k] /= tx.sum;
    for (unsigned k = 0; k < ty.count; ++k)
        ty.w[k] /= ty.sum;
    p.weightedSum(level, tx.first, tx.count, tx.w, ty.first, ty.count, ty.w, s.wrapU, s.wrapV,
                  color, alpha);
    return true;
}

void TdnFileTexture::samplePyramid(const Tpyramid& p, const Settings& s, float u, float v,
                                   float size, T3Float& color, float& alpha) {
    TfileTextureWrapper wrapper;
    wrapper.wrapU = s.wrapU;
    wrapper.wrapV = s.wrapV;
    wrapper.filterWidth = s.filterWidth;
    switch (s.filterType) {
    case K::kNoFilter:
        // The top level's texel under the sample.
        wrapper.noFilter = true;
        p.getMapColor(wrapper, u, v, color, alpha, true, 0.0f);
        return;
    case K::kMipMapFilter: {
        const float footprint = size * s.filterWidth;
        // Without blurring, a magnified texel shows as a square.
        if (!s.blurPixelation && !(footprint * float(p.shortSide()) >= 1.0f))
            wrapper.noFilter = true;
        p.getMapColor(wrapper, u, v, color, alpha, s.useMaximumRes, footprint);
        return;
    }
    default:
        if (!s.blurPixelation && !(size * s.filterWidth * float(p.shortSide()) >= 1.0f)) {
            wrapper.noFilter = true;
            p.getMapColor(wrapper, u, v, color, alpha, true, 0.0f);
            return;
        }
        if (!filterFileTexture(p, s, u, v, size, color, alpha))
            p.getMapColor(wrapper, u, v, color, alpha, s.useMaximumRes, size * s.filterWidth);
        return;
    }
}
