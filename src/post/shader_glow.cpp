#include "post/shader_glow.h"

#include <algorithm>
#include <cmath>

namespace orvo::post {

int glowSplatAxis(float coordinate, float res, int cells, int first[2], float weight[2]) {
    const int last = std::max(0, cells - 1);
    const float p = std::max(0.0f, coordinate * res);
    const int i = int(p);
    if (i > last) {
        first[0] = last;
        weight[0] = res;
        return 1;
    }
    const int j = std::min(int(p + res), last);
    if (i == j) {
        first[0] = i;
        weight[0] = res;
        return 1;
    }
    // The sample's footprint, res cells wide, straddles the border between
    // cells i and j: each gets its share.
    first[0] = i;
    first[1] = j;
    weight[0] = std::clamp(float(j) - p, 0.0f, res);
    weight[1] = res - weight[0];
    return 2;
}

void splatGlow(PX_Rgb* array, int originX, int originY, int wide, int high, int fullWide,
               int fullHigh, float res, const float rgb[3], float x, float y) {
    const float r = std::clamp(rgb[0], 0.0f, 255.0f);
    const float g = std::clamp(rgb[1], 0.0f, 255.0f);
    const float b = std::clamp(rgb[2], 0.0f, 255.0f);
    int cx[2], cy[2];
    float wx[2], wy[2];
    const int nx = glowSplatAxis(x, res, fullWide, cx, wx);
    const int ny = glowSplatAxis(y, res, fullHigh, cy, wy);
    for (int j = 0; j < ny; ++j) {
        const int row = cy[j] - originY;
        if (row < 0 || row >= high)
            continue;
        for (int i = 0; i < nx; ++i) {
            const int column = cx[i] - originX;
            if (column < 0 || column >= wide)
                continue;
            const float w = wx[i] * wy[j];
            PX_Rgb& cell = array[size_t(row) * size_t(wide) + size_t(column)];
            cell.r += r * w;
            cell.g += g * w;
            cell.b += b * w;
        }
    }
}

void TglowTile::reset(unsigned x0, unsigned y0, unsigned x1, unsigned y1, int fullWide,
                      int fullHigh, float res) {
    fFullWide = fullWide;
    fFullHigh = fullHigh;
    fRes = res;
    fOriginX = std::min(int(float(x0) * res), fullWide - 1);
    fOriginY = std::min(int(float(y0) * res), fullHigh - 1);
    const int lastX = std::min(fullWide - 1, int(float(x1) * res + res));
    const int lastY = std::min(fullHigh - 1, int(float(y1) * res + res));
    fWide = std::max(0, lastX - fOriginX + 1);
    fHigh = std::max(0, lastY - fOriginY + 1);
    fCells.assign(size_t(fWide) * size_t(fHigh), PX_Rgb());
    fTouched = false;
}

void TglowTile::add(const float rgb[3], float x, float y) {
    if (fCells.empty())
        return;
    splatGlow(fCells.data(), fOriginX, fOriginY, fWide, fHigh, fFullWide, fFullHigh, fRes, rgb, x,
              y);
    fTouched = true;
}

void TglowTile::addTo(PX_Rgb* array) const {
    if (!fTouched || !array)
        return;
    for (int y = 0; y < fHigh; ++y) {
        const PX_Rgb* from = &fCells[size_t(y) * size_t(fWide)];
        PX_Rgb* to = &array[size_t(fOriginY + y) * size_t(fFullWide) + size_t(fOriginX)];
        for (int x = 0; x < fWide; ++x) {
            to[x].r += from[x].r;
            to[x].g += from[x].g;
            to[x].b += from[x].b;
        }
    }
}

void clipGlowArray(float threshold, int wide, int high, PX_Rgb* array) {
    const float T = threshold * 255.0f;
    const size_t count = size_t(wide) * size_t(high);
    for (size_t i = 0; i < count; ++i) {
        PX_Rgb& c = array[i];
        const float s = (c.r + c.g + c.b) / 12.0f;
        if (T > c.r * 0.75f + s && T > c.g * 0.75f + s && T > c.b * 0.75f + s)
            c = PX_Rgb();
    }
}

namespace {

// The share of source cell `i` (of unit width) inside the destination cell
// that spans [lo, hi) in source units.
double overlap(int i, double lo, double hi) {
    return std::max(0.0, std::min(double(i + 1), hi) - std::max(double(i), lo));
}

} // namespace

void filterResizeDown(PX_Rgb* dst, int dstW, int dstH, const PX_Rgb* src, int srcW, int srcH) {
    if (dstW <= 0 || dstH <= 0 || srcW <= 0 || srcH <= 0)
        return;
    // Rows first: each destination row averages the source rows it covers,
    // split by the fraction where it ends inside one; then the same along
    // each row.
    const double rowSpan = double(srcH) / dstH;
    const double columnSpan = double(srcW) / dstW;
    std::vector<double> rows(size_t(srcW) * 3);
    for (int y = 0; y < dstH; ++y) {
        const double lo = y * rowSpan, hi = std::min(double(srcH), (y + 1) * rowSpan);
        std::fill(rows.begin(), rows.end(), 0.0);
        double area = 0.0;
        for (int sy = int(lo); sy < srcH && sy < hi; ++sy) {
            const double w = overlap(sy, lo, hi);
            area += w;
            const PX_Rgb* line = &src[size_t(sy) * size_t(srcW)];
            for (int x = 0; x < srcW; ++x) {
                rows[size_t(x) * 3 + 0] += line[x].r * w;
                rows[size_t(x) * 3 + 1] += line[x].g * w;
                rows[size_t(x) * 3 + 2] += line[x].b * w;
            }
        }
        for (int x = 0; x < dstW; ++x) {
            const double clo = x * columnSpan, chi = std::min(double(srcW), (x + 1) * columnSpan);
            double sum[3] = {0.0, 0.0, 0.0}, covered = 0.0;
            for (int sx = int(clo); sx < srcW && sx < chi; ++sx) {
                const double w = overlap(sx, clo, chi);
                covered += w;
                for (int c = 0; c < 3; ++c)
                    sum[c] += rows[size_t(sx) * 3 + size_t(c)] * w;
            }
            const double norm = area * covered > 0.0 ? 1.0 / (area * covered) : 0.0;
            PX_Rgb& out = dst[size_t(y) * size_t(dstW) + size_t(x)];
            out.r = float(std::min(255.0, sum[0] * norm + 0.5));
            out.g = float(std::min(255.0, sum[1] * norm + 0.5));
            out.b = float(std::min(255.0, sum[2] * norm + 0.5));
        }
    }
}

void copyGlowArray(PX_GlowParams& to, const PX_GlowParams& from) {
    to.glowArray.assign(size_t(to.wide) * size_t(to.high) + 1, PX_Rgb());
    if (to.wide == from.wide && to.high == from.high) {
        std::copy(from.glowArray.begin(), from.glowArray.end(), to.glowArray.begin());
        return;
    }
    filterResizeDown(to.glowArray.data(), to.wide, to.high, from.glowArray.data(), from.wide,
                     from.high);
}

double shaderGlowEffect(PX_GlowParams& params, const PX_ShaderGlow& shaderGlow) {
    initGlowFilter(params, shaderGlow);
    const int wide = params.wide, high = params.high;
    const int w = params.filterWidth, half = w / 2;
    std::vector<PX_Rgb> result(size_t(wide) * size_t(high) + 1);
    const bool coloured = params.type == kGlowLensFlare;
    float brightest = 0.0f;
    for (int y = 0; y < high; ++y)
        for (int x = 0; x < wide; ++x) {
            PX_Rgb s = params.glowArray[size_t(y) * size_t(wide) + size_t(x)];
            // Less than one step of an 8-bit channel is no glow.
            if (s.r < 1.0f)
                s.r = 0.0f;
            if (s.g < 1.0f)
                s.g = 0.0f;
            if (s.b < 1.0f)
                s.b = 0.0f;
            if (s.r == 0.0f && s.g == 0.0f && s.b == 0.0f)
                continue;
            brightest = std::max({brightest, s.r, s.g, s.b});
            const int fy0 = std::max(-half, -y), fy1 = std::min(half, high - 1 - y);
            const int fx0 = std::max(-half, -x), fx1 = std::min(half, wide - 1 - x);
            for (int fy = fy0; fy <= fy1; ++fy) {
                const float* row = &params.filter[size_t(fy + half) * size_t(w) * 4];
                PX_Rgb* out = &result[size_t(y + fy) * size_t(wide)];
                for (int fx = fx0; fx <= fx1; ++fx) {
                    const float* f = row + size_t(fx + half) * 4;
                    if (f[3] < 1e-5f)
                        continue;
                    PX_Rgb& o = out[x + fx];
                    if (coloured) {
                        o.r += s.r * f[0];
                        o.g += s.g * f[1];
                        o.b += s.b * f[2];
                    } else {
                        o.r += s.r * f[3];
                        o.g += s.g * f[3];
                        o.b += s.b * f[3];
                    }
                }
            }
        }
    double v;
    if (shaderGlow.autoExposure) {
        float m = 0.0f;
        for (const PX_Rgb& c : result)
            m = std::max({m, c.r, c.g, c.b});
        v = (double(m) + 0.001) / (double(params.intensity) * brightest + 0.001);
    } else {
        v = double(w) * w / (double(params.intensity) * 500.0);
    }
    v = std::max(v, 1e-5);
    const double normalisation = double(w) * w / (v * 500.0);
    const double k = 2.0 / (v * 255.0);
    const float kr = float(params.color[0] * k), kg = float(params.color[1] * k),
                kb = float(params.color[2] * k);
    params.glowArray.resize(result.size());
    for (size_t i = 0; i < result.size(); ++i) {
        params.glowArray[i].r = std::clamp(result[i].r * kr, 0.0f, 255.0f);
        params.glowArray[i].g = std::clamp(result[i].g * kg, 0.0f, 255.0f);
        params.glowArray[i].b = std::clamp(result[i].b * kb, 0.0f, 255.0f);
    }
    return normalisation;
}

float glowDither(unsigned x, unsigned y, unsigned channel, unsigned salt) {
    uint32_t h = x * 0x9E3779B1u ^ (y + 0x7F4A7C15u) * 0x85EBCA77u ^ (channel + salt) * 0xC2B2AE3Du;
    h ^= h >> 16;
    h *= 0x7FEB352Du;
    h ^= h >> 15;
    h *= 0x846CA68Bu;
    h ^= h >> 16;
    return float(h >> 8) * (2.0f / 16777216.0f) - 1.0f;
}

void glowArray(const PX_GlowParams& params, const TpostImage& image, unsigned firstLine,
               unsigned lastLine) {
    if (params.glowArray.empty() || params.wide <= 0 || params.high <= 0 || !image.pixels)
        return;
    const float res = params.resolution;
    const int lastX = params.wide - 1, lastY = params.high - 1;
    const bool hasAlpha = image.channels >= 4;
    lastLine = std::min(lastLine, image.height - 1);
    for (unsigned y = firstLine; y <= lastLine; ++y) {
        const float py = float(y) * res;
        const int iy = std::min(int(py), lastY);
        const int iy1 = std::min(iy + 1, lastY);
        const float ty = py - float(iy) > 1.0f ? 1.0f : py - float(iy);
        for (unsigned x = 0; x < image.width; ++x) {
            const float px = float(x) * res;
            const int ix = std::min(int(px), lastX);
            const int ix1 = std::min(ix + 1, lastX);
            const float tx = px - float(ix) > 1.0f ? 1.0f : px - float(ix);
            const PX_Rgb& a = params.glowArray[size_t(iy) * size_t(params.wide) + size_t(ix)];
            const PX_Rgb& b = params.glowArray[size_t(iy) * size_t(params.wide) + size_t(ix1)];
            const PX_Rgb& c = params.glowArray[size_t(iy1) * size_t(params.wide) + size_t(ix)];
            const PX_Rgb& d = params.glowArray[size_t(iy1) * size_t(params.wide) + size_t(ix1)];
            const auto mix = [&](float PX_Rgb::*channel) {
                const float top = a.*channel + (b.*channel - a.*channel) * tx;
                const float bottom = c.*channel + (d.*channel - c.*channel) * tx;
                return top + (bottom - top) * ty;
            };
            const float glow[3] = {mix(&PX_Rgb::r), mix(&PX_Rgb::g), mix(&PX_Rgb::b)};
            if (glow[0] == 0.0f && glow[1] == 0.0f && glow[2] == 0.0f)
                continue;
            float* pixel = image.at(x, y);
            // The glow is in 0..255 steps; so is the working pixel.
            float out[4];
            for (int k = 0; k < 3; ++k)
                out[k] = pixel[k] * 255.0f;
            out[3] = hasAlpha ? pixel[3] * 255.0f : 0.0f;
            const float sum = glow[0] + glow[1] + glow[2];
            const float avg = sum / 3.0f;
            const float o = params.opacity != 0.0f ? params.opacity * sum / 765.0f : 0.0f;
            if (o > 0.0f) {
                out[3] = o * avg + avg + out[3];
                for (int k = 0; k < 3; ++k)
                    out[k] = o < 1.0f ? glow[k] + out[k] * (1.0f - o) : glow[k];
            } else {
                for (int k = 0; k < 3; ++k)
                    out[k] = glow[k] + out[k];
                out[3] = avg + out[3];
            }
            for (unsigned k = 0; k < 4; ++k) {
                if (out[k] > 0.5f)
                    out[k] += glowDither(x, y, k, unsigned(params.type));
                out[k] = std::clamp(out[k], 0.0f, 255.0f);
            }
            for (int k = 0; k < 3; ++k)
                pixel[k] = out[k] / 255.0f;
            if (hasAlpha)
                pixel[3] = out[3] / 255.0f;
        }
    }
}

} // namespace orvo::post
