#include "render/pixel_filter.h"

#include <algorithm>
#include <cmath>

float TpixelFilter::weight1d(float d) {
    if (!(std::fabs(d) < kRadius))
        return 0.0f;
    const float k = 1.0f / (2.0f * kSigma * kSigma);
    return std::exp(-d * d * k) - std::exp(-kRadius * kRadius * k);
}

float TpixelFilter::weight(float dx, float dy) {
    return weight1d(dx) * weight1d(dy);
}

namespace {
// A finaliser with good avalanche: every input bit moves about half the
// output bits.
uint32_t mix(uint32_t h) {
    h ^= h >> 16;
    h *= 0x7feb352du;
    h ^= h >> 15;
    h *= 0x846ca68bu;
    h ^= h >> 16;
    return h;
}
} // namespace

float OrvoHashToUnit(uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
    uint32_t h = mix(a + 0x9e3779b9u);
    h = mix(h ^ (b + 0x85ebca6bu));
    h = mix(h ^ (c + 0xc2b2ae35u));
    h = mix(h ^ (d + 0x27d4eb2fu));
    return float(h >> 8) * (1.0f / 16777216.0f);
}

void OrvoSampleOffset(unsigned x, unsigned y, unsigned index, unsigned count, uint32_t seed,
                      float& offsetX, float& offsetY) {
    count = std::max(1u, count);
    if (count == 1) {
        // One sample a pixel looks through the pixel's centre.
        offsetX = offsetY = 0.5f;
        return;
    }
    index = std::min(index, count - 1);
    const unsigned columns = unsigned(std::ceil(std::sqrt(double(count))));
    const unsigned rows = (count + columns - 1) / columns;
    const unsigned row = index / columns;
    const unsigned inRow = row + 1 < rows ? columns : count - columns * (rows - 1);
    const unsigned column = index - row * columns;
    const float jx = OrvoHashToUnit(x, y, index * 2u, seed);
    const float jy = OrvoHashToUnit(x, y, index * 2u + 1u, seed);
    offsetX = std::min((float(column) + jx) / float(inRow), 0.99999994f);
    offsetY = std::min((float(row) + jy) / float(rows), 0.99999994f);
}

void TpixelSums::reset(int x0, int y0, unsigned width, unsigned height) {
    fX0 = x0;
    fY0 = y0;
    fWidth = width;
    fHeight = height;
    fSums.assign(size_t(width) * height * kChannels, 0.0f);
}

void TpixelSums::splat(float x, float y, const TpixelValue& value) {
    // Pixel (px, py) has its centre at (px + 0.5, py + 0.5).
    const int firstX = std::max(fX0, int(std::ceil(x - 0.5f - TpixelFilter::kRadius)));
    const int lastX =
        std::min(fX0 + int(fWidth) - 1, int(std::floor(x - 0.5f + TpixelFilter::kRadius)));
    const int firstY = std::max(fY0, int(std::ceil(y - 0.5f - TpixelFilter::kRadius)));
    const int lastY =
        std::min(fY0 + int(fHeight) - 1, int(std::floor(y - 0.5f + TpixelFilter::kRadius)));
    // The filter is separable: the weights of each column once, then rows.
    constexpr int kMaxSpan = 2 * int(TpixelFilter::kRadius) + 2;
    float wx[kMaxSpan];
    const int spanX = std::min(kMaxSpan, lastX - firstX + 1);
    for (int i = 0; i < spanX; ++i)
        wx[i] = TpixelFilter::weight1d(float(firstX + i) + 0.5f - x);
    // A column at the radius weighs nothing and is left out. The weights
    // rise to the middle, so only the ends can be such columns.
    int from = 0, to = spanX;
    while (from < to && !(wx[from] > 0.0f))
        ++from;
    while (to > from && !(wx[to - 1] > 0.0f))
        --to;
    if (from == to)
        return;
    // A row of the span is one run of floats: each pixel's channels side by
    // side. Spread the column weights and the value over the channels once,
    // so that every row is a single loop the compiler can vectorise.
    constexpr int kSpanFloats = kMaxSpan * int(kChannels);
    float weights[kSpanFloats], values[kSpanFloats];
    const float channel[kChannels] = {value.r, value.g, value.b, value.alpha, value.matte, 1.0f};
    const int floats = (to - from) * int(kChannels);
    for (int i = from; i < to; ++i)
        for (unsigned c = 0; c < kChannels; ++c) {
            weights[(i - from) * int(kChannels) + int(c)] = wx[i];
            values[(i - from) * int(kChannels) + int(c)] = channel[c];
        }
    for (int py = firstY; py <= lastY; ++py) {
        const float wy = TpixelFilter::weight1d(float(py) + 0.5f - y);
        if (wy <= 0.0f)
            continue;
        float* s = &fSums[(size_t(py - fY0) * fWidth + size_t(firstX + from - fX0)) * kChannels];
        // The weight is accumulated as w * 1, which is w itself.
        for (int j = 0; j < floats; ++j)
            s[j] += (wy * weights[j]) * values[j];
    }
}

void TpixelSums::add(const TpixelSums& other) {
    const int fromX = std::max(fX0, other.fX0);
    const int toX = std::min(fX0 + int(fWidth), other.fX0 + int(other.fWidth));
    const int fromY = std::max(fY0, other.fY0);
    const int toY = std::min(fY0 + int(fHeight), other.fY0 + int(other.fHeight));
    for (int y = fromY; y < toY; ++y)
        for (int x = fromX; x < toX; ++x) {
            float* to = &fSums[(size_t(y - fY0) * fWidth + size_t(x - fX0)) * kChannels];
            const float* from = other.at(x, y);
            for (unsigned c = 0; c < kChannels; ++c)
                to[c] += from[c];
        }
}

TrenderedImage OrvoResolve(const TpixelSums& sums) {
    TrenderedImage image;
    image.width = sums.width();
    image.height = sums.height();
    image.pixels.assign(size_t(image.width) * image.height * TrenderedImage::kChannels, 0.0f);
    for (unsigned y = 0; y < image.height; ++y)
        for (unsigned x = 0; x < image.width; ++x) {
            const float* s = sums.at(sums.x0() + int(x), sums.y0() + int(y));
            if (!(s[5] > 0.0f))
                continue;
            float* p = &image.pixels[(size_t(y) * image.width + x) * TrenderedImage::kChannels];
            for (unsigned c = 0; c < TrenderedImage::kChannels; ++c)
                p[c] = s[c] / s[5];
        }
    return image;
}
