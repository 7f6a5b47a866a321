#include "post/depth_of_field.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace orvo::post {

double dofScale(const TdofCamera& camera, unsigned width) {
    const double distance = camera.focusDistance * camera.focusRegionScale * camera.sceneUnit;
    const double aperture = camera.focalLength * 0.1 / (camera.fStop * 2.0);
    return double(width) * 0.5 /
           (std::tan(camera.verticalFieldOfView * 0.5) * camera.cameraScale * distance) * aperture;
}

float dofRadius(const TdofCamera& camera, double scale, float depth) {
    const double distance = camera.focusDistance * camera.focusRegionScale * camera.sceneUnit;
    // Far away |depth - focus| / depth goes to 1.
    const double spread =
        (depth > 0.0f && std::isfinite(depth)) ? std::fabs(depth - distance) / depth : 1.0;
    return float(std::min(double(kMaxDofRadius), scale * spread));
}

void createDofFilter(float radius, TdofFilter& filter) {
    filter.radius = radius;
    filter.weights.assign(size_t(kDofFilterSize) * kDofFilterSize, 0.0f);
    filter.fixed.assign(size_t(kDofFilterSize) * kDofFilterSize, 0);
    int64_t sum = 0;
    for (int y = -kMaxDofRadius; y <= kMaxDofRadius; ++y)
        for (int x = -kMaxDofRadius; x <= kMaxDofRadius; ++x) {
            // How much of the cell the disc covers, by its centre's distance
            // from the rim: whole inside, none half a cell out.
            const double coverage =
                std::clamp(double(radius) + 0.5 - std::sqrt(double(x * x + y * y)), 0.0, 1.0);
            const int32_t fixed = int32_t(std::lround(coverage * 256.0));
            filter.fixed[size_t(y + kMaxDofRadius) * kDofFilterSize + size_t(x + kMaxDofRadius)] =
                fixed;
            sum += fixed;
        }
    if (sum == 0) {
        // A point: the pixel keeps itself.
        filter.fixed[size_t(kMaxDofRadius) * kDofFilterSize + kMaxDofRadius] = 256;
        sum = 256;
    }
    for (size_t i = 0; i < filter.fixed.size(); ++i)
        filter.weights[i] = float(double(filter.fixed[i]) / double(sum));
}

bool computeDOF(unsigned width, unsigned height, const TdofCamera& camera, const TpostImage& image,
                const float* depth) {
    if (!image.pixels || !depth || width == 0 || height == 0 || image.width != width ||
        image.height != height)
        return false;
    const double scale = dofScale(camera, width);
    if (!std::isfinite(scale) || scale < 0.0)
        return false;
    const unsigned channels = image.channels;
    std::vector<float> sums(size_t(width) * height * (channels + 1), 0.0f);
    // Filters by radius, in quarter pixels: a frame uses a few dozen.
    std::map<int, TdofFilter> filters;
    for (unsigned y = 0; y < height; ++y)
        for (unsigned x = 0; x < width; ++x) {
            const float radius = dofRadius(camera, scale, depth[size_t(y) * width + x]);
            const int key = int(std::lround(radius * 4.0f));
            auto found = filters.find(key);
            if (found == filters.end()) {
                found = filters.emplace(key, TdofFilter()).first;
                createDofFilter(float(key) * 0.25f, found->second);
            }
            const TdofFilter& filter = found->second;
            const int reach = std::min(kMaxDofRadius, int(std::ceil(filter.radius + 0.5f)));
            const float* source = image.at(x, y);
            const int y0 = std::max(-reach, -int(y)), y1 = std::min(reach, int(height - 1 - y));
            const int x0 = std::max(-reach, -int(x)), x1 = std::min(reach, int(width - 1 - x));
            for (int dy = y0; dy <= y1; ++dy) {
                const float* row =
                    &filter.weights[size_t(dy + kMaxDofRadius) * kDofFilterSize + kMaxDofRadius];
                float* out = &sums[(size_t(int(y) + dy) * width + x) * (channels + 1)];
                for (int dx = x0; dx <= x1; ++dx) {
                    const float w = row[dx];
                    if (w == 0.0f)
                        continue;
                    float* cell = out + std::ptrdiff_t(dx) * std::ptrdiff_t(channels + 1);
                    for (unsigned c = 0; c < channels; ++c)
                        cell[c] += source[c] * w;
                    cell[channels] += w;
                }
            }
        }
    for (unsigned y = 0; y < height; ++y)
        for (unsigned x = 0; x < width; ++x) {
            const float* cell = &sums[(size_t(y) * width + x) * (channels + 1)];
            if (cell[channels] <= 0.0f)
                continue;
            float* pixel = image.at(x, y);
            for (unsigned c = 0; c < channels; ++c)
                pixel[c] = cell[c] / cell[channels];
        }
    return true;
}

} // namespace orvo::post
