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
    filter.whole = float(256.0 / double(sum));
    filter.run.assign(kDofFilterSize, -1);
    filter.edges.assign(kDofFilterSize, {});
    for (int row = 0; row < kDofFilterSize; ++row) {
        const int32_t* fixed = &filter.fixed[size_t(row) * kDofFilterSize + kMaxDofRadius];
        int a = -1;
        while (a < kMaxDofRadius && fixed[a + 1] == 256 && fixed[-(a + 1)] == 256)
            ++a;
        filter.run[size_t(row)] = a;
        for (int dx = -kMaxDofRadius; dx <= kMaxDofRadius; ++dx)
            if ((dx < -a || dx > a) && fixed[dx] != 0)
                filter.edges[size_t(row)].push_back(
                    {dx,
                     filter.weights[size_t(row) * kDofFilterSize + size_t(dx + kMaxDofRadius)]});
    }
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
    const unsigned stride = channels + 1;
    // Whole cells of a disc row go in as one span: a step up where the span
    // starts and down after it ends, summed along the row at the end, so a
    // pixel costs its disc's rows rather than its area. Partly covered rim
    // cells go straight into the sums.
    std::vector<float> sums(size_t(width) * height * stride, 0.0f);
    std::vector<float> steps(size_t(width + 1) * height * stride, 0.0f);
    // Filters by radius, in quarter pixels: a frame uses a few dozen.
    std::map<int, TdofFilter> filters;
    float value[8];
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
            const unsigned used = std::min(channels, 7u);
            for (unsigned c = 0; c < used; ++c)
                value[c] = source[c];
            value[used] = 1.0f;
            const int y0 = std::max(-reach, -int(y)), y1 = std::min(reach, int(height - 1 - y));
            for (int dy = y0; dy <= y1; ++dy) {
                const size_t row = size_t(dy + kMaxDofRadius);
                const size_t target = size_t(int(y) + dy);
                const int a = filter.run[row];
                if (a >= 0) {
                    const int from = std::max(0, int(x) - a);
                    const int to = std::min(int(width) - 1, int(x) + a);
                    float* up = &steps[(target * (width + 1) + size_t(from)) * stride];
                    float* down = &steps[(target * (width + 1) + size_t(to + 1)) * stride];
                    for (unsigned c = 0; c <= used; ++c) {
                        up[c] += value[c] * filter.whole;
                        down[c] -= value[c] * filter.whole;
                    }
                }
                for (const TdofFilter::Edge& e : filter.edges[row]) {
                    const int tx = int(x) + e.dx;
                    if (tx < 0 || tx >= int(width))
                        continue;
                    float* cell = &sums[(target * width + size_t(tx)) * stride];
                    for (unsigned c = 0; c <= used; ++c)
                        cell[c] += value[c] * e.weight;
                }
            }
        }
    for (unsigned y = 0; y < height; ++y) {
        float running[8] = {0, 0, 0, 0, 0, 0, 0, 0};
        for (unsigned x = 0; x < width; ++x) {
            const float* step = &steps[(size_t(y) * (width + 1) + x) * stride];
            float* cell = &sums[(size_t(y) * width + x) * stride];
            for (unsigned c = 0; c < stride && c < 8; ++c) {
                running[c] += step[c];
                cell[c] += running[c];
            }
        }
    }
    const unsigned used = std::min(channels, 7u);
    for (unsigned y = 0; y < height; ++y)
        for (unsigned x = 0; x < width; ++x) {
            const float* cell = &sums[(size_t(y) * width + x) * stride];
            if (cell[used] <= 0.0f)
                continue;
            float* pixel = image.at(x, y);
            for (unsigned c = 0; c < used; ++c)
                pixel[c] = cell[c] / cell[used];
        }
    return true;
}

} // namespace orvo::post
